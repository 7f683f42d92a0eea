// SSE4.1 warp kernels: 4-lane runs of 32-bit arithmetic, two per group of 8
// (planar) or four (pair planes, V and U lanes side by side).
#if defined(__x86_64__) || defined(__i386__)
#include <smmintrin.h>

#include <cstddef>
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

inline uint32_t loadWord(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Bytes first, first + 1 (one entry's V, U) and first + 4, first + 5 (the
// next entry's) as 32-bit lanes. Word e holds entry e's taps of one row:
// left V, left U, right V, right U.
inline __m128i pick(__m128i words, int first) {
    const char a = char(first), b = char(first + 1), c = char(first + 4), d = char(first + 5);
    return _mm_shuffle_epi8(words, _mm_setr_epi8(a, -1, -1, -1, b, -1, -1, -1, c, -1, -1, -1, d, -1, -1, -1));
}

// Eight output bytes (V, U of four entries) as saturated 16-bit lanes.
inline __m128i warpPairQuad(const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                            const uint16_t* rowWeight, std::size_t down) {
    const uint8_t* p0 = src + 2 * std::size_t(offset[0]);
    const uint8_t* p1 = src + 2 * std::size_t(offset[1]);
    const uint8_t* p2 = src + 2 * std::size_t(offset[2]);
    const uint8_t* p3 = src + 2 * std::size_t(offset[3]);
    const __m128i top = _mm_setr_epi32(int(loadWord(p0)), int(loadWord(p1)), int(loadWord(p2)), int(loadWord(p3)));
    const __m128i bottom = _mm_setr_epi32(int(loadWord(p0 + down)), int(loadWord(p1 + down)),
                                          int(loadWord(p2 + down)), int(loadWord(p3 + down)));
    const __m128i wc = _mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(columnWeight)));
    const __m128i wr = _mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(rowWeight)));
    // Entries 0, 1 are in bytes 0..7 of the words, entries 2, 3 in 8..15.
    const __m128i lo = interpolate(pick(top, 0), pick(top, 2), pick(bottom, 0), pick(bottom, 2),
                                   _mm_unpacklo_epi32(wc, wc), _mm_unpacklo_epi32(wr, wr));
    const __m128i hi = interpolate(pick(top, 8), pick(top, 10), pick(bottom, 8), pick(bottom, 10),
                                   _mm_unpackhi_epi32(wc, wc), _mm_unpackhi_epi32(wr, wr));
    return _mm_packs_epi32(lo, hi);
}

}  // namespace

void WarpPairGroups_SSE41(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                          const uint16_t* rowWeight, uint32_t planeWidth, uint32_t groups) {
    const std::size_t down = 2 * std::size_t(planeWidth);
    for (uint32_t g = 0; g < groups; ++g, dst += 16, offset += 8, columnWeight += 8, rowWeight += 8) {
        prefetchTaps(src, offset, g, groups, 2, down);
        const __m128i first = warpPairQuad(src, offset, columnWeight, rowWeight, down);
        const __m128i second = warpPairQuad(src, offset + 4, columnWeight + 4, rowWeight + 4, down);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(first, second));
    }
}

void WarpGroups_SSE41(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                      const uint16_t* rowWeight, uint32_t srcStride, uint32_t groups) {
    const __m128i lowByte = _mm_set1_epi16(0xFF);
    for (uint32_t g = 0; g < groups; ++g, dst += 8, offset += 8, columnWeight += 8, rowWeight += 8) {
        prefetchTaps(src, offset, g, groups, 1, srcStride);
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
