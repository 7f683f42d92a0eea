// NEON row kernel of the coordinate map (64-bit ARM): pairs of pixels that
// lie in one interval of an ascending table are interpolated together (the
// same operations per lane as the scalar kernel); any other pair, and the
// row's tail, go through the scalar kernel with the carried hint and factor.
#if defined(__aarch64__)
#include <arm_neon.h>

#include "remap/distortion_map_kernels.h"
#include "remap/simd_neon.h"

namespace kvdsr::remap {

bool MapRow_NEON(const MapRow& m) {
    using namespace neon;
    const DistortionTable& t = *m.table;
    int hint = 1;
    double f = 1.0;
    const float64x2_t tt = vdupq_n_f64(m.ty * m.ty), pitch = vdupq_n_f64(m.pitch), milli = vdupq_n_f64(0.001);
    int x = 0;
    for (; x + 2 <= m.width; x += 2)
        vst1q_f64(m.radius + x, vmulq_f64(vmulq_f64(vsqrtq_f64(vaddq_f64(vld1q_f64(m.q + x), tt)), pitch), milli));
    for (; x < m.width; ++x) m.radius[x] = radiusAt(m.q[x], m.ty, m.pitch);
    if (!m.sorted) return mapPixels(m, 0, &hint, &f);
    bool beyond = false;
    const float64x2_t cx = vdupq_n_f64(m.cx), cy = vdupq_n_f64(m.cy), v = vdupq_n_f64(m.v);
    const float64x2_t one = vdupq_n_f64(1.0), percent = vdupq_n_f64(0.01);
    for (x = 0; x + 2 <= m.width; x += 2) {
        const float64x2_t r = vld1q_f64(m.radius + x);
        const int i = hint;
        // Interval i holds a pixel when R_{i-1} <= r < R_i (for i = 1 only the
        // upper bound counts).
        uint64x2_t in = vcltq_f64(r, vdupq_n_f64(t.radius[i]));
        if (i > 1) in = vandq_u64(in, vcgeq_f64(r, vdupq_n_f64(t.radius[i - 1])));
        if (!both(in)) {
            MapRow pair = m;
            pair.width = x + 2;
            beyond |= mapPixels(pair, x, &hint, &f);
            continue;
        }
        const float64x2_t r0 = vdupq_n_f64(t.radius[i - 1]), d0 = vdupq_n_f64(t.distortion[i - 1]);
        const float64x2_t dd = vdupq_n_f64(t.distortion[i] - t.distortion[i - 1]);
        const float64x2_t dr = vdupq_n_f64(t.radius[i] - t.radius[i - 1]);
        const float64x2_t d = vaddq_f64(d0, vdivq_f64(vmulq_f64(vsubq_f64(r, r0), dd), dr));
        const float64x2_t factor = vaddq_f64(one, vmulq_f64(d, percent));
        float64x2x2_t xy;
        xy.val[0] = vaddq_f64(cx, vmulq_f64(factor, vld1q_f64(m.u + x)));
        xy.val[1] = vaddq_f64(cy, vmulq_f64(factor, v));
        vst2q_f64(m.out + 2 * x, xy);  // X0 Y0 X1 Y1
        f = vgetq_lane_f64(factor, 1);
    }
    beyond |= mapPixels(m, x, &hint, &f);
    return beyond;
}

}  // namespace kvdsr::remap
#endif
