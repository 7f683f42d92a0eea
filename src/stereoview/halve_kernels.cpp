// Half-width row kernels: references and run-time selection.
#include "stereoview/halve_kernels.h"

namespace kvdsr::focalshift {

namespace {

// The one SIMD variant of each unit size this architecture has, if any.
#if defined(__x86_64__) || defined(__i386__)
constexpr HalveVariant kSimdBytes{"SSE4.1", HalveBytesGroups_SSE41}, kSimdPairs{"SSE4.1", HalvePairsGroups_SSE41};
inline bool cpuHasSimd() { return cpuHasSse41(); }
#elif defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
constexpr HalveVariant kSimdBytes{"NEON", HalveBytesGroups_NEON}, kSimdPairs{"NEON", HalvePairsGroups_NEON};
inline bool cpuHasSimd() { return true; }
#else
constexpr HalveVariant kSimdBytes{nullptr, nullptr}, kSimdPairs{nullptr, nullptr};
inline bool cpuHasSimd() { return false; }
#endif

int fillVariants(HalveVariant* v, HalveVariant reference, HalveVariant simd) {
    int n = 0;
    v[n++] = reference;
    if (simd.fn && cpuHasSimd()) v[n++] = simd;
    return n;
}

int fillBytesVariants(HalveVariant* v) { return fillVariants(v, {"C", HalveBytesGroups_C}, kSimdBytes); }
int fillPairsVariants(HalveVariant* v) { return fillVariants(v, {"C", HalvePairsGroups_C}, kSimdPairs); }

KernelDispatch<HalveGroupsFn, 2> g_bytes(fillBytesVariants);
KernelDispatch<HalveGroupsFn, 2> g_pairs(fillPairsVariants);

}  // namespace

void HalveBytes_C(uint8_t* dst, const uint8_t* src, size_t count) {
    for (size_t k = 0; k < count; ++k) dst[k] = src[2 * k];
}

void HalvePairs_C(uint8_t* dst, const uint8_t* src, size_t count) {
    const size_t pairs = count / 2;
    for (size_t i = 0; i < pairs; ++i) {
        dst[2 * i] = src[4 * i];
        dst[2 * i + 1] = src[4 * i + 1];
    }
    if (count % 2) dst[count - 1] = src[4 * pairs];
}

void HalveBytesGroups_C(uint8_t* dst, const uint8_t* src, size_t groups) {
    HalveBytes_C(dst, src, groups * kHalveGroup);
}

void HalvePairsGroups_C(uint8_t* dst, const uint8_t* src, size_t groups) {
    HalvePairs_C(dst, src, groups * kHalveGroup);
}

int halveBytesVariants(const HalveVariant** out) { return g_bytes.variants(out); }
int halvePairsVariants(const HalveVariant** out) { return g_pairs.variants(out); }
HalveGroupsFn halveBytesKernel() { return g_bytes.kernel(); }
HalveGroupsFn halvePairsKernel() { return g_pairs.kernel(); }
void setHalveBytesKernel(HalveGroupsFn fn) { g_bytes.set(fn); }
void setHalvePairsKernel(HalveGroupsFn fn) { g_pairs.set(fn); }

}  // namespace kvdsr::focalshift
