# Lets a library that is built here run on systems whose C and C++ runtimes are older than this one's.
#
# Of a function that has several versions the linker asks for the newest one, which older systems do not have. What is
# below has it ask for the version that the function has always had; newer systems have that one, too.

# Makes the library TARGET, a stand-in for SONAME at link time that offers the functions that follow at this VERSION.
# The linker takes a function from where it finds it first, and of the libraries of one soname uses the first alone.
function(add_runtime_stand_in target soname version)
  set(base ${CMAKE_CURRENT_BINARY_DIR}/${target})
  list(TRANSFORM ARGN REPLACE "(.+)" "void \\1(void) {}\n" OUTPUT_VARIABLE functions)
  list(JOIN functions "" functions)
  file(CONFIGURE OUTPUT ${base}.c CONTENT "${functions}" @ONLY)
  file(CONFIGURE OUTPUT ${base}.map CONTENT "${version} { global: *; };\n" @ONLY)
  add_library(${target} SHARED ${base}.c)
  target_compile_options(${target} PRIVATE -fno-builtin)
  target_link_options(${target} PRIVATE -nostdlib -Wl,-soname,${soname} -Wl,--version-script=${base}.map)
  set_target_properties(${target} PROPERTIES
    NO_SONAME ON LINK_DEPENDS ${base}.map LIBRARY_OUTPUT_DIRECTORY ${base} EXPORT_COMPILE_COMMANDS OFF)
endfunction()

# What is linked before the runtime, and what its users are compiled with. A sanitizer is a runtime of its own, as new
# as the compiler.
add_library(old_runtime INTERFACE)
add_library(old_runtime_headers INTERFACE)
set(first_glibc_x86_64 GLIBC_2.2.5)
set(first_glibc_aarch64 GLIBC_2.17)
set(first_glibc ${first_glibc_${CMAKE_SYSTEM_PROCESSOR}})
if(ORVEX_LINUX AND first_glibc AND NOT ORVEX_SANITIZE)
  # In a library of their own until glibc 2.34; its empty shell still has the versions.
  add_runtime_stand_in(old_pthread libpthread.so.0 ${first_glibc} pthread_create pthread_detach pthread_join)
  target_link_libraries(old_runtime INTERFACE old_pthread)
  # The rest of libstdc++.so.6 is wanted as well, so a stand-in cannot help: the version is named when it is compiled.
  target_compile_options(old_runtime_headers INTERFACE -include ${CMAKE_CURRENT_LIST_DIR}/OldRuntime.h)
endif()
