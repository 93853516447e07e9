// Remap with arbitrary maps, channel counts, widths, pair buffers and level outputs in exact-size
// buffers: the result follows the channel count, and plain loop and AVX2 kernel agree.
#include <vector>

#include "fuzz_input.h"
#include "kvaudio/remap.h"

namespace {

using kvfuzz::Block;
using Interleaved = uint32_t (*)(void *, uint32_t, uint32_t, uint32_t, const uint32_t *, uint32_t *, uint32_t *);
using Pairs = uint32_t (*)(void *const *, uint32_t, uint32_t, uint32_t, const uint32_t *, uint32_t *, uint32_t *);

struct Width {
  size_t bytes;
  Interleaved interleaved;
  Pairs pairs;
};
const Width kWidths[] = {{4, AudioRemap32Bit, AudioRemap32BitPairs},
                         {3, AudioRemap24Bit, AudioRemap24BitPairs},
                         {2, AudioRemap16Bit, AudioRemap16BitPairs}};

struct Call {
  Width width;
  bool paired, levels;
  uint32_t channels, check, samples, nullPairs;
  std::vector<uint32_t> map;
  const uint8_t *payload;
  size_t payloadBytes;
};

// Runs one call on fresh buffers and returns every byte it may have written.
std::vector<uint8_t> Run(const Call &c, uint32_t &result) {
  const size_t levelWords = c.levels ? c.channels : 0;
  Block peaks(levelWords * 4, c.payload, c.payloadBytes), rms(levelWords * 4, c.payload, c.payloadBytes);
  Block map(c.map.size() * 4, reinterpret_cast<const uint8_t *>(c.map.data()), c.map.size() * 4);
  uint32_t *p = c.levels ? peaks.as<uint32_t>() : nullptr, *r = c.levels ? rms.as<uint32_t>() : nullptr;
  std::vector<Block> buffers;
  if (!c.paired) {
    buffers.emplace_back(size_t{c.samples} * c.channels * c.width.bytes, c.payload, c.payloadBytes);
    result = c.width.interleaved(buffers[0].data(), c.channels, c.check, c.samples, map.as<uint32_t>(), p, r);
  } else {
    // Pair k holds channels 2k, 2k+1 as `samples` stereo periods; pairs beyond 0 may be null.
    const uint32_t pairCount = (c.channels + 1) / 2;
    std::vector<void *> pairs(pairCount);
    for (uint32_t k = 0; k < pairCount; ++k) buffers.emplace_back(size_t{c.samples} * 2 * c.width.bytes, c.payload, c.payloadBytes);
    for (uint32_t k = 0; k < pairCount; ++k) pairs[k] = k > 0 && (c.nullPairs >> (k % 32) & 1) ? nullptr : buffers[k].data();
    Block table(pairCount * sizeof(void *), reinterpret_cast<const uint8_t *>(pairs.data()), pairCount * sizeof(void *));
    result = c.width.pairs(pairCount ? table.as<void *>() : nullptr, c.channels, c.check, c.samples,
                           map.as<uint32_t>(), p, r);
  }
  std::vector<uint8_t> all(peaks.data(), peaks.data() + peaks.size());
  all.insert(all.end(), rms.data(), rms.data() + rms.size());
  for (Block &b : buffers) all.insert(all.end(), b.data(), b.data() + b.size());
  return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  kvfuzz::Input in(data, size);
  const uint8_t shape = in.Take<uint8_t>();
  Call c{kWidths[shape % 3], (shape >> 2 & 1) != 0, (shape >> 3 & 1) != 0, in.Take<uint8_t>() % 40u,
         (shape >> 4 & 3) != 0 ? 1u : 0u, in.Take<uint16_t>() % 600u, in.Take<uint32_t>(), {}, nullptr, 0};
  c.map.resize(c.channels);
  // Masks are mostly single bits, so the kernels' one-bit path is reached often.
  for (auto &m : c.map) {
    const uint32_t raw = in.Take<uint32_t>();
    m = shape & 0x80 ? raw : 1u << (raw % (c.channels && c.channels < 32 ? c.channels : 32));
  }
  c.payload = in.rest();
  c.payloadBytes = in.rest_size();

  uint32_t plainResult = 0, fastResult = 0;
  kvaudio::frame::SetAvx2ForTesting(0);
  const std::vector<uint8_t> plain = Run(c, plainResult);
  kvaudio::frame::SetAvx2ForTesting(kvfuzz::KernelPath());
  const std::vector<uint8_t> fast = Run(c, fastResult);
  kvaudio::frame::SetAvx2ForTesting(-1);

  const bool rejected = c.channels < 2 || !c.check || !c.samples;
  const uint32_t expected = rejected ? 0 : c.channels > 32 ? 0xFFFFFFFF : c.channels >> 1;
  if (plainResult != expected || fastResult != expected) kvfuzz::Fail("remap result");
  if (plain != fast) kvfuzz::Fail("plain loop and AVX2 kernel differ");
  return 0;
}
