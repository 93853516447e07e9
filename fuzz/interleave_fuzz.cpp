// Interleave family with arbitrary pair indices, channel counts, pair counts, widths and null
// pairs, in buffers sized exactly to the documented layouts; plain loops and kernels agree.
#include <vector>

#include "fuzz_input.h"
#include "kvaudio/interleave.h"

namespace {

using kvfuzz::Block;

struct Args {
  uint32_t samples, channels, index, bits, nulls;
  const uint8_t *payload;
  size_t payloadBytes;
  Block In(size_t bytes) const { return Block(bytes, payload, payloadBytes); }
  bool Null(uint32_t k) const { return nulls >> (k % 32) & 1; }
};

using Result = std::vector<uint8_t>;

void Add(Result &out, Block &b) { out.insert(out.end(), b.data(), b.data() + b.size()); }

// Pair and Pair16to32 members: an interleaved buffer of `channels` channels and one stereo buffer.
Result Pair(const Args &a, int member) {
  const size_t wide = a.bits == 16 && member < 2 ? 2 : 4, narrow = member == 2 ? 2 : wide;
  Block interleaved = a.In(size_t{a.samples} * a.channels * wide), stereo = a.In(size_t{a.samples} * 2 * narrow);
  if (member == 0) AudioDeinterleavePair(interleaved.data(), stereo.data(), a.index, a.bits, a.channels, a.samples);
  if (member == 1) AudioInterleavePair(interleaved.data(), stereo.data(), a.index, a.bits, a.channels, a.samples);
  if (member == 2) AudioInterleavePair16to32(interleaved.data(), stereo.data(), a.index, a.bits, a.channels, a.samples);
  Result out;
  Add(out, interleaved);
  Add(out, stereo);
  return out;
}

// Array members: pairCount records, some null or with null samples, periods of pairCount units.
Result Array(const Args &a, int member) {
  const uint32_t count = a.index % 40;
  const size_t unit = member % 2 ? 8 : 4;  // a 16-bit pair or a 32-bit pair
  Block interleaved = a.In(size_t{a.samples} * count * unit);
  std::vector<Block> memory;
  std::vector<KVAudioBuffer> records(count);
  for (uint32_t k = 0; k < count; ++k) memory.emplace_back(a.In(size_t{a.samples} * unit));
  std::vector<KVAudioBuffer *> table(count);
  for (uint32_t k = 0; k < count; ++k) {
    records[k].samples = a.Null(k) && k % 3 == 0 ? nullptr : memory[k].data();
    table[k] = a.Null(k) && k % 3 != 0 ? nullptr : &records[k];
  }
  Block pointers(count * sizeof(void *), reinterpret_cast<const uint8_t *>(table.data()), count * sizeof(void *));
  auto *const *pairs = a.Null(31) ? nullptr : pointers.as<KVAudioBuffer *>();
  if (member == 0) AudioDeinterleave16to16Array(interleaved.as<uint32_t>(), pairs, count, a.samples);
  if (member == 1) AudioDeinterleave32to32Array(interleaved.as<uint32_t>(), pairs, count, a.samples);
  if (member == 2) AudioInterleave16to16Array(interleaved.as<uint16_t>(), pairs, count, a.samples);
  if (member == 3) AudioInterleave32to32Array(interleaved.as<uint32_t>(), pairs, count, a.samples);
  Result out;
  Add(out, interleaved);
  for (Block &b : memory) Add(out, b);
  return out;
}

// Four- and eight-pair members with arbitrary channel counts and null pairs.
Result Pairs(const Args &a, int member) {
  const uint32_t pairCount = member < 3 ? 4 : 8, channels = a.channels % 20;
  std::vector<Block> p;
  for (uint32_t k = 0; k < pairCount; ++k) p.emplace_back(a.In(size_t{a.samples} * (member == 0 || member == 2 ? 4 : 8)));
  auto at = [&](uint32_t k) { return a.Null(k) ? nullptr : p[k].data(); };
  uint32_t present = 0;
  for (uint32_t k = 0; k < pairCount; ++k) present += !a.Null(k);
  Result out;
  if (member == 0) {  // a null pair takes no room in the source
    Block src = a.In(size_t{a.samples} * present * 4);
    auto q = [&](uint32_t k) { return reinterpret_cast<uint32_t *>(at(k)); };
    AudioDeinterleave16to16(src.as<uint32_t>(), q(0), q(1), q(2), q(3), a.samples);
  } else if (member == 1) {  // periods of `channels` 16-bit samples
    Block src = a.In(size_t{a.samples} * channels * 2);
    auto q = [&](uint32_t k) { return reinterpret_cast<uint32_t *>(at(k)); };
    AudioDeInterleave16to32(src.as<uint16_t>(), q(0), q(1), q(2), q(3), a.samples, channels);
  } else if (member == 2) {
    Block dst = a.In(size_t{a.samples} * channels * 2);
    auto q = [&](uint32_t k) { return reinterpret_cast<const uint16_t *>(at(k)); };
    AudioInterleave16to16(dst.as<uint16_t>(), q(0), q(1), q(2), q(3), a.samples, channels);
    Add(out, dst);
  } else {
    Block dst = a.In(size_t{a.samples} * channels * 4);
    auto q = [&](uint32_t k) { return reinterpret_cast<const uint32_t *>(at(k)); };
    AudioInterleave32to32_16(dst.as<uint32_t>(), q(0), q(1), q(2), q(3), q(4), q(5), q(6), q(7), a.samples, channels);
    Add(out, dst);
  }
  for (Block &b : p) Add(out, b);
  return out;
}

// Mono and dual-mono members at every width `bits` may name.
size_t MonoBytes(uint32_t bits) { return bits == 8 ? 1 : bits == 16 ? 2 : bits == 20 || bits == 24 ? 3 : 4; }

Result Mono(const Args &a, int member) {
  Result out;
  if (member == 0) {
    Block dst = a.In(size_t{a.samples} * 2), src = a.In(size_t{a.samples} * 4);
    AudioDeinterleaveStereo2Mono(dst.as<uint16_t>(), src.as<uint16_t>(), a.samples);
    Add(out, dst);
  } else if (member == 1) {
    const size_t w = MonoBytes(a.bits);
    Block dst = a.In(size_t{a.samples} * 2 * w), src = a.In(size_t{a.samples} * w);
    AudioInterleaveMono2Stereo(dst.as<uint16_t>(), static_cast<uint16_t>(a.bits), a.samples, src.as<uint16_t>());
    Add(out, dst);
  } else {
    const bool to32 = member == 3;
    const size_t in = to32 ? (a.bits == 16 ? 2 : 4) : MonoBytes(a.bits), outBytes = to32 ? 4 : in;
    Block dst = a.In(size_t{a.samples} * 2 * outBytes), left = a.In(size_t{a.samples} * in),
          right = a.In(size_t{a.samples} * in);
    const void *l = a.Null(0) ? nullptr : left.data(), *r = a.Null(1) ? nullptr : right.data();
    if (to32)
      AudioInterleaveDualMono2Stereo32(dst.data(), static_cast<uint8_t>(a.bits), a.samples, l, r);
    else
      AudioInterleaveDualMono2Stereo16(dst.data(), static_cast<uint16_t>(a.bits), a.samples, l, r);
    Add(out, dst);
  }
  return out;
}

struct Case {
  Result (*run)(const Args &, int);
  int member;
};
const Case kCases[] = {{Pair, 0},  {Pair, 1},  {Pair, 2},  {Array, 0}, {Array, 1}, {Array, 2}, {Array, 3},
                       {Pairs, 0}, {Pairs, 1}, {Pairs, 2}, {Pairs, 3}, {Mono, 0},  {Mono, 1},  {Mono, 2},
                       {Mono, 3}};
const uint32_t kWidths[] = {8, 16, 20, 24, 32, 12};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  kvfuzz::Input in(data, size);
  const Case c = kCases[in.Take<uint8_t>() % std::size(kCases)];
  Args a{};
  a.samples = in.Take<uint16_t>() % 700;
  a.channels = in.Take<uint8_t>() % 40;
  a.index = in.Take<uint8_t>() % 24;
  a.bits = kWidths[in.Take<uint8_t>() % std::size(kWidths)];
  a.nulls = in.Take<uint32_t>();
  a.payload = in.rest();
  a.payloadBytes = in.rest_size();
  kvaudio::frame::SetAvx2ForTesting(0);
  const Result plain = c.run(a, c.member);
  kvaudio::frame::SetAvx2ForTesting(kvfuzz::KernelPath());
  const Result fast = c.run(a, c.member);
  kvaudio::frame::SetAvx2ForTesting(-1);
  if (plain != fast) kvfuzz::Fail("plain loop and AVX2 kernel differ");
  return 0;
}
