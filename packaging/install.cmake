# What `cmake --install` and the packages put where. Tests and benchmarks stay out.
#   runtime   programs, manual pages, completion, documents
#   host      what the Debian package has of its own: the unit, zsh's completion
#   debian    the rest of the Debian package; never installed without being asked for
include(GNUInstallDirs)

set(programs kestrine urlstat urlbuild mklogdata)
set(completed urlstat urlbuild)
set(settings ${PROJECT_SOURCE_DIR}/config/urlstat.ini)
set(packaging ${CMAKE_CURRENT_LIST_DIR})

if(WIN32)
    include(${packaging}/windows/install.cmake)
    return()
endif()

install(TARGETS ${programs} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
foreach(section IN ITEMS 1 8)
    file(GLOB pages CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/doc/man/*.${section})
    install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT runtime)
endforeach()
foreach(program IN LISTS completed)
    install(FILES ${PROJECT_SOURCE_DIR}/doc/completion/${program}.bash RENAME ${program}
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT runtime)
    list(APPEND completions ${PROJECT_SOURCE_DIR}/doc/completion/_${program})
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
set(logs /srv/logs)
configure_file(${packaging}/mysql_path.ini.in ${PROJECT_BINARY_DIR}/packaging/mysql_path.ini @ONLY)
install(FILES ${settings} ${PROJECT_BINARY_DIR}/packaging/mysql_path.ini
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT runtime)
install(PROGRAMS ${PROJECT_SOURCE_DIR}/cluster/urlbuild-dask ${PROJECT_SOURCE_DIR}/cluster/simulate
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT runtime)

# The prefix is known only now, when it is installed.
set(unit ${packaging}/kestrine.service.in)
install(CODE "
    set(bindir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
    configure_file(${unit} ${PROJECT_BINARY_DIR}/packaging/host/kestrine.service @ONLY)"
    COMPONENT host)
install(FILES ${PROJECT_BINARY_DIR}/packaging/host/kestrine.service
    DESTINATION lib/systemd/system COMPONENT host)
install(FILES ${completions}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT host)

include(${packaging}/debian/install.cmake)
