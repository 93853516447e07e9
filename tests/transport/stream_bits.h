// Hand placement of bit-serial stream bits, the test's own model of the group layout.
#pragma once

#include <cstdint>

namespace kvtest {

// Places `width` bits of value LSB first from stream position q: byte q / 8, bit 7 - q % 8.
inline void PutBits(uint8_t *bytes, int q, uint32_t value, int width) {
  for (int b = 0; b < width; ++b, ++q)
    if ((value >> b) & 1) bytes[q / 8] |= static_cast<uint8_t>(0x80 >> (q % 8));
}

}  // namespace kvtest
