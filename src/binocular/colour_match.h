// Colour matching of the second camera's 4:2:0 image to the first one:
// statistics on a sparse grid, then one 256-entry table per channel.
//
// Images are W x H luma bytes followed by H/2 rows of W bytes of interleaved
// chroma pairs, in one buffer.
#pragma once

#include <cstdint>

namespace kvdsr::binocular {

// Sampling step of the statistics grid and the two band parameters of the
// row synthesis (gap width up to which gaps are interpolated, window of the
// mark cleaning); all fixed by the image height.
struct BandParams {
    int step;
    int p;
    int q;
};
BandParams bandParams(int height);

// Column whose depth levels give the offset.
inline int offsetColumn(int width) { return width < 21 ? width - 1 : 20; }

// Horizontal offset of the second image: mean over the rows of the source
// column that offsetColumn maps to, from that column's level in each row
// (height entries). Bounded to W - 1.
int matchOffset(const uint16_t* columnLevels, const uint16_t* sourceTable, int width, int height);

struct ChannelStats {
    double meanA[3];
    double meanB[3];
    double devA[3];
    double devB[3];
};
// Means and deviations of luma and the two chroma bytes, A at (x, y) against
// B at (x + offset, y), over the grid of the given step.
ChannelStats matchStatistics(const uint8_t* a, const uint8_t* b, int width, int height, int step, int offset);

// table[c][v]: B's value v of channel c mapped to A's mean and deviation.
void buildMatchTables(uint8_t table[3][256], const ChannelStats& s);

// Rewrites B in place through the tables: the whole image, or one luma row
// or one chroma row (even bytes through table 1, odd ones through table 2).
void applyMatchTables(uint8_t* b, int width, int height, const uint8_t table[3][256]);
void applyMatchLuma(uint8_t* row, int width, const uint8_t table[256]);
void applyMatchChroma(uint8_t* row, int width, const uint8_t table[3][256]);

// Chroma pair start of column x, kept inside a row of the given width.
inline int chromaPair(int x, int width) {
    const int last = width >= 2 ? (width - 2) & ~1 : 0;
    const int p = x & ~1;
    return p < last ? p : last;
}

}  // namespace kvdsr::binocular
