// Half-width row kernels, NEON: de-interleaving loads keep the even units.
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
#include <arm_neon.h>

#include "stereoview/halve_kernels.h"

namespace kvdsr::focalshift {

void HalveBytesGroups_NEON(uint8_t* dst, const uint8_t* src, size_t groups) {
    for (size_t g = 0; g < groups; ++g, dst += kHalveGroup, src += 2 * kHalveGroup)
        vst1q_u8(dst, vld2q_u8(src).val[0]);
}

// Byte pairs as 16-bit lanes (loaded as bytes: rows need not be aligned);
// the byte order within a pair is kept.
void HalvePairsGroups_NEON(uint8_t* dst, const uint8_t* src, size_t groups) {
    for (size_t g = 0; g < groups; ++g, dst += kHalveGroup, src += 2 * kHalveGroup) {
        const uint16x8_t a = vreinterpretq_u16_u8(vld1q_u8(src)), b = vreinterpretq_u16_u8(vld1q_u8(src + 16));
        vst1q_u8(dst, vreinterpretq_u8_u16(vuzpq_u16(a, b).val[0]));
    }
}

}  // namespace kvdsr::focalshift
#endif
