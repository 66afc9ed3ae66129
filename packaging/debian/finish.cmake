# Run by cpack over the files of the package, before they are put into it: Debian has documents under
# names of its own, and compressed.
set(doc ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share/doc/kestrine)
file(RENAME ${doc}/CHANGELOG.md ${doc}/changelog)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog.in ${doc}/changelog.Debian @ONLY)

file(GLOB texts ${doc}/changelog ${doc}/changelog.Debian
    ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share/man/man*/*)
execute_process(COMMAND gzip -9nf ${texts} COMMAND_ERROR_IS_FATAL ANY)
