# The packages that cpack makes of a build: .deb on Linux, .zip for Windows.

set(CPACK_PACKAGE_VENDOR "Kestrine developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "count visited hosts of network-access logs")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
    GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

function(package_components)
    set(projects)
    foreach(component IN LISTS ARGN)
        list(APPEND projects ${PROJECT_BINARY_DIR} kestrine ${component} /)
    endforeach()
    set(CPACK_INSTALL_CMAKE_PROJECTS "${projects}" PARENT_SCOPE)
endfunction()

if(WIN32)
    set(CPACK_GENERATOR ZIP)
    set(CPACK_PACKAGE_FILE_NAME kestrine-${PROJECT_VERSION}-windows-x86_64)
    package_components(windows)
else()
    set(debian ${CMAKE_CURRENT_LIST_DIR}/debian)
    set(CPACK_GENERATOR DEB)
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    set(CPACK_PRE_BUILD_SCRIPTS ${debian}/finish.cmake)
    package_components(runtime debian)

    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
    set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
    set(KESTRINE_PACKAGE_RELEASE 1 CACHE STRING "Revision of the Debian package of one version")
    set(CPACK_DEBIAN_PACKAGE_RELEASE ${KESTRINE_PACKAGE_RELEASE})
    set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Kestrine developers <developers@kestrine.example>")
    set(CPACK_DEBIAN_PACKAGE_SECTION net)
    set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
    set(CPACK_DEBIAN_PACKAGE_DEPENDS adduser)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Kestrine watches the tree of log files that a logging product writes, takes
every new visit from it, and keeps for each account one file of hosts and visit
counts for every day, week and month, with lists of the most visited hosts.
.
It runs unattended as a service, in bounded memory. It may be killed at any
moment: no visit is lost or counted twice by that.
.
urlstat answers questions about the statistics, urlbuild counts a long history
in many processes, mklogdata makes sample log data.")
    set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
    set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${debian}/postinst ${debian}/prerm ${debian}/postrm
        ${PROJECT_BINARY_DIR}/packaging/debian/conffiles)
endif()
include(CPack)
