// The stereo view and SPR run paths as they were before the warps went
// straight into the caller's output, kept as references for tests and
// benchmarks: each plane warped whole through Remap_ApplyPlane (one OpenMP
// region per plane) into a packed view, 0xF01 chroma split into planes in
// scratch and interleaved afterwards, side-by-side frames packed from two
// packed views, the side-by-side 0xF01 split on a worker thread.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <thread>
#include <vector>

#include "kvDSR.h"
#include "remap/remap.h"
#include "stereoview/stereo_warp.h"

namespace kvdsr::test::reference {

using stereoview::MapSet;

inline bool worthATeam(uint32_t w, uint32_t h) { return std::size_t(w) * h >= (std::size_t(1) << 15); }

inline void splitVU(const uint8_t* vu, uint32_t vuStride, uint8_t* u, uint8_t* v, uint32_t halfWidth,
                    uint32_t halfHeight, bool useTeam) {
#pragma omp parallel for schedule(static) if (useTeam && worthATeam(halfWidth, halfHeight))
    for (uint32_t y = 0; y < halfHeight; ++y)
        for (uint32_t x = 0; x < halfWidth; ++x) {
            v[std::size_t(y) * halfWidth + x] = vu[std::size_t(y) * vuStride + 2 * x];
            u[std::size_t(y) * halfWidth + x] = vu[std::size_t(y) * vuStride + 2 * x + 1];
        }
}

inline void interleaveVU(const uint8_t* u, const uint8_t* v, uint8_t* vu, uint32_t vuStride, uint32_t halfWidth,
                         uint32_t halfHeight) {
#pragma omp parallel for schedule(static) if (worthATeam(halfWidth, halfHeight))
    for (uint32_t y = 0; y < halfHeight; ++y)
        for (uint32_t x = 0; x < halfWidth; ++x) {
            vu[std::size_t(y) * vuStride + 2 * x] = v[std::size_t(y) * halfWidth + x];
            vu[std::size_t(y) * vuStride + 2 * x + 1] = u[std::size_t(y) * halfWidth + x];
        }
}

inline void packSideBySide(uint8_t* dst, const uint8_t* left, const uint8_t* right, uint32_t rowBytes,
                           uint32_t rows) {
    for (uint32_t y = 0; y < rows; ++y) {
        std::memcpy(dst + std::size_t(y) * 2 * rowBytes, left + std::size_t(y) * rowBytes, rowBytes);
        std::memcpy(dst + std::size_t(y) * 2 * rowBytes + rowBytes, right + std::size_t(y) * rowBytes, rowBytes);
    }
}

inline void warpPlane(const MapSet& set, int camera, uint8_t* dst, const uint8_t* src) {
    if (!set.ready) return;
    const remap::RemapTables& t = set.tables[camera];
    const uint16_t rect[4] = {0, 0, uint16_t(set.outWidth - 1), uint16_t(set.outHeight - 1)};
    remap::Remap_ApplyPlane(dst, src, t.offset, t.columnWeight, t.rowWeight, set.srcWidth, t.stride, rect);
}

// Scratch of the engines: four buffers of 3 * max(source, output) pixels.
struct Scratch {
    std::vector<uint8_t> buffer[4];
    Scratch() = default;
    explicit Scratch(const MapSet& full) {
        const std::size_t n = 3 * std::max(std::size_t(full.srcWidth) * full.srcHeight,
                                           std::size_t(full.outWidth) * full.outHeight);
        for (auto& b : buffer) b.assign(n, 0);
    }
    uint8_t* operator[](int i) { return buffer[i].data(); }
};

inline void warpInterleavedChroma(const MapSet& half, int camera, uint8_t* dst, uint32_t dstStride,
                                  const uint8_t* src, uint32_t srcStride, uint8_t* split, uint8_t* warped) {
    if (!half.ready) return;
    const std::size_t inPlane = std::size_t(half.srcWidth) * half.srcHeight;
    const std::size_t outPlane = std::size_t(half.outWidth) * half.outHeight;
    splitVU(src, srcStride, split, split + inPlane, half.srcWidth, half.srcHeight, true);
    warpPlane(half, camera, warped, split);
    warpPlane(half, camera, warped + outPlane, split + inPlane);
    interleaveVU(warped, warped + outPlane, dst, dstStride, half.outWidth, half.outHeight);
}

// One packed view: luma, then U and V (0xF05) or the V,U pairs (0xF01).
inline void warpView(const MapSet& full, const MapSet& half, int camera, const kvDSR_ImageDesc& in, uint8_t* out,
                     uint8_t* split, uint8_t* warped) {
    const std::size_t srcLuma = std::size_t(full.srcWidth) * full.srcHeight;
    const std::size_t outLuma = std::size_t(full.outWidth) * full.outHeight;
    const std::size_t chroma = std::size_t(half.outWidth) * half.outHeight;
    warpPlane(full, camera, out, in.plane[0]);
    if (in.format == kvDSR_FMT_YUV420P) {
        warpPlane(half, camera, out + outLuma, in.plane[1]);
        warpPlane(half, camera, out + outLuma + chroma, in.plane[2]);
    } else if (in.format == kvDSR_FMT_YUV420SP) {
        warpInterleavedChroma(half, camera, out + outLuma, full.outWidth, in.plane[1], full.srcWidth,
                              split + srcLuma, warped + outLuma);
    }
}

// kvDSR_StereoView_Run and kvDSR_SPR_Run.
inline void run(const MapSet& full, const MapSet& half, uint8_t* outSecond, uint8_t* outFirst,
                const kvDSR_ImageDesc& imageSecond, const kvDSR_ImageDesc& imageFirst, Scratch& scratch) {
    warpView(full, half, 2, imageSecond, outSecond, scratch[0], scratch[2]);
    warpView(full, half, 1, imageFirst, outFirst, scratch[1], scratch[3]);
}

// kvDSR_StereoView_Run_SideBySide: camera 1 left, camera 2 right.
inline void runSideBySide(const MapSet& full, const MapSet& half, uint8_t* out, const kvDSR_ImageDesc& imageSecond,
                          const kvDSR_ImageDesc& imageFirst, Scratch& scratch) {
    const uint32_t width = full.outWidth, height = full.outHeight;
    const uint32_t hw = half.outWidth, hh = half.outHeight;
    const std::size_t luma = std::size_t(width) * height, chroma = std::size_t(hw) * hh;
    uint8_t* first = scratch[0];
    uint8_t* second = scratch[1];
    if (imageFirst.format == kvDSR_FMT_YUV420SP) {
        uint8_t* splitFirst = scratch[2] + luma;
        uint8_t* splitSecond = scratch[3] + luma;
        auto split = [&] {
            splitVU(imageFirst.plane[1], width, splitFirst, splitFirst + chroma, hw, hh, false);
            splitVU(imageSecond.plane[1], width, splitSecond, splitSecond + chroma, hw, hh, false);
        };
        std::thread worker;
        if (luma >= (std::size_t(1) << 15)) {
            try {
                worker = std::thread(split);
            } catch (const std::system_error&) {
            }
        }
        if (!worker.joinable()) split();
        warpPlane(full, 1, first, imageFirst.plane[0]);
        warpPlane(full, 2, second, imageSecond.plane[0]);
        if (worker.joinable()) worker.join();
        warpPlane(half, 1, first + luma, splitFirst);
        warpPlane(half, 1, first + luma + chroma, splitFirst + chroma);
        warpPlane(half, 2, second + luma, splitSecond);
        warpPlane(half, 2, second + luma + chroma, splitSecond + chroma);
        packSideBySide(out, first, second, width, height);
        interleaveVU(first + luma, first + luma + chroma, out + 2 * luma, 2 * width, hw, hh);
        interleaveVU(second + luma, second + luma + chroma, out + 2 * luma + width, 2 * width, hw, hh);
        return;
    }
    warpView(full, half, 1, imageFirst, first, nullptr, nullptr);
    warpView(full, half, 2, imageSecond, second, nullptr, nullptr);
    packSideBySide(out, first, second, width, height);
    if (imageFirst.format == kvDSR_FMT_YUV420P) {
        packSideBySide(out + 2 * luma, first + luma, second + luma, hw, hh);
        packSideBySide(out + 2 * luma + 2 * chroma, first + luma + chroma, second + luma + chroma, hw, hh);
    }
}

}  // namespace kvdsr::test::reference
