// Per-camera set-up: model from the camera, tables built from only the map
// rows they read, and the one-call build and warp.
#include <algorithm>
#include <cmath>
#include <memory>

#include "common/alloc.h"
#include "common/frame_team.h"
#include "remap/remap.h"
#include "remap/remap_internal.h"

namespace kvdsr::remap {

namespace {

// c' = -0.5 + (to/from)(c + 0.5): pixel centres at integers, corners at -0.5.
inline double rescaleCoordinate(double c, double from, double to) { return -0.5 + (to / from) * (c + 0.5); }

// Blocks of table rows (kLutBlockRows each, the last one shorter).
int blockCount(int rows) { return (rows + kLutBlockRows - 1) / kLutBlockRows; }
int blockRows(int block, int rows) { return std::min(kLutBlockRows, rows - block * kLutBlockRows); }

// Blocks a thread takes at a time: enough that the map rows kept from one
// block to the next are rarely built twice.
int blocksPerTake(int blocks, int threads) { return std::max(2, blocks / (8 * threads)); }

// Every table row from a whole map, built first (the fallback where the rows
// a table row reads cannot be bounded, e.g. a homography whose w crosses 0).
// `threads` is the team the build runs on (1: the calling thread alone).
void buildFromWholeMap(const MapTerms& terms, const DistortionTable& table, const TableRowWriter& writer,
                       int outRows, int threads) {
    const int w = terms.width, h = terms.height;
    auto map = allocArray<double>(size_t(2) * w * h);
    auto rows = allocArray<const double*>(h);
    auto radius = allocArray<double>(size_t(threads) * w);
    const MapRowFn kernel = mapRowKernel();
    const int blocks = blockCount(outRows);
    // Map rows, then blocks of table rows, which read any of them.
    runStages(Stages{uint32_t(h), uint32_t(blocks)}, threads > 1, [&](int stage, uint32_t item, int slot) {
        const int i = int(item);
        if (stage == 0) {
            double* out = map.get() + size_t(i) * w * 2;
            mapRow(terms, table, kernel, i, radius.get() + size_t(slot) * w, out);
            rows[i] = out;
        } else {
            writer.write(i * kLutBlockRows, blockRows(i, outRows), rows.get());
        }
    });
}

// Every block of table rows from a ring of `ringRows` map rows per thread,
// slot r % ringRows holding map row r: each block first makes sure that the
// rows it reads, lo[b]..hi[b], are there (at most ringRows, so they never
// collide).
void buildThroughRing(const MapTerms& terms, const DistortionTable& table, const TableRowWriter& writer,
                      const int* lo, const int* hi, int outRows, int ringRows, int threads) {
    const int w = terms.width, h = terms.height;
    const size_t rowValues = size_t(2) * w;
    auto ring = allocArray<double>(size_t(threads) * ringRows * rowValues);
    auto held = allocArray<int>(size_t(threads) * ringRows);
    std::fill(held.get(), held.get() + size_t(threads) * ringRows, -1);
    auto rows = allocArray<const double*>(size_t(threads) * h);
    std::fill(rows.get(), rows.get() + size_t(threads) * h, nullptr);  // a row never built is never read
    auto radius = allocArray<double>(size_t(threads) * w);
    const MapRowFn kernel = mapRowKernel();
    const int blocks = blockCount(outRows);
    const int take = blocksPerTake(blocks, threads);
    // An item is `take` consecutive blocks, so that a thread's ring keeps
    // the rows the next block shares with the last.
    const int items = (blocks + take - 1) / take;
    runItems(uint32_t(items), threads > 1, [&](uint32_t item, int slot) {
        const size_t t = size_t(slot);
        double* myRing = ring.get() + t * ringRows * rowValues;
        int* myHeld = held.get() + t * ringRows;
        const double** myRows = rows.get() + t * h;
        double* myRadius = radius.get() + t * w;
        const int end = std::min(blocks, (int(item) + 1) * take);
        for (int b = int(item) * take; b < end; ++b) {
            for (int r = lo[b]; r <= hi[b]; ++r) {
                const int ringSlot = r % ringRows;
                if (myHeld[ringSlot] == r) continue;
                double* out = myRing + size_t(ringSlot) * rowValues;
                mapRow(terms, table, kernel, r, myRadius, out);
                myHeld[ringSlot] = r;
                myRows[r] = out;
            }
            writer.write(b * kLutBlockRows, blockRows(b, outRows), myRows);
        }
    });
}

}  // namespace

uint64_t Remap_TableBytes(const RemapLayout& layout) { return 8 * layout.entries(); }

RemapTables Remap_TablesIn(uint8_t* storage, const RemapLayout& layout) {
    RemapTables t;
    if (!storage) return t;
    const uint64_t entries = layout.entries();
    t.offset = reinterpret_cast<uint32_t*>(storage);
    t.columnWeight = reinterpret_cast<uint16_t*>(storage + 4 * entries);
    t.rowWeight = reinterpret_cast<uint16_t*>(storage + 6 * entries);
    t.stride = layout.stride();
    return t;
}

uint32_t Remap_QuerySize(uint32_t* outWorkspaceBytes, uint32_t* outMapBytes, uint16_t srcWidth1,
                         uint16_t srcHeight1, uint16_t srcWidth2, uint16_t srcHeight2, uint16_t outWidth,
                         uint16_t outHeight, uint32_t extraColumns, uint32_t mapCount, uint32_t withMapStore) {
    const uint64_t area1 = uint64_t(srcWidth1) * srcHeight1, area2 = uint64_t(srcWidth2) * srcHeight2;
    const uint64_t out = uint64_t(outWidth) * outHeight;
    const uint64_t entries = uint64_t(outHeight) * (uint64_t(outWidth) + extraColumns);
    uint64_t workspace = withMapStore == 1
                             ? 16 * (area1 + area2) + 33 * out + 8 * entries
                             : 16 * (area1 + area2) + 8 * uint64_t(outHeight) * (2 * uint64_t(outWidth) + extraColumns);
    // Both camera blocks (map, then tables) must fit even with extra
    // columns, which the plain formula under-counts.
    const uint64_t blocks = 16 * (area1 + area2) + 2 * 8 * entries;
    if (out != 0) workspace = std::max(workspace, blocks);
    const uint64_t mapBytes = 16 * uint64_t(mapCount) * (area1 + area2);
    // Sizes past 32 bits become a request the allocator refuses.
    const uint32_t ws = uint32_t(std::min<uint64_t>(workspace, 0xFFFFFFFFu));
    const uint32_t mb = uint32_t(std::min<uint64_t>(mapBytes, 0xFFFFFFFFu));
    if (outWorkspaceBytes) *outWorkspaceBytes = ws;
    if (outMapBytes) *outMapBytes = mb;
    return ws != 0 && mb != 0 ? 0 : kZeroSize;
}

RemapModel Remap_BuildModel(const calib::CameraModel& camera, const RemapLayout& layout) {
    RemapModel m;
    m.srcWidth = layout.srcWidth;
    m.srcHeight = layout.srcHeight;
    m.rect[0] = 0;
    m.rect[1] = 0;
    m.rect[2] = uint16_t(layout.outWidth - 1);
    m.rect[3] = uint16_t(layout.outHeight - 1);
    m.mapValues[0] = camera.mapValues[0];
    m.mapValues[1] = camera.mapValues[1];
    m.gridWidth = camera.modelWidth;
    m.gridHeight = camera.modelHeight;
    m.calibWidth = camera.calibWidth;
    m.calibHeight = camera.calibHeight;

    const double diagonal = std::sqrt(double(m.calibWidth) * m.calibWidth + double(m.calibHeight) * m.calibHeight);
    m.pixelPitch = double(camera.pixelPitch) * 1000.0 * diagonal / diagonal;

    // Both fields zero: centre of the calibration image. Otherwise both are
    // taken as given, in the map grid. The two defaults come from different
    // grids on purpose.
    if (camera.principalX == 0 && camera.principalY == 0) {
        m.cx = rescaleCoordinate(-0.5 + 0.5 * m.calibWidth, m.calibWidth, layout.srcWidth);
        m.cy = rescaleCoordinate(-0.5 + 0.5 * m.calibHeight, m.calibHeight, layout.srcHeight);
    } else {
        m.cx = rescaleCoordinate(camera.principalX / 16.0, m.gridWidth, layout.srcWidth);
        m.cy = rescaleCoordinate(camera.principalY / 16.0, m.gridHeight, layout.srcHeight);
    }
    for (int i = 0; i < 9; ++i) m.homography[i] = camera.homography[i];
    return m;
}

uint32_t Remap_BuildTables(const RemapModel& model, const DistortionTable& table, const RemapLayout& layout,
                           const RemapTables& tables, double* fillScale) {
    if (!tables.offset || !tables.columnWeight || !tables.rowWeight) return kNullBuffer;
    if (layout.outWidth == 0 || layout.outHeight == 0) return kZeroSize;
    const int outRows = layout.outHeight;
    const bool parallel = uint64_t(layout.outWidth) * uint64_t(outRows) >= kParallelMinPixels;

    // The fitted forward map: a pixel beyond the table anywhere in the grid
    // makes the whole map 0xD114, so that is known before any row is built.
    MapTerms terms;
    double scale = 1.0;
    uint32_t result = mapSetUp(model, table, 0, 1, &scale, terms);
    if (result == kMapOk) {
        if (fillScale) *fillScale = scale;
        if (mapHasPointBeyond(terms, table)) result = kMapBeyondTable;
    }
    const bool haveMap = result == kMapOk;
    const TableRowWriter writer(tables, layout, model.homography, haveMap ? terms.width : 0,
                                haveMap ? terms.height : 0, 0, layout.outWidth - 1);
    if (writer.mapWidth == 0) {
        // No map (failed, or an empty grid): border entries, which a later
        // warp may follow safely.
        const int blocks = blockCount(outRows);
        runItems(uint32_t(blocks), parallel,
                 [&](uint32_t b, int) { writer.write(int(b) * kLutBlockRows, blockRows(int(b), outRows), nullptr); });
        return result == kMapOk ? 0 : result;
    }

    // Map rows each block of table rows reads.
    const int blocks = blockCount(outRows);
    auto bounds = allocArray<int>(size_t(2) * blocks);
    int* lo = bounds.get();
    int* hi = lo + blocks;
    bool bounded = true;
    int span = 1;
    for (int b = 0; b < blocks && bounded; ++b) {
        lo[b] = terms.height;
        hi[b] = -1;
        for (int k = 0; k < blockRows(b, outRows) && bounded; ++k) {
            int rowLo, rowHi;
            bounded = writer.rowsRead(b * kLutBlockRows + k, &rowLo, &rowHi);
            if (rowLo > rowHi) continue;
            lo[b] = std::min(lo[b], rowLo);
            hi[b] = std::max(hi[b], rowHi);
        }
        span = std::max(span, hi[b] - lo[b] + 1);
    }
    const int threads = parallel ? teamSlots() : 1;
    if (bounded && int64_t(span) * threads < terms.height)
        buildThroughRing(terms, table, writer, lo, hi, outRows, span, threads);
    else
        buildFromWholeMap(terms, table, writer, outRows, threads);
    return 0;
}

uint32_t Remap_BuildCamera(const RemapTables& tables, const calib::CameraModel& camera, const RemapLayout& layout,
                           double* fillScale) {
    return Remap_BuildTables(Remap_BuildModel(camera, layout), DistortionTable_FromModel(camera, 0), layout, tables,
                             fillScale);
}

uint32_t Remap_BuildAndApply(uint8_t* dst, const uint8_t* src, const calib::CameraModel& camera,
                             const RemapLayout& layout, uint32_t planes) {
    auto storage = allocArray<uint8_t>(size_t(Remap_TableBytes(layout)));
    const RemapTables tables = Remap_TablesIn(storage.get(), layout);
    const uint32_t result = Remap_BuildCamera(tables, camera, layout);
    if (result != 0) return result;
    if (planes >= 3 || !dst || !src || layout.srcWidth < 2 || layout.srcHeight < 2) return 0;
    const uint16_t rect[4] = {uint16_t(layout.columnShift), 0, uint16_t(layout.columnShift + layout.outWidth - 1),
                              uint16_t(layout.outHeight - 1)};
    const size_t srcPlane = size_t(layout.srcWidth) * layout.srcHeight, dstPlane = size_t(layout.entries());
    const uint32_t firstPlane = planes == 2 ? 1 : 0, lastPlane = planes == 0 ? 0 : 2;
    for (uint32_t k = firstPlane; k <= lastPlane; ++k)
        Remap_ApplyPlane(dst + k * dstPlane, src + k * srcPlane, tables.offset, tables.columnWeight,
                         tables.rowWeight, layout.srcWidth, tables.stride, rect);
    return 0;
}

}  // namespace kvdsr::remap
