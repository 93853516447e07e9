// Channel layouts of the QC engine: names, ids, channel masks and BS.1770 channel weights.
#pragma once

#include <cstdint>

#include "kvaudio/qc.h"

namespace kvaudio::qc {

// True when a and b are equal byte by byte after tolower; false when either is null.
bool EqNoCase(const char *a, const char *b);

// Short name of a layout id ("5.1-smpte", "stereo3", ...), or "" for an id without one.
const char *LayoutNameFromId(uint32_t id);

// Fills *out for a recognised name and returns 0; null, empty and "none" give the "None" record.
// Returns -1 and leaves *out untouched for an unknown name (or a null out).
int ResolveLayout(const char *name, kvaudqcLayout *out);

// An eight-channel layout: all weights 1.0, then positions 3 to 7 by id (100, 103, or other).
void Set71Layout(kvaudqcLayout *layout, uint32_t id, const char *name);

}  // namespace kvaudio::qc
