// Helpers of the x86 row kernels of the map and table builds, one copy per
// instruction set. Internal linkage: each kernel file is compiled with its
// own instruction-set flags, so no helper may be shared across files by the
// linker.
#pragma once

#if defined(__x86_64__) && defined(__AVX2__)
#include <immintrin.h>

#include <cstdint>

namespace kvdsr::remap::x86 {
namespace {

inline __m256d lerp(__m256d a, __m256d b, __m256d f) { return _mm256_add_pd(a, _mm256_mul_pd(f, _mm256_sub_pd(b, a))); }

// Homogeneous sums of four consecutive pixels (lanes u, v, w, unused) as u,
// v and w of the four.
inline void transposeSums(__m256d p0, __m256d p1, __m256d p2, __m256d p3, __m256d* u, __m256d* v, __m256d* w) {
    const __m256d uw01 = _mm256_unpacklo_pd(p0, p1), v01 = _mm256_unpackhi_pd(p0, p1);  // u0 u1 w0 w1, v0 v1 . .
    const __m256d uw23 = _mm256_unpacklo_pd(p2, p3), v23 = _mm256_unpackhi_pd(p2, p3);
    *u = _mm256_permute2f128_pd(uw01, uw23, 0x20);
    *w = _mm256_permute2f128_pd(uw01, uw23, 0x31);
    *v = _mm256_permute2f128_pd(v01, v23, 0x20);
}

// Sums u, v, w of pixels first..first+3 from those at first, advancing the
// running sums past them; the same additions as the plain kernel.
inline void nextFourSums(__m256d* sums, __m256d step, __m256d* u, __m256d* v, __m256d* w) {
    const __m256d p0 = *sums;
    const __m256d p1 = _mm256_add_pd(p0, step);
    const __m256d p2 = _mm256_add_pd(p1, step);
    const __m256d p3 = _mm256_add_pd(p2, step);
    *sums = _mm256_add_pd(p3, step);
    transposeSums(p0, p1, p2, p3, u, v, w);
}

// X and Y of four records stored one after the other, in lane order 0 2 1 3
// (what two plain loads give without a cross-lane shuffle).
inline void recordsInPairOrder(const double* p, __m256d* x, __m256d* y) {
    const __m256d a = _mm256_loadu_pd(p), b = _mm256_loadu_pd(p + 4);  // X0 Y0 X1 Y1, X2 Y2 X3 Y3
    *x = _mm256_unpacklo_pd(a, b);                                      // X0 X2 X1 X3
    *y = _mm256_unpackhi_pd(a, b);
}

// Lane order 0 1 2 3 to 0 2 1 3 and back (the same swap).
inline __m256d swapMiddleLanes(__m256d v) { return _mm256_permute4x64_pd(v, 0xD8); }

// Records X, Y of four pixels stored one after the other.
inline void storeRecords(double* p, __m256d x, __m256d y) {
    const __m256d lo = _mm256_unpacklo_pd(x, y), hi = _mm256_unpackhi_pd(x, y);  // X0 Y0 X2 Y2, X1 Y1 X3 Y3
    _mm256_storeu_pd(p, _mm256_permute2f128_pd(lo, hi, 0x20));
    _mm256_storeu_pd(p + 4, _mm256_permute2f128_pd(lo, hi, 0x31));
}

// The table entries of four source points (EntryWriter on four lanes).
inline void writeFourEntries(__m256d X, __m256d Y, __m256d highX, __m256d highY, uint32_t srcWidth,
                             uint32_t* offset, uint16_t* columnWeight, uint16_t* rowWeight) {
    const __m256d zero = _mm256_setzero_pd(), one = _mm256_set1_pd(1.0), scale = _mm256_set1_pd(1024.0);
    const __m256d inside =
        _mm256_and_pd(_mm256_and_pd(_mm256_cmp_pd(X, zero, _CMP_GE_OQ), _mm256_cmp_pd(X, highX, _CMP_LT_OQ)),
                      _mm256_and_pd(_mm256_cmp_pd(Y, zero, _CMP_GE_OQ), _mm256_cmp_pd(Y, highY, _CMP_LT_OQ)));
    // The four 64-bit lane masks as four 32-bit ones.
    const __m128 maskLo = _mm_castpd_ps(_mm256_castpd256_pd128(inside));
    const __m128 maskHi = _mm_castpd_ps(_mm256_extractf128_pd(inside, 1));
    const __m128i keep = _mm_castps_si128(_mm_shuffle_ps(maskLo, maskHi, _MM_SHUFFLE(2, 0, 2, 0)));
    const __m128i low16 = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1);
    // Inside, trunc(X) is whole and below 65535: the same as a double.
    const __m128i ix = _mm256_cvttpd_epi32(X), iy = _mm256_cvttpd_epi32(Y);
    const __m256d wholeX = _mm256_round_pd(X, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    const __m256d wholeY = _mm256_round_pd(Y, _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
    const __m128i wc = _mm256_cvttpd_epi32(_mm256_mul_pd(_mm256_sub_pd(_mm256_add_pd(wholeX, one), X), scale));
    const __m128i wr = _mm256_cvttpd_epi32(_mm256_mul_pd(_mm256_sub_pd(_mm256_add_pd(wholeY, one), Y), scale));
    const __m128i o = _mm_add_epi32(ix, _mm_mullo_epi32(_mm_set1_epi32(int32_t(srcWidth)), iy));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(offset), _mm_and_si128(o, keep));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(columnWeight), _mm_shuffle_epi8(_mm_and_si128(wc, keep), low16));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(rowWeight), _mm_shuffle_epi8(_mm_and_si128(wr, keep), low16));
}

#if defined(__AVX512F__)
inline __m512d join(__m256d lo, __m256d hi) { return _mm512_insertf64x4(_mm512_castpd256_pd512(lo), hi, 1); }

inline __m512d lerp(__m512d a, __m512d b, __m512d f) { return _mm512_add_pd(a, _mm512_mul_pd(f, _mm512_sub_pd(b, a))); }
#endif

}  // namespace
}  // namespace kvdsr::remap::x86
#endif
