// AVX2 kernels of the AES3 word reader, the packed 24-bit readers and the re-interleavers.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "transport/aes3_avx2.h"

namespace kvaudio::transport {
namespace {

__m256i Load(const void *p) { return _mm256_loadu_si256(static_cast<const __m256i *>(p)); }
void Store(void *p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i *>(p), v); }

// 16-bit values of one 8-word AES3 frame in 32-bit lanes: (word >> 12) & 0xFFFF.
__m256i Audio16(const uint8_t *frame) {
  return _mm256_and_si256(_mm256_srli_epi32(Load(frame), 12), _mm256_set1_epi32(0xFFFF));
}

// Byte shuffle turning 8 packed samples into 32-bit samples with a zero low byte. Lane 0 reads
// bytes 0-11 of a load at p, lane 1 bytes 4-15 of a load at p + 8, so 24 bytes are read exactly.
__m256i Packed24Control(bool bigEndian) {
  alignas(32) int8_t control[32];
  for (int lane = 0; lane < 2; ++lane)
    for (int j = 0; j < 4; ++j) {
      int8_t *word = control + lane * 16 + j * 4;
      const int8_t first = static_cast<int8_t>(lane * 4 + j * 3);
      word[0] = -1;
      word[1] = static_cast<int8_t>(bigEndian ? first + 2 : first);
      word[2] = static_cast<int8_t>(first + 1);
      word[3] = static_cast<int8_t>(bigEndian ? first : first + 2);
    }
  return _mm256_load_si256(reinterpret_cast<const __m256i *>(control));
}

__m256i Convert8(const uint8_t *packed, __m256i control) {
  const __m128i lo = _mm_loadu_si128(reinterpret_cast<const __m128i *>(packed));
  const __m128i hi = _mm_loadu_si128(reinterpret_cast<const __m128i *>(packed + 8));
  return _mm256_shuffle_epi8(_mm256_inserti128_si256(_mm256_castsi128_si256(lo), hi, 1), control);
}

// in: s0..s7 -> first: s0 s0 s1 s1 s2 s2 s3 s3, second: s4 s4 .. s7 s7.
void Duplicate32(__m256i v, __m256i &first, __m256i &second) {
  const __m256i lo = _mm256_unpacklo_epi32(v, v), hi = _mm256_unpackhi_epi32(v, v);
  first = _mm256_permute2x128_si256(lo, hi, 0x20);
  second = _mm256_permute2x128_si256(lo, hi, 0x31);
}

// Eight mono values into elements 2i + right of 16 stereo elements; the others are not written.
void StoreIntoChannel32(uint32_t *stereo, __m256i mono, __m256i mask) {
  __m256i first, second;
  Duplicate32(mono, first, second);
  _mm256_maskstore_epi32(reinterpret_cast<int *>(stereo), mask, first);
  _mm256_maskstore_epi32(reinterpret_cast<int *>(stereo + 8), mask, second);
}

__m256i ChannelMask32(bool right) {
  return right ? _mm256_setr_epi32(0, -1, 0, -1, 0, -1, 0, -1) : _mm256_setr_epi32(-1, 0, -1, 0, -1, 0, -1, 0);
}

}  // namespace

// 8 frames a step. Units u0..u3 are slot pairs 01, 23, 45, 67; f.u names frame f's unit u.
size_t KVAudioDeinterleaveAES316to16Avx2(const uint8_t *words, int16_t *const outs[4], size_t frames) {
  const size_t whole = frames / 8 * 8;
  for (size_t f = 0; f < whole; f += 8, words += 256) {
    // packus clamps to 0..65535, which the mask already guarantees: 0.u0 0.u1 1.u0 1.u1 | 0.u2 0.u3 1.u2 1.u3
    const __m256i a = _mm256_packus_epi32(Audio16(words), Audio16(words + 32));
    const __m256i b = _mm256_packus_epi32(Audio16(words + 64), Audio16(words + 96));
    const __m256i c = _mm256_packus_epi32(Audio16(words + 128), Audio16(words + 160));
    const __m256i d = _mm256_packus_epi32(Audio16(words + 192), Audio16(words + 224));
    const __m256i abLo = _mm256_unpacklo_epi32(a, b);  // 0.0 2.0 0.1 2.1 | 0.2 2.2 0.3 2.3
    const __m256i abHi = _mm256_unpackhi_epi32(a, b);  // 1.0 3.0 1.1 3.1 | 1.2 3.2 1.3 3.3
    const __m256i cdLo = _mm256_unpacklo_epi32(c, d);
    const __m256i cdHi = _mm256_unpackhi_epi32(c, d);
    const __m256i even02 = _mm256_unpacklo_epi64(abLo, cdLo);  // 0.0 2.0 4.0 6.0 | 0.2 2.2 4.2 6.2
    const __m256i odd02 = _mm256_unpacklo_epi64(abHi, cdHi);   // 1.0 3.0 5.0 7.0 | 1.2 3.2 5.2 7.2
    const __m256i even13 = _mm256_unpackhi_epi64(abLo, cdLo);
    const __m256i odd13 = _mm256_unpackhi_epi64(abHi, cdHi);
    const __m256i u02Lo = _mm256_unpacklo_epi32(even02, odd02);  // 0.0 1.0 2.0 3.0 | 0.2 1.2 2.2 3.2
    const __m256i u02Hi = _mm256_unpackhi_epi32(even02, odd02);  // 4.0 5.0 6.0 7.0 | 4.2 5.2 6.2 7.2
    const __m256i u13Lo = _mm256_unpacklo_epi32(even13, odd13);
    const __m256i u13Hi = _mm256_unpackhi_epi32(even13, odd13);
    Store(outs[0] + 2 * f, _mm256_permute2x128_si256(u02Lo, u02Hi, 0x20));
    Store(outs[1] + 2 * f, _mm256_permute2x128_si256(u13Lo, u13Hi, 0x20));
    Store(outs[2] + 2 * f, _mm256_permute2x128_si256(u02Lo, u02Hi, 0x31));
    Store(outs[3] + 2 * f, _mm256_permute2x128_si256(u13Lo, u13Hi, 0x31));
  }
  return whole;
}

size_t KVAudioConvertAES324Monoto32Avx2(uint32_t *out, const uint8_t *packed, size_t count, bool bigEndian) {
  const __m256i control = Packed24Control(bigEndian);
  const size_t whole = count / 8 * 8;
  for (size_t i = 0; i < whole; i += 8) Store(out + i, Convert8(packed + 3 * i, control));
  return whole;
}

// With 6-byte frames the pairs form one contiguous run of 2 * frames samples.
size_t KVAudioConvertAES324Stereoto32Avx2(uint32_t *out, const uint8_t *packed, size_t frames, bool bigEndian) {
  return KVAudioConvertAES324Monoto32Avx2(out, packed, 2 * frames, bigEndian) / 2;
}

size_t KVAudioConvertAES324DualMonoto32Avx2(uint32_t *out, const uint8_t *a, const uint8_t *b, size_t frames,
                                            bool bigEndian) {
  const __m256i control = Packed24Control(bigEndian);
  const size_t whole = frames / 8 * 8;
  for (size_t i = 0; i < whole; i += 8) {
    const __m256i left = Convert8(a + 3 * i, control), right = Convert8(b + 3 * i, control);
    const __m256i lo = _mm256_unpacklo_epi32(left, right);  // a0 b0 a1 b1 | a4 b4 a5 b5
    const __m256i hi = _mm256_unpackhi_epi32(left, right);  // a2 b2 a3 b3 | a6 b6 a7 b7
    Store(out + 2 * i, _mm256_permute2x128_si256(lo, hi, 0x20));
    Store(out + 2 * i + 8, _mm256_permute2x128_si256(lo, hi, 0x31));
  }
  return whole;
}

size_t KVAudioReinterleave24Monoto32StereoAvx2(uint32_t *stereo, const uint8_t *packed, size_t count, bool right,
                                               bool bigEndian) {
  const __m256i control = Packed24Control(bigEndian), mask = ChannelMask32(right);
  const size_t whole = count / 8 * 8;
  for (size_t i = 0; i < whole; i += 8) StoreIntoChannel32(stereo + 2 * i, Convert8(packed + 3 * i, control), mask);
  return whole;
}

size_t KVAudioReinterleaveAES3_32monoto32stereoAvx2(const uint32_t *mono, uint32_t *stereo, size_t count,
                                                    bool right) {
  const __m256i mask = ChannelMask32(right);
  const size_t whole = count / 8 * 8;
  for (size_t i = 0; i < whole; i += 8) StoreIntoChannel32(stereo + 2 * i, Load(mono + i), mask);
  return whole;
}

// in: m0..m15 -> stereo words with m_i in element 2i + right, the other element kept.
size_t KVAudioReinterleaveAES3_16monoto16stereoAvx2(const int16_t *mono, int16_t *stereo, size_t count,
                                                    bool right) {
  const __m256i keep = _mm256_set1_epi32(right ? static_cast<int>(0xFFFF0000u) : 0x0000FFFF);
  const size_t whole = count / 16 * 16;
  for (size_t i = 0; i < whole; i += 16) {
    const __m256i m = Load(mono + i);
    const __m256i lo = _mm256_unpacklo_epi16(m, m), hi = _mm256_unpackhi_epi16(m, m);
    int16_t *out = stereo + 2 * i;
    Store(out, _mm256_blendv_epi8(Load(out), _mm256_permute2x128_si256(lo, hi, 0x20), keep));
    Store(out + 16, _mm256_blendv_epi8(Load(out + 16), _mm256_permute2x128_si256(lo, hi, 0x31), keep));
  }
  return whole;
}

}  // namespace kvaudio::transport
