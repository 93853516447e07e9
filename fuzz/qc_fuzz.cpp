// QC fuzzer: configuration records, layout names and the stand-alone analyses on arbitrary bytes.
#include <cstring>
#include <string>

#include "fuzz_input.h"
#include "kvaudio/qc.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  kvfuzz::Input in(data, size);
  kvaudqcConfig config = in.Take<kvaudqcConfig>();
  kvqcAudioClose(kvqcAudioOpen(&config));

  struct Name {
    char text[80];
  };
  const Name raw = in.Take<Name>();
  const std::string name(raw.text, strnlen(raw.text, sizeof raw.text));
  kvaudqcLayout layout;
  kvqcAudioLayoutFromName(name.c_str(), &layout);

  const uint32_t channels = in.Take<uint8_t>() % 34, bits = in.Take<uint8_t>() & 1 ? 32 : 16;
  const uint32_t rate = in.Take<uint16_t>(), standard = in.Take<uint8_t>();
  const uint64_t mask = in.Take<uint64_t>();
  const size_t frame = channels ? channels * bits / 8 : 1;
  const uint32_t frames = static_cast<uint32_t>(in.rest_size() / frame);
  kvaudqcTruePeak peak;
  kvqcAudioAnalyzeTruePeak(in.rest(), frames, channels, bits, rate, mask, &peak);
  kvaudqcLoudness loudness;
  kvqcAudioAnalyzeLoudness(in.rest(), frames, channels, bits, rate, name.c_str(), standard, &loudness);
  return 0;
}
