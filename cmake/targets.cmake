# Our own targets are made here, so that the warnings apply to all of them and to no other code.

add_library(kestrine_settings INTERFACE)
target_compile_options(kestrine_settings INTERFACE -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 reports overlaps in plain concatenations of std::string that cannot occur.
    # Clang's warning of constants that nobody uses is lost where files are joined.
    target_compile_options(kestrine_settings INTERFACE -Wno-restrict -Wunused-const-variable=1)
endif()

# Where the files of a target are joined, clang-tidy takes the including of them for a mistake.
set(joined UNITY_BUILD_CODE_BEFORE_INCLUDE "// NOLINTNEXTLINE(bugprone-suspicious-include)")

# The leading arguments of both functions are the target's name and
#   SOURCES   its source files
#   LINKS     the libraries that it links (for a library: publicly)

function(kestrine_library name)
    cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
    add_library(${name} STATIC ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE kestrine_settings PUBLIC ${arg_LINKS})
    set_target_properties(${name} PROPERTIES ${joined})
endfunction()

function(kestrine_executable name)
    cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE kestrine_settings ${arg_LINKS})
    set_target_properties(${name} PROPERTIES ${joined})
endfunction()
