# Makes a library that is built here run on systems whose C and C++ runtimes are older than those of this system.
#
# If a function has several versions, the linker binds to the newest one, which older systems lack. This file makes it
# bind to the oldest version, which newer systems have as well.

# Makes the library TARGET, a stand-in for SONAME at link time that exports the given functions with this VERSION. The
# linker takes a function from the first library that has it, and uses only the first of the libraries with one soname.
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

# The stand-ins to link before the runtime, and the options to compile with. Not for sanitizers, whose runtime is as new
# as the compiler.
add_library(old_runtime INTERFACE)
add_library(old_runtime_headers INTERFACE)
set(first_glibc_x86_64 GLIBC_2.2.5)
set(first_glibc_aarch64 GLIBC_2.17)
set(first_glibc ${first_glibc_${CMAKE_SYSTEM_PROCESSOR}})
if(ORVEX_LINUX AND first_glibc AND NOT ORVEX_SANITIZE)
  # Until glibc 2.34 these were in a separate library, which still exists, empty, with the old versions.
  add_runtime_stand_in(old_pthread libpthread.so.0 ${first_glibc} pthread_create pthread_detach pthread_join)
  target_link_libraries(old_runtime INTERFACE old_pthread)
  # No stand-in for libstdc++.so.6, because its other functions are needed too: the header selects the version.
  target_compile_options(old_runtime_headers INTERFACE -include ${CMAKE_CURRENT_LIST_DIR}/OldRuntime.h)
endif()
