// Bilinear warp of one 8-bit plane through a fixed-point lookup table.
#include <atomic>
#include <cstddef>

#include "remap/remap.h"
#include "remap/kernel_dispatch.h"
#include "remap/remap_internal.h"
#include "remap/warp_kernels.h"

namespace kvdsr::remap {

namespace {

inline uint32_t loadByte(const uint8_t* src, uint32_t index) { return src[index]; }

// Wrapping 32-bit arithmetic, like the vector lanes, so that the reference
// stays defined (and equal to them) even for weights beyond 1024.
inline uint8_t warpPixel(const uint8_t* src, uint32_t o, uint32_t wc, uint32_t wr, uint32_t stride) {
    const uint32_t p00 = loadByte(src, o), p01 = loadByte(src, o + 1);
    const uint32_t p10 = loadByte(src, o + stride), p11 = loadByte(src, o + stride + 1);
    const uint32_t top = p01 * 1024u + (p00 - p01) * wc;
    const uint32_t bottom = p11 * 1024u + (p10 - p11) * wc;
    const int32_t v = static_cast<int32_t>(bottom * 1024u + (top - bottom) * wr + 524288u) >> 20;
    return static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
}

struct VariantEntry {
    WarpVariant variant;
    bool (*supported)();
};

bool always() { return true; }

// Ordered worst to best; the automatic choice is the last supported one.
constexpr VariantEntry kAllVariants[] = {
    {{"C", WarpGroups_C}, always},
#if defined(__x86_64__) || defined(__i386__)
    {{"SSE4.1", WarpGroups_SSE41}, cpuHasSse41},
    {{"AVX2-gather", WarpGroups_AVX2Gather}, cpuHasAvx2},
    {{"AVX2", WarpGroups_AVX2}, cpuHasAvx2},
#endif
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
    {{"NEON", WarpGroups_NEON}, always},
#endif
};
constexpr int kVariantCount = sizeof(kAllVariants) / sizeof(kAllVariants[0]);

// Constant-initialised; filled on first use, from the one calling thread.
WarpVariant g_supported[kVariantCount] = {};
std::atomic<int> g_supportedCount{0};
std::atomic<WarpGroupsFn> g_kernel{nullptr};

int detectVariants() {
    int n = g_supportedCount.load(std::memory_order_acquire);
    if (n) return n;
    for (const VariantEntry& e : kAllVariants)
        if (e.supported()) g_supported[n++] = e.variant;
    g_supportedCount.store(n, std::memory_order_release);
    return n;
}

}  // namespace

void WarpRow_C(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
               const uint16_t* rowWeight, uint32_t srcStride, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) dst[i] = warpPixel(src, offset[i], columnWeight[i], rowWeight[i], srcStride);
}

void WarpGroups_C(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                  const uint16_t* rowWeight, uint32_t srcStride, uint32_t groups) {
    WarpRow_C(dst, src, offset, columnWeight, rowWeight, srcStride, groups * 8);
}

int warpVariants(const WarpVariant** out) {
    const int n = detectVariants();
    if (out) *out = g_supported;
    return n;
}

WarpGroupsFn warpKernel() {
    WarpGroupsFn fn = g_kernel.load(std::memory_order_acquire);
    if (!fn) {
        const int n = detectVariants();
        fn = g_supported[n - 1].fn;
        g_kernel.store(fn, std::memory_order_release);
    }
    return fn;
}

void setWarpKernel(WarpGroupsFn fn) { g_kernel.store(fn, std::memory_order_release); }

void Remap_ApplyPlane(uint8_t* dst, const uint8_t* src, const uint32_t* offsetTable,
                      const uint16_t* columnWeightTable, const uint16_t* rowWeightTable, uint32_t srcStride,
                      uint32_t dstStride, const uint16_t rect[4]) {
    if (!dst || !src || !offsetTable || !columnWeightTable || !rowWeightTable || !rect) return;
    const int first = rect[0], top = rect[1], last = rect[2], bottom = rect[3];
    if (first > last || top > bottom) return;
    const uint32_t count = uint32_t(last - first + 1);
    const uint32_t groups = count / 8, vectorCount = groups * 8;
    const WarpGroupsFn kernel = warpKernel();

    const bool parallel = uint64_t(count) * uint64_t(bottom - top + 1) >= kParallelMinPixels;
#pragma omp parallel for schedule(dynamic, 1) if (parallel)
    for (int y = top; y <= bottom; ++y) {
        const std::size_t base = std::size_t(y) * dstStride + std::size_t(first);
        if (groups)
            kernel(dst + base, src, offsetTable + base, columnWeightTable + base, rowWeightTable + base, srcStride,
                   groups);
        WarpRow_C(dst + base + vectorCount, src, offsetTable + base + vectorCount,
                  columnWeightTable + base + vectorCount, rowWeightTable + base + vectorCount, srcStride,
                  count - vectorCount);
    }
}

}  // namespace kvdsr::remap
