// AVX2 row kernel of the coordinate map: groups of four pixels that lie in
// one interval of an ascending table are interpolated together (the same
// operations per lane as the scalar kernel); any other group, and the row's
// tail, go through the scalar kernel with the carried hint and factor.
#if defined(__x86_64__)
#include <immintrin.h>

#include "remap/distortion_map_kernels.h"

namespace kvdsr::remap {

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
    bool beyond = false;
    const __m256d cx = _mm256_set1_pd(m.cx), cy = _mm256_set1_pd(m.cy), v = _mm256_set1_pd(m.v);
    const __m256d one = _mm256_set1_pd(1.0), percent = _mm256_set1_pd(0.01);
    for (x = 0; x + 4 <= m.width; x += 4) {
        const __m256d r = _mm256_loadu_pd(m.radius + x);
        const int i = hint;
        // Interval i holds a pixel when R_{i-1} <= r < R_i (for i = 1 only the
        // upper bound counts): then i is the first entry above r.
        const __m256d below = _mm256_cmp_pd(r, _mm256_set1_pd(t.radius[i]), _CMP_LT_OQ);
        const __m256d above =
            i > 1 ? _mm256_cmp_pd(r, _mm256_set1_pd(t.radius[i - 1]), _CMP_GE_OQ) : _mm256_cmp_pd(r, r, _CMP_EQ_OQ);
        if (_mm256_movemask_pd(_mm256_and_pd(below, above)) != 0xF) {
            // Walk the four pixels one by one, moving the hint.
            MapRow group = m;
            group.width = x + 4;
            beyond |= mapPixels(group, x, &hint, &f);
            continue;
        }
        const __m256d r0 = _mm256_set1_pd(t.radius[i - 1]), d0 = _mm256_set1_pd(t.distortion[i - 1]);
        const __m256d dd = _mm256_set1_pd(t.distortion[i] - t.distortion[i - 1]);
        const __m256d dr = _mm256_set1_pd(t.radius[i] - t.radius[i - 1]);
        const __m256d d = _mm256_add_pd(d0, _mm256_div_pd(_mm256_mul_pd(_mm256_sub_pd(r, r0), dd), dr));
        const __m256d factor = _mm256_add_pd(one, _mm256_mul_pd(d, percent));
        const __m256d X = _mm256_add_pd(cx, _mm256_mul_pd(factor, _mm256_loadu_pd(m.u + x)));
        const __m256d Y = _mm256_add_pd(cy, _mm256_mul_pd(factor, v));
        const __m256d lo = _mm256_unpacklo_pd(X, Y), hi = _mm256_unpackhi_pd(X, Y);  // X0 Y0 X2 Y2, X1 Y1 X3 Y3
        _mm256_storeu_pd(m.out + 2 * x, _mm256_permute2f128_pd(lo, hi, 0x20));
        _mm256_storeu_pd(m.out + 2 * x + 4, _mm256_permute2f128_pd(lo, hi, 0x31));
        alignas(32) double last[4];
        _mm256_store_pd(last, factor);
        f = last[3];
    }
    beyond |= mapPixels(m, x, &hint, &f);
    return beyond;
}

}  // namespace kvdsr::remap
#endif
