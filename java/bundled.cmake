# Copies of libusb and hidapi for machines without them: those of Debian, installed here or, for another processor,
# unpacked into a root. Sets bundled (the libraries) and bundle (the dependencies of the jar), and adds the folder to
# natives. On other systems than Debian the jar contains no copies.
set(bundled)
set(bundle)
set(papers usr/share/doc/libusb-1.0-0/copyright usr/share/doc/libhidapi-hidraw0/copyright)
string(REGEX REPLACE "/usr/lib/.*" "/" bundled_root "${LIBUSB_LINK_LIBRARIES}")
list(TRANSFORM papers PREPEND "${bundled_root}")
foreach(paper ${papers})
  if(ORVEX_LINUX AND EXISTS ${paper})
    list(APPEND bundle ${paper})
  endif()
endforeach()

if(bundle STREQUAL papers)
  cmake_path(GET LIBUSB_LINK_LIBRARIES PARENT_PATH libusb_folder)
  cmake_path(GET HIDAPI_LINK_LIBRARIES PARENT_PATH hidapi_folder)
  set(bundled ${libusb_folder}/libusb-1.0.so.0 ${hidapi_folder}/libhidapi-hidraw.so.0)
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/bundled)
  set(gatherer ${CMAKE_CURRENT_SOURCE_DIR}/bundled.py)
  add_custom_command(
    OUTPUT ${folder}/libraries.properties
    COMMAND ${Python3_EXECUTABLE} -B ${gatherer} ${folder} ${bundled_root} ${bundled}
    DEPENDS ${bundled} ${papers} ${gatherer}
    VERBATIM)
  set(bundle ${folder}/libraries.properties)
  list(APPEND natives META-INF/native/${system}-${processors}=${folder})
else()
  set(bundle)
  message(STATUS "libusb and hidapi are not from Debian: the jar contains no copies of them")
endif()
