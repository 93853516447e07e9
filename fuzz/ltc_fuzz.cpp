// LTC on arbitrary bytes: the decoder in every detector layout with the payload cut into
// arbitrary buffers (plain and AVX2 scans must decode alike), and the encoder into exact rooms.
#include <algorithm>
#include <vector>

#include "fuzz_input.h"
#include "kvaudio/ltc.h"
#include "timing/ltc_internal.h"

namespace {

struct Setup {
  int32_t rate;
  uint32_t bits, rateFlags;
  int32_t stereo, channel;
};

struct Outcome {
  uint32_t result, timecode, userBits, flags;
  bool operator==(const Outcome &) const = default;
};

// Bytes of one sample frame of the detector smpteSetup chose.
size_t FrameBytes() {
  const CCrossDetector *d = decoder.current;
  if (d == &decoder.zx8) return 1;
  if (d == &decoder.zx8L || d == &decoder.zx8R || d == &decoder.zx16) return 2;
  return 4;
}

// Decodes the payload from the load-time state, cut into buffers of the given frame counts
// (used in turn); each buffer is its own exact-size heap block.
std::vector<Outcome> Decode(int avx2, const Setup &s, const std::vector<uint16_t> &cuts, const uint8_t *payload,
                            size_t bytes) {
  kvaudio::frame::SetAvx2ForTesting(avx2);
  kvaudio::ltc::ResetDecoderForTesting();
  smpteSetup(s.rate, s.bits, s.stereo, s.channel, s.rateFlags, 0);
  const size_t frameBytes = FrameBytes();
  std::vector<Outcome> out;
  size_t at = 0;
  for (size_t k = 0; at < bytes || k == 0; ++k) {
    const uint16_t cut = cuts.empty() ? 0xFFFF : cuts[k % cuts.size()];
    const size_t frames = std::min<size_t>(cut >> 1, (bytes - at) / frameBytes);
    kvfuzz::Block buffer(frames * frameBytes, payload + at, frames * frameBytes);
    // Odd cuts pass a null buffer with the count, which must read as empty.
    smpteDecodeSetBuffer(cut & 1 ? nullptr : buffer.data(), static_cast<int32_t>(frames));
    Outcome o{0, cut & 2 ? 0xFFFFFFFFu : 0u, 0, s.rateFlags};
    o.result = smpteDecode(&o.timecode, &o.userBits, &o.flags);
    if (o.result != 0 && o.result != SMPTE_NO_FRAME && o.result != SMPTE_BAD_ADDRESS) kvfuzz::Fail("decode result");
    out.push_back(o);
    at += frames ? frames * frameBytes : bytes - at;  // an empty cut ends the run
  }
  return out;
}

// One frame into a buffer of exactly the room given, and one whole frame into the size that
// smpteRequiredBuffer reports.
void Encode(const Setup &s, int64_t speed, uint32_t frameCount, uint32_t userBits, uint16_t room) {
  kvaudio::ltc::ResetEncoderForTesting();
  smpteSetup(s.rate, s.bits, s.stereo, s.channel, s.rateFlags, 0);
  const size_t sampleBytes = s.bits / 8;
  kvfuzz::Block part(room * sampleBytes);
  if (smpteEncode(frameCount, userBits, part.data(), room) > room * sampleBytes) kvfuzz::Fail("encode room");
  smpteEncodeSetSpeed(speed);
  kvfuzz::Block whole(smpteRequiredBuffer());
  if (smpteEncode(frameCount + 1, userBits, whole.data(), 0xFFFFFFFF) > whole.size()) kvfuzz::Fail("encode frame");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  kvfuzz::Input in(data, size);
  const uint8_t shape = in.Take<uint8_t>();
  Setup s{in.Take<uint16_t>(), shape & 1 ? 16u : 8u, in.Take<uint8_t>(), (shape >> 1) & 1, (shape >> 2) & 1};
  const int64_t speed = in.Take<int8_t>();
  const uint32_t frameCount = in.Take<uint32_t>(), userBits = in.Take<uint32_t>();
  Encode(s, speed, frameCount, userBits, in.Take<uint16_t>() % 4096);

  std::vector<uint16_t> cuts((shape >> 3) & 7);
  for (auto &c : cuts) c = in.Take<uint16_t>();
  const auto plain = Decode(0, s, cuts, in.rest(), in.rest_size());
  const LtcDecoderState a = decoder;
  const auto fast = Decode(kvfuzz::KernelPath(), s, cuts, in.rest(), in.rest_size());
  const LtcDecoderState &b = decoder;
  if (plain != fast || a.shiftLow != b.shiftLow || a.shiftTop != b.shiftTop || a.position != b.position ||
      a.period != b.period || a.bitCount != b.bitCount || a.pendingHalf != b.pendingHalf)
    kvfuzz::Fail("plain and AVX2 scans decode differently");
  kvaudio::frame::SetAvx2ForTesting(-1);
  return 0;
}
