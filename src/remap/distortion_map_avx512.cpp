// AVX-512 row kernel of the coordinate map: the AVX2 kernel's steps on
// eight pixels. Groups of eight that lie in one interval of an ascending
// table, or in the intervals next to it, are interpolated together (the same
// operations per lane as the scalar kernel); any other group, and the row's
// tail, go through the scalar kernel with the carried hint and factor.
#if defined(__x86_64__)
#include <immintrin.h>

#include <cmath>

#include "remap/distortion_map_kernels.h"

namespace kvdsr::remap {

namespace {

// D(r) of eight pixels that lie in intervals hint - 1 .. hint + 1 of an
// ascending table (interval j: R_{j-1} <= r < R_j), each lane with its own
// interval's values; the hint moves to the last pixel's interval. False, with
// nothing changed, when some pixel lies elsewhere (or is NaN).
inline bool neighbourIntervals(const DistortionTable& t, const TableSteps& steps, __m512d r, int hint, __m512d* d,
                               int* newHint) {
    const int lo = hint > 1 ? hint - 1 : 1, hi = hint + 1 < t.count ? hint + 1 : t.count - 1;
    if (lo > hi) return false;
    __mmask8 ok = _mm512_cmp_pd_mask(r, _mm512_set1_pd(t.radius[hi]), _CMP_LT_OQ);
    if (lo > 1) ok = _mm512_mask_cmp_pd_mask(ok, r, _mm512_set1_pd(t.radius[lo - 1]), _CMP_GE_OQ);
    if (ok != 0xFF) return false;
    // Interval of each lane: lo plus the entries lo .. hi - 1 at or below r.
    __m512i j = _mm512_set1_epi64(lo);
    const __m512i oneStep = _mm512_set1_epi64(1);
    for (int k = lo; k < hi; ++k)
        j = _mm512_mask_add_epi64(j, _mm512_cmp_pd_mask(r, _mm512_set1_pd(t.radius[k]), _CMP_GE_OQ), j, oneStep);
    const __m512i below = _mm512_sub_epi64(j, oneStep);
    const __m512d r0 = _mm512_i64gather_pd(below, t.radius, 8), d0 = _mm512_i64gather_pd(below, t.distortion, 8);
    const __m512d dd = _mm512_i64gather_pd(j, steps.distortion, 8), dr = _mm512_i64gather_pd(j, steps.radius, 8);
    *d = _mm512_add_pd(d0, _mm512_div_pd(_mm512_mul_pd(_mm512_sub_pd(r, r0), dd), dr));
    alignas(64) int64_t lanes[8];
    _mm512_store_si512(lanes, j);
    *newHint = int(lanes[7]);
    return true;
}

inline double lastLane(__m512d v) {
    const __m128d top = _mm512_extractf64x2_pd(v, 3);
    return _mm_cvtsd_f64(_mm_unpackhi_pd(top, top));
}

}  // namespace

bool MapRow_AVX512(const MapRow& m) {
    const DistortionTable& t = *m.table;
    int hint = 1;
    double f = 1.0;
    // Radii eight at a time: the same square root and products per lane.
    const __m512d tt = _mm512_set1_pd(m.ty * m.ty), pitch = _mm512_set1_pd(m.pitch), milli = _mm512_set1_pd(0.001);
    int x = 0;
    for (; x + 8 <= m.width; x += 8)
        _mm512_storeu_pd(
            m.radius + x,
            _mm512_mul_pd(_mm512_mul_pd(_mm512_sqrt_pd(_mm512_add_pd(_mm512_loadu_pd(m.q + x), tt)), pitch), milli));
    for (; x < m.width; ++x) m.radius[x] = radiusAt(m.q[x], m.ty, m.pitch);
    if (!m.sorted) return mapPixels(m, 0, &hint, &f);
    const TableSteps steps(t);
    bool beyond = false;
    const __m512d cx = _mm512_set1_pd(m.cx), cy = _mm512_set1_pd(m.cy), v = _mm512_set1_pd(m.v);
    const __m512d one = _mm512_set1_pd(1.0), percent = _mm512_set1_pd(0.01);
    // X and Y of eight pixels interleaved into records.
    const __m512i records0 = _mm512_setr_epi64(0, 8, 1, 9, 2, 10, 3, 11);
    const __m512i records1 = _mm512_setr_epi64(4, 12, 5, 13, 6, 14, 7, 15);
    // The interval of the current hint, broadcast once per change.
    int interval = -1;
    __m512d low = one, high = one, r0 = one, d0 = one, dd = one, dr = one;
    // The factors of the last vector group, whose last lane is taken out only
    // when the plain kernel goes on from it.
    __m512d lastFactors = one;
    bool factorsPending = false;
    for (x = 0; x + 8 <= m.width; x += 8) {
        const __m512d r = _mm512_loadu_pd(m.radius + x);
        const int i = hint;
        if (i != interval) {
            interval = i;
            // Interval i holds a pixel when R_{i-1} <= r < R_i (for i = 1 only
            // the upper bound counts, and r must not be NaN).
            low = _mm512_set1_pd(i > 1 ? t.radius[i - 1] : -HUGE_VAL);
            high = _mm512_set1_pd(t.radius[i]);
            r0 = _mm512_set1_pd(t.radius[i - 1]);
            d0 = _mm512_set1_pd(t.distortion[i - 1]);
            dd = _mm512_set1_pd(steps.distortion[i]);
            dr = _mm512_set1_pd(steps.radius[i]);
        }
        __m512d d;
        if (_mm512_mask_cmp_pd_mask(_mm512_cmp_pd_mask(r, high, _CMP_LT_OQ), r, low, _CMP_GE_OQ) == 0xFF) {
            d = _mm512_add_pd(d0, _mm512_div_pd(_mm512_mul_pd(_mm512_sub_pd(r, r0), dd), dr));
        } else if (!neighbourIntervals(t, steps, r, i, &d, &hint)) {
            // Walk the eight pixels one by one, moving the hint.
            if (factorsPending) f = lastLane(lastFactors);
            factorsPending = false;
            MapRow group = m;
            group.width = x + 8;
            beyond |= mapPixels(group, x, &hint, &f);
            continue;
        }
        const __m512d factor = _mm512_add_pd(one, _mm512_mul_pd(d, percent));
        const __m512d X = _mm512_add_pd(cx, _mm512_mul_pd(factor, _mm512_loadu_pd(m.u + x)));
        const __m512d Y = _mm512_add_pd(cy, _mm512_mul_pd(factor, v));
        _mm512_storeu_pd(m.out + 2 * x, _mm512_permutex2var_pd(X, records0, Y));
        _mm512_storeu_pd(m.out + 2 * x + 8, _mm512_permutex2var_pd(X, records1, Y));
        lastFactors = factor;
        factorsPending = true;
    }
    if (factorsPending) f = lastLane(lastFactors);
    beyond |= mapPixels(m, x, &hint, &f);
    return beyond;
}

}  // namespace kvdsr::remap
#endif
