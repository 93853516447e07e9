// LTC test signals: runs of encoded frames and chunked decoding.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "kvaudio/ltc.h"
#include "timing/ltc_internal.h"

namespace ltctest {

// Rate flags for smpteSetup, frames per `per` seconds, and the rate flags handed to smpteDecode
// and reported by it.
struct Rate {
  const char *name;
  uint32_t flags, fps, per, decodeIn, decodeOut;
};
inline const Rate kRates[] = {{"24", 0x01, 24, 1, 0x01, 0x01}, {"25", 0x08, 25, 1, 0x08, 0x08},
                              {"2997DF", 0x04, 30000, 1001, 0x04, 0x04}, {"30", 0x00, 30, 1, 0x00, 0x02}};

inline uint32_t UserBitsOf(uint32_t frame) { return frame * 0x9E3779B9u ^ 0x5A5A0F0Fu; }

struct Run {
  std::vector<uint8_t> bytes;       // mono samples, 1 or 2 bytes each
  std::vector<SMPTE_FRAME> frames;  // frame k as built by the encoder
  std::vector<uint32_t> lengths;    // samples written for frame k
};

// Encodes `count` consecutive frames from `first` with the encoder set up for the rate and width;
// each frame gets exactly its cadence's samples.
inline Run EncodeRun(uint32_t sampleRate, uint32_t bits, const Rate &r, uint32_t first, uint32_t count) {
  kvaudio::ltc::ResetEncoderForTesting();
  smpteSetup(static_cast<int32_t>(sampleRate), bits, 0, 0, r.flags, 0);
  Run run;
  const uint32_t width = bits / 8;
  for (uint32_t k = 0; k < count; ++k) {
    const uint64_t num = uint64_t(sampleRate) * r.per;  // exact cadence floor((k+1)R) - floor(kR)
    const auto n = static_cast<uint32_t>((k + 1) * num / r.fps - k * num / r.fps);
    const size_t at = run.bytes.size();
    run.bytes.resize(at + size_t(n) * width);
    const uint32_t written = smpteEncode(first + k, UserBitsOf(first + k), run.bytes.data() + at, n);
    run.bytes.resize(at + written);
    run.lengths.push_back(written / width);
    run.frames.push_back(bits == 16 ? encoder.writer16.frame : encoder.writer8.frame);
  }
  return run;
}

// The decoder's polarity test on any frame: p = (1 + ones among bits 0-63) mod 2; rejected when
// bit 59 differs from p while bit 27 equals p.
inline bool PassesPolarity(const uint8_t *b) {
  int ones = 0;
  for (int i = 0; i < 64; ++i) ones += (b[i / 8] >> (i % 8)) & 1;
  const int p = (1 + ones) % 2, bit27 = (b[3] >> 3) & 1, bit59 = (b[7] >> 3) & 1;
  return !(bit59 != p && bit27 == p);
}

struct Report {
  uint32_t result, timecode, userBits, flags;
};

// Sets up the decoder afresh for the layout (at another rate first, so that the set-up is not
// skipped; a rate with the same low 16 bits leaves it alone), then decodes the stream in chunks
// cycling through `chunks` sample frames.
inline std::vector<Report> DecodeInChunks(const std::vector<uint8_t> &stream, size_t frameBytes,
                                          uint32_t sampleRate, uint32_t bits, int stereo, int channel,
                                          const Rate &r, const std::vector<size_t> &chunks) {
  kvaudio::ltc::ResetDecoderForTesting();
  smpteSetup(8000, bits, stereo, channel, r.flags, 0);
  smpteSetup(static_cast<int32_t>(sampleRate), bits, stereo, channel, r.flags, 0);
  smpteSetup(static_cast<int32_t>(sampleRate + 65536), 24 - bits, !stereo, !channel, r.flags, 0);  // same 16 low bits: ignored
  std::vector<Report> reports;
  const size_t total = stream.size() / frameBytes;
  for (size_t at = 0, c = 0; at < total; ++c) {
    const size_t n = std::min(chunks[c % chunks.size()], total - at);
    smpteDecodeSetBuffer(const_cast<uint8_t *>(stream.data()) + at * frameBytes, static_cast<int32_t>(n));
    Report rep{0, 0, 0, r.decodeIn};
    rep.result = smpteDecode(&rep.timecode, &rep.userBits, &rep.flags);
    reports.push_back(rep);
    at += n;
  }
  return reports;
}

}  // namespace ltctest
