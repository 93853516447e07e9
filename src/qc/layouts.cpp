// Channel layout table and its case-insensitive name lookup.
#include "qc/layouts.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace kvaudio::qc {
namespace {

constexpr double kSurround = 1.1885022274370185;  // 10^(1.5/20): +1.5 dB
constexpr size_t kNameBytes = sizeof(kvaudqcLayout::name);

// A multichannel layout: its short name first among its spellings, in comparison order.
struct Multichannel {
  uint32_t id;
  const char *spellings[5];  // null-terminated
  const char *stored;
  double weights[6];         // 5.1 layouts; 7.1 layouts take theirs from Set71Layout
};

const Multichannel kMultichannel[] = {
    {3, {"5.1-smpte", "5.1", "5.1 Surround", "5.1-Smpte - L R C lfe Ls Rs", nullptr},
     "5.1-Smpte - L R C lfe Ls Rs", {1, 1, 1, 0, kSurround, kSurround}},
    {4, {"5.1-protools", "5.1-Protools - L C R Ls Rs Lfe", nullptr},
     "5.1-Protools - L C R Ls Rs Lfe", {1, 1, 1, kSurround, kSurround, 0}},
    {5, {"5.1-aac", "5.1-AAC - C L R Ls Rs Lfe", nullptr}, "5.1-AAC - C L R Ls Rs Lfe",
     {1, 1, 1, kSurround, kSurround, 0}},
    {6, {"5.1-dts", "5.1-DTS -  L R Ls Rs C Lfe", "5.1-DTS - L R Ls Rs C Lfe", nullptr},
     "5.1-DTS - L R Ls Rs C Lfe", {1, 1, kSurround, kSurround, 1, 0}},
    {102, {"7.1-smpte", "7.1", "7.1 Surround", "7.1-Smpte - L R C Lfe Lss Rss Lsr Rsr", nullptr},
     "7.1-Smpte - L R C Lfe Lss Rss Lsr Rsr", {}},
    {100, {"7.1-protools", "7.1-Protools - L C R Lss Rss Lsr Rsr Lfe", nullptr},
     "7.1-Protools - L C R Lss Rss Lsr Rsr Lfe", {}},
    {101, {"7.1-ext", "7.1-EXT - L R C Lfe Lsr Rsr Lss Rss", nullptr}, "7.1-EXT - L R C Lfe Lsr Rsr Lss Rss", {}},
    {103, {"7.1-dolby", "7.1-Dolby - L C R Ls Rs Lfes Bsl Bsr", nullptr},
     "7.1-Dolby - L C R Ls Rs Lfes Bsl Bsr", {}},
};

const char *const kStereoShortNames[] = {"stereo1", "stereo2", "stereo3", "stereo4",
                                         "stereo5", "stereo6", "stereo7", "stereo8"};

void Clear(kvaudqcLayout *layout, uint32_t id, uint32_t channels, const char *name) {
  std::memset(layout, 0, sizeof *layout);
  layout->size = sizeof(kvaudqcLayout);
  layout->id = id;
  layout->channels = channels;
  std::memcpy(layout->name, name, strnlen(name, kNameBytes - 1));  // at most 63 bytes, NUL kept
}

void SetStereo(kvaudqcLayout *layout, unsigned n) {
  char name[kNameBytes];
  std::snprintf(name, sizeof name, "Stereo Pair %u", n);
  Clear(layout, 200 + n, 2, name);
  layout->firstChannel = 2 * n - 2;
  layout->channelMask = uint64_t{3} << (2 * n - 2);
  layout->weights[2 * n - 2] = layout->weights[2 * n - 1] = 1.0;
}

void SetMultichannel(kvaudqcLayout *layout, const Multichannel &m) {
  if (m.id >= 100) {
    Set71Layout(layout, m.id, m.stored);
    return;
  }
  Clear(layout, m.id, 6, m.stored);
  layout->channelMask = 63;
  for (int c = 0; c < 6; ++c) layout->weights[c] = m.weights[c];
}

bool MatchesStereo(const char *name, unsigned n) {
  char a[32], b[32];
  std::snprintf(a, sizeof a, "stereo%u", n);
  std::snprintf(b, sizeof b, "Stereo Pair %u", n);
  return EqNoCase(name, a) || EqNoCase(name, b);
}

}  // namespace

bool EqNoCase(const char *a, const char *b) {
  if (!a || !b) return false;
  for (;; ++a, ++b) {
    if (std::tolower(static_cast<unsigned char>(*a)) != std::tolower(static_cast<unsigned char>(*b))) return false;
    if (*a == '\0') return true;
  }
}

const char *LayoutNameFromId(uint32_t id) {
  if (id >= 201 && id <= 208) return kStereoShortNames[id - 201];
  for (const Multichannel &m : kMultichannel)
    if (m.id == id) return m.spellings[0];
  return "";
}

void Set71Layout(kvaudqcLayout *layout, uint32_t id, const char *name) {
  Clear(layout, id, 8, name);
  layout->channelMask = 255;
  for (int c = 0; c < 8; ++c) layout->weights[c] = 1.0;
  static const double kBy100[5] = {kSurround, kSurround, kSurround, kSurround, 0};
  static const double kBy103[5] = {kSurround, kSurround, 0, kSurround, kSurround};
  static const double kOther[5] = {0, kSurround, kSurround, kSurround, kSurround};
  const double *w = id == 100 ? kBy100 : (id == 103 ? kBy103 : kOther);
  for (int c = 0; c < 5; ++c) layout->weights[3 + c] = w[c];
}

int ResolveLayout(const char *name, kvaudqcLayout *out) {
  if (!out) return -1;
  if (!name || name[0] == '\0' || EqNoCase(name, "none")) {
    Clear(out, 0, 0, "None");
    return 0;
  }
  for (unsigned n = 1; n <= 8; ++n)
    if (MatchesStereo(name, n)) {
      SetStereo(out, n);
      return 0;
    }
  for (const Multichannel &m : kMultichannel)
    for (const char *const *s = m.spellings; *s; ++s)
      if (EqNoCase(name, *s)) {
        SetMultichannel(out, m);
        return 0;
      }
  return -1;
}

}  // namespace kvaudio::qc

extern "C" int32_t kvqcAudioLayoutFromName(const char *name, kvaudqcLayout *out) {
  return kvaudio::qc::ResolveLayout(name, out);
}
