// The population-count and bit-reversal byte tables, filled at compile time.
#include "transport/tables.h"

namespace kvaudio {
namespace {

constexpr std::array<uint8_t, 256> MakeTable(uint8_t (*entry)(unsigned)) {
  std::array<uint8_t, 256> t{};
  for (unsigned i = 0; i < 256; ++i) t[i] = entry(i);
  return t;
}

constexpr uint8_t BitCount(unsigned i) {
  uint8_t n = 0;
  for (; i; i >>= 1) n += i & 1;
  return n;
}

constexpr uint8_t Reversed(unsigned i) {
  unsigned r = 0;
  for (int b = 0; b < 8; ++b) r |= ((i >> b) & 1u) << (7 - b);
  return static_cast<uint8_t>(r);
}

}  // namespace

constinit const std::array<uint8_t, 256> VposBitPop = MakeTable(BitCount);
constinit const std::array<uint8_t, 256> BitReverseTable256 = MakeTable(Reversed);

}  // namespace kvaudio
