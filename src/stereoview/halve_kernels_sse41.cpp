// Half-width row kernels, SSE4.1: mask the kept unit of each 16- or 32-bit
// lane and pack the lanes down (no saturation: the masked values fit). Two
// groups a step where there are two: the loop's own cost is a good part of
// such a short body.
#if defined(__x86_64__) || defined(__i386__)
#include <smmintrin.h>

#include "stereoview/halve_kernels.h"

namespace kvdsr::focalshift {

namespace {

inline __m128i load(const uint8_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline void store(uint8_t* p, __m128i v) { _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v); }

struct KeepBytes {
    const __m128i low = _mm_set1_epi16(0x00FF);
    __m128i operator()(const uint8_t* src) const {
        return _mm_packus_epi16(_mm_and_si128(load(src), low), _mm_and_si128(load(src + 16), low));
    }
};

struct KeepPairs {
    const __m128i low = _mm_set1_epi32(0x0000FFFF);
    __m128i operator()(const uint8_t* src) const {
        return _mm_packus_epi32(_mm_and_si128(load(src), low), _mm_and_si128(load(src + 16), low));
    }
};

template <class Keep>
inline void halveGroups(uint8_t* dst, const uint8_t* src, size_t groups) {
    const Keep keep;
    size_t g = 0;
    for (; g + 2 <= groups; g += 2) {
        const __m128i a = keep(src + 2 * kHalveGroup * g), b = keep(src + 2 * kHalveGroup * (g + 1));
        store(dst + kHalveGroup * g, a);
        store(dst + kHalveGroup * (g + 1), b);
    }
    if (g < groups) store(dst + kHalveGroup * g, keep(src + 2 * kHalveGroup * g));
}

}  // namespace

void HalveBytesGroups_SSE41(uint8_t* dst, const uint8_t* src, size_t groups) {
    halveGroups<KeepBytes>(dst, src, groups);
}

void HalvePairsGroups_SSE41(uint8_t* dst, const uint8_t* src, size_t groups) {
    halveGroups<KeepPairs>(dst, src, groups);
}

}  // namespace kvdsr::focalshift
#endif
