# Runs on a package's files before packing: Debian compresses manual pages and changelogs.
file(GLOB_RECURSE PAGES ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/share/man/*
    ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/share/doc/*/changelog)
file(GLOB_RECURSE NEWS ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/*/usr/share/doc/*/CHANGELOG.md)
foreach(FILE ${NEWS})
    get_filename_component(FOLDER ${FILE} DIRECTORY)
    file(RENAME ${FILE} ${FOLDER}/NEWS)
    list(APPEND PAGES ${FOLDER}/NEWS)
endforeach()
if(PAGES)
    execute_process(COMMAND gzip -9n ${PAGES} COMMAND_ERROR_IS_FATAL ANY)
endif()
