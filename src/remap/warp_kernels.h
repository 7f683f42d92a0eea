// Row kernels of the bilinear warp and their run-time selection.
//
// Per pixel, in 32-bit integers (wrapping), with 10-bit weights:
//   top    = p01*1024 + (p00 - p01)*wc
//   bottom = p11*1024 + (p10 - p11)*wc
//   out    = clamp((bottom*1024 + (top - bottom)*wr + 524288) >> 20, 0, 255)
// p00 = src[o], p01 = src[o+1], p10 = src[o+stride], p11 = src[o+stride+1].
// The SIMD kernels handle whole groups of 8 only; tails go through WarpRow_C.
#pragma once

#include <cstdint>

namespace kvdsr::remap {

// Warps 8 * groups consecutive entries of a table row.
using WarpGroupsFn = void (*)(uint8_t* dst, const uint8_t* src, const uint32_t* offset,
                              const uint16_t* columnWeight, const uint16_t* rowWeight, uint32_t srcStride,
                              uint32_t groups);

// Reference: any count.
void WarpRow_C(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
               const uint16_t* rowWeight, uint32_t srcStride, uint32_t count);
void WarpGroups_C(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                  const uint16_t* rowWeight, uint32_t srcStride, uint32_t groups);

#if defined(__x86_64__) || defined(__i386__)
void WarpGroups_SSE41(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                      const uint16_t* rowWeight, uint32_t srcStride, uint32_t groups);
void WarpGroups_AVX2(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                     const uint16_t* rowWeight, uint32_t srcStride, uint32_t groups);
void WarpGroups_AVX2Gather(uint8_t* dst, const uint8_t* src, const uint32_t* offset,
                           const uint16_t* columnWeight, const uint16_t* rowWeight, uint32_t srcStride,
                           uint32_t groups);
#endif
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
void WarpGroups_NEON(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                     const uint16_t* rowWeight, uint32_t srcStride, uint32_t groups);
#endif

struct WarpVariant {
    const char* name;
    WarpGroupsFn fn;
};

// Variants built in and supported by this CPU; [0] is the reference.
int warpVariants(const WarpVariant** out);
// The kernel Remap_ApplyPlane uses: chosen once (best supported) unless set.
WarpGroupsFn warpKernel();
// nullptr restores the automatic choice.
void setWarpKernel(WarpGroupsFn fn);

}  // namespace kvdsr::remap
