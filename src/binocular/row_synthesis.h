// Per-row view synthesis of the binocular engine: pixels of the first image
// move to their landing columns, gaps are interpolated or taken from the
// colour-matched second image, and merged hole regions are cross-faded.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvdsr::binocular {

// Shared read-only inputs of one frame. Images are 4:2:0 semi-planar in one
// buffer (W x H luma, then H/2 rows of W chroma bytes); out has that layout.
struct SynthesisFrame {
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

// Per-row scratch, width entries each: the landing and source columns of
// the row's pixels, and src (B column per output column) and mark, which
// are zero on entry and left zero on return.
struct RowScratch {
    uint16_t* landing;
    uint16_t* source;
    uint16_t* src;
    uint8_t* mark;
};
std::size_t rowScratchBytes(int width);  // for rowScratchAt
RowScratch rowScratchAt(uint8_t* bytes, int width);  // bytes: 2-byte aligned, src and mark zeroed

// Renders luma row r from its depth levels (W entries); with chroma, also
// the chroma row r / 2 (the second row of a pair carries the pair's chroma).
void renderRow(const SynthesisFrame& f, int r, const uint16_t* levels, bool withChroma, RowScratch scratch);

// All rows, in pairs, on the calling thread, from a W x H level map.
void synthesizeView(const SynthesisFrame& f, const uint16_t* levelMap);

}  // namespace kvdsr::binocular
