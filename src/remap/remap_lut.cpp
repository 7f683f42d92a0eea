// Coordinate map (optionally through a homography) to fixed-point table.
#include <algorithm>
#include <cmath>

#include "remap/pair_math.h"
#include "remap/remap.h"
#include "remap/remap_internal.h"

namespace kvdsr::remap {

namespace {

// Strict test: the right and lower neighbours must exist, so X = srcWidth-1
// is already outside. Unusable points get offset 0 and weights 0.
struct EntryWriter {
    pair::Pair low = pair::splat(0.0), high, one = pair::splat(1.0), scale = pair::splat(1024.0);
    uint32_t srcWidth;
    EntryWriter(uint32_t w, uint32_t h) : high(pair::make(double(w) - 1, double(h) - 1)), srcWidth(w) {}

    inline void operator()(pair::Pair xy, uint32_t* offset, uint16_t* columnWeight, uint16_t* rowWeight) const {
        if (pair::inside(xy, low, high)) {
            int32_t ix, iy, wc, wr;
            pair::Pair whole;
            pair::truncate(xy, &ix, &iy, &whole);
            pair::truncate(pair::mul(pair::sub(pair::add(whole, one), xy), scale), &wc, &wr, nullptr);
            *offset = uint32_t(ix) + srcWidth * uint32_t(iy);
            *columnWeight = uint16_t(wc);
            *rowWeight = uint16_t(wr);
        } else {
            *offset = 0;
            *columnWeight = 0;
            *rowWeight = 0;
        }
    }
};

// Map index and fraction along one axis, clamped to the grid; false for NaN.
inline bool clampIndex(double c, int size, int* i0, int* i1, double* frac) {
    if (c < 0) {
        *i0 = *i1 = 0;
        *frac = c;
    } else if (c >= size - 1) {
        *i0 = *i1 = size - 1;
        *frac = c - (size - 1);
    } else if (c >= 0) {
        *i0 = int(c);
        *i1 = *i0 + 1;
        *frac = c - *i0;
    } else {
        return false;
    }
    return true;
}

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
        double su = h[0] * first + h[1] * y + h[2];
        double sv = h[3] * first + h[4] * y + h[5];
        double sw = h[6] * first + h[7] * y + h[8];
        for (int x = first; x <= last; ++x, su += h[0], sv += h[3], sw += h[6]) {
            const double u = su / sw, v = sv / sw;
            int c0, c1, r0, r1;
            double fu, fv;
            pair::Pair xy = invalid;
            if (clampIndex(u, mapWidth, &c0, &c1, &fu) && clampIndex(v, mapHeight, &r0, &r1, &fv)) {
                // X and Y of the four records blended together.
                const double* m0 = coordinateMap + size_t(r0) * mapWidth * 2;
                const double* m1 = coordinateMap + size_t(r1) * mapWidth * 2;
                const pair::Pair pu = pair::splat(fu);
                const pair::Pair a = pair::load(m0 + 2 * c0), b = pair::load(m1 + 2 * c0);
                const pair::Pair rowTop = pair::add(a, pair::mul(pu, pair::sub(pair::load(m0 + 2 * c1), a)));
                const pair::Pair rowBottom = pair::add(b, pair::mul(pu, pair::sub(pair::load(m1 + 2 * c1), b)));
                xy = pair::add(rowTop, pair::mul(pair::splat(fv), pair::sub(rowBottom, rowTop)));
            }
            write(xy, offset + x, cw + x, rw + x);
        }
    }
}

}  // namespace kvdsr::remap
