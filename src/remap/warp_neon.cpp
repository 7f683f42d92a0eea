// NEON warp kernels (32- and 64-bit ARM): 4-lane runs of 32-bit arithmetic,
// two per group of 8 (planar) or four (pair planes, V and U side by side).
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
#include <arm_neon.h>

#include <cstddef>
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

inline uint32_t loadWord(const uint8_t* p) {
    uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

// Words of four pair entries: left V, left U, right V, right U of one row.
inline uint16x8_t loadWords(const uint8_t* src, const uint32_t* o, std::size_t add) {
    uint32x4_t v = vdupq_n_u32(loadWord(src + 2 * std::size_t(o[0]) + add));
    v = vsetq_lane_u32(loadWord(src + 2 * std::size_t(o[1]) + add), v, 1);
    v = vsetq_lane_u32(loadWord(src + 2 * std::size_t(o[2]) + add), v, 2);
    v = vsetq_lane_u32(loadWord(src + 2 * std::size_t(o[3]) + add), v, 3);
    return vreinterpretq_u16_u32(v);
}

// Eight output bytes: V, U of four entries whose taps are the byte pairs
// (V, U) of left/right, each weight repeated for the V and the U lane.
inline uint8x8_t warpPairs(uint8x8_t left, uint8x8_t right, uint8x8_t lowerLeft, uint8x8_t lowerRight,
                           uint16x8_t wc, uint16x8_t wr) {
    const uint16x8_t p00 = vmovl_u8(left), p01 = vmovl_u8(right);
    const uint16x8_t p10 = vmovl_u8(lowerLeft), p11 = vmovl_u8(lowerRight);
    const int16x4_t lo = interpolate(vget_low_u16(p00), vget_low_u16(p01), vget_low_u16(p10), vget_low_u16(p11),
                                     vget_low_u16(wc), vget_low_u16(wr));
    const int16x4_t hi = interpolate(vget_high_u16(p00), vget_high_u16(p01), vget_high_u16(p10),
                                     vget_high_u16(p11), vget_high_u16(wc), vget_high_u16(wr));
    return vqmovun_s16(vcombine_s16(lo, hi));
}

}  // namespace

// Unzipping the 16-bit halves of the words separates the left pairs from the
// right ones, each in entry order (V, U, V, U...).
void WarpPairGroups_NEON(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                         const uint16_t* rowWeight, uint32_t planeWidth, uint32_t groups) {
    const std::size_t down = 2 * std::size_t(planeWidth);
    for (uint32_t g = 0; g < groups; ++g, dst += 16, offset += 8, columnWeight += 8, rowWeight += 8) {
        prefetchTaps(src, offset, g, groups, 2, down);
        const uint16x8x2_t top = vuzpq_u16(loadWords(src, offset, 0), loadWords(src, offset + 4, 0));
        const uint16x8x2_t bottom = vuzpq_u16(loadWords(src, offset, down), loadWords(src, offset + 4, down));
        const uint8x16_t left = vreinterpretq_u8_u16(top.val[0]), right = vreinterpretq_u8_u16(top.val[1]);
        const uint8x16_t lowerLeft = vreinterpretq_u8_u16(bottom.val[0]);
        const uint8x16_t lowerRight = vreinterpretq_u8_u16(bottom.val[1]);
        const uint16x8_t wc = vld1q_u16(columnWeight), wr = vld1q_u16(rowWeight);
        const uint16x8x2_t wc2 = vzipq_u16(wc, wc), wr2 = vzipq_u16(wr, wr);
        const uint8x8_t first = warpPairs(vget_low_u8(left), vget_low_u8(right), vget_low_u8(lowerLeft),
                                          vget_low_u8(lowerRight), wc2.val[0], wr2.val[0]);
        const uint8x8_t second = warpPairs(vget_high_u8(left), vget_high_u8(right), vget_high_u8(lowerLeft),
                                           vget_high_u8(lowerRight), wc2.val[1], wr2.val[1]);
        vst1q_u8(dst, vcombine_u8(first, second));
    }
}

void WarpGroups_NEON(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                     const uint16_t* rowWeight, uint32_t srcStride, uint32_t groups) {
    const uint16x8_t lowByte = vdupq_n_u16(0xFF);
    for (uint32_t g = 0; g < groups; ++g, dst += 8, offset += 8, columnWeight += 8, rowWeight += 8) {
        prefetchTaps(src, offset, g, groups, 1, srcStride);
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
