// QC fuzzer: configuration records, layout names and the stand-alone analyses on arbitrary bytes in
// an exact-size buffer; the plain and AVX2 analyses give the same records.
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
  kvfuzz::Block pcm(size_t{frames} * frame, in.rest(), in.rest_size());
  struct Results {
    kvaudqcTruePeak peak;
    kvaudqcLoudness loudness;
  } r[2];
  std::memset(r, 0, sizeof r);
  for (int path = 0; path < 2; ++path) {
    kvaudio::frame::SetAvx2ForTesting(path ? kvfuzz::KernelPath() : 0);
    kvqcAudioAnalyzeTruePeak(pcm.data(), frames, channels, bits, rate, mask, &r[path].peak);
    kvqcAudioAnalyzeLoudness(pcm.data(), frames, channels, bits, rate, name.c_str(), standard, &r[path].loudness);
  }
  kvaudio::frame::SetAvx2ForTesting(-1);
  if (std::memcmp(&r[0], &r[1], sizeof r[0]) != 0) kvfuzz::Fail("plain and AVX2 analyses differ");
  return 0;
}
