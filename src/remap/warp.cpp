// Bilinear warp of one 8-bit plane through a fixed-point lookup table.
#include <cstddef>

#include "common/frame_team.h"
#include "remap/remap.h"
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

int fillWarpVariants(WarpVariant* v) {
    int n = 0;
    v[n++] = {"C", WarpGroups_C};
#if defined(__x86_64__) || defined(__i386__)
    if (cpuHasSse41()) v[n++] = {"SSE4.1", WarpGroups_SSE41};
    if (cpuHasAvx2()) v[n++] = {"AVX2-gather", WarpGroups_AVX2Gather};
    if (cpuHasAvx2()) v[n++] = {"AVX2", WarpGroups_AVX2};
#endif
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
    v[n++] = {"NEON", WarpGroups_NEON};
#endif
    return n;
}

KernelDispatch<WarpGroupsFn, 5> g_warp(fillWarpVariants);

int fillWarpPairVariants(WarpPairVariant* v) {
    int n = 0;
    v[n++] = {"C", WarpPairGroups_C};
#if defined(__x86_64__) || defined(__i386__)
    if (cpuHasSse41()) v[n++] = {"SSE4.1", WarpPairGroups_SSE41};
    if (cpuHasAvx2()) v[n++] = {"AVX2", WarpPairGroups_AVX2};
#endif
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
    v[n++] = {"NEON", WarpPairGroups_NEON};
#endif
    return n;
}

KernelDispatch<WarpPairGroupsFn, 4> g_warpPair(fillWarpPairVariants);

// Both bytes of the pair entries whose taps start at byte top (left pair
// at top, right pair at right) and the same two a row below.
inline void warpPair(uint8_t* dst, const uint8_t* src, std::size_t top, std::size_t right, std::size_t down,
                     uint32_t wc, uint32_t wr) {
    for (int c = 0; c < 2; ++c) {
        const uint32_t p00 = src[top + c], p01 = src[right + c];
        const uint32_t p10 = src[top + down + c], p11 = src[right + down + c];
        const uint32_t t = p01 * 1024u + (p00 - p01) * wc;
        const uint32_t b = p11 * 1024u + (p10 - p11) * wc;
        const int32_t v = static_cast<int32_t>(b * 1024u + (t - b) * wr + 524288u) >> 20;
        dst[c] = static_cast<uint8_t>(v < 0 ? 0 : v > 255 ? 255 : v);
    }
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

int warpVariants(const WarpVariant** out) { return g_warp.variants(out); }
WarpGroupsFn warpKernel() { return g_warp.kernel(); }
void setWarpKernel(WarpGroupsFn fn) { g_warp.set(fn); }

void WarpPairRow_C(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                   const uint16_t* rowWeight, uint32_t planeWidth, uint32_t count) {
    const std::size_t down = 2 * std::size_t(planeWidth);
    for (uint32_t i = 0; i < count; ++i) {
        const std::size_t top = 2 * std::size_t(offset[i]);
        warpPair(dst + 2 * i, src, top, top + 2, down, columnWeight[i], rowWeight[i]);
    }
}

void WarpPairGroups_C(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                      const uint16_t* rowWeight, uint32_t planeWidth, uint32_t groups) {
    WarpPairRow_C(dst, src, offset, columnWeight, rowWeight, planeWidth, groups * 8);
}

// The right-hand taps of an entry at the end of a plane row are the first
// of the next row, as they would be in a planar copy.
void WarpPairRowPadded_C(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                         const uint16_t* rowWeight, uint32_t planeWidth, uint32_t pairStride, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t o = offset[i], row = o / planeWidth, column = o - row * planeWidth;
        const std::size_t top = std::size_t(row) * pairStride + 2 * std::size_t(column);
        const std::size_t right = column + 1 < planeWidth ? top + 2 : std::size_t(row + 1) * pairStride;
        warpPair(dst + 2 * i, src, top, right, pairStride, columnWeight[i], rowWeight[i]);
    }
}

int warpPairVariants(const WarpPairVariant** out) { return g_warpPair.variants(out); }
WarpPairGroupsFn warpPairKernel() { return g_warpPair.kernel(); }
void setWarpPairKernel(WarpPairGroupsFn fn) { g_warpPair.set(fn); }

void warpRow(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
             const uint16_t* rowWeight, uint32_t srcStride, uint32_t count) {
    const uint32_t groups = count / 8, done = groups * 8;
    if (groups) warpKernel()(dst, src, offset, columnWeight, rowWeight, srcStride, groups);
    WarpRow_C(dst + done, src, offset + done, columnWeight + done, rowWeight + done, srcStride, count - done);
}

void warpPairRow(uint8_t* dst, const uint8_t* src, const uint32_t* offset, const uint16_t* columnWeight,
                 const uint16_t* rowWeight, uint32_t planeWidth, uint32_t pairStride, uint32_t count) {
    if (pairStride != 2 * planeWidth) {
        WarpPairRowPadded_C(dst, src, offset, columnWeight, rowWeight, planeWidth, pairStride, count);
        return;
    }
    const uint32_t groups = count / 8, done = groups * 8;
    if (groups) warpPairKernel()(dst, src, offset, columnWeight, rowWeight, planeWidth, groups);
    WarpPairRow_C(dst + 2 * done, src, offset + done, columnWeight + done, rowWeight + done, planeWidth,
                  count - done);
}

void Remap_ApplyPlane(uint8_t* dst, const uint8_t* src, const uint32_t* offsetTable,
                      const uint16_t* columnWeightTable, const uint16_t* rowWeightTable, uint32_t srcStride,
                      uint32_t dstStride, const uint16_t rect[4]) {
    if (!dst || !src || !offsetTable || !columnWeightTable || !rowWeightTable || !rect) return;
    const int first = rect[0], top = rect[1], last = rect[2], bottom = rect[3];
    if (first > last || top > bottom) return;
    const uint32_t count = uint32_t(last - first + 1);

    const bool parallel = uint64_t(count) * uint64_t(bottom - top + 1) >= kParallelMinPixels;
    runItems(uint32_t(bottom - top + 1), parallel, [&](uint32_t row, int) {
        const std::size_t base = std::size_t(top + int(row)) * dstStride + std::size_t(first);
        warpRow(dst + base, src, offsetTable + base, columnWeightTable + base, rowWeightTable + base, srcStride,
                count);
    });
}

}  // namespace kvdsr::remap
