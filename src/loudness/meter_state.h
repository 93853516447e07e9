// The meter's own state, kept in the block ebu_r128_init allocates behind the channel records.
#pragma once

#include <cstdint>

#include "kvaudio/loudness.h"

namespace kvaudio::loudness {

// Followed by channels x StepsPerWindow doubles: each channel's ring of per-step sums of squares.
struct MeterState {
  uint32_t stepSlot;  // ring slot the next step goes to, that of the oldest one
  uint32_t reserved;
};

// Whole steps of stepSamples in the window.
uint32_t StepsPerWindow(const s_ebu_r128 *s);
// The state block and channel c's ring of step sums of a meter set up by ebu_r128_init.
MeterState *State(const s_ebu_r128 *s);
double *StepPowers(const s_ebu_r128 *s, uint32_t c);

}  // namespace kvaudio::loudness
