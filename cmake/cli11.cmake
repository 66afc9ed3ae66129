# CLI11 is header-only and lies in the host's include root, which must never be on the include path
# of a cross build. Its one folder is copied into the build tree and included from there.

find_path(CLI11_ROOT CLI/CLI.hpp PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED)
set(staged ${PROJECT_BINARY_DIR}/staged)
file(COPY ${CLI11_ROOT}/CLI DESTINATION ${staged})

add_library(cli11 INTERFACE)
target_include_directories(cli11 SYSTEM INTERFACE ${staged})
