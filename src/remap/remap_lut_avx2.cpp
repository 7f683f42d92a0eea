// AVX2 kernel of the projective table build. Blocks of rows run their
// homogeneous sums with one row per lane, four rows at a time (one addition
// per column for four rows instead of a chain per row), divide, and turn the
// points around into rows four columns at a time; then each row samples the
// map four pixels per step where they lie in consecutive cells of one row
// pair (nearly always for a mild homography), any other group going through
// the plain kernel. Per lane it performs exactly the plain kernel's
// operations (divisions, clamped indices, the bilinear blend, truncations),
// so the tables are identical.
#if defined(__x86_64__)
#include <immintrin.h>

#include <algorithm>

#include "remap/remap_lut_kernels.h"
#include "remap/simd_x86.h"

namespace kvdsr::remap {

namespace {

using namespace x86;

// out[j][i] = in[i][j] for a 4x4 block of doubles.
inline void transpose4(const __m256d in[4], __m256d out[4]) {
    const __m256d t0 = _mm256_unpacklo_pd(in[0], in[1]), t1 = _mm256_unpackhi_pd(in[0], in[1]);
    const __m256d t2 = _mm256_unpacklo_pd(in[2], in[3]), t3 = _mm256_unpackhi_pd(in[2], in[3]);
    out[0] = _mm256_permute2f128_pd(t0, t2, 0x20);
    out[1] = _mm256_permute2f128_pd(t1, t3, 0x20);
    out[2] = _mm256_permute2f128_pd(t0, t2, 0x31);
    out[3] = _mm256_permute2f128_pd(t1, t3, 0x31);
}

// Constants of the four-pixel step for one table.
struct Step {
    __m256d zero = _mm256_setzero_pd(), one = _mm256_set1_pd(1.0), ramp = _mm256_setr_pd(0, 1, 2, 3);
    __m256d highX, highY;
    // The first point's cell, when the fourth is still inner: column + 4
    // <= mapWidth - 1, row + 1 <= mapHeight - 1.
    double firstColumnLimit, firstRowLimit;

    explicit Step(const LutRow& r)
        : highX(_mm256_set1_pd(double(r.srcWidth) - 1)), highY(_mm256_set1_pd(double(r.srcHeight) - 1)),
          firstColumnLimit(double(r.mapWidth) - 4), firstRowLimit(double(r.mapHeight) - 1) {}
};

// Entries x..x+3 of row r from their points, when all four lie in
// consecutive cells of one row pair inside the grid: there each clamped index
// is the truncation (column + k, row) and the fractions are uc - (column + k)
// and vc - row, in [0, 1). False (nothing written) for anything else, NaN
// included.
inline bool fourEntries(const LutRow& r, const Step& c, int x, __m256d uc, __m256d vc) {
    const double firstU = _mm256_cvtsd_f64(uc), firstV = _mm256_cvtsd_f64(vc);
    if (!(firstU >= 0 && firstV >= 0 && firstU < c.firstColumnLimit && firstV < c.firstRowLimit)) return false;
    const int column = int(firstU), row = int(firstV);
    __m256d fu = _mm256_sub_pd(uc, _mm256_add_pd(_mm256_set1_pd(double(column)), c.ramp));
    __m256d fv = _mm256_sub_pd(vc, _mm256_set1_pd(double(row)));
    const __m256d cells =
        _mm256_and_pd(_mm256_and_pd(_mm256_cmp_pd(fu, c.zero, _CMP_GE_OQ), _mm256_cmp_pd(fu, c.one, _CMP_LT_OQ)),
                      _mm256_and_pd(_mm256_cmp_pd(fv, c.zero, _CMP_GE_OQ), _mm256_cmp_pd(fv, c.one, _CMP_LT_OQ)));
    if (_mm256_movemask_pd(cells) != 0xF) return false;

    // Records column .. column + 4 of rows row and row + 1, worked on in lane
    // order 0 2 1 3 and put back at the end.
    const double* top = r.rows[row] + 2 * column;
    const double* bottom = r.rows[row + 1] + 2 * column;
    fu = swapMiddleLanes(fu);
    fv = swapMiddleLanes(fv);
    __m256d aX, aY, bX, bY, cX, cY, dX, dY;
    recordsInPairOrder(top, &aX, &aY);
    recordsInPairOrder(top + 2, &bX, &bY);
    recordsInPairOrder(bottom, &cX, &cY);
    recordsInPairOrder(bottom + 2, &dX, &dY);
    const __m256d X = swapMiddleLanes(lerp(lerp(aX, bX, fu), lerp(cX, dX, fu), fv));
    const __m256d Y = swapMiddleLanes(lerp(lerp(aY, bY, fu), lerp(cY, dY, fu), fv));
    writeFourEntries(X, Y, c.highX, c.highY, r.srcWidth, r.offset + x, r.columnWeight + x, r.rowWeight + x);
    return true;
}

// One row: the three sums of a pixel in one register, advanced in a chain.
void oneRow(const LutRow& r) {
    const Step c(r);
    const double* h = r.h;
    // Lanes: u, v, w sums and an unused one.
    __m256d sums = _mm256_setr_pd(h[0] * r.first + h[1] * r.y + h[2], h[3] * r.first + h[4] * r.y + h[5],
                                  h[6] * r.first + h[7] * r.y + h[8], 0.0);
    const __m256d step = _mm256_setr_pd(h[0], h[3], h[6], 0.0);
    int x = r.first;
    for (; x + 3 <= r.last; x += 4) {
        const __m256d at = sums;
        __m256d su, sv, sw;
        nextFourSums(&sums, step, &su, &sv, &sw);
        if (!fourEntries(r, c, x, _mm256_div_pd(su, sw), _mm256_div_pd(sv, sw))) {
            LutRow group = r;
            group.last = x + 3;
            alignas(32) double s[4];
            _mm256_store_pd(s, at);
            lutPixels(group, x, s[0], s[1], s[2]);
        }
    }
    alignas(32) double end[4];
    _mm256_store_pd(end, sums);
    lutPixels(r, x, end[0], end[1], end[2]);
}

// Up to four rows, one per lane, in strips of kStrip columns.
void rowsAsLanes(const LutRow& b) {
    constexpr int kStrip = 64;
    const Step c(b);
    const double* h = b.h;
    alignas(32) double start[3][4];
    for (int k = 0; k < 4; ++k) {
        const int y = b.y + std::min(k, b.count - 1);  // spare lanes repeat the last row
        start[0][k] = h[0] * b.first + h[1] * y + h[2];
        start[1][k] = h[3] * b.first + h[4] * y + h[5];
        start[2][k] = h[6] * b.first + h[7] * y + h[8];
    }
    __m256d su = _mm256_load_pd(start[0]), sv = _mm256_load_pd(start[1]), sw = _mm256_load_pd(start[2]);
    const __m256d stepU = _mm256_set1_pd(h[0]), stepV = _mm256_set1_pd(h[3]), stepW = _mm256_set1_pd(h[6]);
    alignas(32) double byColumn[2][kStrip][4];  // points of one column, one row per lane
    alignas(32) double byRow[2][4][kStrip];     // the same, one row after the other
    for (int xs = b.first; xs <= b.last; xs += kStrip) {
        const int n = std::min(kStrip, b.last - xs + 1), padded = (n + 3) & ~3;
        for (int i = 0; i < n; ++i) {
            _mm256_store_pd(byColumn[0][i], _mm256_div_pd(su, sw));
            _mm256_store_pd(byColumn[1][i], _mm256_div_pd(sv, sw));
            su = _mm256_add_pd(su, stepU);
            sv = _mm256_add_pd(sv, stepV);
            sw = _mm256_add_pd(sw, stepW);
        }
        for (int i = n; i < padded; ++i) {
            _mm256_store_pd(byColumn[0][i], c.zero);
            _mm256_store_pd(byColumn[1][i], c.zero);
        }
        for (int q = 0; q < 2; ++q)
            for (int i = 0; i < padded; i += 4) {
                __m256d in[4], out[4];
                for (int j = 0; j < 4; ++j) in[j] = _mm256_load_pd(byColumn[q][i + j]);
                transpose4(in, out);
                for (int k = 0; k < 4; ++k) _mm256_store_pd(&byRow[q][k][i], out[k]);
            }
        for (int k = 0; k < b.count; ++k) {
            const LutRow r = blockRow(b, k);
            const double* u = byRow[0][k];
            const double* v = byRow[1][k];
            int i = 0;
            for (; i + 4 <= n; i += 4)
                if (!fourEntries(r, c, xs + i, _mm256_load_pd(u + i), _mm256_load_pd(v + i)))
                    lutPoints(r, xs + i, xs + i + 3, u + i, v + i);
            if (i < n) lutPoints(r, xs + i, xs + n - 1, u + i, v + i);
        }
    }
}

}  // namespace

void LutRowProjective_AVX2(const LutRow& rows) {
    for (int k = 0; k < rows.count; k += 4) {
        LutRow part = blockRow(rows, k);
        part.count = std::min(4, rows.count - k);
        if (part.count > 1)
            rowsAsLanes(part);
        else
            oneRow(part);
    }
}

}  // namespace kvdsr::remap
#endif
