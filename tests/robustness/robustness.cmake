# The allocation-failure test counts and fails the library's allocations through wrapped symbols.
target_link_options(robustness_tests PRIVATE "LINKER:--wrap=malloc,--wrap=calloc,--wrap=realloc,--wrap=free")
