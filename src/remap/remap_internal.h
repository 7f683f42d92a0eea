// Internals shared by the remap sources (not for other engines).
#pragma once

#include <cstdint>
#include <memory>

#include "remap/distortion_map_kernels.h"
#include "remap/remap.h"
#include "remap/remap_lut_kernels.h"

namespace kvdsr::remap {

// Below this many pixels a row loop runs on the calling thread alone: waking
// the team costs more than the work.
constexpr uint64_t kParallelMinPixels = 1u << 15;

// ---- Coordinate map ---------------------------------------------------------

// The per-column and per-row terms of one map (docs/remap.md): grid point
// (x, y) has displacement (u[x], v[y]) and radius from q[x] and t[y].
struct MapTerms {
    std::unique_ptr<double[]> storage;
    double* u = nullptr;
    double* q = nullptr;
    double* v = nullptr;
    double* t = nullptr;
    int width = 0, height = 0;
    double cx = 0, cy = 0, pitch = 0;
    bool sorted = false;  // table radii ascending: searches may start from a hint
};

// Fill scale (fitToFrame) and the terms of the map at that scale. 0xD000, or
// 0xD115 when the fill-scale search meets an edge pixel beyond the table
// (terms then unset). scale receives the scale used.
uint32_t mapSetUp(const RemapModel& model, const DistortionTable& table, int inverse, int fitToFrame, double* scale,
                  MapTerms& terms);
// Whether some grid point lies beyond the table (what makes a map 0xD114),
// found from the extreme terms alone: the radius grows with q + t*t.
bool mapHasPointBeyond(const MapTerms& terms, const DistortionTable& table);
// Map row y (2 * width values); radius is scratch of width values.
void mapRow(const MapTerms& terms, const DistortionTable& table, MapRowFn kernel, int y, double* radius,
            double* out);

// ---- Table rows ----------------------------------------------------------------

bool isIdentity(const double h[9]);

// Map rows that table row y reads over columns first..last through h, with
// a margin for the kernels' running sums: false when they cannot be bounded
// (the row's w leaves [0.5, 2], or the map coordinates are huge).
bool mapRowsRead(const double h[9], int y, int first, int last, int mapHeight, int* lo, int* hi);

// Writes table rows from map rows given by pointer (rows[r]: record 0 of map
// row r), so that the rows may come from a whole map or from a few kept ones.
struct TableRowWriter {
    RemapTables tables;
    uint32_t shift = 0;       // entries the rows are written to the right
    int first = 0, last = -1;  // output columns
    uint32_t srcWidth = 0, srcHeight = 0;
    int mapWidth = 0, mapHeight = 0;  // 0: no map, every entry the border value
    double h[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    bool identity = true;
    LutRowFn kernel = nullptr;

    TableRowWriter(const RemapTables& t, const RemapLayout& layout, const double warpMatrix[9], int mapWidth,
                   int mapHeight, int first, int last);
    // Rows the entries of table row y read: [lo, hi], empty when lo > hi;
    // false when they cannot be bounded.
    bool rowsRead(int y, int* lo, int* hi) const;
    // Table rows y..y+count-1 (count at most kLutBlockRows).
    void write(int y, int count, const double* const* rows) const;
};

}  // namespace kvdsr::remap
