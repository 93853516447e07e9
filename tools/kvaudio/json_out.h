// JSON output: ordered objects so that field order is stable, levels with "not measured" as null.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>

namespace kvtool {

using Json = nlohmann::ordered_json;

// A level in dB/LUFS, or null when the library reports -200 (no signal, not measured).
Json Level(double db);
// The same rule for text output: "-23.1" or "-inf".
std::string LevelText(double db, int decimals = 1);
// Prints a document on standard output, two-space indented.
void PrintJson(const Json &doc);
// Channel numbers (from 1) of the bits set in a mask.
Json ChannelList(uint64_t mask);
std::string ChannelText(uint64_t mask);

}  // namespace kvtool
