// Timecode conversion with arbitrary words: no crash, and every address accepted converts back.
#include <cstdlib>

#include "fuzz_input.h"
#include "tcxlat.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  kvfuzz::Input in(data, size);
  const uint32_t word = in.Take<uint32_t>();
  const uint32_t flags = in.Take<uint32_t>() & ~TCXLAT_NO_WRAP;
  const uint32_t frame = tc2Frame(word, flags | TCXLAT_BCD);
  if (frame == TCXLAT_INVALID) return 0;
  uint8_t b[4];
  if (tc2String(frame, (flags & 0x100000FF) | 0x121200, b) != 0) std::abort();
  const uint32_t again = uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3];
  if (again != word) std::abort();
  return 0;
}
