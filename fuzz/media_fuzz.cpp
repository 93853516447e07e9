// The tool's media input on arbitrary bytes through an in-memory reader: any container, codec or
// SMPTE 302M packet either reads to its end in blocks or fails with the tool's error, never more.
#include <cstdint>
#include <vector>

#include "audio_file.h"
#include "tool.h"

namespace kvtool {
ToolError FileError(const std::string &path, const std::string &what) { return ToolError(path + ": " + what); }
}  // namespace kvtool

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  try {
    kvtool::AudioReader reader("fuzz", data, size);
    const uint32_t channels = reader.info().channels;
    if (channels == 0 || channels > 64) return 0;
    std::vector<int32_t> block(size_t(channels) * 1024);
    for (int i = 0; i < 4096 && reader.Read(block.data(), 1024) > 0; ++i) {
    }
  } catch (const kvtool::ToolError &) {
  }
  return 0;
}
