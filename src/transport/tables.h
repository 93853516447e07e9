// Byte tables shared by the AES3, 302M and LTC bit packing.
#pragma once

#include <array>
#include <cstdint>

namespace kvaudio {

// Entry i is the number of one bits in i; gives AES3 parity a byte at a time.
extern const std::array<uint8_t, 256> VposBitPop;
// Entry i is i with its eight bits in reverse order.
extern const std::array<uint8_t, 256> BitReverseTable256;

}  // namespace kvaudio
