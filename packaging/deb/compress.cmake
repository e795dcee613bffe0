# Run by cpack over what it is about to pack: changelogs under the names that Debian knows, and what it wants compressed.
set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
set(documents ${share}/doc/${CPACK_PACKAGE_NAME})
if(EXISTS ${documents}/CHANGELOG.md)
  file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)
endif()
file(GLOB compressed ${documents}/changelog* ${share}/man/man1/*)
execute_process(COMMAND gzip -9n ${compressed} COMMAND_ERROR_IS_FATAL ANY)
