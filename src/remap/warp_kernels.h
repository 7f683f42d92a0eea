// Row kernels of the bilinear warp and their run-time selection.
//
// Per pixel, in 32-bit integers (wrapping), with 10-bit weights:
//   top    = p01*1024 + (p00 - p01)*wc
//   bottom = p11*1024 + (p10 - p11)*wc
//   out    = clamp((bottom*1024 + (top - bottom)*wr + 524288) >> 20, 0, 255)
// p00 = src[o], p01 = src[o+1], p10 = src[o+stride], p11 = src[o+stride+1].
// The SIMD kernels handle whole groups of 8 only; tails go through the
// reference (WarpRow_C, WarpPairRow_C).
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/cpu_dispatch.h"

namespace kvdsr::remap {

// The SIMD kernels ask for the source lines of the entry this many groups
// ahead: the taps wander over several source rows at once, which the
// hardware prefetchers do not follow, and a frame's source is fresh in
// memory. A hint only: no byte changes.
constexpr uint32_t kTapPrefetchGroups = 16;

// Both tap rows of the entry kTapPrefetchGroups groups after `offset`, at
// group g of a run of `groups` (nothing past the run's entries is read).
// Entry o's top-left tap is at src + scale * o, its lower row `down` further.
inline void prefetchTaps(const uint8_t* src, const uint32_t* offset, uint32_t g, uint32_t groups,
                         std::size_t scale, std::size_t down) {
    if (g + kTapPrefetchGroups >= groups) return;
    const uint8_t* top = src + scale * std::size_t(offset[8 * kTapPrefetchGroups]);
    __builtin_prefetch(top);
    __builtin_prefetch(top + down);
}

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

using WarpVariant = KernelVariant<WarpGroupsFn>;

// Variants built in and supported by this CPU; [0] is the reference.
int warpVariants(const WarpVariant** out);
// The kernel Remap_ApplyPlane and warpRow use: chosen once (best supported) unless set.
WarpGroupsFn warpKernel();
// nullptr restores the automatic choice.
void setWarpKernel(WarpGroupsFn fn);

// ---- Pair planes ------------------------------------------------------------
// Two planes stored interleaved (the V,U chroma of 0xF01): byte 2k of the
// pair plane is entry k of the first plane, byte 2k + 1 of the second. One
// table entry warps both: the same taps and weights give two output bytes,
// written as a pair. Offsets index the planar plane (planeWidth entries a
// row), so the same tables serve planar and pair planes.

// Pair rows exactly 2 * planeWidth bytes apart: the pairs of offset o sit at
// 2o (left) and 2o + 2 (right), the lower row's at 2(o + planeWidth).
// Warps 8 * groups entries into 16 * groups bytes.
using WarpPairGroupsFn = void (*)(uint8_t* dst, const uint8_t* src, const uint32_t* offset,
                                  const uint16_t* columnWeight, const uint16_t* rowWeight, uint32_t planeWidth,
                                  uint32_t groups);

// Reference: any count, rows 2 * planeWidth bytes apart.
void WarpPairRow_C(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                   const uint16_t* rowWeight, uint32_t planeWidth, uint32_t count);
void WarpPairGroups_C(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                      const uint16_t* rowWeight, uint32_t planeWidth, uint32_t groups);
// Rows pairStride >= 2 * planeWidth bytes apart (an odd frame width leaves a
// spare byte at the end of each chroma row): one division per entry finds
// its row. Reads exactly the bytes a split into planes would have read.
void WarpPairRowPadded_C(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                         const uint16_t* rowWeight, uint32_t planeWidth, uint32_t pairStride, uint32_t count);

#if defined(__x86_64__) || defined(__i386__)
void WarpPairGroups_SSE41(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                          const uint16_t* rowWeight, uint32_t planeWidth, uint32_t groups);
void WarpPairGroups_AVX2(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                         const uint16_t* rowWeight, uint32_t planeWidth, uint32_t groups);
#endif
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
void WarpPairGroups_NEON(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                         const uint16_t* rowWeight, uint32_t planeWidth, uint32_t groups);
#endif

using WarpPairVariant = KernelVariant<WarpPairGroupsFn>;
int warpPairVariants(const WarpPairVariant** out);
WarpPairGroupsFn warpPairKernel();
void setWarpPairKernel(WarpPairGroupsFn fn);

// ---- Row entry points ---------------------------------------------------------
// One table row of count entries, chosen kernel for whole groups and the
// reference for the tail. For callers that share rows out themselves.
void warpRow(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
             const uint16_t* rowWeight, uint32_t srcStride, uint32_t count);
// The same over a pair plane whose rows are pairStride bytes apart; writes
// 2 * count bytes.
void warpPairRow(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                 const uint16_t* rowWeight, uint32_t planeWidth, uint32_t pairStride, uint32_t count);

}  // namespace kvdsr::remap
