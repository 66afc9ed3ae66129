# The part of the Debian package that no other installation has.
#
# The installation root is /var/lib/kestrine; its settings and log files lie where Debian has them:
#   config -> /etc/kestrine, log -> /var/log (the service writes log/kestrine), mysql_path.ini

set(staged ${PROJECT_BINARY_DIR}/packaging/debian)
set(root ${staged}/root)
set(debian COMPONENT debian EXCLUDE_FROM_ALL)

set(bindir /usr/bin)
configure_file(${packaging}/kestrine.service.in ${staged}/kestrine.service @ONLY)
install(FILES ${staged}/kestrine.service DESTINATION lib/systemd/system ${debian})
install(FILES ${completions} DESTINATION share/zsh/vendor-completions ${debian})

# The sample settings, with the places of the package.
file(READ ${settings} text)
foreach(place IN ITEMS memoryDiskPath=/var/lib/kestrine/memory/spill
        urlStatRoot=/var/lib/kestrine/statistics)
    string(REGEX MATCH "^[^=]+=" key ${place})
    if(NOT text MATCHES "\n${key}\n")
        message(FATAL_ERROR "${settings} has no empty ${key}")
    endif()
    string(REPLACE "\n${key}\n" "\n${place}\n" text "${text}")
endforeach()
file(WRITE ${root}/etc/kestrine/urlstat.ini "${text}")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${settings})
file(WRITE ${staged}/conffiles "/etc/kestrine/urlstat.ini\n")

set(state ${root}/var/lib/kestrine)
file(MAKE_DIRECTORY ${state}/memory ${root}/var/log/kestrine)
file(CREATE_LINK /etc/kestrine ${state}/config SYMBOLIC)
file(CREATE_LINK /etc/kestrine/mysql_path.ini ${state}/mysql_path.ini SYMBOLIC)
file(CREATE_LINK ../../log ${state}/log SYMBOLIC)
install(DIRECTORY ${root}/etc/ DESTINATION /etc ${debian})
install(DIRECTORY ${root}/var/ DESTINATION /var ${debian})

install(FILES ${packaging}/debian/copyright ${packaging}/debian/README.Debian
    DESTINATION share/doc/kestrine ${debian})
