// Two doubles handled together (a map record's X and Y): SSE2 on x86,
// NEON on 64-bit ARM, plain code elsewhere. Every operation is the IEEE
// operation of the scalar code on each lane, so results are identical.
#pragma once

#include <cstdint>

#if defined(__SSE2__)
#include <emmintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace kvdsr::remap::pair {

#if defined(__SSE2__)
using Pair = __m128d;
inline Pair load(const double* p) { return _mm_loadu_pd(p); }
inline void store(double* p, Pair v) { _mm_storeu_pd(p, v); }
inline Pair make(double a, double b) { return _mm_setr_pd(a, b); }
inline Pair splat(double a) { return _mm_set1_pd(a); }
inline Pair add(Pair a, Pair b) { return _mm_add_pd(a, b); }
inline Pair sub(Pair a, Pair b) { return _mm_sub_pd(a, b); }
inline Pair mul(Pair a, Pair b) { return _mm_mul_pd(a, b); }
// lo <= v < hi on both lanes (false for NaN).
inline bool inside(Pair v, Pair lo, Pair hi) {
    return _mm_movemask_pd(_mm_and_pd(_mm_cmpge_pd(v, lo), _mm_cmplt_pd(v, hi))) == 3;
}
// Truncation of values known to fit in int32; also returned as doubles.
inline void truncate(Pair v, int32_t* a, int32_t* b, Pair* asDouble) {
    const __m128i i = _mm_cvttpd_epi32(v);
    *a = _mm_cvtsi128_si32(i);
    *b = _mm_cvtsi128_si32(_mm_srli_si128(i, 4));
    if (asDouble) *asDouble = _mm_cvtepi32_pd(i);
}
#elif defined(__aarch64__)
using Pair = float64x2_t;
inline Pair load(const double* p) { return vld1q_f64(p); }
inline void store(double* p, Pair v) { vst1q_f64(p, v); }
inline Pair make(double a, double b) { return vsetq_lane_f64(b, vdupq_n_f64(a), 1); }
inline Pair splat(double a) { return vdupq_n_f64(a); }
inline Pair add(Pair a, Pair b) { return vaddq_f64(a, b); }
inline Pair sub(Pair a, Pair b) { return vsubq_f64(a, b); }
inline Pair mul(Pair a, Pair b) { return vmulq_f64(a, b); }
inline bool inside(Pair v, Pair lo, Pair hi) {
    const uint64x2_t m = vandq_u64(vcgeq_f64(v, lo), vcltq_f64(v, hi));
    return vgetq_lane_u64(m, 0) && vgetq_lane_u64(m, 1);
}
inline void truncate(Pair v, int32_t* a, int32_t* b, Pair* asDouble) {
    const int64x2_t i = vcvtq_s64_f64(v);
    *a = int32_t(vgetq_lane_s64(i, 0));
    *b = int32_t(vgetq_lane_s64(i, 1));
    if (asDouble) *asDouble = vcvtq_f64_s64(i);
}
#else
struct Pair {
    double a, b;
};
inline Pair load(const double* p) { return {p[0], p[1]}; }
inline void store(double* p, Pair v) {
    p[0] = v.a;
    p[1] = v.b;
}
inline Pair make(double a, double b) { return {a, b}; }
inline Pair splat(double a) { return {a, a}; }
inline Pair add(Pair x, Pair y) { return {x.a + y.a, x.b + y.b}; }
inline Pair sub(Pair x, Pair y) { return {x.a - y.a, x.b - y.b}; }
inline Pair mul(Pair x, Pair y) { return {x.a * y.a, x.b * y.b}; }
inline bool inside(Pair v, Pair lo, Pair hi) { return v.a >= lo.a && v.b >= lo.b && v.a < hi.a && v.b < hi.b; }
inline void truncate(Pair v, int32_t* a, int32_t* b, Pair* asDouble) {
    *a = int32_t(v.a);
    *b = int32_t(v.b);
    if (asDouble) *asDouble = {double(*a), double(*b)};
}
#endif

}  // namespace kvdsr::remap::pair
