// Layout and standard look-ups through the library's QC configuration functions.
#include "targets.h"

#include <cstdio>
#include <cstdlib>

#include "tool.h"

namespace kvtool {

kvaudqcLayout LayoutFor(const std::string &name, uint32_t channels, const std::string &path) {
  kvaudqcLayout layout{};
  if (kvqcAudioLayoutFromName(name.empty() ? nullptr : name.c_str(), &layout) != 0)
    throw ToolError("unknown layout '" + name +
                    "' (use stereo1..stereo8, 5.1, 5.1-smpte, 5.1-protools, 5.1-aac, 5.1-dts, 7.1, "
                    "7.1-smpte, 7.1-protools, 7.1-ext, 7.1-dolby)");
  if (channels < 64 && layout.channelMask >> channels)
    throw FileError(path, "layout '" + std::string(layout.name) + "' needs channels the file does not "
                              "have (" + std::to_string(channels) + " channels)");
  return layout;
}

namespace {

// Names of the library's target sets after the delivery recommendations that use those figures;
// numbers without a name here (3, 4, 7) repeat the targets of the one before.
struct StandardName {
  const char *name;
  uint32_t number;
};
constexpr StandardName kStandardNames[] = {
    {"none", 0},  {"ebu-r128", 1},     {"atsc-a85", 2}, {"op-59", 5},
    {"arib-tr-b32", 6}, {"custom", 100},
};

}  // namespace

uint32_t ParseStandard(const std::string &text) {
  for (const StandardName &s : kStandardNames)
    if (text == s.name) return s.number;
  char *end = nullptr;
  unsigned long n = text.empty() || text[0] == '-' ? 0 : std::strtoul(text.c_str(), &end, 10);
  if (!end || *end || n > UINT32_MAX) throw ToolError("unknown standard '" + text + "' (use " + StandardHelp() + ")");
  return TargetsFor(uint32_t(n)).standard;
}

std::string StandardHelp() {
  return "1 or ebu-r128 (-23 LUFS), 2 or atsc-a85 (-24 LKFS; 3, 4 the same), 5 or op-59, 6 or arib-tr-b32 "
         "(7 the same), 100 or custom, 0 or none";
}

kvaudqcTargets TargetsFor(uint32_t standard) {
  kvaudqcTargets targets{};
  if (kvqcAudioStandardDefaults(standard, &targets) != KVQC_OK)
    throw ToolError("unknown standard " + std::to_string(standard) + " (use " + StandardHelp() + ")");
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
