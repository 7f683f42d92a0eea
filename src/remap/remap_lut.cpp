// Coordinate map (optionally through a homography) to fixed-point table.
#include <algorithm>
#include <cmath>

#include "remap/remap.h"
#include "remap/remap_internal.h"

namespace kvdsr::remap {

namespace {

// Strict test: the right and lower neighbours must exist, so X = srcWidth-1
// is already outside. Unusable points get offset 0 and weights 0.
inline void storeEntry(double X, double Y, uint32_t srcWidth, uint32_t srcHeight, uint32_t* offset,
                       uint16_t* columnWeight, uint16_t* rowWeight) {
    if (X >= 0 && Y >= 0 && X < double(srcWidth) - 1 && Y < double(srcHeight) - 1) {
        const uint32_t ix = uint32_t(X), iy = uint32_t(Y);
        *offset = ix + srcWidth * iy;
        *columnWeight = uint16_t((double(ix) + 1 - X) * 1024);
        *rowWeight = uint16_t((double(iy) + 1 - Y) * 1024);
    } else {
        *offset = 0;
        *columnWeight = 0;
        *rowWeight = 0;
    }
}

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
#pragma omp parallel for schedule(dynamic, 1) if (parallel)
    for (int y = top; y <= bottom; ++y) {
        const size_t rowBase = size_t(y) * stride + shift;
        uint32_t* offset = offsetTable + rowBase;
        uint16_t* cw = columnWeightTable + rowBase;
        uint16_t* rw = rowWeightTable + rowBase;
        if (!haveMap) {
            for (int x = first; x <= last; ++x) storeEntry(-1, -1, srcWidth, srcHeight, offset + x, cw + x, rw + x);
            continue;
        }
        if (identity) {
            for (int x = first; x <= last; ++x) {
                double X = -1, Y = -1;
                if (x < mapWidth && y < mapHeight) {
                    const double* rec = coordinateMap + (size_t(y) * mapWidth + x) * 2;
                    X = rec[0];
                    Y = rec[1];
                }
                storeEntry(X, Y, srcWidth, srcHeight, offset + x, cw + x, rw + x);
            }
            continue;
        }
        double su = h[0] * first + h[1] * y + h[2];
        double sv = h[3] * first + h[4] * y + h[5];
        double sw = h[6] * first + h[7] * y + h[8];
        for (int x = first; x <= last; ++x, su += h[0], sv += h[3], sw += h[6]) {
            const double u = su / sw, v = sv / sw;
            int c0, c1, r0, r1;
            double fu, fv;
            double X = -1, Y = -1;
            if (clampIndex(u, mapWidth, &c0, &c1, &fu) && clampIndex(v, mapHeight, &r0, &r1, &fv)) {
                const double* m0 = coordinateMap + size_t(r0) * mapWidth * 2;
                const double* m1 = coordinateMap + size_t(r1) * mapWidth * 2;
                const double xTop = m0[2 * c0] + fu * (m0[2 * c1] - m0[2 * c0]);
                const double xBottom = m1[2 * c0] + fu * (m1[2 * c1] - m1[2 * c0]);
                const double yTop = m0[2 * c0 + 1] + fu * (m0[2 * c1 + 1] - m0[2 * c0 + 1]);
                const double yBottom = m1[2 * c0 + 1] + fu * (m1[2 * c1 + 1] - m1[2 * c0 + 1]);
                X = xTop + fv * (xBottom - xTop);
                Y = yTop + fv * (yBottom - yTop);
            }
            storeEntry(X, Y, srcWidth, srcHeight, offset + x, cw + x, rw + x);
        }
    }
}

}  // namespace kvdsr::remap
