// AVX2 vertical pass of the depth resize: eight outputs per step, the same
// wrapping 32-bit products and logical shift as the C row.
#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>

#include "depthview/resize_kernels.h"

namespace kvdsr::depthview {

void BlendGroups_AVX2(uint16_t* dst, const uint32_t* r0, const uint32_t* r1, uint32_t w0, uint32_t w1,
                      uint32_t groups) {
    const __m256i a = _mm256_set1_epi32(int(w0)), b = _mm256_set1_epi32(int(w1));
    for (uint32_t g = 0; g < groups; ++g) {
        const __m256i x0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(r0 + 8 * g));
        const __m256i x1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(r1 + 8 * g));
        const __m256i sum = _mm256_add_epi32(_mm256_mullo_epi32(x0, a), _mm256_mullo_epi32(x1, b));
        // Below 65536 after the shift: the signed pack keeps every value.
        const __m256i v = _mm256_srli_epi32(sum, 16);
        const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(v, v), 0x08);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + 8 * g), _mm256_castsi256_si128(packed));
    }
}

}  // namespace kvdsr::depthview
#endif
