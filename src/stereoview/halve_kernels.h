// Row kernels of the half-width side-by-side shift and their run-time
// selection: each keeps every other unit of a source row.
//   bytes (planar rows):       dst[k] = src[2k]
//   pairs (interleaved rows):  dst[2k] = src[4k], dst[2k+1] = src[4k+1];
//                              an odd last byte is src[4k] of the next pair.
// The SIMD kernels handle whole groups of kHalveGroup output bytes only;
// tails go through the reference (HalveBytes_C, HalvePairs_C).
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/cpu_dispatch.h"

namespace kvdsr::focalshift {

constexpr size_t kHalveGroup = 16;

// Writes kHalveGroup * groups bytes of dst from twice as many of src.
using HalveGroupsFn = void (*)(uint8_t* dst, const uint8_t* src, size_t groups);
using HalveVariant = KernelVariant<HalveGroupsFn>;

// References: `count` output bytes, any count.
void HalveBytes_C(uint8_t* dst, const uint8_t* src, size_t count);
void HalvePairs_C(uint8_t* dst, const uint8_t* src, size_t count);
void HalveBytesGroups_C(uint8_t* dst, const uint8_t* src, size_t groups);
void HalvePairsGroups_C(uint8_t* dst, const uint8_t* src, size_t groups);

#if defined(__x86_64__) || defined(__i386__)
void HalveBytesGroups_SSE41(uint8_t* dst, const uint8_t* src, size_t groups);
void HalvePairsGroups_SSE41(uint8_t* dst, const uint8_t* src, size_t groups);
#endif
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
void HalveBytesGroups_NEON(uint8_t* dst, const uint8_t* src, size_t groups);
void HalvePairsGroups_NEON(uint8_t* dst, const uint8_t* src, size_t groups);
#endif

// Supported variants, reference first, best last; the chosen kernel; and an
// override for tests and benchmarks (nullptr restores the automatic choice).
int halveBytesVariants(const HalveVariant** out);
int halvePairsVariants(const HalveVariant** out);
HalveGroupsFn halveBytesKernel();
HalveGroupsFn halvePairsKernel();
void setHalveBytesKernel(HalveGroupsFn fn);
void setHalvePairsKernel(HalveGroupsFn fn);

}  // namespace kvdsr::focalshift
