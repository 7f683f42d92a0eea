// NEON warp kernel (32- and 64-bit ARM): two 4-lane halves per group of 8.
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
#include <arm_neon.h>

#include <cstring>

#include "remap/warp_kernels.h"

namespace kvdsr::remap {

namespace {

inline uint16_t loadPair(const uint8_t* p) {
    uint16_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Scalar loads: the neighbours may sit at any byte address.
inline uint16x8_t loadPairs(const uint8_t* src, const uint32_t* o, uint32_t add) {
    uint16x8_t v = vdupq_n_u16(loadPair(src + o[0] + add));
    v = vsetq_lane_u16(loadPair(src + o[1] + add), v, 1);
    v = vsetq_lane_u16(loadPair(src + o[2] + add), v, 2);
    v = vsetq_lane_u16(loadPair(src + o[3] + add), v, 3);
    v = vsetq_lane_u16(loadPair(src + o[4] + add), v, 4);
    v = vsetq_lane_u16(loadPair(src + o[5] + add), v, 5);
    v = vsetq_lane_u16(loadPair(src + o[6] + add), v, 6);
    v = vsetq_lane_u16(loadPair(src + o[7] + add), v, 7);
    return v;
}

inline int32x4_t widen(uint16x4_t v) { return vreinterpretq_s32_u32(vmovl_u16(v)); }

inline int32x4_t blend(int32x4_t left, int32x4_t right, int32x4_t w) {
    return vmlaq_s32(vshlq_n_s32(right, 10), vsubq_s32(left, right), w);
}

inline int16x4_t interpolate(uint16x4_t p00, uint16x4_t p01, uint16x4_t p10, uint16x4_t p11, uint16x4_t wc,
                             uint16x4_t wr) {
    const int32x4_t c = widen(wc);
    const int32x4_t top = blend(widen(p00), widen(p01), c);
    const int32x4_t bottom = blend(widen(p10), widen(p11), c);
    const int32x4_t sum =
        vaddq_s32(vmlaq_s32(vshlq_n_s32(bottom, 10), vsubq_s32(top, bottom), widen(wr)), vdupq_n_s32(524288));
    return vqmovn_s32(vshrq_n_s32(sum, 20));
}

}  // namespace

void WarpGroups_NEON(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                     const uint16_t* rowWeight, uint32_t srcStride, uint32_t groups) {
    const uint16x8_t lowByte = vdupq_n_u16(0xFF);
    for (uint32_t g = 0; g < groups; ++g, dst += 8, offset += 8, columnWeight += 8, rowWeight += 8) {
        const uint16x8_t topPairs = loadPairs(src, offset, 0);
        const uint16x8_t bottomPairs = loadPairs(src, offset, srcStride);
        const uint16x8_t p00 = vandq_u16(topPairs, lowByte), p01 = vshrq_n_u16(topPairs, 8);
        const uint16x8_t p10 = vandq_u16(bottomPairs, lowByte), p11 = vshrq_n_u16(bottomPairs, 8);
        const uint16x8_t wc = vld1q_u16(columnWeight);
        const uint16x8_t wr = vld1q_u16(rowWeight);
        const int16x4_t lo = interpolate(vget_low_u16(p00), vget_low_u16(p01), vget_low_u16(p10),
                                         vget_low_u16(p11), vget_low_u16(wc), vget_low_u16(wr));
        const int16x4_t hi = interpolate(vget_high_u16(p00), vget_high_u16(p01), vget_high_u16(p10),
                                         vget_high_u16(p11), vget_high_u16(wc), vget_high_u16(wr));
        vst1_u8(dst, vqmovun_s16(vcombine_s16(lo, hi)));
    }
}

}  // namespace kvdsr::remap
#endif
