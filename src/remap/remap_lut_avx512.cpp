// AVX-512 kernel of the projective table build. Blocks of rows run their
// homogeneous sums with one row per lane (one addition per column for eight
// rows instead of eight additions in a chain per row), divide, and turn the
// points around into rows eight columns at a time; then each row samples the
// map eight pixels per step where they lie in consecutive cells of one row
// pair (nearly always for a mild homography), any other group going through
// the plain kernel. Per lane it performs exactly the plain kernel's
// operations, so the tables are identical.
#if defined(__x86_64__)
#include <immintrin.h>

#include <algorithm>

#include "remap/remap_lut_kernels.h"
#include "remap/simd_x86.h"

namespace kvdsr::remap {

namespace {

using namespace x86;

// Lanes 1..7 of v, then next.
inline __m512d shiftIn(__m512d v, double next) {
    return _mm512_castsi512_pd(
        _mm512_alignr_epi64(_mm512_castpd_si512(_mm512_set1_pd(next)), _mm512_castpd_si512(v), 1));
}

// out[j][i] = in[i][j] for an 8x8 block of doubles.
inline void transpose8(const __m512d in[8], __m512d out[8]) {
    __m512d t[8], s[8];
    for (int i = 0; i < 4; ++i) {
        t[2 * i] = _mm512_unpacklo_pd(in[2 * i], in[2 * i + 1]);      // in0_0 in1_0 in0_2 in1_2 ...
        t[2 * i + 1] = _mm512_unpackhi_pd(in[2 * i], in[2 * i + 1]);  // in0_1 in1_1 in0_3 in1_3 ...
    }
    for (int i = 0; i < 2; ++i) {
        s[4 * i] = _mm512_shuffle_f64x2(t[4 * i], t[4 * i + 2], 0x88);      // columns 0 and 4
        s[4 * i + 1] = _mm512_shuffle_f64x2(t[4 * i], t[4 * i + 2], 0xDD);  // 2 and 6
        s[4 * i + 2] = _mm512_shuffle_f64x2(t[4 * i + 1], t[4 * i + 3], 0x88);  // 1 and 5
        s[4 * i + 3] = _mm512_shuffle_f64x2(t[4 * i + 1], t[4 * i + 3], 0xDD);  // 3 and 7
    }
    out[0] = _mm512_shuffle_f64x2(s[0], s[4], 0x88);
    out[4] = _mm512_shuffle_f64x2(s[0], s[4], 0xDD);
    out[2] = _mm512_shuffle_f64x2(s[1], s[5], 0x88);
    out[6] = _mm512_shuffle_f64x2(s[1], s[5], 0xDD);
    out[1] = _mm512_shuffle_f64x2(s[2], s[6], 0x88);
    out[5] = _mm512_shuffle_f64x2(s[2], s[6], 0xDD);
    out[3] = _mm512_shuffle_f64x2(s[3], s[7], 0x88);
    out[7] = _mm512_shuffle_f64x2(s[3], s[7], 0xDD);
}

// Constants of the eight-pixel step for one table.
struct Step {
    __m512d zero = _mm512_setzero_pd(), one = _mm512_set1_pd(1.0), scale = _mm512_set1_pd(1024.0);
    __m512d ramp = _mm512_setr_pd(0, 1, 2, 3, 4, 5, 6, 7);
    __m512d highX, highY;
    __m512i even = _mm512_setr_epi64(0, 2, 4, 6, 8, 10, 12, 14), odd = _mm512_setr_epi64(1, 3, 5, 7, 9, 11, 13, 15);
    __m512d srcWidth;
    // The first point's cell, when the eighth is still inner: column + 8
    // <= mapWidth - 1, row + 1 <= mapHeight - 1.
    double firstColumnLimit, firstRowLimit;

    explicit Step(const LutRow& r)
        : highX(_mm512_set1_pd(double(r.srcWidth) - 1)), highY(_mm512_set1_pd(double(r.srcHeight) - 1)),
          srcWidth(_mm512_set1_pd(double(r.srcWidth))), firstColumnLimit(double(r.mapWidth) - 8),
          firstRowLimit(double(r.mapHeight) - 1) {}
};

// Entries x..x+7 of row r from their points, when all eight lie in
// consecutive cells of one row pair inside the grid: there each clamped index
// is the truncation (column + k, row) and the fractions are uc - (column + k)
// and vc - row, in [0, 1). False (nothing written) for anything else, NaN
// included.
inline bool eightEntries(const LutRow& r, const Step& c, int x, __m512d uc, __m512d vc) {
    const double firstU = _mm512_cvtsd_f64(uc), firstV = _mm512_cvtsd_f64(vc);
    if (!(firstU >= 0 && firstV >= 0 && firstU < c.firstColumnLimit && firstV < c.firstRowLimit)) return false;
    const int column = int(firstU), row = int(firstV);
    const __m512d fu = _mm512_sub_pd(uc, _mm512_add_pd(_mm512_set1_pd(double(column)), c.ramp));
    const __m512d fv = _mm512_sub_pd(vc, _mm512_set1_pd(double(row)));
    const __mmask8 cells = _mm512_mask_cmp_pd_mask(
        _mm512_mask_cmp_pd_mask(_mm512_mask_cmp_pd_mask(_mm512_cmp_pd_mask(fu, c.zero, _CMP_GE_OQ), fu, c.one,
                                                        _CMP_LT_OQ),
                                fv, c.zero, _CMP_GE_OQ),
        fv, c.one, _CMP_LT_OQ);
    if (cells != 0xFF) return false;

    // Records column .. column + 8 of rows row and row + 1: X and Y of the
    // first eight by two permutes, the right neighbours by a shift in of the
    // ninth.
    const double* top = r.rows[row] + size_t(column) * 2;
    const double* bottom = r.rows[row + 1] + size_t(column) * 2;
    const __m512d a0 = _mm512_loadu_pd(top), a1 = _mm512_loadu_pd(top + 8);
    const __m512d c0 = _mm512_loadu_pd(bottom), c1 = _mm512_loadu_pd(bottom + 8);
    const __m512d aX = _mm512_permutex2var_pd(a0, c.even, a1), aY = _mm512_permutex2var_pd(a0, c.odd, a1);
    const __m512d cX = _mm512_permutex2var_pd(c0, c.even, c1), cY = _mm512_permutex2var_pd(c0, c.odd, c1);
    const __m512d bX = shiftIn(aX, top[16]), bY = shiftIn(aY, top[17]);
    const __m512d dX = shiftIn(cX, bottom[16]), dY = shiftIn(cY, bottom[17]);
    const __m512d X = lerp(lerp(aX, bX, fu), lerp(cX, dX, fu), fv);
    const __m512d Y = lerp(lerp(aY, bY, fu), lerp(cY, dY, fu), fv);

    // EntryWriter on the eight: conversions zeroed outside the source give
    // offset 0 and weights 0 there. Inside, trunc(X) is whole and below
    // 65535, and the offset below 2^32, so both are exact as doubles.
    const __mmask8 inside = _mm512_mask_cmp_pd_mask(
        _mm512_mask_cmp_pd_mask(_mm512_mask_cmp_pd_mask(_mm512_cmp_pd_mask(X, c.zero, _CMP_GE_OQ), X, c.highX,
                                                        _CMP_LT_OQ),
                                Y, c.zero, _CMP_GE_OQ),
        Y, c.highY, _CMP_LT_OQ);
    const __m512d ix = _mm512_roundscale_pd(X, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    const __m512d iy = _mm512_roundscale_pd(Y, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    const __m256i wc =
        _mm512_maskz_cvttpd_epu32(inside, _mm512_mul_pd(_mm512_sub_pd(_mm512_add_pd(ix, c.one), X), c.scale));
    const __m256i wr =
        _mm512_maskz_cvttpd_epu32(inside, _mm512_mul_pd(_mm512_sub_pd(_mm512_add_pd(iy, c.one), Y), c.scale));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(r.offset + x),
                        _mm512_maskz_cvttpd_epu32(inside, _mm512_add_pd(ix, _mm512_mul_pd(c.srcWidth, iy))));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(r.columnWeight + x), _mm256_cvtepi32_epi16(wc));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(r.rowWeight + x), _mm256_cvtepi32_epi16(wr));
    return true;
}

// One row: the three sums of a pixel in one register, advanced in a chain.
void oneRow(const LutRow& r) {
    const Step c(r);
    const double* h = r.h;
    __m256d sums = _mm256_setr_pd(h[0] * r.first + h[1] * r.y + h[2], h[3] * r.first + h[4] * r.y + h[5],
                                  h[6] * r.first + h[7] * r.y + h[8], 0.0);
    const __m256d step = _mm256_setr_pd(h[0], h[3], h[6], 0.0);
    int x = r.first;
    for (; x + 7 <= r.last; x += 8) {
        __m256d p[8];
        p[0] = sums;
        for (int k = 1; k < 8; ++k) p[k] = _mm256_add_pd(p[k - 1], step);
        const __m256d next = _mm256_add_pd(p[7], step);
        __m256d u0, v0, w0, u1, v1, w1;
        transposeSums(p[0], p[1], p[2], p[3], &u0, &v0, &w0);
        transposeSums(p[4], p[5], p[6], p[7], &u1, &v1, &w1);
        const __m512d sw = join(w0, w1);
        if (!eightEntries(r, c, x, _mm512_div_pd(join(u0, u1), sw), _mm512_div_pd(join(v0, v1), sw))) {
            LutRow group = r;
            group.last = x + 7;
            alignas(32) double s[4];
            _mm256_store_pd(s, sums);
            lutPixels(group, x, s[0], s[1], s[2]);
        }
        sums = next;
    }
    alignas(32) double end[4];
    _mm256_store_pd(end, sums);
    lutPixels(r, x, end[0], end[1], end[2]);
}

// Up to eight rows, one per lane, in strips of kStrip columns.
void rowsAsLanes(const LutRow& b) {
    constexpr int kStrip = 64;
    const Step c(b);
    const double* h = b.h;
    alignas(64) double start[3][8];
    for (int k = 0; k < 8; ++k) {
        const int y = b.y + std::min(k, b.count - 1);  // spare lanes repeat the last row
        start[0][k] = h[0] * b.first + h[1] * y + h[2];
        start[1][k] = h[3] * b.first + h[4] * y + h[5];
        start[2][k] = h[6] * b.first + h[7] * y + h[8];
    }
    __m512d su = _mm512_load_pd(start[0]), sv = _mm512_load_pd(start[1]), sw = _mm512_load_pd(start[2]);
    const __m512d stepU = _mm512_set1_pd(h[0]), stepV = _mm512_set1_pd(h[3]), stepW = _mm512_set1_pd(h[6]);
    alignas(64) double byColumn[2][kStrip][8];  // points of one column, one row per lane
    alignas(64) double byRow[2][8][kStrip];     // the same, one row after the other
    for (int xs = b.first; xs <= b.last; xs += kStrip) {
        const int n = std::min(kStrip, b.last - xs + 1), padded = (n + 7) & ~7;
        for (int i = 0; i < n; ++i) {
            _mm512_store_pd(byColumn[0][i], _mm512_div_pd(su, sw));
            _mm512_store_pd(byColumn[1][i], _mm512_div_pd(sv, sw));
            su = _mm512_add_pd(su, stepU);
            sv = _mm512_add_pd(sv, stepV);
            sw = _mm512_add_pd(sw, stepW);
        }
        for (int i = n; i < padded; ++i) {
            _mm512_store_pd(byColumn[0][i], c.zero);
            _mm512_store_pd(byColumn[1][i], c.zero);
        }
        for (int q = 0; q < 2; ++q)
            for (int i = 0; i < padded; i += 8) {
                __m512d in[8], out[8];
                for (int j = 0; j < 8; ++j) in[j] = _mm512_load_pd(byColumn[q][i + j]);
                transpose8(in, out);
                for (int k = 0; k < 8; ++k) _mm512_store_pd(&byRow[q][k][i], out[k]);
            }
        for (int k = 0; k < b.count; ++k) {
            const LutRow r = blockRow(b, k);
            const double* u = byRow[0][k];
            const double* v = byRow[1][k];
            int i = 0;
            for (; i + 8 <= n; i += 8)
                if (!eightEntries(r, c, xs + i, _mm512_load_pd(u + i), _mm512_load_pd(v + i)))
                    lutPoints(r, xs + i, xs + i + 7, u + i, v + i);
            if (i < n) lutPoints(r, xs + i, xs + n - 1, u + i, v + i);
        }
    }
}

}  // namespace

void LutRowProjective_AVX512(const LutRow& rows) {
    for (int k = 0; k < rows.count; k += 8) {
        LutRow part = blockRow(rows, k);
        part.count = std::min(8, rows.count - k);
        if (part.count > 1)
            rowsAsLanes(part);
        else
            oneRow(part);
    }
}

}  // namespace kvdsr::remap
#endif
