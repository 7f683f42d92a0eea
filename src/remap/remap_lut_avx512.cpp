// AVX-512 row kernel of the projective table build: eight pixels per step
// where they read consecutive records of one row pair (nearly always for a
// mild homography); any other group of eight goes through the plain kernel.
// Per lane it performs exactly the plain kernel's operations, so the tables
// are identical.
#if defined(__x86_64__)
#include <immintrin.h>

#include "remap/remap_lut_kernels.h"

namespace kvdsr::remap {

namespace {

inline __m512d join(__m256d lo, __m256d hi) { return _mm512_insertf64x4(_mm512_castpd256_pd512(lo), hi, 1); }

// Lanes 1..7 of v, then next.
inline __m512d shiftIn(__m512d v, double next) {
    return _mm512_castsi512_pd(
        _mm512_alignr_epi64(_mm512_castpd_si512(_mm512_set1_pd(next)), _mm512_castpd_si512(v), 1));
}

inline __m512d lerp(__m512d a, __m512d b, __m512d f) { return _mm512_add_pd(a, _mm512_mul_pd(f, _mm512_sub_pd(b, a))); }

// Sums of four consecutive pixels (lanes u, v, w, unused) as u, v and w of the four.
inline void transpose(__m256d p0, __m256d p1, __m256d p2, __m256d p3, __m256d* u, __m256d* v, __m256d* w) {
    const __m256d uw01 = _mm256_unpacklo_pd(p0, p1), v01 = _mm256_unpackhi_pd(p0, p1);
    const __m256d uw23 = _mm256_unpacklo_pd(p2, p3), v23 = _mm256_unpackhi_pd(p2, p3);
    *u = _mm256_permute2f128_pd(uw01, uw23, 0x20);
    *w = _mm256_permute2f128_pd(uw01, uw23, 0x31);
    *v = _mm256_permute2f128_pd(v01, v23, 0x20);
}

}  // namespace

void LutRowProjective_AVX512(const LutRow& r) {
    const double* h = r.h;
    __m256d sums = _mm256_setr_pd(h[0] * r.first + h[1] * r.y + h[2], h[3] * r.first + h[4] * r.y + h[5],
                                  h[6] * r.first + h[7] * r.y + h[8], 0.0);
    const __m256d step = _mm256_setr_pd(h[0], h[3], h[6], 0.0);
    const __m512d zero = _mm512_setzero_pd(), one = _mm512_set1_pd(1.0), scale = _mm512_set1_pd(1024.0);
    const __m512d lastColumn = _mm512_set1_pd(double(r.mapWidth - 1)),
                  lastRow = _mm512_set1_pd(double(r.mapHeight - 1));
    const __m512d highX = _mm512_set1_pd(double(r.srcWidth) - 1), highY = _mm512_set1_pd(double(r.srcHeight) - 1);
    const __m512i even = _mm512_setr_epi64(0, 2, 4, 6, 8, 10, 12, 14),
                  odd = _mm512_setr_epi64(1, 3, 5, 7, 9, 11, 13, 15);
    const __m256i ramp = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256i srcWidth = _mm256_set1_epi32(int32_t(r.srcWidth));
    const double* map = r.map;
    const size_t mapStride = size_t(r.mapWidth) * 2;
    uint32_t* const offsets = r.offset;
    uint16_t* const columnWeights = r.columnWeight;
    uint16_t* const rowWeights = r.rowWeight;
    const int last = r.last;
    int x = r.first;
    for (; x + 7 <= last; x += 8) {
        __m256d p[8];
        p[0] = sums;
        for (int k = 1; k < 8; ++k) p[k] = _mm256_add_pd(p[k - 1], step);
        const __m256d next = _mm256_add_pd(p[7], step);
        __m256d u0, v0, w0, u1, v1, w1;
        transpose(p[0], p[1], p[2], p[3], &u0, &v0, &w0);
        transpose(p[4], p[5], p[6], p[7], &u1, &v1, &w1);
        const __m512d sw = join(w0, w1);
        const __m512d uc = _mm512_div_pd(join(u0, u1), sw), vc = _mm512_div_pd(join(v0, v1), sw);
        // clampIndex on eight lanes; only inner points (second index i0 + 1,
        // never NaN) stay here.
        const __mmask8 inner = _mm512_cmp_pd_mask(uc, zero, _CMP_GE_OQ) &
                               _mm512_cmp_pd_mask(uc, lastColumn, _CMP_LT_OQ) &
                               _mm512_cmp_pd_mask(vc, zero, _CMP_GE_OQ) & _mm512_cmp_pd_mask(vc, lastRow, _CMP_LT_OQ);
        const __m256i iu = _mm512_cvttpd_epi32(_mm512_min_pd(_mm512_max_pd(uc, zero), lastColumn));
        const __m256i iv = _mm512_cvttpd_epi32(_mm512_min_pd(_mm512_max_pd(vc, zero), lastRow));
        const int column = _mm256_extract_epi32(iu, 0), row = _mm256_extract_epi32(iv, 0);
        const __mmask8 consecutive = _mm256_cmpeq_epi32_mask(iu, _mm256_add_epi32(_mm256_set1_epi32(column), ramp)) &
                                     _mm256_cmpeq_epi32_mask(iv, _mm256_set1_epi32(row));
        if (inner != 0xFF || consecutive != 0xFF) {
            LutRow group = r;
            group.last = x + 7;
            alignas(32) double s[4];
            _mm256_store_pd(s, sums);
            lutPixels(group, x, s[0], s[1], s[2]);
            sums = next;
            continue;
        }
        sums = next;
        const __m512d fu = _mm512_sub_pd(uc, _mm512_cvtepi32_pd(iu));
        const __m512d fv = _mm512_sub_pd(vc, _mm512_cvtepi32_pd(iv));
        // Records column .. column + 8 of rows row and row + 1: X and Y of
        // the first eight by two permutes, the right neighbours by a shift
        // in of the ninth.
        const double* top = map + size_t(row) * mapStride + size_t(column) * 2;
        const double* bottom = top + mapStride;
        const __m512d a0 = _mm512_loadu_pd(top), a1 = _mm512_loadu_pd(top + 8);
        const __m512d c0 = _mm512_loadu_pd(bottom), c1 = _mm512_loadu_pd(bottom + 8);
        const __m512d aX = _mm512_permutex2var_pd(a0, even, a1), aY = _mm512_permutex2var_pd(a0, odd, a1);
        const __m512d cX = _mm512_permutex2var_pd(c0, even, c1), cY = _mm512_permutex2var_pd(c0, odd, c1);
        const __m512d bX = shiftIn(aX, top[16]), bY = shiftIn(aY, top[17]);
        const __m512d dX = shiftIn(cX, bottom[16]), dY = shiftIn(cY, bottom[17]);
        const __m512d topX = lerp(aX, bX, fu), topY = lerp(aY, bY, fu);
        const __m512d bottomX = lerp(cX, dX, fu), bottomY = lerp(cY, dY, fu);
        const __m512d X = lerp(topX, bottomX, fv), Y = lerp(topY, bottomY, fv);

        // EntryWriter on the eight.
        const __mmask8 inside = _mm512_cmp_pd_mask(X, zero, _CMP_GE_OQ) & _mm512_cmp_pd_mask(X, highX, _CMP_LT_OQ) &
                                _mm512_cmp_pd_mask(Y, zero, _CMP_GE_OQ) & _mm512_cmp_pd_mask(Y, highY, _CMP_LT_OQ);
        const __m256i ix = _mm512_cvttpd_epi32(X), iy = _mm512_cvttpd_epi32(Y);
        const __m256i wc =
            _mm512_cvttpd_epi32(_mm512_mul_pd(_mm512_sub_pd(_mm512_add_pd(_mm512_cvtepi32_pd(ix), one), X), scale));
        const __m256i wr =
            _mm512_cvttpd_epi32(_mm512_mul_pd(_mm512_sub_pd(_mm512_add_pd(_mm512_cvtepi32_pd(iy), one), Y), scale));
        const __m256i offset = _mm256_add_epi32(ix, _mm256_mullo_epi32(srcWidth, iy));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(offsets + x), _mm256_maskz_mov_epi32(inside, offset));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(columnWeights + x),
                         _mm256_cvtepi32_epi16(_mm256_maskz_mov_epi32(inside, wc)));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(rowWeights + x),
                         _mm256_cvtepi32_epi16(_mm256_maskz_mov_epi32(inside, wr)));
    }
    alignas(32) double end[4];
    _mm256_store_pd(end, sums);
    lutPixels(r, x, end[0], end[1], end[2]);
}

}  // namespace kvdsr::remap
#endif
