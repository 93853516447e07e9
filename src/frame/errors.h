// Error codes and their report through the support library's error output.
#pragma once

#include <cstdint>

namespace kvaudio {

constexpr uint32_t kErrNullArgument = 0xA80A2005;
constexpr uint32_t kErrUnsupported = 0xA80A8003;
constexpr uint32_t kErrBufferTooSmall = 0xA80A800B;

// Writes "audioUtil(0x<code>)" to the error output and returns code.
uint32_t ReportError(uint32_t code);

}  // namespace kvaudio
