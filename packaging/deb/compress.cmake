# cpack runs this before it packs: it renames the changelog and compresses the files that Debian's policy requires.
set(share ${CPACK_TEMPORARY_DIRECTORY}/usr/share)
set(documents ${share}/doc/${CPACK_PACKAGE_NAME})
if(EXISTS ${documents}/CHANGELOG.md)
  file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)
endif()
file(GLOB compressed ${documents}/changelog* ${share}/man/man1/*)
execute_process(COMMAND gzip -9n ${compressed} COMMAND_ERROR_IS_FATAL ANY)
