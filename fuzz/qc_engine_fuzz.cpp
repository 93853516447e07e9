// QC engine fuzzer: an engine opened from arbitrary configuration bytes is fed frames of arbitrary
// lengths and contents, finished, read, reset and reused, then closed.
#include <vector>

#include "fuzz_input.h"
#include "kvaudio/qc.h"

namespace {

void ReadEvents(kvqcAudioEngine *e) {
  uint32_t count = 0, copied = 0;
  kvqcAudioGetEventCount(e, &count);
  std::vector<kvaudqcEvent> events(count + 1);
  kvqcAudioGetEvents(e, count / 2, count + 1, events.data(), &copied);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  kvfuzz::Input in(data, size);
  const kvaudqcConfig config = in.Take<kvaudqcConfig>();
  kvqcAudioEngine *e = kvqcAudioOpen(&config);
  // Bytes per period as the engine reads them once the defaults are applied.
  const uint32_t channels = config.channels ? config.channels : 2;
  const size_t period = size_t{channels} * (config.bitsPerSample == 32 ? 4 : 2);
  kvaudqcFrameAnalyze record;
  kvaudqcReport report;
  while (in.rest_size() >= 2) {
    const uint16_t word = in.Take<uint16_t>();
    const size_t available = in.rest_size() / period;
    const auto frames = static_cast<uint32_t>((word & 0x3FFF) < available ? (word & 0x3FFF) : available);
    kvqcAudioFrame(e, in.rest(), frames, (word & 0x4000) ? nullptr : &record);
    in = kvfuzz::Input(in.rest() + frames * period, in.rest_size() - frames * period);
    if (word & 0x8000) {  // end the run here and start again
      kvqcAudioFinish(e, &report);
      ReadEvents(e);
      kvqcAudioReset(e);
    }
  }
  kvqcAudioFinish(e, &report);
  ReadEvents(e);
  kvqcAudioClose(e);
  return 0;
}
