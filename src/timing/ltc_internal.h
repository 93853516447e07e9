// Links between the LTC encoder and decoder files, and the hooks the tests use.
#pragma once

#include <cstdint>

namespace kvaudio::ltc {

// Decoder half of smpteSetup: selects the detector and, when the 16-bit rate changes, the first
// period estimate and its limits. Does nothing when the rate equals the stored one.
void SetUpDecoder(uint32_t rate, uint32_t bitsPerSample, int32_t stereo, int32_t channel);

// Decode statics: m_dwBadCount starts at 10 and drops to 0 at every good decode; m_dwTC holds
// the frame count of the last good decode.
extern uint32_t m_dwBadCount;
extern uint32_t m_dwTC;

// Restore the load-time state of the global encoder and decoder. For tests only.
void ResetEncoderForTesting();
void ResetDecoderForTesting();

}  // namespace kvaudio::ltc
