# The interleave benchmarks run the same member calls as the equivalence test.
target_include_directories(kvaudio_bench PRIVATE ${PROJECT_SOURCE_DIR}/tests/common)
