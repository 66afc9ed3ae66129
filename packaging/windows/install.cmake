# The unpacked archive is an installation root: settings and log files lie beside the programs.
set(staged ${PROJECT_BINARY_DIR}/packaging/windows)
set(windows DESTINATION . COMPONENT windows)
install(TARGETS ${programs} ${windows})

# For editors that know no other line end.
macro(windows_text source name)
    configure_file(${source} ${staged}/${name} @ONLY NEWLINE_STYLE CRLF)
endmacro()
windows_text(${packaging}/windows/README.txt.in README.txt)
windows_text(${PROJECT_SOURCE_DIR}/CHANGELOG.md CHANGELOG.txt)
windows_text(${settings} config/urlstat.ini)
set(logs "D:\\logs")
windows_text(${packaging}/mysql_path.ini.in mysql_path.ini)
install(DIRECTORY ${staged}/ ${windows})

# Of what is linked into the programs.
foreach(library IN ITEMS libcli11-dev nlohmann-json3-dev libkainjow-mustache-dev libz-mingw-w64-dev
        mingw-w64-common gcc-mingw-w64-base)
    install(FILES /usr/share/doc/${library}/copyright RENAME ${library}.txt
        DESTINATION licenses COMPONENT windows)
endforeach()
