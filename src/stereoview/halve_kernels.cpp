// Half-width row kernels: references and run-time selection.
#include "stereoview/halve_kernels.h"

namespace kvdsr::focalshift {

namespace {

int fillBytesVariants(HalveVariant* v) {
    int n = 0;
    v[n++] = {"C", HalveBytesGroups_C};
#if defined(__x86_64__) || defined(__i386__)
    if (cpuHasSse41()) v[n++] = {"SSE4.1", HalveBytesGroups_SSE41};
#endif
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
    v[n++] = {"NEON", HalveBytesGroups_NEON};
#endif
    return n;
}

int fillPairsVariants(HalveVariant* v) {
    int n = 0;
    v[n++] = {"C", HalvePairsGroups_C};
#if defined(__x86_64__) || defined(__i386__)
    if (cpuHasSse41()) v[n++] = {"SSE4.1", HalvePairsGroups_SSE41};
#endif
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
    v[n++] = {"NEON", HalvePairsGroups_NEON};
#endif
    return n;
}

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
