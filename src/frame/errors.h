// Error codes and their report through the support library's error output.
#pragma once

#include <cstdint>

#include "kvaudio/errors.h"

namespace kvaudio {

constexpr uint32_t kErrNullArgument = KVAUDIO_ERR_NULL_ARGUMENT;
constexpr uint32_t kErrUnsupported = KVAUDIO_ERR_UNSUPPORTED;
constexpr uint32_t kErrBufferTooSmall = KVAUDIO_ERR_BUFFER_TOO_SMALL;

// Writes "audioUtil(0x<code>)" to the error output and returns code.
uint32_t ReportError(uint32_t code);

// Returns body(), or onFailure when it throws (memory exhausted): no exception leaves an exported
// function.
template <typename R, typename Body>
R NoThrow(R onFailure, Body &&body) noexcept {
  try {
    return body();
  } catch (...) {
    return onFailure;
  }
}

}  // namespace kvaudio
