// AVX2 row kernel of the projective table build: four pixels per step, X
// and Y of the four held in separate registers. Per lane it performs
// exactly the scalar kernel's operations (divisions, clamped indices, the
// bilinear blend, truncations), so the tables are identical. The three
// homogeneous sums advance together in one register, one pixel at a time.
#if defined(__x86_64__)
#include <immintrin.h>

#include "remap/remap_lut_kernels.h"

namespace kvdsr::remap {

namespace {

struct Axis {
    __m128i i0;     // first index
    __m256d inner;  // mask: the second index is i0 + 1 (false for NaN)
    __m256d frac;
};

// clampIndex on four lanes.
inline Axis clampAxis(__m256d c, __m256d top) {
    const __m256d zero = _mm256_setzero_pd();
    Axis a;
    a.inner = _mm256_and_pd(_mm256_cmp_pd(c, zero, _CMP_GE_OQ), _mm256_cmp_pd(c, top, _CMP_LT_OQ));
    a.i0 = _mm256_cvttpd_epi32(_mm256_min_pd(_mm256_max_pd(c, zero), top));
    a.frac = _mm256_sub_pd(c, _mm256_cvtepi32_pd(a.i0));
    return a;
}

inline __m256d loadTwo(const char* base, int64_t lo, int64_t hi) {
    return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(reinterpret_cast<const double*>(base + lo))),
                                _mm_loadu_pd(reinterpret_cast<const double*>(base + hi)), 1);
}

// The records at four byte offsets, as X of the four and Y of the four.
inline void loadFour(const char* base, const int64_t* at, __m256d* x, __m256d* y) {
    const __m256d even = loadTwo(base, at[0], at[2]);  // X0 Y0 X2 Y2
    const __m256d odd = loadTwo(base, at[1], at[3]);   // X1 Y1 X3 Y3
    *x = _mm256_unpacklo_pd(even, odd);
    *y = _mm256_unpackhi_pd(even, odd);
}

inline __m256d lerp(__m256d a, __m256d b, __m256d f) { return _mm256_add_pd(a, _mm256_mul_pd(f, _mm256_sub_pd(b, a))); }

// The four 64-bit lane masks as four 32-bit ones.
inline __m128i narrowMask(__m256d m) {
    const __m128 lo = _mm_castpd_ps(_mm256_castpd256_pd128(m)), hi = _mm_castpd_ps(_mm256_extractf128_pd(m, 1));
    return _mm_castps_si128(_mm_shuffle_ps(lo, hi, _MM_SHUFFLE(2, 0, 2, 0)));
}

}  // namespace

void LutRowProjective_AVX2(const LutRow& r) {
    const double* h = r.h;
    // Lanes: u, v, w sums and an unused one.
    __m256d sums = _mm256_setr_pd(h[0] * r.first + h[1] * r.y + h[2], h[3] * r.first + h[4] * r.y + h[5],
                                  h[6] * r.first + h[7] * r.y + h[8], 0.0);
    const __m256d step = _mm256_setr_pd(h[0], h[3], h[6], 0.0);
    const __m256d zero = _mm256_setzero_pd(), one = _mm256_set1_pd(1.0), scale = _mm256_set1_pd(1024.0);
    const __m256d invalid = _mm256_set1_pd(-1.0);
    const __m256d highX = _mm256_set1_pd(double(r.srcWidth) - 1), highY = _mm256_set1_pd(double(r.srcHeight) - 1);
    const __m256i width = _mm256_set1_epi64x(r.mapWidth);
    const __m128i srcWidth = _mm_set1_epi32(int32_t(r.srcWidth));
    const __m128i low16 = _mm_setr_epi8(0, 1, 4, 5, 8, 9, 12, 13, -1, -1, -1, -1, -1, -1, -1, -1);
    const __m128i ramp = _mm_setr_epi32(0, 1, 2, 3);
    const char* base = reinterpret_cast<const char*>(r.map);
    // Locals: the table stores could otherwise alias the row description.
    const double* map = r.map;
    const size_t mapStride = size_t(r.mapWidth) * 2;
    uint32_t* const offsets = r.offset;
    uint16_t* const columnWeights = r.columnWeight;
    uint16_t* const rowWeights = r.rowWeight;
    const int last = r.last;
    const __m256d lastColumn = _mm256_set1_pd(double(r.mapWidth - 1)),
                  lastRow = _mm256_set1_pd(double(r.mapHeight - 1));
    int x = r.first;
    for (; x + 3 <= last; x += 4) {
        const __m256d p0 = sums;
        const __m256d p1 = sums = _mm256_add_pd(p0, step);
        const __m256d p2 = sums = _mm256_add_pd(p1, step);
        const __m256d p3 = sums = _mm256_add_pd(p2, step);
        sums = _mm256_add_pd(p3, step);
        const __m256d uw01 = _mm256_unpacklo_pd(p0, p1), v01 = _mm256_unpackhi_pd(p0, p1);  // u0 u1 w0 w1, v0 v1 . .
        const __m256d uw23 = _mm256_unpacklo_pd(p2, p3), v23 = _mm256_unpackhi_pd(p2, p3);
        const __m256d su = _mm256_permute2f128_pd(uw01, uw23, 0x20);
        const __m256d sw = _mm256_permute2f128_pd(uw01, uw23, 0x31);
        const __m256d sv = _mm256_permute2f128_pd(v01, v23, 0x20);

        const __m256d uc = _mm256_div_pd(su, sw), vc = _mm256_div_pd(sv, sw);
        const Axis u = clampAxis(uc, lastColumn);
        const Axis v = clampAxis(vc, lastRow);
        __m256d X, Y;
        const __m128i first = _mm_shuffle_epi32(u.i0, 0), row = _mm_shuffle_epi32(v.i0, 0);
        const __m128i same =
            _mm_and_si128(_mm_cmpeq_epi32(u.i0, _mm_add_epi32(first, ramp)), _mm_cmpeq_epi32(v.i0, row));
        if (_mm256_movemask_pd(_mm256_and_pd(u.inner, v.inner)) == 0xF && _mm_movemask_epi8(same) == 0xFFFF) {
            // The usual case: four neighbouring records of one row pair.
            // Loaded whole, they come in lane order 0 2 1 3, so the
            // fractions are put in that order and the results back.
            const double* top = map + size_t(_mm_cvtsi128_si32(row)) * mapStride + size_t(_mm_cvtsi128_si32(first)) * 2;
            const double* bottom = top + mapStride;
            const __m256d fu = _mm256_permute4x64_pd(u.frac, 0xD8);
            const __m256d fv = _mm256_permute4x64_pd(v.frac, 0xD8);
            const __m256d a0 = _mm256_loadu_pd(top), a1 = _mm256_loadu_pd(top + 4);
            const __m256d b0 = _mm256_loadu_pd(top + 2), b1 = _mm256_loadu_pd(top + 6);
            const __m256d c0 = _mm256_loadu_pd(bottom), c1 = _mm256_loadu_pd(bottom + 4);
            const __m256d d0 = _mm256_loadu_pd(bottom + 2), d1 = _mm256_loadu_pd(bottom + 6);
            const __m256d tX = lerp(_mm256_unpacklo_pd(a0, a1), _mm256_unpacklo_pd(b0, b1), fu);
            const __m256d tY = lerp(_mm256_unpackhi_pd(a0, a1), _mm256_unpackhi_pd(b0, b1), fu);
            const __m256d bX = lerp(_mm256_unpacklo_pd(c0, c1), _mm256_unpacklo_pd(d0, d1), fu);
            const __m256d bY = lerp(_mm256_unpackhi_pd(c0, c1), _mm256_unpackhi_pd(d0, d1), fu);
            X = _mm256_permute4x64_pd(lerp(tX, bX, fv), 0xD8);
            Y = _mm256_permute4x64_pd(lerp(tY, bY, fv), 0xD8);
        } else {
            // Byte offsets of the four corner records of each pixel.
            alignas(32) int64_t at[16];
            const __m256i topLeft = _mm256_slli_epi64(
                _mm256_add_epi64(_mm256_mul_epu32(_mm256_cvtepu32_epi64(v.i0), width), _mm256_cvtepu32_epi64(u.i0)), 4);
            const __m128i uStep = _mm256_cvttpd_epi32(_mm256_and_pd(u.inner, one));
            const __m128i vStep = _mm256_cvttpd_epi32(_mm256_and_pd(v.inner, one));
            const __m256i right = _mm256_slli_epi64(_mm256_cvtepu32_epi64(uStep), 4);
            const __m256i down = _mm256_slli_epi64(_mm256_mul_epu32(_mm256_cvtepu32_epi64(vStep), width), 4);
            const __m256i bottomLeft = _mm256_add_epi64(topLeft, down);
            _mm256_store_si256(reinterpret_cast<__m256i*>(at), topLeft);
            _mm256_store_si256(reinterpret_cast<__m256i*>(at + 4), _mm256_add_epi64(topLeft, right));
            _mm256_store_si256(reinterpret_cast<__m256i*>(at + 8), bottomLeft);
            _mm256_store_si256(reinterpret_cast<__m256i*>(at + 12), _mm256_add_epi64(bottomLeft, right));
            __m256d ax, ay, bx, by, cx, cy, dx, dy;
            loadFour(base, at, &ax, &ay);
            loadFour(base, at + 4, &bx, &by);
            loadFour(base, at + 8, &cx, &cy);
            loadFour(base, at + 12, &dx, &dy);
            // NaN coordinates give the invalid point.
            const __m256d bad = _mm256_cmp_pd(uc, vc, _CMP_UNORD_Q);
            X = _mm256_blendv_pd(lerp(lerp(ax, bx, u.frac), lerp(cx, dx, u.frac), v.frac), invalid, bad);
            Y = _mm256_blendv_pd(lerp(lerp(ay, by, u.frac), lerp(cy, dy, u.frac), v.frac), invalid, bad);
        }

        // EntryWriter on the four.
        const __m256d inside =
            _mm256_and_pd(_mm256_and_pd(_mm256_cmp_pd(X, zero, _CMP_GE_OQ), _mm256_cmp_pd(X, highX, _CMP_LT_OQ)),
                          _mm256_and_pd(_mm256_cmp_pd(Y, zero, _CMP_GE_OQ), _mm256_cmp_pd(Y, highY, _CMP_LT_OQ)));
        const __m128i keep = narrowMask(inside);
        const __m128i ix = _mm256_cvttpd_epi32(X), iy = _mm256_cvttpd_epi32(Y);
        const __m128i wc =
            _mm256_cvttpd_epi32(_mm256_mul_pd(_mm256_sub_pd(_mm256_add_pd(_mm256_cvtepi32_pd(ix), one), X), scale));
        const __m128i wr =
            _mm256_cvttpd_epi32(_mm256_mul_pd(_mm256_sub_pd(_mm256_add_pd(_mm256_cvtepi32_pd(iy), one), Y), scale));
        const __m128i offset = _mm_add_epi32(ix, _mm_mullo_epi32(srcWidth, iy));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(offsets + x), _mm_and_si128(offset, keep));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(columnWeights + x),
                         _mm_shuffle_epi8(_mm_and_si128(wc, keep), low16));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(rowWeights + x), _mm_shuffle_epi8(_mm_and_si128(wr, keep), low16));
    }
    alignas(32) double end[4];
    _mm256_store_pd(end, sums);
    lutPixels(r, x, end[0], end[1], end[2]);
}

}  // namespace kvdsr::remap
#endif
