# Our own targets are made here, so that the warnings apply to all of them and to no other code.

add_library(kestrine_settings INTERFACE)
target_compile_options(kestrine_settings INTERFACE -Wall -Wextra -Wshadow -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 reports overlaps in plain concatenations of std::string that cannot occur.
    target_compile_options(kestrine_settings INTERFACE -Wno-restrict)
endif()

# The leading arguments of both functions are the target's name and
#   SOURCES   its source files
#   LINKS     the libraries that it links (for a library: publicly)
# A target without sources, or with a library of ours that is itself left out, is left out with a
# status line: a partial tree still builds.

function(kestrine_library name)
    kestrine_parse(${name} ${ARGN})
    if(ready)
        add_library(${name} STATIC ${arg_SOURCES})
        target_link_libraries(${name} PRIVATE kestrine_settings PUBLIC ${arg_LINKS})
    endif()
endfunction()

function(kestrine_executable name)
    kestrine_parse(${name} ${ARGN})
    if(ready)
        add_executable(${name} ${arg_SOURCES})
        target_link_libraries(${name} PRIVATE kestrine_settings ${arg_LINKS})
    endif()
endfunction()

macro(kestrine_parse name)
    cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
    set(ready TRUE)
    set(missing)
    if(NOT arg_SOURCES)
        list(APPEND missing "its sources")
    endif()
    foreach(library IN LISTS arg_LINKS)
        if(NOT TARGET ${library})
            list(APPEND missing ${library})
        endif()
    endforeach()
    if(missing)
        set(ready FALSE)
        message(STATUS "${name} is left out, missing: ${missing}")
    endif()
endmacro()
