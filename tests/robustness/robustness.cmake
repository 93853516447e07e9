# The allocation-failure test fails the library's allocations through wrapped symbols: malloc,
# calloc, realloc and operator new (plain, array, nothrow).
target_link_options(robustness_tests PRIVATE
  "LINKER:--wrap=malloc,--wrap=calloc,--wrap=realloc"
  "LINKER:--wrap=_Znwm,--wrap=_Znam,--wrap=_ZnwmRKSt9nothrow_t,--wrap=_ZnamRKSt9nothrow_t")
