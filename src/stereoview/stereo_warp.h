// Maps of both cameras at one resolution and the per-frame warps built on
// them, shared by the stereo view and SPR engines.
#pragma once

#include <cstdint>

#include "common/alloc.h"
#include "kvDSR.h"
#include "remap/remap.h"

namespace kvdsr::stereoview {

// Maps and lookup tables of cameras 1 and 2 inside one grow-only workspace.
struct MapSet {
    GrowBuffer workspace;
    remap::RemapTables tables[3];  // indexed by camera 1, 2
    uint16_t srcWidth = 0, srcHeight = 0;
    uint16_t outWidth = 0, outHeight = 0;
    bool ready = false;  // false: a source below 2x2 or an empty output, nothing to warp
};

// Sizes the workspace for a srcWidth x srcHeight source warped to
// outWidth x outHeight, grows it and builds both cameras from block. A
// camera whose build fails gets empty tables (every pixel the border value),
// so that no stale or uninitialised offset is ever followed.
void buildMapSet(MapSet& set, const uint8_t* block, uint16_t srcWidth, uint16_t srcHeight, uint16_t outWidth,
                 uint16_t outHeight);
void releaseMapSet(MapSet& set);

// Warps one packed plane of srcWidth x srcHeight through camera's tables into
// a packed plane of outWidth x outHeight. No-op for an empty set.
void warpPlane(const MapSet& set, int camera, uint8_t* dst, const uint8_t* src);

// Warps the interleaved V,U plane of a 4:2:0 frame (row strides: the full
// frames' widths) through camera's half-resolution maps into dst. split and
// warped are scratch areas of at least 2 * (srcW/2)(srcH/2) and
// 2 * (outW/2)(outH/2) bytes (planar U, then V).
void warpInterleavedChroma(const MapSet& half, int camera, uint8_t* dst, uint32_t dstStride, const uint8_t* src,
                           uint32_t srcStride, uint8_t* split, uint8_t* warped);

// The 0xF01 pair: luma through the full maps, chroma split, warped through
// the half maps and re-interleaved after the luma plane of each output.
// scratch[0..3] hold at least 3 * max(source, output) pixels each.
void warpPair420SP(const MapSet& full, const MapSet& half, uint8_t* outSecond, uint8_t* outFirst,
                   const kvDSR_ImageDesc& imageSecond, const kvDSR_ImageDesc& imageFirst, uint8_t* const scratch[4]);

}  // namespace kvdsr::stereoview
