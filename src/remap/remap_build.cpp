// Per-camera set-up and warp: model from the calibration section, map,
// lookup table and planes.
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "calibration/calib_block.h"
#include "common/alloc.h"
#include "remap/remap.h"
#include "remap/remap_internal.h"

namespace kvdsr::remap {

namespace {

// c' = -0.5 + (to/from)(c + 0.5): pixel centres at integers, corners at -0.5.
inline double rescaleCoordinate(double c, double from, double to) { return -0.5 + (to / from) * (c + 0.5); }

// Where a camera's map and tables live for one call.
struct Storage {
    double* map = nullptr;       // map region (null: no room for this grid)
    uint64_t mapCapacity = 0;    // records
    RemapTables tables;          // tables (null: none)
    bool tablesPersist = false;  // kept between calls (workspace or lutStore)
    std::unique_ptr<double[]> ownedMap;
    std::unique_ptr<uint8_t[]> ownedTables;
};

}  // namespace

RemapModel Remap_BuildModel(const uint8_t* calibrationBody, int camera, uint16_t width, uint16_t height) {
    RemapModel m;
    m.camera = camera;
    m.srcWidth = width;
    m.srcHeight = height;
    const RemapContext& c = Remap_Context();
    m.rect[0] = 0;
    m.rect[1] = 0;
    m.rect[2] = uint16_t(c.outWidth - 1);
    m.rect[3] = uint16_t(c.outHeight - 1);
    if (!calibrationBody || (camera != 1 && camera != 2)) return m;

    const uint8_t* s = calibrationBody + calib::kSectionOffset[camera];
    m.mapValues[0] = calib::load<uint16_t>(s, calib::sec::kMapValues);
    m.mapValues[1] = calib::load<uint16_t>(s, calib::sec::kMapValues + 2);
    m.gridWidth = calib::load<uint16_t>(s, calib::sec::kModelWidth);
    m.gridHeight = calib::load<uint16_t>(s, calib::sec::kModelHeight);
    m.calibWidth = calib::load<uint16_t>(s, calib::sec::kCalibWidth);
    m.calibHeight = calib::load<uint16_t>(s, calib::sec::kCalibHeight);

    const double diagonal = std::sqrt(double(m.calibWidth) * m.calibWidth + double(m.calibHeight) * m.calibHeight);
    m.pixelPitch = double(calib::load<float>(s, calib::sec::kPixelPitch)) * 1000.0 * diagonal / diagonal;

    // Both fields zero: centre of the calibration image. Otherwise both are
    // taken as given, in the map grid. The two defaults come from different
    // grids on purpose.
    const uint16_t px = calib::load<uint16_t>(s, calib::sec::kPrincipalX);
    const uint16_t py = calib::load<uint16_t>(s, calib::sec::kPrincipalY);
    if (px == 0 && py == 0) {
        m.cx = rescaleCoordinate(-0.5 + 0.5 * m.calibWidth, m.calibWidth, width);
        m.cy = rescaleCoordinate(-0.5 + 0.5 * m.calibHeight, m.calibHeight, height);
    } else {
        m.cx = rescaleCoordinate(px / 16.0, m.gridWidth, width);
        m.cy = rescaleCoordinate(py / 16.0, m.gridHeight, height);
    }
    for (int i = 0; i < 9; ++i) m.homography[i] = calib::load<float>(s, calib::sec::kHomography + 4 * i);
    return m;
}

uint32_t Remap_BuildCamera(uint8_t* dst, const uint8_t* calibrationBody, const uint8_t* src, uint16_t width,
                           uint16_t height, int camera, int mapSlot, int buildMap, int buildLut, uint32_t planes) {
    const RemapModel model = Remap_BuildModel(calibrationBody, camera, width, height);
    const RemapContext& c = Remap_Context();
    return Remap_BuildAndApply(dst, calibrationBody, model, src, width, height, c.outWidth, c.outHeight, camera,
                               mapSlot, 0, 0, model.rect, buildMap, buildLut, planes);
}

uint32_t Remap_BuildAndApply(uint8_t* dst, const uint8_t* calibrationBody, const RemapModel& model,
                             const uint8_t* src, uint16_t srcWidth, uint16_t srcHeight, uint16_t outWidth,
                             uint16_t outHeight, int camera, int mapSlot, int mode, uint32_t extraColumns,
                             const uint16_t rect[4], int buildMap, int buildLut, uint32_t planes) {
    const RemapContext& c = Remap_Context();
    const uint64_t entries = tableEntries(outWidth, outHeight, extraColumns);
    const uint32_t stride = outWidth + extraColumns;
    const uint64_t gridRecords = uint64_t(model.gridWidth) * model.gridHeight;

    // Tables: the camera's workspace block when its layout matches this
    // call, else lutStore (after a map region of the grid's size), else
    // buffers of this call only.
    Storage st;
    const bool workspaceFits = workspaceHoldsCamera(camera) && stride == c.outWidth + c.extraColumns &&
                               entries <= tableEntries(c.outWidth, c.outHeight, c.extraColumns);
    if (workspaceFits) {
        st.tables = Remap_WorkspaceTables(c.workspace, camera);
        st.map = st.tables.map;
        st.mapCapacity = st.tables.mapRecords;
        st.tablesPersist = true;
    } else if (c.lutStore) {
        st.tables = tablesAt(c.lutStore, uint32_t(gridRecords), entries, stride);
        st.map = st.tables.map;
        st.mapCapacity = gridRecords;
        st.tablesPersist = true;
    } else if (buildLut == 1) {
        st.ownedTables = allocArray<uint8_t>(size_t(8 * entries));
        st.tables = tablesAt(st.ownedTables.get(), 0, entries, stride);
    }

    // Map for the table: built now, or one kept from earlier. A grid larger
    // than the region reserved for it (e.g. an output larger than the
    // source) is built in a buffer of this call instead of overflowing.
    uint32_t r[4] = {}, shift = 0;
    const bool any = effectiveRect(rect, outWidth, outHeight, mode, mode == 0 ? 0 : extraColumns,
                                   c.columnShiftFlag, r, &shift);
    const uint16_t lutRect[4] = {uint16_t(r[0] - shift), uint16_t(r[1]), uint16_t(r[2] - shift), uint16_t(r[3])};
    auto buildTables = [&](const double* map) {
        if (buildLut == 1 && any && st.tables.offset)
            RemapLut_Build(st.tables.offset, st.tables.columnWeight, st.tables.rowWeight, srcWidth, srcHeight,
                           map ? model.gridWidth : 0, map ? model.gridHeight : 0, outWidth, mode, extraColumns,
                           model.homography, map, lutRect);
    };

    // Warp through the tables just built (or kept).
    auto applyTables = [&]() -> uint32_t {
        // Tables of this call only exist if they were just built.
        const bool tablesUsable = st.tables.offset && (st.tablesPersist || buildLut == 1);
        if (planes >= 3 || !any || !tablesUsable || !dst || !src || srcWidth < 2 || srcHeight < 2) return 0;
        const uint16_t warpRect[4] = {uint16_t(r[0]), uint16_t(r[1]), uint16_t(r[2]), uint16_t(r[3])};
        const size_t srcPlane = size_t(srcWidth) * srcHeight, dstPlane = size_t(stride) * outHeight;
        const uint32_t firstPlane = planes == 2 ? 1 : 0, lastPlane = planes == 0 ? 0 : 2;
        for (uint32_t k = firstPlane; k <= lastPlane; ++k)
            Remap_ApplyPlane(dst + k * dstPlane, src + k * srcPlane, st.tables.offset, st.tables.columnWeight,
                             st.tables.rowWeight, srcWidth, stride, warpRect);
        return 0;
    };

    const double* map = nullptr;
    if (buildMap == 1) {
        double* target = st.map;
        if (!target || gridRecords > st.mapCapacity) {
            st.ownedMap = allocArray<double>(size_t(2 * gridRecords));
            target = st.ownedMap.get();
        }
        const DistortionTable table = DistortionTable_FromSection(calibrationBody, model.camera, 0);
        double scaleX, scaleY;
        // The table rows are built as soon as the map rows they read are
        // final, while those are still in cache (the same entries as
        // building them after the whole map).
        struct Follow {
            const RemapTables* tables;
            uint16_t srcWidth, srcHeight, mapWidth, mapHeight, outWidth;
            int mode;
            uint32_t extraColumns;
            const double* h;
            const double* map;
            const uint16_t* rect;
            int next;  // first table row not built yet

            void build(int upTo) {
                if (next > upTo) return;
                const uint16_t rows[4] = {rect[0], uint16_t(next), rect[2], uint16_t(upTo)};
                RemapLut_Build(tables->offset, tables->columnWeight, tables->rowWeight, srcWidth, srcHeight, mapWidth,
                               mapHeight, outWidth, mode, extraColumns, h, map, rows);
                next = upTo + 1;
            }
            int lastMapRow(int y) const { return RemapLut_LastMapRow(h, y, rect[0], rect[2], mapHeight); }
            static void rowsDone(void* context, int rows) {
                Follow& f = *static_cast<Follow*>(context);
                int upTo = f.next - 1;
                while (upTo < f.rect[3] && (rows >= f.mapHeight || f.lastMapRow(upTo + 1) < rows)) ++upTo;
                f.build(upTo);
            }
        };
        Follow follow{&st.tables, srcWidth, srcHeight, model.gridWidth, model.gridHeight, outWidth, mode,
                      extraColumns, model.homography, target, lutRect, lutRect[1]};
        const bool fused = buildLut == 1 && any && st.tables.offset && lutRect[1] <= lutRect[3];
        // A band per thread's share, so that each batch of table rows is
        // still large enough to be shared among the threads.
        const int bandRows = kMapBandRows * std::max(1, omp_get_max_threads());
        const MapBands bands = fused ? MapBands{bandRows, Follow::rowsDone, &follow} : MapBands{0, nullptr, nullptr};
        const uint32_t result = DistortionMap_BuildInBands(target, model, table.radius, table.distortion,
                                                           table.calibrationEntries, 0, &scaleX, &scaleY, 1, bands);
        if (fused && result == kMapOk) {
            follow.build(lutRect[3]);  // rows no band reached (an empty grid)
            return applyTables();
        }
        if (result != kMapOk) {
            // Kept tables would otherwise hold stale (or never written)
            // offsets for a later warp: leave border entries instead.
            if (st.tablesPersist) buildTables(nullptr);
            return result;
        }
        map = target;
    } else if (buildLut == 1) {
        if (mapSlot >= 0) {
            const uint64_t slotRecords = uint64_t(c.srcWidth1) * c.srcHeight1 + uint64_t(c.srcWidth2) * c.srcHeight2;
            const uint64_t records1 = uint64_t(c.srcWidth1) * c.srcHeight1;
            const uint64_t capacity = camera == 1 ? records1 : camera == 2 ? slotRecords - records1 : 0;
            if (c.mapStore && uint32_t(mapSlot) < c.mapCount && gridRecords <= capacity)
                map = reinterpret_cast<const double*>(c.mapStore) +
                      2 * (uint64_t(mapSlot) * slotRecords + (camera == 2 ? records1 : 0));
        } else if (st.map && gridRecords <= st.mapCapacity) {
            map = st.map;
        }
    }

    buildTables(map);
    return applyTables();
}

}  // namespace kvdsr::remap
