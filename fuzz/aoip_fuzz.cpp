// RTP parser, AoIP receiver and payload converters on arbitrary packets and arguments: the parser
// never points outside the packet, the receiver never writes outside the blocks it is given, and
// the plain loops and the AVX2 kernels produce the same samples and counts.
#include <algorithm>
#include <vector>

#include "fuzz_input.h"
#include "kvaudio/aoip.h"

namespace {

using kvfuzz::Block;

void Expect(bool ok, const char *what) {
  if (!ok) kvfuzz::Fail(what);
}

// A configuration, then records of [op][size][bytes]: op 0-1 push a packet of that size (its
// first bytes forced to a valid RTP start on op 1), 2 pulls size % 4096 periods, 3 converts a
// payload both ways. Returns every sample pulled or converted and the final counts.
std::vector<uint8_t> Run(const uint8_t *data, size_t size) {
  kvfuzz::Input in(data, size);
  KVAudioAoipReceiverConfig cfg{};
  cfg.channels = in.Take<uint8_t>() % 70;
  cfg.encoding = in.Take<uint8_t>() & 1 ? KVAUDIO_AOIP_L24 : KVAUDIO_AOIP_L16;
  cfg.payloadType = in.Take<uint8_t>();
  cfg.framesPerPacket = in.Take<uint8_t>() % 64;
  cfg.bufferFrames = in.Take<uint16_t>() % 9000;
  KVAudioAoipReceiver *rx = KVAudioAoipReceiverOpen(&cfg);
  std::vector<uint8_t> all;
  auto keep = [&](Block &b) { all.insert(all.end(), b.data(), b.data() + b.size()); };
  while (in.rest_size() > 0) {
    const uint8_t op = in.Take<uint8_t>() % 4;
    const uint16_t n = in.Take<uint16_t>();
    const size_t bytes = n < in.rest_size() ? n : in.rest_size();
    Block packet(bytes, in.rest(), bytes);
    for (size_t i = 0; i < bytes; ++i) in.Take<uint8_t>();
    if (op == 1 && bytes >= 2) packet.data()[0] = 0x80, packet.data()[1] = static_cast<uint8_t>(cfg.payloadType & 0x7F);
    if (op <= 1) {
      KVAudioRtpHeader h;
      if (KVAudioRtpParseHeader(packet.data(), static_cast<uint32_t>(bytes), &h) == KVAUDIO_AOIP_OK)
        Expect(uint64_t{h.payloadOffset} + h.payloadBytes <= bytes, "payload outside the packet");
      const uint32_t r = KVAudioAoipReceiverPush(rx, packet.data(), static_cast<uint32_t>(bytes));
      Expect(rx || r == KVAUDIO_AOIP_NULL_BUFFER, "push without a receiver");
      all.push_back(static_cast<uint8_t>(r));
    } else if (op == 2) {
      const uint32_t frames = n % 4096, avail = KVAudioAoipReceiverAvailable(rx);
      Expect(rx || avail == 0, "available without a receiver");
      Block out(size_t{frames} * cfg.channels * 4);
      all.push_back(static_cast<uint8_t>(KVAudioAoipReceiverPull(rx, out.as<int32_t>(), frames)));
      keep(out);
    } else {
      // The packet's bytes as a payload: unpack, pack back and compare; frames sized to fit.
      const uint32_t enc = n & 1 ? KVAUDIO_AOIP_L24 : KVAUDIO_AOIP_L16, ch = (n >> 1) % 66, frameBytes = ch * enc / 8;
      const uint32_t frames = frameBytes ? static_cast<uint32_t>(bytes / frameBytes) : 0;
      Block s32(size_t{frames} * ch * 4), s16(size_t{frames} * ch * 2), back(size_t{frames} * frameBytes);
      const uint32_t r = KVAudioAoipUnpack32(s32.as<int32_t>(), packet.data(), enc, ch, frames);
      KVAudioAoipUnpack16(s16.as<int16_t>(), packet.data(), enc, ch, frames);
      if (r == KVAUDIO_AOIP_OK && frames) {
        KVAudioAoipPack32(back.data(), s32.as<int32_t>(), enc, ch, frames);
        Expect(std::equal(back.data(), back.data() + back.size(), packet.data()), "payload round trip");
      }
      if (ch >= 2) {
        Block pair(size_t{frames} * 8);
        KVAudioAoipUnpackPair32(pair.as<int32_t>(), packet.data(), enc, ch, (n >> 8) % (ch / 2), frames);
        keep(pair);
      }
      keep(s32), keep(s16);
    }
  }
  KVAudioAoipStats st{};
  KVAudioAoipReceiverGetStats(rx, &st);
  const uint8_t *p = reinterpret_cast<const uint8_t *>(&st);
  all.insert(all.end(), p, p + sizeof(st));
  KVAudioAoipReceiverClose(rx);
  return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  kvaudio::frame::SetAvx2ForTesting(0);
  const std::vector<uint8_t> plain = Run(data, size);
  kvaudio::frame::SetAvx2ForTesting(kvfuzz::KernelPath());
  const std::vector<uint8_t> fast = Run(data, size);
  kvaudio::frame::SetAvx2ForTesting(-1);
  Expect(plain == fast, "plain loop and AVX2 kernel differ");
  return 0;
}
