# One libFuzzer target for each file of fuzz/; needs the packages clang-14 and libclang-rt-14-dev.
# The instrumentation of everything they link comes with the compiler flags of the preset. The target
# "fuzz" builds them all; fuzz/run.sh runs them.

# Makes inputs alone, and is slow where every comparison is watched.
target_compile_options(worldgen PRIVATE -fno-sanitize=fuzzer-no-link)

file(GLOB harness_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/fuzz/harness/*.cpp)
list(APPEND harness_sources ${PROJECT_SOURCE_DIR}/tests/support/memory_disk.cpp)
kestrine_library(fuzz_harness SOURCES ${harness_sources} LINKS kestrine_core worldgen)
target_include_directories(fuzz_harness PUBLIC ${PROJECT_SOURCE_DIR}/fuzz
    ${PROJECT_SOURCE_DIR}/tests)

add_custom_target(fuzz)
file(GLOB fuzz_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/fuzz/*.cpp)
foreach(source IN LISTS fuzz_sources)
    cmake_path(GET source STEM name)
    kestrine_executable(fuzz_${name} SOURCES ${source} LINKS fuzz_harness)
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    add_dependencies(fuzz fuzz_${name})
endforeach()
