# Decides for which platform a build is. All other files check
#
#   ORVEX_MACOS  the sources, libraries, tests and targets of a Mac's build. Set on a Mac, and on other systems by
#                ORVEX_AS_ON_MACOS, which uses the stand-ins of sim/iokit for the system's libraries
#   ORVEX_LINUX  the parts that only a Linux build has
#
# Settings that depend on the system that builds are values and functions below.
option(ORVEX_AS_ON_MACOS "Build the sources of a Mac's build against stand-ins for its system" OFF)
if(APPLE OR ORVEX_AS_ON_MACOS)
  set(ORVEX_MACOS ON)
elseif(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(ORVEX_LINUX ON)
endif()

# ORVEX_MACOS_SYSTEM: the libraries to link the macOS side with. ORVEX_ORIGIN: in a run path, the folder of the file
# that contains it. ORVEX_VERSION_ENDING: the end of the file names by which programs load libusb and hidapi.
# ORVEX_LIBUSB_FILE: that name of libusb.
if(APPLE)
  set(ORVEX_MACOS_SYSTEM "-framework IOKit" "-framework CoreFoundation")
  set(ORVEX_ORIGIN @loader_path)
  set(ORVEX_VERSION_ENDING .0.dylib)
else()
  set(ORVEX_MACOS_SYSTEM sim_iokit)
  set(ORVEX_ORIGIN $ORIGIN)
  set(ORVEX_VERSION_ENDING .so.0)
endif()
set(ORVEX_LIBUSB_FILE libusb-1.0${ORVEX_VERSION_ENDING})

# Limits the exports of a library to the list in its folder's exports.symbols (macOS) or exports.map (other systems).
# The symbols have no version.
function(export_only target)
  if(APPLE)
    set(list ${CMAKE_CURRENT_SOURCE_DIR}/exports.symbols)
    target_link_options(${target} PRIVATE -Wl,-exported_symbols_list,${list})
  else()
    set(list ${CMAKE_CURRENT_SOURCE_DIR}/exports.map)
    target_link_options(${target} PRIVATE -Wl,--version-script=${list})
    # With Clang the sanitizer's own functions are in the program, not in its libraries.
    if(NOT ORVEX_SANITIZE)
      target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
  endif()
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${list})
endfunction()

# Keeps a library, with its threads and static objects, in memory after dlclose().
function(stays_loaded target)
  if(NOT APPLE)
    target_link_options(${target} PRIVATE -Wl,-z,nodelete)
  endif()
endfunction()

# Makes a symbolic link to a library beside it, by which programs on Linux find it, too. The global property
# ORVEX_OTHER_NAMES has all of them.
function(other_name target name)
  if(ORVEX_LINUX)
    add_custom_command(TARGET ${target} POST_BUILD
      COMMAND ${CMAKE_COMMAND} -E create_symlink $<TARGET_FILE_NAME:${target}> $<TARGET_FILE_DIR:${target}>/${name})
    set_property(GLOBAL APPEND PROPERTY ORVEX_OTHER_NAMES ${name})
  endif()
endfunction()
