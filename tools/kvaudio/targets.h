// Channel layouts and delivery standards by name or number, for loudness and QC.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "json_out.h"
#include "kvaudio/qc.h"

namespace kvtool {

// The layout called `name` (empty: none), checked against the file's channel count.
kvaudqcLayout LayoutFor(const std::string &name, uint32_t channels, const std::string &path);
// The targets of a delivery standard (0: none); unknown numbers are a ToolError.
kvaudqcTargets TargetsFor(uint32_t standard);
// The standard number of a --standard argument: a number or a name such as "ebu-r128"; unknown
// ones are a ToolError.
uint32_t ParseStandard(const std::string &text);
// The accepted names with their numbers, for --help.
std::string StandardHelp();
// "EBU R128: -23 +-1 LUFS, true peak -1 dBTP, range 20 LU" style description.
std::string TargetsText(const kvaudqcTargets &targets);
Json TargetsJson(const kvaudqcTargets &targets);
// Names of the loudness violation bits (kvaudqcLoudness::violations).
std::vector<std::string> ViolationNames(uint32_t bits);

}  // namespace kvtool
