// Cleaning of a row's gap marks before the hole regions are rendered.
#pragma once

#include <cstdint>

namespace kvdsr::binocular {

// Mark values of one row.
enum : uint8_t {
    kMarkNone = 0,  // landed or untouched
    kMarkFilled = 1,
    kMarkHole = 2,
};

// Slides a window of q columns over mark[0 .. width-1]: filled columns closer
// together than q merge into one hole region (kMarkHole), isolated filled
// columns are cleared, and at the last window position the remaining marks of
// the window (except its last column) become holes.
// Marks outside [first, last] must be zero; the sweep starts and ends there.
void cleanMarks(uint8_t* mark, int width, int q, int first = 0, int last = 1 << 30);

// First column in from .. limit with a non-zero mark, or limit + 1.
int nextMarked(const uint8_t* mark, int from, int limit);

// The same, re-scanning each window: the reference cleanMarks is held to.
void cleanMarksReference(uint8_t* mark, int width, int q);

}  // namespace kvdsr::binocular
