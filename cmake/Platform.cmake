# What a build is for is decided here, once. Everything else asks
#
#   ORVEX_MACOS  what a Mac's build consists of, and nothing else: sources, libraries, tests, targets. Set on a Mac; and
#                elsewhere by ORVEX_AS_ON_MACOS, which has the stand-ins of sim/iokit for the system's own libraries
#   ORVEX_LINUX  what only Linux's build has
#
# or, where the system decides that builds, uses one of the values and functions below.
option(ORVEX_AS_ON_MACOS "Build what a Mac's build consists of, over stand-ins for its system" OFF)
if(APPLE OR ORVEX_AS_ON_MACOS)
  set(ORVEX_MACOS ON)
elseif(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(ORVEX_LINUX ON)
endif()

# ORVEX_MACOS_SYSTEM: what the macOS side is linked with. ORVEX_ORIGIN: in a run path, the folder of the file that has it.
# ORVEX_LIBUSB_FILE: the name by which programs ask for libusb.
if(APPLE)
  set(ORVEX_MACOS_SYSTEM "-framework IOKit" "-framework CoreFoundation")
  set(ORVEX_ORIGIN @loader_path)
  set(ORVEX_LIBUSB_FILE libusb-1.0.0.dylib)
else()
  set(ORVEX_MACOS_SYSTEM sim_iokit)
  set(ORVEX_ORIGIN $ORIGIN)
  set(ORVEX_LIBUSB_FILE libusb-1.0.so.0)
endif()

# Has a library offer nothing but what its folder's exports.symbols (macOS) or exports.map (elsewhere) lists. Its symbols
# carry no version.
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

# Has a library outlive the dlclose() of whoever loaded it, with its threads and static objects.
function(stays_loaded target)
  if(NOT APPLE)
    target_link_options(${target} PRIVATE -Wl,-z,nodelete)
  endif()
endfunction()
