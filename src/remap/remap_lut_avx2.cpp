// AVX2 row kernel of the projective table build: four pixels per step.
// Per lane it performs exactly the scalar kernel's operations (divisions,
// clamped indices, the pairwise X/Y blend, truncations), so the tables are
// identical; the homogeneous sums still advance one pixel at a time.
#if defined(__x86_64__)
#include <immintrin.h>

#include "remap/remap_lut_kernels.h"

namespace kvdsr::remap {

namespace {

struct Axis {
    alignas(16) int32_t i0[4];
    alignas(16) int32_t i1[4];
    __m256d frac;
    __m256d nan;
};

// clampIndex on four lanes.
inline Axis clampAxis(__m256d c, int size) {
    const __m256d zero = _mm256_setzero_pd();
    const __m256d top = _mm256_set1_pd(double(size - 1));
    const __m256d below = _mm256_cmp_pd(c, zero, _CMP_LT_OQ);
    const __m256d above = _mm256_cmp_pd(c, top, _CMP_GE_OQ);
    Axis a;
    a.nan = _mm256_cmp_pd(c, c, _CMP_UNORD_Q);
    const __m256d inner = _mm256_andnot_pd(_mm256_or_pd(_mm256_or_pd(below, above), a.nan), _mm256_set1_pd(1.0));
    const __m128i i0 = _mm256_cvttpd_epi32(_mm256_min_pd(_mm256_max_pd(c, zero), top));
    _mm_store_si128(reinterpret_cast<__m128i*>(a.i0), i0);
    _mm_store_si128(reinterpret_cast<__m128i*>(a.i1), _mm_add_epi32(i0, _mm256_cvttpd_epi32(inner)));
    a.frac = _mm256_sub_pd(c, _mm256_cvtepi32_pd(i0));
    return a;
}

inline __m256d loadTwo(const double* lo, const double* hi) {
    return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(lo)), _mm_loadu_pd(hi), 1);
}

// Two pixels (lanes p, p+1 of the axes) as (X, Y, X, Y).
inline __m256d sampleTwo(const LutRow& r, const Axis& u, const Axis& v, int p, __m256d fu, __m256d fv) {
    const size_t w2 = size_t(r.mapWidth) * 2;
    const double* top0 = r.map + size_t(v.i0[p]) * w2;
    const double* bot0 = r.map + size_t(v.i1[p]) * w2;
    const double* top1 = r.map + size_t(v.i0[p + 1]) * w2;
    const double* bot1 = r.map + size_t(v.i1[p + 1]) * w2;
    const __m256d a = loadTwo(top0 + 2 * u.i0[p], top1 + 2 * u.i0[p + 1]);
    const __m256d b = loadTwo(bot0 + 2 * u.i0[p], bot1 + 2 * u.i0[p + 1]);
    const __m256d aRight = loadTwo(top0 + 2 * u.i1[p], top1 + 2 * u.i1[p + 1]);
    const __m256d bRight = loadTwo(bot0 + 2 * u.i1[p], bot1 + 2 * u.i1[p + 1]);
    const __m256d rowTop = _mm256_add_pd(a, _mm256_mul_pd(fu, _mm256_sub_pd(aRight, a)));
    const __m256d rowBottom = _mm256_add_pd(b, _mm256_mul_pd(fu, _mm256_sub_pd(bRight, b)));
    return _mm256_add_pd(rowTop, _mm256_mul_pd(fv, _mm256_sub_pd(rowBottom, rowTop)));
}

// EntryWriter on two pixels.
inline void writeTwo(const LutRow& r, __m256d xy, __m256d high, int x) {
    const __m256d inside =
        _mm256_and_pd(_mm256_cmp_pd(xy, _mm256_setzero_pd(), _CMP_GE_OQ), _mm256_cmp_pd(xy, high, _CMP_LT_OQ));
    const int mask = _mm256_movemask_pd(inside);
    const __m128i whole = _mm256_cvttpd_epi32(xy);
    const __m256d frac = _mm256_mul_pd(
        _mm256_sub_pd(_mm256_add_pd(_mm256_cvtepi32_pd(whole), _mm256_set1_pd(1.0)), xy), _mm256_set1_pd(1024.0));
    const __m128i weights = _mm256_cvttpd_epi32(frac);
    alignas(16) int32_t i[4], w[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(i), whole);
    _mm_store_si128(reinterpret_cast<__m128i*>(w), weights);
    for (int p = 0; p < 2; ++p) {
        const bool ok = ((mask >> (2 * p)) & 3) == 3;
        r.offset[x + p] = ok ? uint32_t(i[2 * p]) + r.srcWidth * uint32_t(i[2 * p + 1]) : 0;
        r.columnWeight[x + p] = ok ? uint16_t(w[2 * p]) : 0;
        r.rowWeight[x + p] = ok ? uint16_t(w[2 * p + 1]) : 0;
    }
}

}  // namespace

void LutRowProjective_AVX2(const LutRow& r) {
    const double* h = r.h;
    double su = h[0] * r.first + h[1] * r.y + h[2];
    double sv = h[3] * r.first + h[4] * r.y + h[5];
    double sw = h[6] * r.first + h[7] * r.y + h[8];
    const __m256d high = _mm256_setr_pd(double(r.srcWidth) - 1, double(r.srcHeight) - 1, double(r.srcWidth) - 1,
                                        double(r.srcHeight) - 1);
    const __m256d invalid = _mm256_set1_pd(-1.0);
    int x = r.first;
    for (; x + 3 <= r.last; x += 4) {
        alignas(32) double bu[4], bv[4], bw[4];
        for (int k = 0; k < 4; ++k, su += h[0], sv += h[3], sw += h[6]) {
            bu[k] = su;
            bv[k] = sv;
            bw[k] = sw;
        }
        const __m256d w = _mm256_load_pd(bw);
        const Axis u = clampAxis(_mm256_div_pd(_mm256_load_pd(bu), w), r.mapWidth);
        const Axis v = clampAxis(_mm256_div_pd(_mm256_load_pd(bv), w), r.mapHeight);
        // Lanes 0,0,1,1 and 2,2,3,3 of the fractions and of the NaN masks.
        const __m256d fu01 = _mm256_permute4x64_pd(u.frac, 0x50), fu23 = _mm256_permute4x64_pd(u.frac, 0xFA);
        const __m256d fv01 = _mm256_permute4x64_pd(v.frac, 0x50), fv23 = _mm256_permute4x64_pd(v.frac, 0xFA);
        const __m256d bad = _mm256_or_pd(u.nan, v.nan);
        const __m256d bad01 = _mm256_permute4x64_pd(bad, 0x50), bad23 = _mm256_permute4x64_pd(bad, 0xFA);
        const __m256d xy01 = _mm256_blendv_pd(sampleTwo(r, u, v, 0, fu01, fv01), invalid, bad01);
        const __m256d xy23 = _mm256_blendv_pd(sampleTwo(r, u, v, 2, fu23, fv23), invalid, bad23);
        writeTwo(r, xy01, high, x);
        writeTwo(r, xy23, high, x + 2);
    }
    lutPixels(r, x, su, sv, sw);
}

}  // namespace kvdsr::remap
#endif
