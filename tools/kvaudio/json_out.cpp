// JSON and level text helpers.
#include "json_out.h"

#include <cmath>
#include <cstdio>
#include <iostream>

namespace kvtool {
namespace {
bool Measured(double db) { return std::isfinite(db) && db > -199.0; }
}  // namespace

Json Level(double db) {
  if (!Measured(db)) return nullptr;
  return std::round(db * 1000.0) / 1000.0;
}

std::string LevelText(double db, int decimals) {
  if (!Measured(db)) return "-inf";
  char text[32];
  std::snprintf(text, sizeof(text), "%.*f", decimals, db);
  return text;
}

void PrintJson(const Json &doc) { std::cout << doc.dump(2) << '\n'; }

Json ChannelList(uint64_t mask) {
  Json list = Json::array();
  for (int c = 0; c < 64; ++c)
    if (mask >> c & 1) list.push_back(c + 1);
  return list;
}

std::string ChannelText(uint64_t mask) {
  std::string text;
  for (int c = 0; c < 64; ++c)
    if (mask >> c & 1) text += (text.empty() ? "" : ",") + std::to_string(c + 1);
  return text.empty() ? "-" : text;
}

}  // namespace kvtool
