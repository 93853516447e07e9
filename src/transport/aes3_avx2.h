// Declarations of the AES3 and packed 24-bit AVX2 kernels; bodies live in aes3_avx2.cpp only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvaudio::transport {

// Each kernel handles whole vectors and returns the number of frames (or samples) it converted;
// the caller finishes the rest with its plain loop from that point.

// 8-word AES3 frames (header already skipped) to four 16-bit stereo outputs.
size_t KVAudioDeinterleaveAES316to16Avx2(const uint8_t *words, int16_t *const outs[4], size_t frames);
// Contiguous packed 24-bit samples to 32-bit samples; Stereoto32 counts frames of two samples.
size_t KVAudioConvertAES324Monoto32Avx2(uint32_t *out, const uint8_t *packed, size_t count, bool bigEndian);
size_t KVAudioConvertAES324Stereoto32Avx2(uint32_t *out, const uint8_t *packed, size_t frames, bool bigEndian);
// Two contiguous packed mono runs to 32-bit stereo (a left, b right).
size_t KVAudioConvertAES324DualMonoto32Avx2(uint32_t *out, const uint8_t *a, const uint8_t *b, size_t frames,
                                            bool bigEndian);
// Packed mono into element 2i + right of 32-bit stereo; the other elements are not written.
size_t KVAudioReinterleave24Monoto32StereoAvx2(uint32_t *stereo, const uint8_t *packed, size_t count, bool right,
                                               bool bigEndian);
// Mono into element 2i + right of stereo. The 16-bit kernel rewrites the other elements with their
// own values; the 32-bit kernel does not write them.
size_t KVAudioReinterleaveAES3_16monoto16stereoAvx2(const int16_t *mono, int16_t *stereo, size_t count, bool right);
size_t KVAudioReinterleaveAES3_32monoto32stereoAvx2(const uint32_t *mono, uint32_t *stereo, size_t count,
                                                    bool right);

}  // namespace kvaudio::transport
