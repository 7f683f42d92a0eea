// Coordinate map (optionally through a homography) to fixed-point table.
#include <algorithm>
#include <cmath>


#include "remap/pair_math.h"
#include "remap/kernel_dispatch.h"
#include "remap/remap.h"
#include "remap/remap_internal.h"
#include "remap/remap_lut_kernels.h"

namespace kvdsr::remap {

namespace {

bool isIdentity(const double h[9]) {
    static constexpr double kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    for (int i = 0; i < 9; ++i)
        if (!(h[i] == kIdentity[i])) return false;
    return true;
}

}  // namespace

bool effectiveRect(const uint16_t rect[4], uint32_t outWidth, uint32_t outHeight, int mode, uint32_t extraColumns,
                   uint32_t columnShiftFlag, uint32_t out[4], uint32_t* shift) {
    if (!rect || outWidth == 0 || outHeight == 0) return false;
    const uint32_t first = rect[0], top = rect[1];
    const uint32_t last = std::min<uint32_t>(rect[2], outWidth - 1), bottom = std::min<uint32_t>(rect[3], outHeight - 1);
    if (first > last || top > bottom) return false;
    *shift = (mode == 1 || mode == 2) && columnShiftFlag ? extraColumns : 0;
    out[0] = first + *shift;
    out[1] = top;
    out[2] = last + *shift;
    out[3] = bottom;
    return true;
}

void RemapLut_Build(uint32_t* offsetTable, uint16_t* columnWeightTable, uint16_t* rowWeightTable, uint16_t srcWidth,
                    uint16_t srcHeight, uint16_t mapWidth, uint16_t mapHeight, uint16_t outWidth, int mode,
                    uint32_t extraColumns, const double warpMatrix[9], const double* coordinateMap,
                    const uint16_t rect[4]) {
    if (!offsetTable || !columnWeightTable || !rowWeightTable || !rect) return;
    const uint32_t extra = mode == 0 ? 0 : extraColumns;
    const size_t stride = size_t(outWidth) + extraColumns;
    // Rows are not clipped here (the table height is the caller's); columns
    // stay inside the row.
    const uint16_t clipped[4] = {rect[0], rect[1], rect[2], 0xFFFF};
    uint32_t r[4], shift = 0;
    if (!effectiveRect(clipped, outWidth, 0xFFFF, mode, extra, mutableContext().columnShiftFlag, r, &shift)) return;
    const int first = int(r[0] - shift), last = int(r[2] - shift);
    const int top = rect[1], bottom = rect[3];
    if (top > bottom) return;
    const bool haveMap = coordinateMap && mapWidth > 0 && mapHeight > 0;
    const bool identity = !warpMatrix || isIdentity(warpMatrix);
    double h[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    if (warpMatrix)
        for (int i = 0; i < 9; ++i) h[i] = warpMatrix[i];

    const bool parallel = uint64_t(last - first + 1) * uint64_t(bottom - top + 1) >= kParallelMinPixels;
    const EntryWriter write(srcWidth, srcHeight);
    const pair::Pair invalid = pair::splat(-1.0);
    const LutRowFn kernel = identity || !haveMap ? nullptr : lutRowKernel();

#pragma omp parallel for schedule(dynamic, 1) if (parallel)
    for (int y = top; y <= bottom; ++y) {
        const size_t rowBase = size_t(y) * stride + shift;
        uint32_t* offset = offsetTable + rowBase;
        uint16_t* cw = columnWeightTable + rowBase;
        uint16_t* rw = rowWeightTable + rowBase;
        if (!haveMap) {
            for (int x = first; x <= last; ++x) write(invalid, offset + x, cw + x, rw + x);
            continue;
        }
        if (identity) {
            const double* rec = y < mapHeight ? coordinateMap + size_t(y) * mapWidth * 2 : nullptr;
            for (int x = first; x <= last; ++x)
                write(rec && x < mapWidth ? pair::load(rec + 2 * x) : invalid, offset + x, cw + x, rw + x);
            continue;
        }
        const LutRow row{coordinateMap, mapWidth, mapHeight, srcWidth, srcHeight, h, y, first, last, offset, cw, rw};
        kernel(row);
    }
}

int RemapLut_LastMapRow(const double warpMatrix[9], int y, int first, int last, int mapHeight) {
    const int all = mapHeight - 1;
    if (mapHeight <= 0) return 0;
    if (!warpMatrix || isIdentity(warpMatrix)) return std::min(y, all);
    // With w in [0.5, 2] at both ends, w stays there along the row and v is
    // monotonic, so its largest value is at an end. The kernels reach the
    // end through serial sums, which differ from these by far less than the
    // margin of one row.
    const double* h = warpMatrix;
    double top = -HUGE_VAL;
    for (const int x : {first, last}) {
        const double w = h[6] * x + h[7] * y + h[8];
        const double v = (h[3] * x + h[4] * y + h[5]) / w;
        if (!(w >= 0.5 && w <= 2 && std::fabs(v) < 1e6)) return all;
        top = std::max(top, v);
    }
    // Rows floor(v) and floor(v) + 1 are read.
    return int(std::clamp(std::floor(top) + 2, 0.0, double(all)));
}

void LutRowProjective_C(const LutRow& r) {
    const double* h = r.h;
    lutPixels(r, r.first, h[0] * r.first + h[1] * r.y + h[2], h[3] * r.first + h[4] * r.y + h[5],
              h[6] * r.first + h[7] * r.y + h[8]);
}

namespace {

int fillLutVariants(LutRowFn* v) {
    int n = 0;
    v[n++] = LutRowProjective_C;
#if defined(__x86_64__)
    if (cpuHasAvx2()) v[n++] = LutRowProjective_AVX2;
    if (cpuHasAvx2() && cpuHasAvx512()) v[n++] = LutRowProjective_AVX512;
#endif
#if defined(__aarch64__)
    v[n++] = LutRowProjective_NEON;
#endif
    return n;
}

KernelDispatch<LutRowFn, 3> g_lutRow(fillLutVariants);

}  // namespace

int lutRowVariants(const LutRowFn** out) { return g_lutRow.variants(out); }
LutRowFn lutRowKernel() { return g_lutRow.kernel(); }
void setLutRowKernel(LutRowFn fn) { g_lutRow.set(fn); }

}  // namespace kvdsr::remap
