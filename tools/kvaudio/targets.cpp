// Layout and standard look-ups through the library's QC configuration functions.
#include "targets.h"

#include <cstdio>

#include "tool.h"

namespace kvtool {

kvaudqcLayout LayoutFor(const std::string &name, uint32_t channels, const std::string &path) {
  kvaudqcLayout layout{};
  if (kvqcAudioLayoutFromName(name.empty() ? nullptr : name.c_str(), &layout) != KVQC_OK)
    throw ToolError("unknown layout '" + name +
                    "' (use stereo1..stereo8, 5.1, 5.1-smpte, 5.1-protools, 5.1-aac, 5.1-dts, 7.1, "
                    "7.1-smpte, 7.1-protools, 7.1-ext, 7.1-dolby)");
  if (channels < 64 && layout.channelMask >> channels)
    throw FileError(path, "layout '" + std::string(layout.name) + "' needs channels the file does not "
                              "have (" + std::to_string(channels) + " channels)");
  return layout;
}

kvaudqcTargets TargetsFor(uint32_t standard) {
  kvaudqcTargets targets{};
  if (kvqcAudioStandardDefaults(standard, &targets) != KVQC_OK)
    throw ToolError("unknown standard " + std::to_string(standard) + " (use 0-7 or 100)");
  return targets;
}

std::string TargetsText(const kvaudqcTargets &t) {
  char text[160];
  std::snprintf(text, sizeof(text), "standard %u: target %.0f +-%.0f LUFS, true peak %.0f dBTP",
                t.standard, t.target, t.tolerance, t.truePeakMax);
  std::string out = text;
  if (t.rangeMax > 0) out += ", range " + LevelText(t.rangeMax, 0) + " LU";
  return out;
}

Json TargetsJson(const kvaudqcTargets &t) {
  return Json{{"number", t.standard}, {"target", t.target}, {"tolerance", t.tolerance},
              {"truePeakMax", t.truePeakMax}, {"rangeMax", t.rangeMax}};
}

std::vector<std::string> ViolationNames(uint32_t bits) {
  static const char *const kNames[] = {"integrated-below-target", "integrated-above-target",
                                       "true-peak-above-maximum", "range-above-maximum",
                                       "momentary-above-maximum", "short-term-above-maximum"};
  std::vector<std::string> names;
  for (int b = 0; b < 6; ++b)
    if (bits >> b & 1) names.push_back(kNames[b]);
  return names;
}

}  // namespace kvtool
