# The allocation-failure test counts and fails the library's allocations through wrapped symbols:
# malloc, calloc, realloc, free and operator new / delete (plain, array, nothrow, sized).
target_link_options(robustness_tests PRIVATE
  "LINKER:--wrap=malloc,--wrap=calloc,--wrap=realloc,--wrap=free"
  "LINKER:--wrap=_Znwm,--wrap=_Znam,--wrap=_ZnwmRKSt9nothrow_t,--wrap=_ZnamRKSt9nothrow_t"
  "LINKER:--wrap=_ZdlPv,--wrap=_ZdlPvm,--wrap=_ZdaPv,--wrap=_ZdaPvm")
