// SSE4.1 warp kernel: two 4-lane halves of 32-bit arithmetic per group of 8.
#if defined(__x86_64__) || defined(__i386__)
#include <smmintrin.h>

#include <cstring>

#include "remap/warp_kernels.h"

namespace kvdsr::remap {

namespace {

inline int loadPair(const uint8_t* p) {
    uint16_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Eight little-endian byte pairs (left, right neighbour) as 16-bit lanes.
inline __m128i loadPairs(const uint8_t* src, const uint32_t* o, uint32_t add) {
    return _mm_setr_epi16(short(loadPair(src + o[0] + add)), short(loadPair(src + o[1] + add)),
                          short(loadPair(src + o[2] + add)), short(loadPair(src + o[3] + add)),
                          short(loadPair(src + o[4] + add)), short(loadPair(src + o[5] + add)),
                          short(loadPair(src + o[6] + add)), short(loadPair(src + o[7] + add)));
}

// left*1024 ... : p_right*1024 + (p_left - p_right)*w
inline __m128i blend(__m128i left, __m128i right, __m128i w) {
    return _mm_add_epi32(_mm_slli_epi32(right, 10), _mm_mullo_epi32(_mm_sub_epi32(left, right), w));
}

inline __m128i interpolate(__m128i p00, __m128i p01, __m128i p10, __m128i p11, __m128i wc, __m128i wr) {
    const __m128i top = blend(p00, p01, wc);
    const __m128i bottom = blend(p10, p11, wc);
    const __m128i sum = _mm_add_epi32(_mm_add_epi32(_mm_slli_epi32(bottom, 10),
                                                    _mm_mullo_epi32(_mm_sub_epi32(top, bottom), wr)),
                                      _mm_set1_epi32(524288));
    return _mm_srai_epi32(sum, 20);
}

}  // namespace

void WarpGroups_SSE41(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                      const uint16_t* rowWeight, uint32_t srcStride, uint32_t groups) {
    const __m128i lowByte = _mm_set1_epi16(0xFF);
    for (uint32_t g = 0; g < groups; ++g, dst += 8, offset += 8, columnWeight += 8, rowWeight += 8) {
        const __m128i topPairs = loadPairs(src, offset, 0);
        const __m128i bottomPairs = loadPairs(src, offset, srcStride);
        const __m128i p00 = _mm_and_si128(topPairs, lowByte), p01 = _mm_srli_epi16(topPairs, 8);
        const __m128i p10 = _mm_and_si128(bottomPairs, lowByte), p11 = _mm_srli_epi16(bottomPairs, 8);
        const __m128i wc = _mm_loadu_si128(reinterpret_cast<const __m128i*>(columnWeight));
        const __m128i wr = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rowWeight));

        const __m128i lo = interpolate(_mm_cvtepu16_epi32(p00), _mm_cvtepu16_epi32(p01), _mm_cvtepu16_epi32(p10),
                                       _mm_cvtepu16_epi32(p11), _mm_cvtepu16_epi32(wc), _mm_cvtepu16_epi32(wr));
        const __m128i hi = interpolate(
            _mm_cvtepu16_epi32(_mm_srli_si128(p00, 8)), _mm_cvtepu16_epi32(_mm_srli_si128(p01, 8)),
            _mm_cvtepu16_epi32(_mm_srli_si128(p10, 8)), _mm_cvtepu16_epi32(_mm_srli_si128(p11, 8)),
            _mm_cvtepu16_epi32(_mm_srli_si128(wc, 8)), _mm_cvtepu16_epi32(_mm_srli_si128(wr, 8)));
        const __m128i packed = _mm_packs_epi32(lo, hi);
        _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(packed, packed));
    }
}

}  // namespace kvdsr::remap
#endif
