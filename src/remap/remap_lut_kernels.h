// Row kernels of the projective table build and their run-time selection.
// The SIMD kernels do several pixels at a time with the same IEEE operations
// per lane as the plain one, so all give identical tables.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/cpu_dispatch.h"
#include "remap/pair_math.h"

namespace kvdsr::remap {

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

// Table rows y..y+count-1 through a homography: sums advanced per column
// from `first`, the entries of row y + k written at index x + k * stride of
// offset/columnWeight/rowWeight. Map row r starts at rows[r]; only the rows
// the entries read need be set.
struct LutRow {
    const double* const* rows;
    int mapWidth, mapHeight;
    uint32_t srcWidth, srcHeight;
    const double* h;
    int y, first, last;
    uint32_t* offset;
    uint16_t* columnWeight;
    uint16_t* rowWeight;
    int count = 1;
    size_t stride = 0;
};

// Most rows one kernel call takes.
constexpr int kLutBlockRows = 8;

// Row k of a block, as a block of one row.
inline LutRow blockRow(const LutRow& b, int k) {
    LutRow r = b;
    r.y = b.y + k;
    r.count = 1;
    r.offset = b.offset + size_t(k) * b.stride;
    r.columnWeight = b.columnWeight + size_t(k) * b.stride;
    r.rowWeight = b.rowWeight + size_t(k) * b.stride;
    return r;
}

// Sample the map at (u, v), bilinearly with clamped indices; X and Y of the
// four records are blended together. Invalid (-1, -1) for NaN.
inline pair::Pair sampleMap(const LutRow& r, double u, double v) {
    int c0, c1, r0, r1;
    double fu, fv;
    if (!clampIndex(u, r.mapWidth, &c0, &c1, &fu) || !clampIndex(v, r.mapHeight, &r0, &r1, &fv))
        return pair::splat(-1.0);
    const double* m0 = r.rows[r0];
    const double* m1 = r.rows[r1];
    const pair::Pair pu = pair::splat(fu);
    const pair::Pair a = pair::load(m0 + 2 * c0), b = pair::load(m1 + 2 * c0);
    const pair::Pair rowTop = pair::add(a, pair::mul(pu, pair::sub(pair::load(m0 + 2 * c1), a)));
    const pair::Pair rowBottom = pair::add(b, pair::mul(pu, pair::sub(pair::load(m1 + 2 * c1), b)));
    return pair::add(rowTop, pair::mul(pair::splat(fv), pair::sub(rowBottom, rowTop)));
}

// Pixels from..last of row y whose sums at `from` are su, sv, sw.
inline void lutPixels(const LutRow& r, int from, double su, double sv, double sw) {
    const EntryWriter write(r.srcWidth, r.srcHeight);
    const double* h = r.h;
    for (int x = from; x <= r.last; ++x, su += h[0], sv += h[3], sw += h[6])
        write(sampleMap(r, su / sw, sv / sw), r.offset + x, r.columnWeight + x, r.rowWeight + x);
}

// Pixels from..to of row y from their sampling points, already divided:
// u[x - from], v[x - from].
inline void lutPoints(const LutRow& r, int from, int to, const double* u, const double* v) {
    const EntryWriter write(r.srcWidth, r.srcHeight);
    for (int x = from; x <= to; ++x)
        write(sampleMap(r, u[x - from], v[x - from]), r.offset + x, r.columnWeight + x, r.rowWeight + x);
}

// A block row by row through a one-row kernel.
template <class RowFn>
inline void eachRow(const LutRow& b, RowFn row) {
    for (int k = 0; k < b.count; ++k) row(blockRow(b, k));
}

using LutRowFn = void (*)(const LutRow& rows);
void LutRowProjective_C(const LutRow& row);
#if defined(__x86_64__)
void LutRowProjective_AVX2(const LutRow& row);
void LutRowProjective_AVX512(const LutRow& row);  // F, DQ, VL, BW
#endif
#if defined(__aarch64__)
void LutRowProjective_NEON(const LutRow& row);
#endif

// Kernels supported here, [0] the plain one; the last is used unless set.
using LutRowVariant = KernelVariant<LutRowFn>;
int lutRowVariants(const LutRowVariant** out);
LutRowFn lutRowKernel();
void setLutRowKernel(LutRowFn fn);  // nullptr: automatic

}  // namespace kvdsr::remap
