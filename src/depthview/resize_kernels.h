// Vertical pass of the depth resize: one output row as the blend of two
// horizontally resized rows, dst[i] = (w0 * r0[i] + w1 * r1[i]) >> 16 in
// wrapping 32-bit arithmetic, and its run-time selection.
// The SIMD kernels handle whole groups of 8 only; tails go through the C row.
#pragma once

#include <cstdint>

#include "common/cpu_dispatch.h"

namespace kvdsr::depthview {

using BlendRowsFn = void (*)(uint16_t* dst, const uint32_t* r0, const uint32_t* r1, uint32_t w0, uint32_t w1,
                             uint32_t groups);

// Reference: any count.
void BlendRows_C(uint16_t* dst, const uint32_t* r0, const uint32_t* r1, uint32_t w0, uint32_t w1, uint32_t count);
void BlendGroups_C(uint16_t* dst, const uint32_t* r0, const uint32_t* r1, uint32_t w0, uint32_t w1, uint32_t groups);
#if defined(__x86_64__) || defined(__i386__)
void BlendGroups_AVX2(uint16_t* dst, const uint32_t* r0, const uint32_t* r1, uint32_t w0, uint32_t w1,
                      uint32_t groups);
#endif

using BlendVariant = KernelVariant<BlendRowsFn>;
// The variants this CPU runs, reference first; tests and benchmarks may
// pick one (nullptr: the automatic choice).
int blendVariants(const BlendVariant** out);
void setBlendKernel(BlendRowsFn fn);

// count outputs with the chosen kernel (its groups, then the tail in C).
void blendRows(uint16_t* dst, const uint32_t* r0, const uint32_t* r1, uint32_t w0, uint32_t w1, uint32_t count);

}  // namespace kvdsr::depthview
