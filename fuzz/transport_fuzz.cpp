// AES3, AESEBU, packed 24-bit, 302M and peak functions with arbitrary counts, slots, strides and
// channel arguments, each inside buffers sized exactly to what its layout says it touches; the
// plain loops and the AVX2 kernels must give the same bytes.
#include <vector>

#include "fuzz_input.h"
#include "kvaudio/aes3.h"
#include "kvaudio/peak.h"

namespace {

using kvfuzz::Block;

struct Args {
  uint32_t frames, slot, offset, channels, index, stride, flags;
  const uint8_t *payload;
  size_t payloadBytes;
  Block In(size_t bytes) const { return Block(bytes, payload, payloadBytes); }
};

// Bytes a reader touches when frame f's unit of `unit` bytes starts at first + f * stride.
size_t Span(uint32_t frames, size_t first, size_t stride, size_t unit) {
  return frames ? first + (frames - 1) * stride + unit : 0;
}

void Expect(bool ok, const char *what) {
  if (!ok) kvfuzz::Fail(what);
}

// Each case returns every byte it wrote, outputs pre-filled from the payload.
using Case = std::vector<uint8_t> (*)(const Args &);

std::vector<uint8_t> Bytes(std::initializer_list<Block *> blocks) {
  std::vector<uint8_t> all;
  for (Block *b : blocks) all.insert(all.end(), b->data(), b->data() + b->size());
  return all;
}

template <bool Is16>
std::vector<uint8_t> WriteAes3(const Args &a) {
  const uint32_t offset = a.offset % 256;
  Block out = a.In(4 + size_t{offset + a.frames} * 32), in = a.In(size_t{a.frames} * (Is16 ? 4 : 3));
  const uint64_t r = Is16 ? KVAudioInterleave16toAES316(out.data(), in.as<int16_t>(), a.slot, offset, a.frames,
                                                        a.index, a.flags & 1)
                          : KVAudioInterleave24toAES324(out.data(), in.data(), a.slot, offset, a.frames, a.index,
                                                        a.flags & 1);
  Expect(r == 0, "aes3 writer result");
  return Bytes({&out});
}

template <bool Is16>
std::vector<uint8_t> ZeroAes3(const Args &a) {
  Block out = a.In(4 + size_t{a.frames} * 32);
  (Is16 ? KVAudioZero16toAES316 : KVAudioZero24toAES324Stereo)(out.data(), a.frames, a.index, a.flags & 1);
  return Bytes({&out});
}

std::vector<uint8_t> ReadAes3To32(const Args &a) {
  const uint32_t slot = a.slot % 16, words = a.stride % 16;
  Block in = a.In(4 + Span(a.frames, size_t{slot} * 4, size_t{words} * 4, 8)), out = a.In(size_t{a.frames} * 8);
  KVAudioDeinterleaveAES324to32(out.as<uint32_t>(), in.data(), slot, a.frames, words);
  return Bytes({&out});
}

std::vector<uint8_t> ReadAes3To16(const Args &a) {
  Block in = a.In(4 + size_t{a.frames} * 32);
  Block o[4] = {a.In(a.frames * 4), a.In(a.frames * 4), a.In(a.frames * 4), a.In(a.frames * 4)};
  auto p = [&](int k) { return a.flags >> k & 1 ? nullptr : o[k].as<int16_t>(); };  // some outputs null
  KVAudioDeinterleaveAES316to16(in.data(), p(0), p(1), p(2), p(3), a.frames);
  return Bytes({&o[0], &o[1], &o[2], &o[3]});
}

std::vector<uint8_t> WriteAesebu(const Args &a) {
  Block out = a.In(size_t{a.frames / 192} * 1348), in = a.In(size_t{a.frames} * 8);
  const uint32_t r = KVAudioInterleave24toAESEBU24Stereo(out.data(), in.as<uint32_t>(), a.frames, a.flags & 1);
  Expect(r == a.frames / 192 * 1536, "aesebu writer result");
  return Bytes({&out});
}

template <typename T, size_t Group, size_t Stride(uint32_t)>
std::vector<uint8_t> ReadAesebu(const Args &a, uint64_t (*read)(const uint8_t *, T *, uint32_t, uint32_t, uint32_t)) {
  const uint32_t pair = a.index % 32, channels = a.channels;
  Block in = a.In(Span(a.frames, pair * Group, Stride(channels), Group)), out = a.In(size_t{a.frames} * 2 * sizeof(T));
  Expect(read(in.data(), out.as<T>(), pair, channels, a.frames) == 0, "aesebu reader result");
  return Bytes({&out});
}
size_t Stride16(uint32_t c) { return size_t{c >> 1} * 5; }
size_t Stride20(uint32_t c) { return size_t{c & ~1u} * 3; }
size_t Stride24(uint32_t c) { return size_t{c >> 1} * 7; }

std::vector<uint8_t> PackedStereo(const Args &a) {
  const uint32_t pair = a.index % 8, frameBytes = a.flags & 1 ? 6 : a.stride % 64;
  Block in = a.In(Span(a.frames, pair * 6, frameBytes, 6)), out = a.In(size_t{a.frames} * 8);
  KVAudioConvertAES324Stereoto32(out.as<uint32_t>(), in.data(), a.frames, a.flags & 2, pair, frameBytes);
  return Bytes({&out});
}

std::vector<uint8_t> PackedDualMono(const Args &a) {
  const uint32_t index = a.index % 8, stride = a.flags & 1 ? 3 : a.stride % 64;
  Block left = a.In(Span(a.frames, index * 6, stride, 3)), right = a.In(Span(a.frames, 0, stride, 3));
  Block out = a.In(size_t{a.frames} * 8);
  KVAudioConvertAES324DualMonoto32(out.as<uint32_t>(), left.data(), right.data(), a.frames, a.flags & 2, index,
                                   stride);
  return Bytes({&out});
}

std::vector<uint8_t> PackedMono(const Args &a) {
  Block in = a.In(size_t{a.frames} * 3), out = a.In(size_t{a.frames} * 4);
  KVAudioConvertAES324Monoto32(out.as<uint32_t>(), in.data(), a.frames, a.flags & 2);
  return Bytes({&out});
}

template <bool BigEndian>
std::vector<uint8_t> Reinterleave24(const Args &a) {
  Block in = a.In(size_t{a.frames} * 3), out = a.In(size_t{a.frames} * 8);
  (BigEndian ? KVAudioReinterleaveAES3_24monoto32stereo_BE
             : KVAudioReinterleaveAES3_24monoto32stereo)(out.as<uint32_t>(), in.data(), a.slot, a.frames);
  return Bytes({&out});
}

template <typename T>
std::vector<uint8_t> MonoIntoStereo(const Args &a, uint64_t (*copy)(const T *, T *, uint32_t, uint32_t)) {
  Block in = a.In(size_t{a.frames} * sizeof(T)), out = a.In(size_t{a.frames} * 2 * sizeof(T));
  copy(in.as<T>(), out.as<T>(), a.slot, a.frames);
  return Bytes({&out});
}

template <typename T>
std::vector<uint8_t> Write302(const Args &a,
                              uint64_t (*write)(uint8_t *, const T *, uint32_t, uint8_t, uint32_t, uint32_t)) {
  const uint8_t id = static_cast<uint8_t>(a.index);
  const uint32_t channels = a.channels;
  Block out = a.In(4 + size_t{id} * sizeof(T) + Span(a.frames, size_t{channels / 2} * 3, size_t{channels} * 3, 3));
  Block in = a.In(size_t{a.frames} * 2 * sizeof(T));
  Expect(write(out.data(), in.as<T>(), channels, id, a.slot, a.frames) == 0, "302M writer result");
  return Bytes({&out});
}

template <typename T, size_t First(uint32_t), size_t Stride(uint32_t), size_t Unit>
std::vector<uint8_t> Read302(const Args &a, uint64_t (*read)(T *, const uint8_t *, uint32_t, uint32_t, uint32_t)) {
  const uint32_t channel = a.index % 64, channels = a.channels;
  Block in = a.In(4 + Span(a.frames, First(channel), Stride(channels), Unit));
  Block out = a.In(size_t{a.frames} * 2 * sizeof(T));
  const uint64_t r = read(out.as<T>(), in.data(), channels, channel, a.frames);
  const bool is24 = Unit == 7;
  Expect(r == (is24 && a.frames ? uint64_t{uint32_t(a.frames * channels * 4)} : 0), "302M reader result");
  return Bytes({&out});
}
size_t Pair5(uint32_t c) { return size_t{c / 2} * 5; }
size_t Pair7(uint32_t c) { return size_t{c / 2} * 7; }
size_t Sample3(uint32_t c) { return size_t{c} * 3; }

std::vector<uint8_t> Peaks(const Args &a) {
  Block in = a.In(size_t{a.frames} * 2);
  const uint32_t r[2] = {audTestPeak16S(in.as<int16_t>(), a.frames), audTestPeak16M(in.as<int16_t>(), a.frames)};
  return std::vector<uint8_t>(reinterpret_cast<const uint8_t *>(r), reinterpret_cast<const uint8_t *>(r + 2));
}

const Case kCases[] = {
    WriteAes3<true>,
    WriteAes3<false>,
    ZeroAes3<true>,
    ZeroAes3<false>,
    ReadAes3To32,
    ReadAes3To16,
    WriteAesebu,
    [](const Args &a) { return ReadAesebu<int16_t, 5, Stride16>(a, KVAudioDeinterleave16AESEBUto16Stereo); },
    [](const Args &a) { return ReadAesebu<uint32_t, 5, Stride16>(a, KVAudioDeinterleave16AESEBUto32Stereo); },
    [](const Args &a) { return ReadAesebu<uint32_t, 6, Stride20>(a, KVAudioDeinterleave20AESEBUto32Stereo); },
    [](const Args &a) { return ReadAesebu<uint32_t, 7, Stride24>(a, KVAudioDeinterleave24AESEBUto32Stereo); },
    PackedStereo,
    PackedDualMono,
    PackedMono,
    Reinterleave24<false>,
    Reinterleave24<true>,
    [](const Args &a) { return MonoIntoStereo<int16_t>(a, KVAudioReinterleaveAES3_16monoto16stereo); },
    [](const Args &a) { return MonoIntoStereo<uint32_t>(a, KVAudioReinterleaveAES3_32monoto32stereo); },
    [](const Args &a) { return Write302<int16_t>(a, KVAudioInterleaveStereo16bitStereo_toAES_302_20bit); },
    [](const Args &a) { return Write302<uint32_t>(a, KVAudioInterleaveStereo32bitStereo_toAES_302_20bit); },
    [](const Args &a) {
      return Read302<int16_t, Pair5, Pair5, 5>(a, KVAudioDeinterleaveAES_302_16bit_toStereo32);
    },
    [](const Args &a) {
      return Read302<uint32_t, Sample3, Sample3, 6>(a, KVAudioDeinterleaveAES_302_20bit_toStereo32);
    },
    [](const Args &a) {
      return Read302<uint32_t, Pair7, Pair7, 7>(a, KVAudioDeinterleaveAES_302_24bit_toStereo32);
    },
    Peaks,
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  kvfuzz::Input in(data, size);
  const Case run = kCases[in.Take<uint8_t>() % std::size(kCases)];
  Args a{};
  a.frames = in.Take<uint16_t>() % 1200;
  a.slot = in.Take<uint32_t>();
  a.offset = in.Take<uint16_t>();
  a.channels = in.Take<uint8_t>() % 72;
  a.index = in.Take<uint32_t>();
  a.stride = in.Take<uint8_t>();
  a.flags = in.Take<uint8_t>();
  a.payload = in.rest();
  a.payloadBytes = in.rest_size();
  kvaudio::frame::SetAvx2ForTesting(0);
  const std::vector<uint8_t> plain = run(a);
  kvaudio::frame::SetAvx2ForTesting(kvfuzz::KernelPath());
  const std::vector<uint8_t> fast = run(a);
  kvaudio::frame::SetAvx2ForTesting(-1);
  Expect(plain == fast, "plain loop and AVX2 kernel differ");
  return 0;
}
