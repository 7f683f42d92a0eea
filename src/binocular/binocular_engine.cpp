#include "binocular/binocular_engine.h"

#include <omp.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "binocular/colour_match.h"
#include "binocular/row_synthesis.h"
#include "binocular/view_tables.h"
#include "calibration/calib_block.h"
#include "calibration/calib_parser.h"
#include "calibration/geometry.h"
#include "common/alloc.h"
#include "common/aspect.h"
#include "common/camera_layout.h"
#include "depthview/depth_steps.h"

namespace kvdsr::binocular {

namespace {

// Calibration values of the calibrated camera (camera 2).
struct Calibration {
    uint16_t width = 0;
    uint16_t height = 0;
    float focalLength = 0.f;
    float pixelPitch = 0.f;
    float baseline = 0.f;
};

struct Buffers {
    std::unique_ptr<uint16_t[]> landingTable;  // kLevels x width
    std::unique_ptr<uint16_t[]> sourceTable;   // kLevels x width
    std::unique_ptr<uint16_t[]> depthLevels;   // depthWidth x depthHeight
    std::unique_ptr<uint16_t[]> levelMap;      // width x height
};

struct Engine {
    bool initialised = false;
    AspectState aspect;
    Calibration calib;
    int width = 0;
    int height = 0;
    int depthWidth = 0;
    int depthHeight = 0;
    Buffers buffers;
};

Engine g_engine;

std::size_t area(int w, int h) { return static_cast<std::size_t>(w) * static_cast<std::size_t>(h); }

void loadProjection(double out[12], const uint8_t* block, uint32_t offset) {
    for (int i = 0; i < 12; ++i) out[i] = calib::load<float>(block, offset + 4 * i);
}

// Reads camera 2's values and the baseline; kinds without a summary keep the
// earlier camera values, as they always have.
void readCalibration(const uint8_t block[calib::kBlockSize], uint32_t calibType, Calibration& c) {
    double p1[12], p2[12];
    calib::CalibSummary summary;
    if (calib::readSummary(block, calibType, summary)) {
        c.width = summary.width;
        c.height = summary.height;
        c.focalLength = summary.focalLength;
        c.pixelPitch = summary.pixelPitch;
        for (int i = 0; i < 12; ++i) {
            p1[i] = summary.projection1[i];
            p2[i] = summary.projection2[i];
        }
    } else {
        loadProjection(p1, block, calib::kSectionOffset[1] + calib::sec::kProjection);
        loadProjection(p2, block, calib::kSectionOffset[2] + calib::sec::kProjection);
    }
    c.baseline = static_cast<float>(geom::cameraBaseline(p1, p2));
}

std::unique_ptr<uint16_t[]> buildTable(int width, int depthWidth, const CameraModel& cam, double shiftX) {
    double m[16], inv[kLevels];
    buildViewMatrix(m, fieldOfViewDegrees(cam), shiftX);
    inverseDepthTable(inv, m);
    auto col = allocArray<double>(width);
    columnFactors(col.get(), width, depthWidth, cam, m);
    auto table = allocArray<uint16_t>(area(kLevels, width));
    fillViewTable(table.get(), width, m, inv, col.get());
    return table;
}

// Converts the caller's map (repaired in place) into depthLevels.
void depthPass(Engine& e, const kvDSR_ImageDesc& depth) {
    const int dw = e.depthWidth, dh = e.depthHeight;
    if (dw == 0 || dh == 0) return;
    auto temp = allocArray<uint16_t>(area(dw, dh));
    const Calibration& c = e.calib;
    const float focalPx = dw * c.focalLength / (c.width * c.pixelPitch);
    if (depth.format == kvDSR_FMT_DEPTH8) {
        uint8_t* map = depth.plane[0];
        depthview::fillInvalidDepth8(map, dw, dh);
        const uint8_t scale = static_cast<uint8_t>((1440 / dh) & 0xFF);
        depthview::disparity8ToDepth(temp.get(), map, dw, dh, scale, 1023, 255, focalPx, c.baseline);
    } else {
        auto* map = reinterpret_cast<uint16_t*>(depth.plane[0]);
        depthview::fillInvalidDepth16(map, dw, dh);
        depthview::disparity16ToDepth(temp.get(), map, dw, dh, 8, 1023, 1023, focalPx, c.baseline);
    }
    depthview::minFilterDepth(e.buffers.depthLevels.get(), temp.get(), dw, dh, 1);
    depthview::resizeDepth(e.buffers.levelMap.get(), e.buffers.depthLevels.get(), dw, dh, e.width, e.height);
}

uint32_t checkImages(const kvDSR_ImageDesc& left, const kvDSR_ImageDesc& right) {
    if (left.format != kvDSR_FMT_YUV420SP || right.format != left.format) return kvDSR_ERR_IMAGE_FORMAT;
    if (!left.plane[0] && !left.plane[1] && !right.plane[0] && !right.plane[1]) return kvDSR_ERR_NULL_POINTER;
    // Only the first planes are read; refuse a null one rather than read it.
    if (!left.plane[0] || !right.plane[0]) return kvDSR_ERR_NULL_POINTER;
    return kvDSR_OK;
}

void matchColours(const Engine& e, const uint8_t* a, uint8_t* b, const BandParams& bands) {
    const int o = matchOffset(e.buffers.levelMap.get(), e.buffers.sourceTable.get(), e.width, e.height);
    const ChannelStats stats = matchStatistics(a, b, e.width, e.height, bands.step, o);
    uint8_t tables[3][256];
    buildMatchTables(tables, stats);
    applyMatchTables(b, e.width, e.height, tables);
}

}  // namespace

bool initialised() { return g_engine.initialised; }

bool sizesMatch(uint32_t width, uint32_t height, uint32_t depthWidth, uint32_t depthHeight) {
    const Engine& e = g_engine;
    return width == uint32_t(e.width) && height == uint32_t(e.height) && depthWidth == uint32_t(e.depthWidth) &&
           depthHeight == uint32_t(e.depthHeight);
}

const uint16_t* levelMap() { return g_engine.buffers.levelMap.get(); }
const uint16_t* landingTable() { return g_engine.buffers.landingTable.get(); }

uint32_t init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
              uint32_t keyMaterialSize, uint16_t width, uint16_t height, uint16_t depthWidth,
              uint16_t depthHeight, uint16_t viewShift) {
    Engine& e = g_engine;
    if (uint32_t rc = checkSizeCombination(width, height, depthWidth, depthHeight, e.aspect)) return rc;

    uint8_t block[calib::kBlockSize] = {};
    uint32_t calibSize = 0, calibType = 0, calibIndex = 0;
    if (uint32_t rc = calib::parseCalibration(block, &calibSize, &calibType, &calibIndex, calibration,
                                              calibrationSize, keyMaterial, keyMaterialSize, 0, layoutSelector(),
                                              0, 1))
        return rc;

    // Everything new is built aside and swapped in at the end, so that a
    // failed allocation leaves the previous configuration working.
    Calibration c = e.calib;
    readCalibration(block, calibType, c);
    if (width < height) std::swap(c.width, c.height);
    const CameraModel cam{c.width, c.focalLength, c.pixelPitch};

    Buffers next;
    next.depthLevels = allocArray<uint16_t>(area(depthWidth, depthHeight));
    next.levelMap = allocArray<uint16_t>(area(width, height));
    std::fill_n(next.levelMap.get(), area(width, height), uint16_t(0));
    next.landingTable = buildTable(width, depthWidth, cam, viewShift * 0.01);
    next.sourceTable = buildTable(width, depthWidth, cam, static_cast<double>(c.baseline));

    e.buffers = std::move(next);
    e.calib = c;
    e.width = width;
    e.height = height;
    e.depthWidth = depthWidth;
    e.depthHeight = depthHeight;
    e.initialised = true;
    return kvDSR_OK;
}

uint32_t run(uint8_t* out, const kvDSR_ImageDesc& left, const kvDSR_ImageDesc& right, uint32_t width,
             uint16_t height, const kvDSR_ImageDesc& depth, uint16_t depthWidth, uint16_t depthHeight) {
    Engine& e = g_engine;
    // The depth pass comes before the image checks: a bad image still
    // refreshes the depth buffers, as callers have always seen.
    depthPass(e, depth);
    if (uint32_t rc = checkImages(left, right)) return rc;

    const int w = e.width, h = e.height;
    // Per-thread row scratch, allocated before anything of the caller's is
    // changed.
    const int threads = std::max(1, omp_get_max_threads());
    auto src = allocArray<uint16_t>(area(threads, w));
    auto mark = allocArray<uint8_t>(area(threads, w));
    std::fill_n(src.get(), area(threads, w), uint16_t(0));
    std::fill_n(mark.get(), area(threads, w), uint8_t(0));

    const uint8_t* a = left.plane[0];
    uint8_t* b = right.plane[0];
    const BandParams bands = bandParams(h);
    matchColours(e, a, b, bands);
    const SynthesisFrame frame{e.buffers.levelMap.get(), e.buffers.landingTable.get(), e.buffers.sourceTable.get(),
                               a, b, out, w, h, bands.p, bands.q};
    synthesizeView(frame, {src.get(), mark.get()}, threads);
    return kvDSR_OK;
}

uint32_t close() {
    Engine& e = g_engine;
    e.buffers = Buffers{};
    e.initialised = false;
    return kvDSR_OK;
}

}  // namespace kvdsr::binocular
