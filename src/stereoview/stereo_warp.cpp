#include "stereoview/stereo_warp.h"

#include <algorithm>
#include <cstddef>

#include "common/frame_team.h"
#include "remap/warp_kernels.h"

namespace kvdsr::stereoview {

namespace {
// Output bytes an item warps at least: short rows go a few to an item, so
// that claiming one costs little beside its work.
constexpr uint32_t kItemBytes = 4096;
// Items per thread of the team and plane, at most: enough to even out the
// threads' shares, few enough that each thread warps long runs of adjacent
// rows. Neighbouring rows' taps share source lines; rows dealt out a few at
// a time make every core fetch nearly every source line (at 2 threads the
// frame took 1.4 times as long with 2-row items).
constexpr uint32_t kItemsPerThread = 8;
}  // namespace

void buildMapSet(MapSet& set, const calib::CameraModel cameras[2], uint16_t srcWidth, uint16_t srcHeight,
                 uint16_t outWidth, uint16_t outHeight) {
    set.ready = false;
    set.srcWidth = srcWidth;
    set.srcHeight = srcHeight;
    set.outWidth = outWidth;
    set.outHeight = outHeight;
    // The warp reads 2x2 neighbourhoods: a source below 2x2 is left unwarped.
    if (srcWidth < 2 || srcHeight < 2 || !outWidth || !outHeight) return;

    const remap::RemapLayout layout{srcWidth, srcHeight, outWidth, outHeight};
    const uint64_t bytes = remap::Remap_TableBytes(layout);
    set.storage.grow(std::size_t(2 * bytes));
    for (int camera = 1; camera <= 2; ++camera) {
        const remap::RemapTables t = remap::Remap_TablesIn(set.storage.data() + (camera - 1) * bytes, layout);
        remap::Remap_BuildCamera(t, cameras[camera - 1], layout);  // a failed build leaves border entries
        set.tables[camera] = t;
    }
    set.ready = true;
}

void buildMapSet(MapSet& set, const uint8_t* block, uint16_t srcWidth, uint16_t srcHeight, uint16_t outWidth,
                 uint16_t outHeight) {
    const calib::CameraModel cameras[2] = {calib::readCamera(block, 1), calib::readCamera(block, 2)};
    buildMapSet(set, cameras, srcWidth, srcHeight, outWidth, outHeight);
}

void releaseMapSet(MapSet& set) {
    set.storage.release();
    set.tables[1] = set.tables[2] = remap::RemapTables{};
    set.ready = false;
}

ViewTarget viewTarget(uint8_t* frame, const MapSet& full, const MapSet& half, uint32_t format,
                      uint32_t viewsPerRow, uint32_t index) {
    const std::size_t lumaRow = full.outWidth, chromaRow = half.outWidth;
    ViewTarget t;
    t.luma = frame + index * lumaRow;
    t.lumaStride = uint32_t(viewsPerRow * lumaRow);
    uint8_t* chroma = frame + viewsPerRow * lumaRow * full.outHeight;
    if (format == kvDSR_FMT_YUV420SP) {
        t.chroma[0] = chroma + index * lumaRow;  // pairs: rows as wide as the luma's
        t.chromaStride = t.lumaStride;
    } else {
        t.chroma[0] = chroma + index * chromaRow;
        t.chroma[1] = chroma + viewsPerRow * chromaRow * half.outHeight + index * chromaRow;
        t.chromaStride = uint32_t(viewsPerRow * chromaRow);
    }
    return t;
}

void FrameWarp::addView(const MapSet& full, const MapSet& half, int camera, const kvDSR_ImageDesc& in,
                        const ViewTarget& out) {
    add(full, camera, in.plane[0], full.srcWidth, out.luma, out.lumaStride, Layout::Planar);
    if (in.format == kvDSR_FMT_YUV420P) {
        add(half, camera, in.plane[1], half.srcWidth, out.chroma[0], out.chromaStride, Layout::Planar);
        add(half, camera, in.plane[2], half.srcWidth, out.chroma[1], out.chromaStride, Layout::Planar);
    } else if (in.format == kvDSR_FMT_YUV420SP) {
        add(half, camera, in.plane[1], full.srcWidth, out.chroma[0], out.chromaStride, Layout::Pairs);
    }
}

void FrameWarp::add(const MapSet& set, int camera, const uint8_t* src, uint32_t srcStride, uint8_t* dst,
                    uint32_t dstStride, Layout layout) {
    if (!set.ready || count_ == kMaxPlanes) return;
    Plane& p = planes_[count_++];
    p.tables = &set.tables[camera];
    p.src = src;
    p.dst = dst;
    p.planeWidth = set.srcWidth;
    p.srcStride = srcStride;
    p.dstStride = dstStride;
    p.width = set.outWidth;
    p.rows = set.outHeight;
    p.layout = layout;
    const uint32_t rowBytes = p.width * (layout == Layout::Pairs ? 2 : 1);
    const uint32_t shareRows = p.rows / (uint32_t(teamSlots()) * kItemsPerThread);
    p.rowsPerItem = std::max({1u, kItemBytes / rowBytes, shareRows});
    p.firstItem = items_;
    items_ += (p.rows + p.rowsPerItem - 1) / p.rowsPerItem;
    bytes_ += uint64_t(rowBytes) * p.rows;
}

void FrameWarp::runItem(uint32_t item) const {
    int i = 0;
    while (i + 1 < count_ && item >= planes_[i + 1].firstItem) ++i;
    const Plane& p = planes_[i];
    const remap::RemapTables& t = *p.tables;
    const uint32_t first = (item - p.firstItem) * p.rowsPerItem;
    const uint32_t last = std::min(p.rows, first + p.rowsPerItem);
    for (uint32_t y = first; y < last; ++y) {
        const std::size_t at = std::size_t(y) * t.stride;
        uint8_t* dst = p.dst + std::size_t(y) * p.dstStride;
        if (p.layout == Layout::Pairs)
            remap::warpPairRow(dst, p.src, t.offset + at, t.columnWeight + at, t.rowWeight + at, p.planeWidth,
                               p.srcStride, p.width);
        else
            remap::warpRow(dst, p.src, t.offset + at, t.columnWeight + at, t.rowWeight + at, p.srcStride, p.width);
    }
}

void FrameWarp::run() const {
    runItems(items_, bytes_ >= kTeamMinPixels, [this](uint32_t item, int) { runItem(item); });
}

}  // namespace kvdsr::stereoview
