// Helpers of the NEON row kernels of the map and table builds (64-bit ARM,
// two doubles per register), one copy for both. Internal linkage, like the
// x86 helpers.
#pragma once

#if defined(__aarch64__)
#include <arm_neon.h>

namespace kvdsr::remap::neon {
namespace {

inline float64x2_t lerp(float64x2_t a, float64x2_t b, float64x2_t f) {
    return vaddq_f64(a, vmulq_f64(f, vsubq_f64(b, a)));
}

inline float64x2_t pairOf(double a, double b) { return vsetq_lane_f64(b, vdupq_n_f64(a), 1); }

inline bool both(uint64x2_t m) { return vgetq_lane_u64(m, 0) && vgetq_lane_u64(m, 1); }

// lo <= v < hi on both lanes (false for NaN).
inline uint64x2_t within(float64x2_t v, float64x2_t lo, float64x2_t hi) {
    return vandq_u64(vcgeq_f64(v, lo), vcltq_f64(v, hi));
}

}  // namespace
}  // namespace kvdsr::remap::neon
#endif
