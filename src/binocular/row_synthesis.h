// Per-row view synthesis of the binocular engine: pixels of the first image
// move to their landing columns, gaps are interpolated or taken from the
// colour-matched second image, and merged hole regions are cross-faded.
#pragma once

#include <cstdint>

namespace kvdsr::binocular {

// Shared read-only inputs of one frame. Images are 4:2:0 semi-planar in one
// buffer (W x H luma, then H/2 rows of W chroma bytes); out has that layout.
struct SynthesisFrame {
    const uint16_t* levelMap;      // W x H depth levels
    const uint16_t* landingTable;  // 1023 x W
    const uint16_t* sourceTable;   // 1023 x W
    const uint8_t* a;              // first image
    const uint8_t* b;              // colour-matched second image
    uint8_t* out;
    int width;
    int height;
    int p;  // gaps up to p columns are interpolated, wider ones taken from b
    int q;  // mark-cleaning window
};

// Per-row scratch: src (B column per output column) and mark, width entries
// each, zero on entry and left zero on return.
struct RowScratch {
    uint16_t* src;
    uint8_t* mark;
};

// Renders luma row r; with chroma, also the chroma row r / 2 (the second row
// of a pair carries the pair's chroma).
void renderRow(const SynthesisFrame& f, int r, bool withChroma, RowScratch scratch);

// All rows, in row pairs over the OpenMP team. scratch holds threads * width
// entries of each array, zeroed; the team has at most threads members.
void synthesizeView(const SynthesisFrame& f, RowScratch scratch, int threads);

}  // namespace kvdsr::binocular
