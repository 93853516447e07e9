// AoIP payloads, float conversion, peak meters, RTP headers, packet times and the receiver's counts.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <tuple>
#include <vector>

#include "kvaudio/aoip.h"
#include "kvaudio/peak.h"
#include "test_util.h"

namespace {

using Bytes = std::vector<uint8_t>;

TEST(AoipPayload, NetworkOrderAndRoundTrips) {
  const int32_t in32[] = {0x12345678, -0x7F000000, 0x00FF00FF};
  Bytes l24(9), l16(6);
  ASSERT_EQ(KVAudioAoipPack32(l24.data(), in32, KVAUDIO_AOIP_L24, 3, 1), KVAUDIO_AOIP_OK);
  ASSERT_EQ(KVAudioAoipPack32(l16.data(), in32, KVAUDIO_AOIP_L16, 1, 3), KVAUDIO_AOIP_OK);
  EXPECT_EQ(l24, (Bytes{0x12, 0x34, 0x56, 0x81, 0, 0, 0, 0xFF, 0}));
  EXPECT_EQ(l16, (Bytes{0x12, 0x34, 0x81, 0, 0, 0xFF}));
  // Every width and layout: samples already at the payload's width come back unchanged.
  for (uint32_t enc : {KVAUDIO_AOIP_L16, KVAUDIO_AOIP_L24})
    for (uint32_t ch : {2u, 5u, 64u}) {  // the last full pair
      const uint32_t frames = 37, n = frames * ch, p = ch / 2 - 1;
      std::vector<int32_t> s(n), back(n), pair(2 * frames);
      kvtest::Rng rng(ch);
      for (auto &v : s) v = static_cast<int32_t>(rng.Next32() & (enc == 24 ? 0xFFFFFF00u : 0xFFFF0000u));
      Bytes payload(n * enc / 8), planar(payload.size());
      std::vector<std::vector<int32_t>> planes(ch, std::vector<int32_t>(frames));
      std::vector<int32_t *> ptrs;
      for (auto &plane : planes) ptrs.push_back(plane.data());
      ASSERT_EQ(KVAudioAoipPack32(payload.data(), s.data(), enc, ch, frames), 0u);
      ASSERT_EQ(KVAudioAoipUnpack32(back.data(), payload.data(), enc, ch, frames), 0u);
      EXPECT_EQ(back, s) << enc << " " << ch;
      ASSERT_EQ(KVAudioAoipUnpackPlanar32(ptrs.data(), payload.data(), enc, ch, frames), 0u);
      ASSERT_EQ(KVAudioAoipPackPlanar32(planar.data(), ptrs.data(), enc, ch, frames), 0u);
      EXPECT_EQ(planar, payload);
      ASSERT_EQ(KVAudioAoipUnpackPair32(pair.data(), payload.data(), enc, ch, p, frames), 0u);
      for (uint32_t f = 0; f < frames; ++f) EXPECT_EQ(pair[2 * f + 1], s[f * ch + 2 * p + 1]);
      std::fill(pair.begin(), pair.end(), 0);
      ASSERT_EQ(KVAudioAoipPackPair32(payload.data(), pair.data(), enc, ch, p, frames), 0u);
      ASSERT_EQ(KVAudioAoipUnpack32(back.data(), payload.data(), enc, ch, frames), 0u);
      for (uint32_t i = 0; i < n; ++i) EXPECT_EQ(back[i], i % ch / 2 == p ? 0 : s[i]);
    }
  // Refusals write nothing. Rows: encoding, channels, pair, result (Pack16 is called with pair 0 only).
  uint8_t out[8] = {1, 1, 1, 1, 1, 1, 1, 1};
  const int16_t in[4] = {};
  const uint32_t refusals[][4] = {{20, 2, 0, KVAUDIO_AOIP_BAD_ENCODING}, {16, 0, 0, KVAUDIO_AOIP_BAD_CHANNELS},
                                  {16, 65, 0, KVAUDIO_AOIP_BAD_CHANNELS}, {16, 2, 1, KVAUDIO_AOIP_BAD_CHANNELS}};
  for (const auto &[enc, ch, pair, want] : refusals) {
    EXPECT_EQ(KVAudioAoipPackPair16(out, in, enc, ch, pair, 1), want);
    EXPECT_EQ(pair ? want : KVAudioAoipPack16(out, in, enc, ch, 1), want);
  }
  EXPECT_EQ(KVAudioAoipPackPair16(nullptr, in, 16, 2, 0, 1), KVAUDIO_AOIP_NULL_BUFFER);
  EXPECT_EQ(KVAudioAoipPack16(nullptr, in, 16, 2, 1), KVAUDIO_AOIP_NULL_BUFFER);
  EXPECT_TRUE(std::all_of(out, out + 8, [](uint8_t b) { return b == 1; }));
}

TEST(FloatPcm, RoundingSaturationDitherAndExactRoundTrip) {
  const float in[] = {0.5f, -1.0f, 1.0f, 2.0f, -3.0f, NAN, INFINITY, 1.5f / 32768, 2.5f / 32768, -0.5f / 32768};
  const std::vector<int16_t> want = {16384, -32768, 32767, 32767, -32768, 0, 32767, 2, 2, 0};
  std::vector<int16_t> out(10);
  int32_t out24[2];
  ASSERT_EQ(KVAudioFloatToInt16(out.data(), in, 10, nullptr), KVAUDIO_PCM_OK);
  EXPECT_EQ(out, want);
  ASSERT_EQ(KVAudioFloatToInt32(out24, in + 2, 2, 24, nullptr), KVAUDIO_PCM_OK);
  EXPECT_EQ(out24[0], 0x7FFFFF00);
  EXPECT_EQ(KVAudioFloatToInt32(out24, in, 1, 33, nullptr), KVAUDIO_PCM_BAD_BITS);
  // Every 16-bit value and a sweep of 24-bit values survive int -> float -> int.
  std::vector<int16_t> all(65536), back16(65536);
  std::vector<int32_t> s24(65536), back24(65536);
  std::vector<float> f(65536);
  for (int i = 0; i < 65536; ++i)
    all[i] = static_cast<int16_t>(i - 32768), s24[i] = static_cast<int32_t>(static_cast<uint32_t>(i) * 0x0001FF03u) & ~0xFF;
  KVAudioInt16ToFloat(f.data(), all.data(), 65536);
  KVAudioFloatToInt16(back16.data(), f.data(), 65536, nullptr);
  EXPECT_EQ(back16, all);
  KVAudioInt32ToFloat(f.data(), s24.data(), 65536, 24);
  KVAudioFloatToInt32(back24.data(), f.data(), 65536, 24, nullptr);
  EXPECT_EQ(back24, s24);
  // Dither: seeded, split-invariant, triangular over (-1, 1) LSB: a quarter LSB averages 0.25, not 0.
  const size_t n = 40000;
  std::vector<float> quarter(n, 0.25f / 32768);
  std::vector<int16_t> a(n), b(n), c(n);
  KVAudioDither d1{42, 0}, d2{42, 0}, d3{43, 0};
  KVAudioFloatToInt16(a.data(), quarter.data(), n, &d1);
  KVAudioFloatToInt16(b.data(), quarter.data(), 123, &d2);
  KVAudioFloatToInt16(b.data() + 123, quarter.data() + 123, n - 123, &d2);
  KVAudioFloatToInt16(c.data(), quarter.data(), n, &d3);
  EXPECT_EQ(a, b);
  EXPECT_NE(a, c);
  const auto [lo, hi] = std::minmax_element(a.begin(), a.end());
  EXPECT_EQ(std::make_pair(*lo, *hi), (std::pair<int16_t, int16_t>(-1, 1)));
  EXPECT_NEAR(std::accumulate(a.begin(), a.end(), 0.0) / n, 0.25, 0.02);
}

// Peak meters: packed doubled stereo peaks with their lossy extremes, and the raw-pattern mono rule.
TEST(Peak, StereoPackingAndMonoRawPattern) {
  const auto S = audTestPeak16S, M = audTestPeak16M;
  struct Case { uint32_t (*peak)(const int16_t *, uint32_t); std::vector<int16_t> words; uint32_t expect; };
  const Case cases[] = {
      {S, {-32768, 0}, 0x00010000},  // left 32768 sets bit 16 only
      {S, {0, -32768}, 0},           // right 32768 is shifted out
      {S, {32767, -32767}, 0xFFFEFFFE},
      {S, {1, 2, -3}, 6 | 2u << 17},  // the unpaired last word is left
      {M, {}, 0}, {M, {1, -3, 5}, 65533}, {M, {-1}, 65535}, {M, {-5, 32767, -32768}, 65531}, {M, {7, 300, 12}, 300},
  };
  for (const Case &c : cases)
    EXPECT_EQ(c.peak(c.words.data(), static_cast<uint32_t>(c.words.size())), c.expect) << (c.peak == S) << " " << c.expect;
  EXPECT_EQ(audTestPeak16S(nullptr, 4), 0u);
}

TEST(Rtp, HeadersAndPacketTimes) {
  const KVAudioRtpHeader h{1, 96, 0xFFFE, 0x89ABCDEF, 0x01020304, 0, 0}, type128{0, 128, 0, 0, 0, 0, 0};
  uint8_t p[64] = {};
  ASSERT_EQ(KVAudioRtpWriteHeader(p, 12, &h), KVAUDIO_AOIP_OK);
  EXPECT_EQ(Bytes(p, p + 12), (Bytes{0x80, 0xE0, 0xFF, 0xFE, 0x89, 0xAB, 0xCD, 0xEF, 1, 2, 3, 4}));
  EXPECT_EQ(KVAudioRtpWriteHeader(p, 11, &h), KVAUDIO_AOIP_TOO_SMALL);
  EXPECT_EQ(KVAudioRtpWriteHeader(p, 12, &type128), KVAUDIO_AOIP_BAD_PAYLOAD_TYPE);
  KVAudioRtpHeader r;
  ASSERT_EQ(KVAudioRtpParseHeader(p, 40, &r), KVAUDIO_AOIP_OK);
  EXPECT_EQ(std::make_tuple(r.marker, r.payloadType, r.sequence, r.timestamp, r.ssrc, r.payloadBytes),
            std::make_tuple(h.marker, h.payloadType, h.sequence, h.timestamp, h.ssrc, 28u));
  // Two CSRCs, a one-word extension and 3 bytes of padding around a 4-byte payload: 12+8+8+4+3.
  p[0] = 0x80 | 0x20 | 0x10 | 2;
  p[20 + 2] = 0, p[20 + 3] = 1, p[34] = 3;
  ASSERT_EQ(KVAudioRtpParseHeader(p, 35, &r), KVAUDIO_AOIP_OK);
  EXPECT_EQ(std::make_pair(r.payloadOffset, r.payloadBytes), std::make_pair(28u, 4u));
  // Byte 0 and length: CSRCs or extension past the end, padding count 0xFF or 0; an empty payload is fine.
  const uint32_t parses[][3] = {{0x80, 11, KVAUDIO_AOIP_SHORT_PACKET}, {0x40, 12, KVAUDIO_AOIP_BAD_VERSION},
                                {0xC0, 12, KVAUDIO_AOIP_BAD_VERSION},  {0x9F, 64, KVAUDIO_AOIP_SHORT_PACKET},
                                {0x92, 22, KVAUDIO_AOIP_SHORT_PACKET}, {0xA0, 13, KVAUDIO_AOIP_SHORT_PACKET},
                                {0xA0, 14, KVAUDIO_AOIP_SHORT_PACKET}, {0x90, 16, KVAUDIO_AOIP_OK}};
  p[12] = 0xFF, p[13] = 0;
  for (const auto &[b0, bytes, want] : parses) {
    p[0] = static_cast<uint8_t>(b0);
    EXPECT_EQ(KVAudioRtpParseHeader(p, bytes, &r), want) << b0 << " " << bytes;
  }
  // Rate, microseconds, frames (0: refused): rounded to the nearest period, kept within half a microsecond.
  const uint32_t times[][3] = {{48000, 125, 6},  {48000, 333, 16},    {96000, 333, 32},
                               {44100, 1000, 0}, {44100, 20000, 882}, {4000, 1000, 0}};
  for (const auto &[rate, us, want] : times) {
    uint32_t frames = 0;
    EXPECT_EQ(KVAudioAoipFramesPerPacket(rate, us, &frames), want ? KVAUDIO_AOIP_OK : KVAUDIO_AOIP_BAD_PACKET_TIME);
    EXPECT_EQ(frames, want) << rate << " " << us;
  }
}

// Packets of 6 periods of 2-channel L24 holding their stream positions, sequence numbers near the wrap.
TEST(AoipReceiver, CountsAndStaysSampleAligned) {
  const uint32_t kFrames = 6, kCh = 2;
  auto packet = [&](uint32_t k, uint32_t tsShift = 0) {
    Bytes p(12 + kFrames * kCh * 3);
    const KVAudioRtpHeader h{0, 97, static_cast<uint16_t>(65530 + k), 1000 + k * kFrames + tsShift, 7, 0, 0};
    KVAudioRtpWriteHeader(p.data(), 12, &h);
    std::vector<int32_t> s(kFrames * kCh);
    for (uint32_t i = 0; i < s.size(); ++i) s[i] = static_cast<int32_t>((k * kFrames + i / kCh + 1) << 8);
    KVAudioAoipPack32(p.data() + 12, s.data(), KVAUDIO_AOIP_L24, kCh, kFrames);
    return p;
  };
  const KVAudioAoipReceiverConfig cfg{kCh, KVAUDIO_AOIP_L24, 97, kFrames, 64, 0};
  KVAudioAoipReceiver *rx = KVAudioAoipReceiverOpen(&cfg);
  ASSERT_NE(rx, nullptr);
  // 2 lost (3, 7), 4 and 5 swapped, 6 duplicated, 9 late after the pull, two malformed packets.
  for (uint32_t k : {0u, 1u, 2u, 5u, 4u, 6u, 6u, 8u}) KVAudioAoipReceiverPush(rx, packet(k).data(), 48);
  EXPECT_EQ(KVAudioAoipReceiverPush(rx, packet(2).data(), 47), KVAUDIO_AOIP_PARTIAL_PERIOD);
  EXPECT_EQ(KVAudioAoipReceiverPush(rx, packet(2).data(), 12), KVAUDIO_AOIP_PARTIAL_PERIOD);
  EXPECT_EQ(KVAudioAoipReceiverAvailable(rx), 9 * kFrames);
  std::vector<int32_t> out(10 * kFrames * kCh);
  ASSERT_EQ(KVAudioAoipReceiverPull(rx, out.data(), 10 * kFrames), KVAUDIO_AOIP_OK);
  EXPECT_EQ(KVAudioAoipReceiverPush(rx, packet(9).data(), 48), KVAUDIO_AOIP_LATE);
  for (uint32_t f = 0; f < 10 * kFrames; ++f) {
    const uint32_t k = f / kFrames;
    EXPECT_EQ(out[f * kCh + 1], k == 3 || k == 7 || k == 9 ? 0 : static_cast<int32_t>((f + 1) << 8)) << f;
  }
  // A timestamp jump of 1000 periods follows the sequence number; a sender restart 5000 numbers on follows
  // the last period placed.
  for (const auto &[k, shift] : {std::pair{10u, 1000u}, std::pair{5011u, 0u}}) {
    EXPECT_EQ(KVAudioAoipReceiverPush(rx, packet(k, shift).data(), 48), KVAUDIO_AOIP_OK);
    ASSERT_EQ(KVAudioAoipReceiverPull(rx, out.data(), kFrames), KVAUDIO_AOIP_OK);
    EXPECT_EQ(out[1], static_cast<int32_t>((k * kFrames + 1) << 8));
  }
  KVAudioAoipStats s;
  ASSERT_EQ(KVAudioAoipReceiverGetStats(rx, &s), KVAUDIO_AOIP_OK);
  EXPECT_EQ(std::vector({s.received, s.duplicated, s.reordered, s.late, s.lost, s.timestampJumps, s.malformed, s.silentFrames}),
            std::vector<uint64_t>({9, 1, 1, 1, 2, 2, 2, 3 * kFrames}));
  KVAudioAoipReceiverClose(rx);
  for (KVAudioAoipReceiverConfig bad : {KVAudioAoipReceiverConfig{0, 24, 97, 6, 64, 0}, {65, 24, 97, 6, 64, 0},
                                        {2, 20, 97, 6, 64, 0}, {2, 24, 97, 65, 64, 0}, {2, 24, 97, 6, 0, 0}})
    EXPECT_EQ(KVAudioAoipReceiverOpen(&bad), nullptr);
  EXPECT_EQ(KVAudioAoipReceiverOpen(nullptr), nullptr);
}

}  // namespace
