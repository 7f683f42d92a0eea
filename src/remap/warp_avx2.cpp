// AVX2 warp kernels: one 8-lane vector of 32-bit arithmetic per group
// (planar) or two (pair planes, V and U lanes side by side). Two ways to
// fetch planar neighbours: scalar 16-bit loads, or two 32-bit gathers (fast
// on some cores, slow on others; the benchmark compares them).
#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>

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

inline __m128i loadPairs(const uint8_t* src, const uint32_t* o, uint32_t add) {
    return _mm_setr_epi16(short(loadPair(src + o[0] + add)), short(loadPair(src + o[1] + add)),
                          short(loadPair(src + o[2] + add)), short(loadPair(src + o[3] + add)),
                          short(loadPair(src + o[4] + add)), short(loadPair(src + o[5] + add)),
                          short(loadPair(src + o[6] + add)), short(loadPair(src + o[7] + add)));
}

inline __m256i blend(__m256i left, __m256i right, __m256i w) {
    return _mm256_add_epi32(_mm256_slli_epi32(right, 10), _mm256_mullo_epi32(_mm256_sub_epi32(left, right), w));
}

inline __m256i interpolate(__m256i p00, __m256i p01, __m256i p10, __m256i p11, __m256i wc, __m256i wr) {
    const __m256i top = blend(p00, p01, wc);
    const __m256i bottom = blend(p10, p11, wc);
    const __m256i sum = _mm256_add_epi32(
        _mm256_add_epi32(_mm256_slli_epi32(bottom, 10), _mm256_mullo_epi32(_mm256_sub_epi32(top, bottom), wr)),
        _mm256_set1_epi32(524288));
    return _mm256_srai_epi32(sum, 20);
}

inline void interpolateStore(uint8_t* dst, __m256i p00, __m256i p01, __m256i p10, __m256i p11,
                             const uint16_t* columnWeight, const uint16_t* rowWeight) {
    const __m256i wc = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(columnWeight)));
    const __m256i wr = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(rowWeight)));
    const __m256i out = interpolate(p00, p01, p10, p11, wc, wr);
    const __m128i packed = _mm_packs_epi32(_mm256_castsi256_si128(out), _mm256_extracti128_si256(out, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(packed, packed));
}

inline int loadWord(const uint8_t* p) {
    int v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Words of eight pair entries: left V, left U, right V, right U of one row.
inline __m256i loadWords(const uint8_t* src, const uint32_t* o, std::size_t add) {
    auto at = [&](int i) { return loadWord(src + 2 * std::size_t(o[i]) + add); };
    return _mm256_setr_epi32(at(0), at(1), at(2), at(3), at(4), at(5), at(6), at(7));
}

// Bytes first, first + 1 and first + 4, first + 5 of each 128-bit half as
// 32-bit lanes: V, U of two entries.
inline __m256i pick(__m256i words, int first) {
    const char a = char(first), b = char(first + 1), c = char(first + 4), d = char(first + 5);
    const __m128i m = _mm_setr_epi8(a, -1, -1, -1, b, -1, -1, -1, c, -1, -1, -1, d, -1, -1, -1);
    return _mm256_shuffle_epi8(words, _mm256_broadcastsi128_si256(m));
}

}  // namespace

// Lanes hold entries 0, 1, 4, 5 (run a) and 2, 3, 6, 7 (run b), V and U side
// by side; packing a with b puts the 16 results back in entry order.
void WarpPairGroups_AVX2(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                         const uint16_t* rowWeight, uint32_t planeWidth, uint32_t groups) {
    const std::size_t down = 2 * std::size_t(planeWidth);
    for (uint32_t g = 0; g < groups; ++g, dst += 16, offset += 8, columnWeight += 8, rowWeight += 8) {
        prefetchTaps(src, offset, g, groups, 2, down);
        const __m256i top = loadWords(src, offset, 0);
        const __m256i bottom = loadWords(src, offset, down);
        const __m256i wc = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(columnWeight)));
        const __m256i wr = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(rowWeight)));
        const __m256i a = interpolate(pick(top, 0), pick(top, 2), pick(bottom, 0), pick(bottom, 2),
                                      _mm256_unpacklo_epi32(wc, wc), _mm256_unpacklo_epi32(wr, wr));
        const __m256i b = interpolate(pick(top, 8), pick(top, 10), pick(bottom, 8), pick(bottom, 10),
                                      _mm256_unpackhi_epi32(wc, wc), _mm256_unpackhi_epi32(wr, wr));
        const __m256i packed = _mm256_packs_epi32(a, b);
        const __m128i bytes = _mm_packus_epi16(_mm256_castsi256_si128(packed), _mm256_extracti128_si256(packed, 1));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), bytes);
    }
}

void WarpGroups_AVX2(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                     const uint16_t* rowWeight, uint32_t srcStride, uint32_t groups) {
    const __m256i lowByte = _mm256_set1_epi32(0xFF);
    for (uint32_t g = 0; g < groups; ++g, dst += 8, offset += 8, columnWeight += 8, rowWeight += 8) {
        prefetchTaps(src, offset, g, groups, 1, srcStride);
        const __m256i top = _mm256_cvtepu16_epi32(loadPairs(src, offset, 0));
        const __m256i bottom = _mm256_cvtepu16_epi32(loadPairs(src, offset, srcStride));
        interpolateStore(dst, _mm256_and_si256(top, lowByte), _mm256_srli_epi32(top, 8),
                         _mm256_and_si256(bottom, lowByte), _mm256_srli_epi32(bottom, 8), columnWeight, rowWeight);
    }
}

// The top gather reads bytes o..o+3 and the bottom one o+stride-2..o+stride+1,
// both inside o..o+stride+1 (stride >= 2), the bytes the reference reads.
// Offsets are unsigned: the base is moved by 2^31 and the index biased.
void WarpGroups_AVX2Gather(uint8_t* dst, const uint8_t* src, const uint32_t* offset,
                           const uint16_t* columnWeight, const uint16_t* rowWeight, uint32_t srcStride,
                           uint32_t groups) {
    const __m256i lowByte = _mm256_set1_epi32(0xFF);
    const __m256i bias = _mm256_set1_epi32(int(0x80000000u));
    const __m256i bottomShift = _mm256_set1_epi32(int(srcStride - 2));
#if defined(__x86_64__)
    const int* base = reinterpret_cast<const int*>(reinterpret_cast<uintptr_t>(src) + 0x80000000ull);
#else
    const int* base = reinterpret_cast<const int*>(src);
#endif
    for (uint32_t g = 0; g < groups; ++g, dst += 8, offset += 8, columnWeight += 8, rowWeight += 8) {
        prefetchTaps(src, offset, g, groups, 1, srcStride);
        const __m256i o = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(offset));
#if defined(__x86_64__)
        const __m256i topIndex = _mm256_xor_si256(o, bias);
        const __m256i bottomIndex = _mm256_xor_si256(_mm256_add_epi32(o, bottomShift), bias);
#else
        const __m256i topIndex = o;
        const __m256i bottomIndex = _mm256_add_epi32(o, bottomShift);
#endif
        const __m256i top = _mm256_i32gather_epi32(base, topIndex, 1);
        const __m256i bottom = _mm256_i32gather_epi32(base, bottomIndex, 1);
        interpolateStore(dst, _mm256_and_si256(top, lowByte), _mm256_and_si256(_mm256_srli_epi32(top, 8), lowByte),
                         _mm256_and_si256(_mm256_srli_epi32(bottom, 16), lowByte), _mm256_srli_epi32(bottom, 24),
                         columnWeight, rowWeight);
    }
}

}  // namespace kvdsr::remap
#endif
