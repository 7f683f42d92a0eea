// Maps of both cameras at one resolution and the per-frame warps built on
// them, shared by the stereo view and SPR engines. The warps write straight
// into the caller's output: no copy of a frame is kept between calls.
#pragma once

#include <cstdint>

#include "calibration/camera_model.h"
#include "common/alloc.h"
#include "kvDSR.h"
#include "remap/remap.h"

namespace kvdsr::stereoview {

// Lookup tables of cameras 1 and 2 at one resolution, in one grow-only
// buffer (8 bytes per output pixel and camera; no coordinate map is kept).
struct MapSet {
    GrowBuffer storage;
    remap::RemapTables tables[3];  // indexed by camera 1, 2
    uint16_t srcWidth = 0, srcHeight = 0;
    uint16_t outWidth = 0, outHeight = 0;
    bool ready = false;  // false: a source below 2x2 or an empty output, nothing to warp
};

// Grows the storage for a srcWidth x srcHeight source warped to
// outWidth x outHeight and builds the tables of both cameras (cameras[0] is
// camera 1). A camera whose build fails gets empty tables (every pixel the
// border value), so that no stale or uninitialised offset is ever followed.
void buildMapSet(MapSet& set, const calib::CameraModel cameras[2], uint16_t srcWidth, uint16_t srcHeight,
                 uint16_t outWidth, uint16_t outHeight);
// The same from camera sections 1 and 2 of a parameter block.
void buildMapSet(MapSet& set, const uint8_t* block, uint16_t srcWidth, uint16_t srcHeight, uint16_t outWidth,
                 uint16_t outHeight);
void releaseMapSet(MapSet& set);

// Where one view's planes go: a frame of viewsPerRow views of the maps'
// output size side by side (1 for a plain output, 2 for side by side), this
// view at position index. Row strides are the whole frame's.
struct ViewTarget {
    uint8_t* luma = nullptr;
    uint8_t* chroma[2] = {};  // planar U, V (0xF05), or the V,U pair plane in [0] (0xF01)
    uint32_t lumaStride = 0, chromaStride = 0;
};
ViewTarget viewTarget(uint8_t* frame, const MapSet& full, const MapSet& half, uint32_t format,
                      uint32_t viewsPerRow, uint32_t index);

// The plane warps of one call, both views, as one list of row items shared
// out over the frame team: every row of every plane is an item (or a few
// short rows), claimed in any order, with no wait between planes.
class FrameWarp {
public:
    // Adds camera's planes of `in`, laid out by its format: 0xF02 luma only
    // (the one plane the engines warp), 0xF05 luma, U and V, 0xF01 luma and
    // the V,U pairs (rows as wide as the luma's, warped as pairs: no split).
    // Luma goes through full, chroma through half; a set that is not ready
    // adds nothing.
    void addView(const MapSet& full, const MapSet& half, int camera, const kvDSR_ImageDesc& in,
                 const ViewTarget& out);
    // One call of the frame team; returns when every row is written.
    void run() const;

private:
    enum class Layout { Planar, Pairs };
    struct Plane {
        const remap::RemapTables* tables = nullptr;
        const uint8_t* src = nullptr;
        uint8_t* dst = nullptr;
        uint32_t planeWidth = 0;  // source plane row in table entries
        uint32_t srcStride = 0;   // source row in bytes
        uint32_t dstStride = 0;
        uint32_t width = 0, rows = 0;  // output entries a row, rows
        uint32_t rowsPerItem = 1, firstItem = 0;
        Layout layout = Layout::Planar;
    };
    static constexpr int kMaxPlanes = 6;

    void add(const MapSet& set, int camera, const uint8_t* src, uint32_t srcStride, uint8_t* dst,
             uint32_t dstStride, Layout layout);
    void runItem(uint32_t item) const;

    Plane planes_[kMaxPlanes];
    int count_ = 0;
    uint32_t items_ = 0;
    uint64_t bytes_ = 0;
};

}  // namespace kvdsr::stereoview
