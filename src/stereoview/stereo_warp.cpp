#include "stereoview/stereo_warp.h"

#include <cstddef>
#include <cstring>

#include "stereoview/plane_pack.h"

namespace kvdsr::stereoview {

void buildMapSet(MapSet& set, const uint8_t* block, uint16_t srcWidth, uint16_t srcHeight, uint16_t outWidth,
                 uint16_t outHeight) {
    set.ready = false;
    set.srcWidth = srcWidth;
    set.srcHeight = srcHeight;
    set.outWidth = outWidth;
    set.outHeight = outHeight;
    // The warp reads 2x2 neighbourhoods: a source below 2x2 is left unwarped.
    if (srcWidth < 2 || srcHeight < 2 || !outWidth || !outHeight) return;

    uint32_t workspaceBytes = 0, mapBytes = 0;
    if (remap::Remap_QuerySize(&workspaceBytes, &mapBytes, srcWidth, srcHeight, srcWidth, srcHeight, outWidth,
                               outHeight, 0, 1, 1) != 0)
        return;
    set.workspace.grow(workspaceBytes);
    remap::Remap_SetWorkspace(set.workspace.data());
    for (int camera = 1; camera <= 2; ++camera) {
        const uint32_t rc =
            remap::Remap_BuildCamera(nullptr, block, nullptr, srcWidth, srcHeight, camera, -1, 1, 1, 3);
        const remap::RemapTables t = remap::Remap_WorkspaceTables(set.workspace.data(), camera);
        if (rc != 0) {
            const std::size_t n = std::size_t(t.stride) * outHeight;
            std::memset(t.offset, 0, n * sizeof *t.offset);
            std::memset(t.columnWeight, 0, n * sizeof *t.columnWeight);
            std::memset(t.rowWeight, 0, n * sizeof *t.rowWeight);
        }
        set.tables[camera] = t;
    }
    set.ready = true;
}

void releaseMapSet(MapSet& set) {
    set.workspace.release();
    set.tables[1] = set.tables[2] = remap::RemapTables{};
    set.ready = false;
}

void warpPlane(const MapSet& set, int camera, uint8_t* dst, const uint8_t* src) {
    if (!set.ready) return;
    const remap::RemapTables& t = set.tables[camera];
    const uint16_t rect[4] = {0, 0, uint16_t(set.outWidth - 1), uint16_t(set.outHeight - 1)};
    remap::Remap_ApplyPlane(dst, src, t.offset, t.columnWeight, t.rowWeight, set.srcWidth, t.stride, rect);
}

void warpInterleavedChroma(const MapSet& half, int camera, uint8_t* dst, uint32_t dstStride, const uint8_t* src,
                           uint32_t srcStride, uint8_t* split, uint8_t* warped) {
    if (!half.ready) return;
    const std::size_t inPlane = std::size_t(half.srcWidth) * half.srcHeight;
    const std::size_t outPlane = std::size_t(half.outWidth) * half.outHeight;
    splitVU(src, srcStride, split, split + inPlane, half.srcWidth, half.srcHeight, true);
    warpPlane(half, camera, warped, split);
    warpPlane(half, camera, warped + outPlane, split + inPlane);
    interleaveVU(warped, warped + outPlane, dst, dstStride, half.outWidth, half.outHeight);
}

void warpPair420SP(const MapSet& full, const MapSet& half, uint8_t* outSecond, uint8_t* outFirst,
                   const kvDSR_ImageDesc& imageSecond, const kvDSR_ImageDesc& imageFirst, uint8_t* const scratch[4]) {
    warpPlane(full, 2, outSecond, imageSecond.plane[0]);
    warpPlane(full, 1, outFirst, imageFirst.plane[0]);
    const std::size_t srcLuma = std::size_t(full.srcWidth) * full.srcHeight;
    const std::size_t outLuma = std::size_t(full.outWidth) * full.outHeight;
    // Scratch planes sit after a luma-sized area, as the frames they mirror.
    warpInterleavedChroma(half, 2, outSecond + outLuma, full.outWidth, imageSecond.plane[1], full.srcWidth,
                          scratch[0] + srcLuma, scratch[2] + outLuma);
    warpInterleavedChroma(half, 1, outFirst + outLuma, full.outWidth, imageFirst.plane[1], full.srcWidth,
                          scratch[1] + srcLuma, scratch[3] + outLuma);
}

}  // namespace kvdsr::stereoview
