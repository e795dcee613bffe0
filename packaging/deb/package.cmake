# The Debian packages, made by cpack; run script/package.

# The files that every Debian package has to contain.
function(orvex_debian_papers package component)
  set(documents ${CMAKE_INSTALL_DATADIR}/doc/${package})
  install(FILES deb/copyright DESTINATION ${documents} COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES deb/changelog DESTINATION ${documents} RENAME changelog.Debian COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES deb/${package}.lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
    RENAME ${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()

orvex_debian_papers(orvex-usb-access debian)
orvex_debian_papers(orvex-usb-simulator debian_simulator)

file(CREATE_LINK ../picocli.jar ${CMAKE_CURRENT_BINARY_DIR}/info.picocli.jar SYMBOLIC)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/info.picocli.jar DESTINATION ${CMAKE_INSTALL_DATADIR}/java/lib
  COMPONENT debian EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_INSTALL_CMAKE_PROJECTS
  "${CMAKE_BINARY_DIR};${PROJECT_NAME};orvex;/;${CMAKE_BINARY_DIR};${PROJECT_NAME};debian;/")
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/deb/compress.cmake)

set(CPACK_PACKAGE_NAME orvex-usb-access)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${ORVEX_TEAM} <${ORVEX_MAIL}>")
set(CPACK_PACKAGE_HOMEPAGE_URL ${ORVEX_URL})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "native USB access for Java, and a command-line tool")
set(CPACK_PACKAGE_DESCRIPTION
  "Java classes with a native library, with which hosts of development tools
find programmers, debuggers and other USB tools, open them and transfer data,
and orvex-usb, a command-line tool for the same tasks. The udev rules let the
user at the machine and the members of plugdev use the tools.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "default-jre-headless (>= 2:1.17) | java17-runtime-headless, libpicocli-java")
# Where the launcher looks for it, below the prefix of the package.
set(archive /usr/${libraries}/orvex-usb.jsa)
foreach(script postinst prerm)
  configure_file(deb/${script}.in ${CMAKE_CURRENT_BINARY_DIR}/deb/${script} @ONLY)
  list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/deb/${script})
endforeach()
list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/deb/triggers)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
configure_file(deb/simulator.cmake.in ${CMAKE_BINARY_DIR}/CPackSimulatorConfig.cmake @ONLY)
