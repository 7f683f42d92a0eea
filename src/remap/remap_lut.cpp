// Coordinate map (optionally through a homography) to fixed-point table.
#include <algorithm>
#include <cmath>
#include <memory>

#include "common/alloc.h"
#include "common/cpu_dispatch.h"
#include "common/frame_team.h"
#include "remap/pair_math.h"
#include "remap/remap.h"
#include "remap/remap_internal.h"
#include "remap/remap_lut_kernels.h"

namespace kvdsr::remap {

bool isIdentity(const double h[9]) {
    static constexpr double kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    for (int i = 0; i < 9; ++i)
        if (!(h[i] == kIdentity[i])) return false;
    return true;
}

bool mapRowsRead(const double h[9], int y, int first, int last, int mapHeight, int* lo, int* hi) {
    // With w in [0.5, 2] at both ends, w stays there along the row and v is
    // monotonic, so its extremes are at the ends. The kernels reach the end
    // through running sums, which differ from these by far less than the
    // margin of one row.
    double low = HUGE_VAL, high = -HUGE_VAL;
    for (const int x : {first, last}) {
        const double w = h[6] * x + h[7] * y + h[8];
        const double v = (h[3] * x + h[4] * y + h[5]) / w;
        if (!(w >= 0.5 && w <= 2 && std::fabs(v) < 1e6)) return false;
        low = std::min(low, v);
        high = std::max(high, v);
    }
    // Rows floor(v) and floor(v) + 1 are read, clamped to the grid.
    const double top = mapHeight - 1;
    *lo = int(std::clamp(std::floor(low) - 1, 0.0, top));
    *hi = int(std::clamp(std::floor(high) + 2, 0.0, top));
    return true;
}

TableRowWriter::TableRowWriter(const RemapTables& t, const RemapLayout& layout, const double warpMatrix[9],
                               int mapWidth_, int mapHeight_, int first_, int last_)
    : tables(t), shift(std::min(layout.columnShift, layout.extraColumns)), first(first_), last(last_), srcWidth(layout.srcWidth),
      srcHeight(layout.srcHeight), mapWidth(mapWidth_ > 0 && mapHeight_ > 0 ? mapWidth_ : 0),
      mapHeight(mapWidth_ > 0 && mapHeight_ > 0 ? mapHeight_ : 0) {
    identity = !warpMatrix || isIdentity(warpMatrix);
    if (warpMatrix) std::copy(warpMatrix, warpMatrix + 9, h);
    kernel = identity || mapWidth == 0 ? nullptr : lutRowKernel();
}

bool TableRowWriter::rowsRead(int y, int* lo, int* hi) const {
    *lo = 0;
    *hi = -1;
    if (mapWidth == 0 || first > last) return true;
    if (identity) {
        if (y < mapHeight) *lo = *hi = y;
        return true;
    }
    return mapRowsRead(h, y, first, last, mapHeight, lo, hi);
}

void TableRowWriter::write(int y, int count, const double* const* rows) const {
    const size_t rowBase = size_t(y) * tables.stride + shift;
    uint32_t* offset = tables.offset + rowBase;
    uint16_t* cw = tables.columnWeight + rowBase;
    uint16_t* rw = tables.rowWeight + rowBase;
    if (mapWidth != 0 && !identity) {
        LutRow block{rows, mapWidth, mapHeight, srcWidth, srcHeight, h, y, first, last, offset, cw, rw};
        block.count = count;
        block.stride = tables.stride;
        kernel(block);
        return;
    }
    const EntryWriter entry(srcWidth, srcHeight);
    const pair::Pair invalid = pair::splat(-1.0);
    for (int k = 0; k < count; ++k, offset += tables.stride, cw += tables.stride, rw += tables.stride) {
        // The identity reads the record at the same place; none beyond the grid.
        const double* rec = mapWidth != 0 && y + k < mapHeight ? rows[y + k] : nullptr;
        for (int x = first; x <= last; ++x)
            entry(rec && x < mapWidth ? pair::load(rec + 2 * x) : invalid, offset + x, cw + x, rw + x);
    }
}

void RemapLut_Build(const RemapTables& tables, const RemapLayout& layout, const double warpMatrix[9],
                    const double* coordinateMap, uint16_t mapWidth, uint16_t mapHeight, const uint16_t rect[4]) {
    if (!tables.offset || !tables.columnWeight || !tables.rowWeight || !rect || layout.outWidth == 0) return;
    // Rows are not clipped here (the table height is the caller's); columns
    // stay inside the output width.
    const int first = rect[0], last = std::min<int>(rect[2], layout.outWidth - 1);
    const int top = rect[1], bottom = rect[3];
    if (first > last || top > bottom) return;
    const bool haveMap = coordinateMap != nullptr;
    const TableRowWriter writer(tables, layout, warpMatrix, haveMap ? mapWidth : 0, haveMap ? mapHeight : 0, first,
                                last);
    // Row pointers into the whole map.
    std::unique_ptr<const double*[]> rows;
    if (writer.mapHeight > 0) {
        rows = allocArray<const double*>(writer.mapHeight);
        for (int r = 0; r < writer.mapHeight; ++r) rows[r] = coordinateMap + size_t(r) * writer.mapWidth * 2;
    }
    const bool parallel = uint64_t(last - first + 1) * uint64_t(bottom - top + 1) >= kParallelMinPixels;
    const int blocks = (bottom - top) / kLutBlockRows + 1;
    runItems(uint32_t(blocks), parallel, [&](uint32_t b, int) {
        const int y = top + int(b) * kLutBlockRows;
        writer.write(y, std::min(kLutBlockRows, bottom - y + 1), rows.get());
    });
}

void LutRowProjective_C(const LutRow& b) {
    eachRow(b, [](const LutRow& r) {
        const double* h = r.h;
        lutPixels(r, r.first, h[0] * r.first + h[1] * r.y + h[2], h[3] * r.first + h[4] * r.y + h[5],
                  h[6] * r.first + h[7] * r.y + h[8]);
    });
}

namespace {

int fillLutVariants(LutRowVariant* v) {
    int n = 0;
    v[n++] = {"C", LutRowProjective_C};
#if defined(__x86_64__)
    if (cpuHasAvx2()) v[n++] = {"AVX2", LutRowProjective_AVX2};
    if (cpuHasAvx2() && cpuHasAvx512()) v[n++] = {"AVX-512", LutRowProjective_AVX512};
#endif
#if defined(__aarch64__)
    v[n++] = {"NEON", LutRowProjective_NEON};
#endif
    return n;
}

KernelDispatch<LutRowFn, 3> g_lutRow(fillLutVariants);

}  // namespace

int lutRowVariants(const LutRowVariant** out) { return g_lutRow.variants(out); }
LutRowFn lutRowKernel() { return g_lutRow.kernel(); }
void setLutRowKernel(LutRowFn fn) { g_lutRow.set(fn); }

}  // namespace kvdsr::remap
