# One libFuzzer target for each file of fuzz/; needs the packages clang-14 and libclang-rt-14-dev.
# The instrumentation of everything they link comes with the compiler flags of the preset.

file(GLOB harness_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/fuzz/harness/*.cpp)
file(GLOB fuzz_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/fuzz/*.cpp)
foreach(source IN LISTS fuzz_sources)
    cmake_path(GET source STEM name)
    kestrine_executable(fuzz_${name} SOURCES ${source} ${harness_sources}
        LINKS kestrine_core worldgen)
    if(TARGET fuzz_${name})
        target_include_directories(fuzz_${name} PRIVATE ${PROJECT_SOURCE_DIR}/fuzz
            ${PROJECT_SOURCE_DIR}/tests)
        target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    endif()
endforeach()
