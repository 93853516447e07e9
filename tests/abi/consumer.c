/* A C program built against the installed library: splits four pairs and checks the result. */
#include <stdio.h>

#include "kvaudio/interleave.h"

int main(void) {
  uint32_t src[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  uint32_t p[4][2];
  if (AudioDeinterleave16to16(src, p[0], p[1], p[2], p[3], 2) != 0) return 1;
  for (int k = 0; k < 4; ++k)
    if (p[k][0] != (uint32_t)k + 1 || p[k][1] != (uint32_t)k + 5) return 1;
  puts("consumer: ok");
  return 0;
}
