// AVX2 row kernel of the coordinate map: groups of four pixels that lie in
// one interval of an ascending table, or in the intervals next to it, are
// interpolated together (the same operations per lane as the scalar kernel);
// any other group, and the row's tail, go through the scalar kernel with the
// carried hint and factor.
#if defined(__x86_64__)
#include <immintrin.h>

#include <cmath>

#include "remap/distortion_map_kernels.h"
#include "remap/simd_x86.h"

namespace kvdsr::remap {

namespace {

// D(r) of four pixels that lie in intervals hint - 1 .. hint + 1 of an
// ascending table (interval j: R_{j-1} <= r < R_j, the first entry above r),
// each lane with its own interval's values; the hint moves to the last
// pixel's interval. False, with nothing changed, when some pixel lies
// elsewhere (or is NaN).
inline bool neighbourIntervals(const DistortionTable& t, const TableSteps& steps, __m256d r, int hint, __m256d* d,
                               int* newHint) {
    const int lo = hint > 1 ? hint - 1 : 1, hi = hint + 1 < t.count ? hint + 1 : t.count - 1;
    if (lo > hi) return false;
    __m256d ok = _mm256_cmp_pd(r, _mm256_set1_pd(t.radius[hi]), _CMP_LT_OQ);
    if (lo > 1) ok = _mm256_and_pd(ok, _mm256_cmp_pd(r, _mm256_set1_pd(t.radius[lo - 1]), _CMP_GE_OQ));
    if (_mm256_movemask_pd(ok) != 0xF) return false;
    // Interval of each lane: lo plus the entries lo .. hi - 1 at or below r.
    __m256i j = _mm256_set1_epi64x(lo);
    for (int k = lo; k < hi; ++k)
        j = _mm256_sub_epi64(j, _mm256_castpd_si256(_mm256_cmp_pd(r, _mm256_set1_pd(t.radius[k]), _CMP_GE_OQ)));
    const __m256i below = _mm256_sub_epi64(j, _mm256_set1_epi64x(1));
    const __m256d r0 = _mm256_i64gather_pd(t.radius, below, 8), d0 = _mm256_i64gather_pd(t.distortion, below, 8);
    const __m256d dd = _mm256_i64gather_pd(steps.distortion, j, 8), dr = _mm256_i64gather_pd(steps.radius, j, 8);
    *d = _mm256_add_pd(d0, _mm256_div_pd(_mm256_mul_pd(_mm256_sub_pd(r, r0), dd), dr));
    *newHint = int(_mm256_extract_epi64(j, 3));
    return true;
}

}  // namespace

bool MapRow_AVX2(const MapRow& m) {
    const DistortionTable& t = *m.table;
    int hint = 1;
    double f = 1.0;
    // Radii four at a time: the same square root and products per lane.
    const __m256d tt = _mm256_set1_pd(m.ty * m.ty), pitch = _mm256_set1_pd(m.pitch), milli = _mm256_set1_pd(0.001);
    int x = 0;
    for (; x + 4 <= m.width; x += 4)
        _mm256_storeu_pd(
            m.radius + x,
            _mm256_mul_pd(_mm256_mul_pd(_mm256_sqrt_pd(_mm256_add_pd(_mm256_loadu_pd(m.q + x), tt)), pitch), milli));
    for (; x < m.width; ++x) m.radius[x] = radiusAt(m.q[x], m.ty, m.pitch);
    if (!m.sorted) return mapPixels(m, 0, &hint, &f);
    const TableSteps steps(t);
    bool beyond = false;
    const __m256d cx = _mm256_set1_pd(m.cx), cy = _mm256_set1_pd(m.cy), v = _mm256_set1_pd(m.v);
    const __m256d one = _mm256_set1_pd(1.0), percent = _mm256_set1_pd(0.01);
    // The interval of the current hint, broadcast once per change.
    int interval = -1;
    __m256d low = one, high = one, r0 = one, d0 = one, dd = one, dr = one;
    // The factor of the last vector group's last pixel, taken out only when
    // the plain kernel goes on from it.
    __m256d lastFactors = one;
    bool factorsPending = false;
    for (x = 0; x + 4 <= m.width; x += 4) {
        const __m256d r = _mm256_loadu_pd(m.radius + x);
        const int i = hint;
        if (i != interval) {
            interval = i;
            // Interval i holds a pixel when R_{i-1} <= r < R_i (for i = 1 only
            // the upper bound counts, and r must not be NaN): then i is the
            // first entry above r.
            low = _mm256_set1_pd(i > 1 ? t.radius[i - 1] : -HUGE_VAL);
            high = _mm256_set1_pd(t.radius[i]);
            r0 = _mm256_set1_pd(t.radius[i - 1]);
            d0 = _mm256_set1_pd(t.distortion[i - 1]);
            dd = _mm256_set1_pd(t.distortion[i] - t.distortion[i - 1]);
            dr = _mm256_set1_pd(t.radius[i] - t.radius[i - 1]);
        }
        __m256d d;
        if (_mm256_movemask_pd(_mm256_and_pd(_mm256_cmp_pd(r, high, _CMP_LT_OQ), _mm256_cmp_pd(r, low, _CMP_GE_OQ))) ==
            0xF) {
            d = _mm256_add_pd(d0, _mm256_div_pd(_mm256_mul_pd(_mm256_sub_pd(r, r0), dd), dr));
        } else if (!neighbourIntervals(t, steps, r, i, &d, &hint)) {
            // Walk the four pixels one by one, moving the hint.
            if (factorsPending) f = _mm256_cvtsd_f64(_mm256_permute4x64_pd(lastFactors, 3));
            factorsPending = false;
            MapRow group = m;
            group.width = x + 4;
            beyond |= mapPixels(group, x, &hint, &f);
            continue;
        }
        const __m256d factor = _mm256_add_pd(one, _mm256_mul_pd(d, percent));
        const __m256d X = _mm256_add_pd(cx, _mm256_mul_pd(factor, _mm256_loadu_pd(m.u + x)));
        const __m256d Y = _mm256_add_pd(cy, _mm256_mul_pd(factor, v));
        x86::storeRecords(m.out + 2 * x, X, Y);
        lastFactors = factor;
        factorsPending = true;
    }
    if (factorsPending) f = _mm256_cvtsd_f64(_mm256_permute4x64_pd(lastFactors, 3));
    beyond |= mapPixels(m, x, &hint, &f);
    return beyond;
}

}  // namespace kvdsr::remap
#endif
