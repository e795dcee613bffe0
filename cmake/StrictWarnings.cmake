# Makes warnings errors; link this target to all targets of this project.
add_library(orvex_strict INTERFACE)
target_compile_options(orvex_strict INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wsign-conversion -Werror)
# GCC takes sources that are compiled together for headers, in which types of unnamed namespaces would be wrong.
if(CMAKE_UNITY_BUILD)
  target_compile_options(orvex_strict INTERFACE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-subobject-linkage>)
endif()
