# Run by cpack over what it has put together: manual pages are compressed, a changelog lies beside the copyright, and the
# package lint is told what it finds and need not.
set(share "${CPACK_TEMPORARY_DIRECTORY}/usr/share")
file(COPY "${CMAKE_CURRENT_LIST_DIR}/../share/debian/changelog" DESTINATION "${share}/doc/sonivo")
file(COPY "${CMAKE_CURRENT_LIST_DIR}/../share/debian/lintian-overrides" DESTINATION "${share}/lintian/overrides")
file(RENAME "${share}/lintian/overrides/lintian-overrides" "${share}/lintian/overrides/sonivo")
file(GLOB_RECURSE pages "${share}/man/*.[18]")
execute_process(COMMAND gzip -9n "${share}/doc/sonivo/changelog" ${pages} COMMAND_ERROR_IS_FATAL ANY)
