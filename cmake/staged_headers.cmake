# Header-only libraries lie in the host's include root, which must never be on the include path of a
# cross build. Their folders are copied into the build tree and included from there.

set(staged ${PROJECT_BINARY_DIR}/staged)

# staged_headers(name header): the library `name` with the folder that holds the header.
function(staged_headers name header)
    find_path(${name}_ROOT ${header} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
    cmake_path(GET header PARENT_PATH folder)
    file(COPY ${${name}_ROOT}/${folder} DESTINATION ${staged})
    add_library(${name} INTERFACE)
    target_include_directories(${name} SYSTEM INTERFACE ${staged})
endfunction()

staged_headers(cli11 CLI/CLI.hpp)
staged_headers(json nlohmann/json.hpp)
staged_headers(mustache kainjow/mustache.hpp)
