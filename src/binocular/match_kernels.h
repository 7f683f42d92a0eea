// Row kernels of the colour matching: each byte of a row replaced through a
// 256-entry table, even bytes through one table and odd bytes through
// another (luma passes the same table twice; chroma pairs their two), and
// their run-time selection. The SIMD kernels handle whole groups of 64
// bytes only; tails go through the C row.
#pragma once

#include <cstdint>

#include "common/cpu_dispatch.h"

namespace kvdsr::binocular {

constexpr uint32_t kMatchGroup = 64;

using MatchGroupsFn = void (*)(uint8_t* row, uint32_t groups, const uint8_t* evenTable, const uint8_t* oddTable);

// Reference: any count of bytes.
void MatchRow_C(uint8_t* row, uint32_t count, const uint8_t* evenTable, const uint8_t* oddTable);
void MatchGroups_C(uint8_t* row, uint32_t groups, const uint8_t* evenTable, const uint8_t* oddTable);
#if defined(__x86_64__) || defined(__i386__)
void MatchGroups_AVX512VBMI(uint8_t* row, uint32_t groups, const uint8_t* evenTable, const uint8_t* oddTable);
#endif
#if defined(__aarch64__)
void MatchGroups_NEON(uint8_t* row, uint32_t groups, const uint8_t* evenTable, const uint8_t* oddTable);
#endif

using MatchVariant = KernelVariant<MatchGroupsFn>;
// The variants this CPU runs, reference first; tests and benchmarks may
// pick one (nullptr: the automatic choice).
int matchVariants(const MatchVariant** out);
void setMatchKernel(MatchGroupsFn fn);

// count bytes with the chosen kernel (its groups, then the tail in C).
void matchRow(uint8_t* row, uint32_t count, const uint8_t* evenTable, const uint8_t* oddTable);

}  // namespace kvdsr::binocular
