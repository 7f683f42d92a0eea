// AVX2 warp kernels: one 8-lane vector of 32-bit arithmetic per group.
// Two ways to fetch the neighbours: scalar 16-bit loads, or two 32-bit
// gathers (fast on some cores, slow on others; the benchmark compares them).
#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>

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

inline void interpolateStore(uint8_t* dst, __m256i p00, __m256i p01, __m256i p10, __m256i p11,
                             const uint16_t* columnWeight, const uint16_t* rowWeight) {
    const __m256i wc = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(columnWeight)));
    const __m256i wr = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(rowWeight)));
    const __m256i top = blend(p00, p01, wc);
    const __m256i bottom = blend(p10, p11, wc);
    const __m256i sum = _mm256_add_epi32(
        _mm256_add_epi32(_mm256_slli_epi32(bottom, 10), _mm256_mullo_epi32(_mm256_sub_epi32(top, bottom), wr)),
        _mm256_set1_epi32(524288));
    const __m256i out = _mm256_srai_epi32(sum, 20);
    const __m128i packed = _mm_packs_epi32(_mm256_castsi256_si128(out), _mm256_extracti128_si256(out, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), _mm_packus_epi16(packed, packed));
}

}  // namespace

void WarpGroups_AVX2(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                     const uint16_t* rowWeight, uint32_t srcStride, uint32_t groups) {
    const __m256i lowByte = _mm256_set1_epi32(0xFF);
    for (uint32_t g = 0; g < groups; ++g, dst += 8, offset += 8, columnWeight += 8, rowWeight += 8) {
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
