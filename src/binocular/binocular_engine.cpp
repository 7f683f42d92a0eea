#include "binocular/binocular_engine.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "binocular/colour_match.h"
#include "binocular/row_synthesis.h"
#include "binocular/view_tables.h"
#include "calibration/camera_model.h"
#include "calibration/calib_parser.h"
#include "calibration/geometry.h"
#include "common/alloc.h"
#include "common/aspect.h"
#include "common/camera_layout.h"
#include "common/frame_team.h"
#include "common/virtual_camera.h"
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
};

// Per-frame temporaries, kept between frames (grow-only) and sized before
// the frame's team call: its work items do not allocate.
struct FrameBuffers {
    depthview::DepthResizer resizer;  // depth levels to image size, set up on the first frame
    GrowBuffer temp;                  // converted map before the minimum filter
    GrowBuffer aligned;               // 16-bit map given at an odd address
    GrowBuffer invalidList;           // pixels the hole filling repairs
    GrowBuffer resizeScratch;         // horizontal pass of the resize
    GrowBuffer offsetLevels;          // levels of the colour-match offset column
    GrowBuffer slots;                 // per-thread rows
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
    FrameBuffers frame;
};

Engine g_engine;

std::size_t area(int w, int h) { return static_cast<std::size_t>(w) * static_cast<std::size_t>(h); }

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
        calib::readProjections(block, summary.projection1, summary.projection2);
        for (int i = 0; i < 12; ++i) {
            p1[i] = summary.projection1[i];
            p2[i] = summary.projection2[i];
        }
    }
    c.baseline = static_cast<float>(geom::cameraBaseline(p1, p2));
}

template <class T>
T* bufferOf(GrowBuffer& b, std::size_t count) {
    b.grow(std::max<std::size_t>(count * sizeof(T), 1));
    return reinterpret_cast<T*>(b.data());
}

std::unique_ptr<uint16_t[]> buildTable(int width, int depthWidth, const CameraModel& cam, double shiftX) {
    double m[16], inv[kLevels];
    buildViewMatrix(m, fieldOfViewDegrees(cam.calibratedWidth, cam.pixelPitch, cam.focalLength), shiftX);
    inverseDepthTable(inv, m);
    auto col = allocArray<double>(width);
    columnFactors(col.get(), width, depthWidth, cam, m);
    auto table = allocArray<uint16_t>(area(kLevels, width));
    fillViewTable(table.get(), width, m, inv, col.get());
    return table;
}

uint32_t checkImages(const kvDSR_ImageDesc& left, const kvDSR_ImageDesc& right) {
    if (left.format != kvDSR_FMT_YUV420SP || right.format != left.format) return kvDSR_ERR_IMAGE_FORMAT;
    if (!left.plane[0] && !left.plane[1] && !right.plane[0] && !right.plane[1]) return kvDSR_ERR_NULL_POINTER;
    // Only the first planes are read; refuse a null one rather than read it.
    if (!left.plane[0] || !right.plane[0]) return kvDSR_ERR_NULL_POINTER;
    return kvDSR_OK;
}

std::size_t roundUp16(std::size_t n) { return (n + 15) & ~std::size_t(15); }

// One frame, as stages of one call of the frame team. The depth pass:
// repair and convert the caller's map (one item: the order of the repair's
// passes is part of the result), then filter and resize horizontally row by
// row. Then, when
// the images are good, the colour statistics (one item, on a sparse grid),
// and row pairs: each matches its rows of the second image, makes its rows
// of depth levels and renders them.
struct Frame {
    Engine& e;
    const kvDSR_ImageDesc& depth;
    uint16_t table[1024];
    uint32_t* list = nullptr;
    uint16_t* aligned = nullptr;
    uint16_t* temp = nullptr;
    uint32_t* hScratch = nullptr;
    uint16_t* offsetLevels = nullptr;
    uint8_t* slots = nullptr;
    std::size_t slotBytes = 0;

    bool render = false;
    const uint8_t* a = nullptr;
    uint8_t* b = nullptr;
    uint8_t* out = nullptr;
    BandParams bands{};
    uint8_t matchTables[3][256];

    Frame(Engine& engine, const kvDSR_ImageDesc& d) : e(engine), depth(d) {}

    int dw() const { return e.depthWidth; }
    int dh() const { return e.depthHeight; }
    uint16_t* levelsOf(int slot) const { return reinterpret_cast<uint16_t*>(slots + std::size_t(slot) * slotBytes); }
    uint16_t* colMinOf(int slot) const { return levelsOf(slot) + e.width; }
    RowScratch rowScratchOf(int slot) const {
        return rowScratchAt(reinterpret_cast<uint8_t*>(colMinOf(slot) + dw()), e.width);
    }

    // One item, on the calling thread: the repair's passes run in order,
    // and the conversion is too short to share.
    void prepareMap() {
        const auto bits = depth.format == kvDSR_FMT_DEPTH8 ? depthview::MapBits::Eight : depthview::MapBits::Sixteen;
        depthview::repairAndConvert(temp, depth.plane[0], bits, dw(), dh(), aligned, list, table);
    }
    void filterRow(int y, int slot) {
        uint16_t* levels = e.buffers.depthLevels.get();
        depthview::minFilterDepthRow(levels, temp, dw(), dh(), 1, y, colMinOf(slot));
        e.frame.resizer.horizontalRow(levels + std::size_t(y) * dw(), y, hScratch);
    }
    void colourStatistics() {
        const int w = e.width, h = e.height;
        const int column = offsetColumn(w);
        if (column >= 0)
            for (int y = 0; y < h; ++y) offsetLevels[y] = e.frame.resizer.at(y, column, hScratch);
        const int o = matchOffset(offsetLevels, e.buffers.sourceTable.get(), w, h);
        buildMatchTables(matchTables, matchStatistics(a, b, w, h, bands.step, o));
    }
    void renderPair(uint32_t pair, int slot) {
        const int w = e.width, h = e.height, y = 2 * int(pair);
        const std::size_t ws = std::size_t(w);
        // This pair's rows of the second image are matched before they are read.
        applyMatchLuma(b + std::size_t(y) * ws, w, matchTables[0]);
        if (y + 1 < h) applyMatchLuma(b + std::size_t(y + 1) * ws, w, matchTables[0]);
        if (int(pair) < h / 2) applyMatchChroma(b + (std::size_t(h) + pair) * ws, w, matchTables);
        const SynthesisFrame f{e.buffers.landingTable.get(), e.buffers.sourceTable.get(), a, b, out, w, h, bands.p,
                               bands.q};
        uint16_t* levels = levelsOf(slot);
        const RowScratch scratch = rowScratchOf(slot);
        e.frame.resizer.row(y, hScratch, levels);
        renderRow(f, y, levels, false, scratch);
        if (y + 1 < h) {
            e.frame.resizer.row(y + 1, hScratch, levels);
            renderRow(f, y + 1, levels, true, scratch);
        }
    }
};

// Sizes the frame's buffers and builds its conversion table: everything
// that allocates happens here, before the caller's memory is touched.
void prepare(Frame& f) {
    Engine& e = f.e;
    FrameBuffers& fb = e.frame;
    const std::size_t n = area(f.dw(), f.dh());
    const Calibration& c = e.calib;
    const float focalPx = f.dw() * c.focalLength / (c.width * c.pixelPitch);
    if (f.depth.format == kvDSR_FMT_DEPTH8) {
        const uint8_t scale = f.dh() ? static_cast<uint8_t>((1440 / f.dh()) & 0xFF) : 0;
        depthview::depthTable8(f.table, scale, 1023, 255, focalPx, c.baseline);
    } else {
        depthview::depthTable16(f.table, 8, 1023, 1023, focalPx, c.baseline);
        if (!depthview::isAligned16(f.depth.plane[0])) f.aligned = bufferOf<uint16_t>(fb.aligned, n);
    }
    f.list = bufferOf<uint32_t>(fb.invalidList, n);
    f.temp = bufferOf<uint16_t>(fb.temp, n);
    if (!fb.resizer.configuredFor(f.dw(), f.dh(), e.width, e.height))
        fb.resizer.configure(f.dw(), f.dh(), e.width, e.height);
    f.hScratch = bufferOf<uint32_t>(fb.resizeScratch, fb.resizer.scratchSize());
    f.offsetLevels = bufferOf<uint16_t>(fb.offsetLevels, std::size_t(e.height));
    f.slotBytes = roundUp16(2 * std::size_t(e.width) + 2 * std::size_t(f.dw()) + rowScratchBytes(e.width));
    const std::size_t slotsBytes = f.slotBytes * std::size_t(teamSlots());
    f.slots = bufferOf<uint8_t>(fb.slots, slotsBytes);
    std::memset(f.slots, 0, slotsBytes);  // src and mark start zeroed
}

void runFrame(Frame& f) {
    const Engine& e = f.e;
    const bool hasDepth = f.dw() > 0 && f.dh() > 0;
    Stages stages{hasDepth ? 1u : 0u, hasDepth ? uint32_t(f.dh()) : 0u};
    if (f.render) {
        stages.add(1);
        stages.add(uint32_t((e.height + 1) / 2));
    }
    const bool useTeam = area(e.width, e.height) >= kTeamMinPixels;
    runStages(stages, useTeam, [&f](int stage, uint32_t item, int slot) {
        switch (stage) {
            case 0: f.prepareMap(); break;
            case 1: f.filterRow(int(item), slot); break;
            case 2: f.colourStatistics(); break;
            default: f.renderPair(item, slot); break;
        }
    });
}

}  // namespace

bool initialised() { return g_engine.initialised; }

bool sizesMatch(uint32_t width, uint32_t height, uint32_t depthWidth, uint32_t depthHeight) {
    const Engine& e = g_engine;
    return width == uint32_t(e.width) && height == uint32_t(e.height) && depthWidth == uint32_t(e.depthWidth) &&
           depthHeight == uint32_t(e.depthHeight);
}

const uint16_t* depthLevels() { return g_engine.buffers.depthLevels.get(); }
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
    next.landingTable = buildTable(width, depthWidth, cam, viewShift * 0.01);
    next.sourceTable = buildTable(width, depthWidth, cam, static_cast<double>(c.baseline));

    e.buffers = std::move(next);
    e.frame.resizer = depthview::DepthResizer();
    e.calib = c;
    e.width = width;
    e.height = height;
    e.depthWidth = depthWidth;
    e.depthHeight = depthHeight;
    e.initialised = true;
    prepareTeam();  // the first frame should not wait for new threads
    return kvDSR_OK;
}

uint32_t run(uint8_t* out, const kvDSR_ImageDesc& left, const kvDSR_ImageDesc& right, uint32_t width,
             uint16_t height, const kvDSR_ImageDesc& depth, uint16_t depthWidth, uint16_t depthHeight) {
    Engine& e = g_engine;
    Frame f(e, depth);
    prepare(f);
    // The depth pass comes before the image checks: a bad image still
    // refreshes the depth buffers (and repairs the map), as callers have
    // always seen.
    const uint32_t code = checkImages(left, right);
    f.render = code == kvDSR_OK;
    if (f.render) {
        f.a = left.plane[0];
        f.b = right.plane[0];
        f.out = out;
        f.bands = bandParams(e.height);
    }
    runFrame(f);
    return code;
}

uint32_t close() {
    Engine& e = g_engine;
    e.buffers = Buffers{};
    e.frame = FrameBuffers{};
    e.initialised = false;
    return kvDSR_OK;
}

}  // namespace kvdsr::binocular
