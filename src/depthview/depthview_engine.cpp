// Depth view engine: its process-wide state, Init (calibration, virtual
// camera, shift table) and the per-frame pipelines of Run and Run_SideBySide.
#include "depthview/depthview_engine.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>

#include "calibration/camera_model.h"
#include "calibration/calib_parser.h"
#include "calibration/geometry.h"
#include "common/alloc.h"
#include "common/aspect.h"
#include "common/camera_layout.h"
#include "common/frame_team.h"
#include "depthview/depth_steps.h"
#include "depthview/synthesis.h"

namespace kvdsr::depthview {

namespace {

struct DepthViewState {
    bool initialised = false;
    AspectState aspect;  // survives Close: later Inits may keep it

    // Calibration values, refreshed by each Init.
    uint16_t sensorWidth = 0;
    uint16_t sensorHeight = 0;
    float focalLength = 0.f;
    float pixelSize = 0.f;
    double baseline = 0.0;
    double viewMatrix[16] = {};
    int32_t firstColumn = 0;

    uint32_t width = 0, height = 0, depthWidth = 0, depthHeight = 0;
    std::unique_ptr<uint16_t[]> shiftTable;     // 1024 x width
    std::unique_ptr<uint16_t[]> depthBuffer;    // depthWidth x depthHeight, filtered
    DepthResizer resizer;                       // for the Init sizes, set up on the first frame

    // Per-frame temporaries, kept between frames (grow-only), sized before
    // the frame's team call: its work items do not allocate.
    GrowBuffer depthTemp;      // converted map before the minimum filter
    GrowBuffer depthAligned;   // 16-bit map given at an odd address
    GrowBuffer invalidList;    // pixels the hole filling repairs
    GrowBuffer resizeScratch;  // horizontal pass of the resize
    GrowBuffer slots;          // per-thread rows
    GrowBuffer zeroRow;        // the source of an image the 4:4:4 conversion refuses
};

DepthViewState g_state;

// The parser is asked for the body as the stereo view engine's Init does:
// focus position 0 and body index 1.
constexpr int32_t kFocusPosition = 0;
constexpr uint32_t kRequestedIndex = 1;

template <class T>
T* bufferOf(GrowBuffer& b, size_t count) {
    b.grow(std::max<size_t>(count * sizeof(T), 1));
    return reinterpret_cast<T*>(b.data());
}

bool packedStrides(const kvDSR_ImageDesc& image, uint32_t width) {
    for (int i = 0; i < 3; ++i)
        if (image.stride[i] != 0 && image.stride[i] != width) return false;
    return true;
}

// Padded 0xF02 planes: every stride must exceed the width, checked in plane
// order, and every plane must be present, before anything is written.
uint32_t checkPaddedPlanes(const kvDSR_ImageDesc& image, uint32_t width) {
    for (int i = 0; i < 3; ++i)
        if (width >= image.stride[i]) return kvDSR_ERR_STRIDE;
    for (int i = 0; i < 3; ++i)
        if (!image.plane[i]) return kvDSR_ERR_NULL_POINTER;
    return kvDSR_OK;
}

// The flat-depth shortcut copies the image's rows, plane after plane, to
// output rows outStride apart (side by side: into both halves). Each plane
// is read within its own rows, where the synthesis would read it: packed
// 0xF02 planes back to back from plane 0, other planes at their own pointer
// and stride. For planes a caller lays out back to back this is the whole
// frame copied at once; rows of an absent plane are left as they are.
struct FlatCopy {
    uint8_t* out;
    size_t outStride;
    bool sideBySide;
    const kvDSR_ImageDesc* image;
    size_t width, height;

    size_t rows() const {
        return image->format == kvDSR_FMT_YUV420SP ? height + height / 2 : 3 * height;
    }
    // Row r of all the planes' rows.
    void row(size_t r) const {
        const size_t w = width, h = height;
        const bool is420 = image->format == kvDSR_FMT_YUV420SP;
        const size_t p = r / h, y = r % h;  // 4:2:0 chroma rows follow the luma rows
        const uint8_t* src;
        if (!is420 && packedStrides(*image, uint32_t(width))) {
            src = image->plane[0] + (p * h + y) * w;
        } else {
            if (!image->plane[p]) return;
            src = image->plane[p] + y * (image->stride[p] ? image->stride[p] : w);
        }
        uint8_t* dst = out + r * outStride;
        std::memcpy(dst, src, w);
        if (sideBySide) std::memcpy(dst + w, src, w);
    }
};

// 0xF01 frames whose strides the 4:4:4 conversion accepts are synthesised
// from their planes; the others from the all-zero image the refused
// conversion leaves.
bool directStrides(const kvDSR_ImageDesc& image, uint32_t width) {
    const uint32_t sy = image.stride[0], suv = image.stride[1];
    return width > 0 && (sy == 0 || sy >= width) && (suv == 0 || suv >= width);
}

// The code a frame ends with when its depth is not flat, decided before any
// work; kvDSR_OK when it is rendered.
uint32_t renderCode(const kvDSR_ImageDesc& image, uint32_t width) {
    if (image.format == kvDSR_FMT_YUV420SP)
        return image.plane[0] && image.plane[1] ? kvDSR_OK : kvDSR_ERR_NULL_POINTER;
    if (image.format == kvDSR_FMT_YUV444P) {
        if (packedStrides(image, width)) return image.plane[0] ? kvDSR_OK : kvDSR_ERR_NULL_POINTER;
        return checkPaddedPlanes(image, width);
    }
    return kvDSR_ERR_IMAGE_FORMAT;
}

// The code when it is flat.
uint32_t flatCode(const kvDSR_ImageDesc& image) {
    if (image.format != kvDSR_FMT_YUV420SP && image.format != kvDSR_FMT_YUV444P) return kvDSR_ERR_DEPTH_FORMAT;
    return image.plane[0] ? kvDSR_OK : kvDSR_ERR_NULL_POINTER;
}

size_t roundUp16(size_t n) { return (n + 15) & ~size_t(15); }

// One frame of Run or Run_SideBySide: its stages, in one call of the frame
// team, and what they share. The depth map is repaired and converted (one
// item: the order of the repair's passes is part of the result), then
// filtered and resized horizontally row by row; each output row then makes
// its own row of depth levels and synthesises, or copies the input when the
// filtered map is flat.
//
// Flat is a property of the whole filtered map, but the first two filtered
// values that differ settle it: from then on an output row needs only the
// few filtered rows under it, so a thread descheduled while holding one map
// row holds up only the output rows over that row.
struct Frame {
    DepthViewState& s;
    const kvDSR_ImageDesc& depth;
    int dw, dh, radius;
    uint16_t table[1024];
    uint32_t* list = nullptr;
    uint16_t* aligned = nullptr;
    uint16_t* temp = nullptr;
    // Minimum (high half) and maximum (low half) of the filtered rows so
    // far; the minimum is above the maximum until a row has finished.
    std::atomic<uint32_t> range{0xFFFF0000u};
    uint32_t* hScratch = nullptr;
    uint8_t* slots = nullptr;
    size_t slotBytes = 0;

    // Output, when rendered.
    bool render = false;
    bool is420 = false;
    Frame420 f420{};
    Frame444 f444{};
    FlatCopy copy{};

    Frame(DepthViewState& st, const kvDSR_ImageDesc& d, int w, int h) : s(st), depth(d), dw(w), dh(h) {}

    uint16_t* levelsOf(int slot) const { return reinterpret_cast<uint16_t*>(slots + size_t(slot) * slotBytes); }
    uint16_t* colMinOf(int slot) const { return levelsOf(slot) + s.width; }
    uint8_t* rowScratchOf(int slot) const {
        return reinterpret_cast<uint8_t*>(colMinOf(slot) + size_t(dw));
    }

    // One item, on the calling thread: the repair's passes run in order,
    // and the conversion is too short to share.
    void prepareMap() {
        const MapBits bits = depth.format == kvDSR_FMT_DEPTH8 ? MapBits::Eight : MapBits::Sixteen;
        repairAndConvert(temp, depth.plane[0], bits, dw, dh, aligned, list, table);
    }
    void filterRow(int y, int slot) {
        uint16_t* depthBuffer = s.depthBuffer.get();
        minFilterDepthRow(depthBuffer, temp, dw, dh, radius, y, colMinOf(slot));
        const uint16_t* row = depthBuffer + size_t(y) * dw;
        uint16_t lo = 65535, hi = 0;
        for (int x = 0; x < dw; ++x) {
            lo = std::min(lo, row[x]);
            hi = std::max(hi, row[x]);
        }
        s.resizer.horizontalRow(row, y, hScratch);
        uint32_t r = range.load();
        auto widened = [&] { return std::min<uint32_t>(r >> 16, lo) << 16 | std::max<uint32_t>(r & 0xFFFF, hi); };
        while (!range.compare_exchange_weak(r, widened())) {
        }
    }
    // Settled as soon as two filtered values differ; otherwise only once
    // every row has finished.
    bool knownNotFlat() const {
        const uint32_t r = range.load();
        return (r >> 16) < (r & 0xFFFF);
    }
    // Once every row has finished.
    bool depthIsFlat() const {
        const uint32_t r = range.load();
        return dw > 0 && dh > 0 && (r >> 16) == (r & 0xFFFF);
    }
    // Map rows are filtered bottom up while output rows go top down: a
    // helper woken for the frame, often preempted soon after, then holds a
    // row that only the last output rows need.
    int filterRowOf(uint32_t item) const { return dh - 1 - int(item); }
    // The filter items output row y waits for.
    Needs outputNeeds(int y) const {
        if (!knownNotFlat()) return {0, uint32_t(dh)};
        const DepthResizer::Rows r = s.resizer.rowsRead(y);
        return {uint32_t(dh - r.end), uint32_t(dh - r.first)};
    }
    void outputRow(int y, int slot) {
        if (!knownNotFlat() && depthIsFlat()) {
            for (size_t r = size_t(y); r < copy.rows(); r += s.height) copy.row(r);
            return;
        }
        uint16_t* levels = levelsOf(slot);
        s.resizer.row(y, hScratch, levels);
        if (is420)
            renderRow420(f420, y, levels, rowScratchOf(slot));
        else
            renderRow444(f444, y, levels, reinterpret_cast<uint16_t*>(rowScratchOf(slot)));
    }
};

// Sizes the frame's buffers and builds its conversion table: everything
// that allocates happens here, before the caller's memory is touched.
void prepare(Frame& f, bool sideBySide) {
    DepthViewState& s = f.s;
    const size_t n = size_t(f.dw) * f.dh;
    const float focalPx = float(f.dw) * (s.focalLength / (s.sensorWidth * s.pixelSize));
    if (f.depth.format == kvDSR_FMT_DEPTH8) {
        f.radius = 2;
        depthTable8(f.table, f.dh ? uint8_t((1440 / f.dh) & 0xFF) : 0, 1023, 255, focalPx, s.baseline);
    } else {
        f.radius = 3;
        depthTable16(f.table, 8, 1023, 1023, focalPx, s.baseline);
        if (!isAligned16(f.depth.plane[0])) f.aligned = bufferOf<uint16_t>(s.depthAligned, n);
    }
    f.list = bufferOf<uint32_t>(s.invalidList, n);
    f.temp = bufferOf<uint16_t>(s.depthTemp, n);
    if (!s.resizer.configuredFor(f.dw, f.dh, int(s.width), int(s.height)))
        s.resizer.configure(f.dw, f.dh, int(s.width), int(s.height));
    f.hScratch = bufferOf<uint32_t>(s.resizeScratch, s.resizer.scratchSize());
    const size_t w = s.width;
    f.slotBytes = roundUp16(2 * w + 2 * size_t(f.dw) + std::max(row420ScratchBytes(int(w), sideBySide), 2 * w));
    f.slots = bufferOf<uint8_t>(s.slots, f.slotBytes * size_t(teamSlots()));
}

// Runs the frame's stages; the output stage only when f.render is set.
void runFrame(Frame& f) {
    const DepthViewState& s = f.s;
    Stages stages{1, uint32_t(f.dh)};
    if (f.render) stages.add(s.height);
    const bool useTeam = size_t(s.width) * s.height >= kTeamMinPixels;
    auto work = [&f](int stage, uint32_t item, int slot) {
        switch (stage) {
            case 0: f.prepareMap(); break;
            case 1: f.filterRow(f.filterRowOf(item), slot); break;
            default: f.outputRow(int(item), slot); break;
        }
    };
    auto needs = [&f](int stage, uint32_t item) -> Needs {
        return stage == 1 ? Needs{0, 1} : f.outputNeeds(int(item));
    };
    runStages(stages, useTeam, work, needs);
}

// Run and Run_SideBySide: out is width (side by side 2 * width) pixels wide.
uint32_t renderFrame(uint8_t* out, bool sideBySide, const kvDSR_ImageDesc& image, const kvDSR_ImageDesc& depth,
                     int depthWidth, int depthHeight) {
    DepthViewState& s = g_state;
    const size_t w = s.width, h = s.height, outWidth = sideBySide ? 2 * w : w;
    Frame f(s, depth, depthWidth, depthHeight);
    prepare(f, sideBySide);
    f.copy = {out, outWidth, sideBySide, &image, w, h};

    const uint32_t code = renderCode(image, s.width);
    f.render = code == kvDSR_OK;
    if (!f.render) {
        // Whether the frame fails depends on the depth: work it out first.
        runFrame(f);
        if (!f.depthIsFlat()) return code;
        if (uint32_t rc = flatCode(image)) return rc;
        for (size_t r = 0; r < f.copy.rows(); ++r) f.copy.row(r);
        return kvDSR_OK;
    }

    if (image.format == kvDSR_FMT_YUV420SP) {
        f.is420 = true;
        Frame420& o = f.f420;
        o = {out, out + h * outWidth, sideBySide, image.plane[0], image.stride[0] ? image.stride[0] : w,
             image.plane[1], image.stride[1] ? image.stride[1] : w, 128, s.shiftTable.get(), s.firstColumn,
             int(w), int(h)};
        if (!directStrides(image, s.width)) {
            const uint8_t* zero = bufferOf<uint8_t>(s.zeroRow, w + 1);
            std::memset(s.zeroRow.data(), 0, w + 1);
            o.srcY = o.srcUV = zero;
            o.strideY = o.strideUV = 0;
            o.lastCr = 0;
        }
    } else {
        Frame444& o = f.f444;
        const size_t plane = w * h;
        o = {out, outWidth, sideBySide ? 2 * plane : plane, sideBySide, false, {}, {}, s.shiftTable.get(),
             s.firstColumn, int(w), int(h)};
        if (packedStrides(image, s.width)) {
            o.clear = !sideBySide;
            for (int p = 0; p < 3; ++p) {
                o.src[p] = image.plane[0] + p * plane;
                o.srcStride[p] = w;
            }
        } else {
            for (int p = 0; p < 3; ++p) {
                o.src[p] = image.plane[p];
                o.srcStride[p] = image.stride[p];
            }
        }
    }
    runFrame(f);
    return kvDSR_OK;
}

}  // namespace

bool initialised() { return g_state.initialised; }

bool sizesMatch(uint32_t width, uint32_t height, uint32_t depthWidth, uint32_t depthHeight) {
    const DepthViewState& s = g_state;
    return width == s.width && height == s.height && depthWidth == s.depthWidth && depthHeight == s.depthHeight;
}

uint32_t init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
              uint32_t keyMaterialSize, uint16_t width, uint16_t height, uint16_t depthWidth,
              uint16_t depthHeight, uint16_t viewShift) {
    DepthViewState& s = g_state;
    AspectState aspect = s.aspect;
    if (uint32_t rc = checkSizeCombination(width, height, depthWidth, depthHeight, aspect)) return rc;

    uint8_t block[calib::kBlockSize] = {};
    uint32_t calibSize = 0, calibType = 0, calibIndex = 0;
    const uint32_t rc = calib::parseCalibration(block, &calibSize, &calibType, &calibIndex, calibration,
                                                calibrationSize, keyMaterial, keyMaterialSize, 0, layoutSelector(),
                                                kFocusPosition, kRequestedIndex);
    s.aspect = aspect;  // the size check has taken effect even if parsing fails
    if (rc) return rc;

    // Everything below goes into locals first, so that a failed allocation
    // leaves the engine as it was.
    CameraValues cam{s.sensorWidth, s.focalLength, s.pixelSize};
    uint16_t sensorHeight = s.sensorHeight;
    calib::CalibSummary summary;
    double baseline;
    if (calib::readSummary(block, calibType, summary)) {
        cam.sensorWidth = summary.width;
        sensorHeight = summary.height;
        cam.pixelSize = summary.pixelPitch;
        cam.focalLength = summary.focalLength;
    } else {
        // Other kinds refresh only the baseline, from the kind-3 positions.
        calib::readProjections(block, summary.projection1, summary.projection2);
    }
    double p1[12], p2[12];
    for (int i = 0; i < 12; ++i) {
        p1[i] = summary.projection1[i];
        p2[i] = summary.projection2[i];
    }
    baseline = geom::cameraBaseline(p1, p2);
    if (width < height) std::swap(cam.sensorWidth, sensorHeight);

    auto depthBuffer = allocArray<uint16_t>(size_t(depthWidth) * depthHeight);
    auto shiftTable = allocArray<uint16_t>(size_t(kDepthLevels) * width);
    double viewMatrix[16];
    virtualCamera(viewMatrix, cam, viewShift);
    buildShiftTable(shiftTable.get(), viewMatrix, cam, width);

    s.sensorWidth = cam.sensorWidth;
    s.sensorHeight = sensorHeight;
    s.focalLength = cam.focalLength;
    s.pixelSize = cam.pixelSize;
    s.baseline = baseline;
    std::memcpy(s.viewMatrix, viewMatrix, sizeof viewMatrix);
    s.firstColumn = firstWritableColumn(width, s.aspect.referenceWidth, viewShift);
    s.width = width;
    s.height = height;
    s.depthWidth = depthWidth;
    s.depthHeight = depthHeight;
    s.depthBuffer = std::move(depthBuffer);
    s.resizer = DepthResizer();
    s.shiftTable = std::move(shiftTable);
    s.initialised = true;
    prepareTeam();  // the first frame should not wait for new threads
    return kvDSR_OK;
}

uint32_t run(uint8_t* out, const kvDSR_ImageDesc& image, uint32_t width, uint32_t height,
             const kvDSR_ImageDesc& depth, uint16_t depthWidth, uint16_t depthHeight) {
    (void)width;
    (void)height;  // the interface has checked them against Init's
    return renderFrame(out, false, image, depth, depthWidth, depthHeight);
}

uint32_t runSideBySide(uint8_t* out, const kvDSR_ImageDesc& image, uint16_t width, uint16_t height,
                       const kvDSR_ImageDesc& depth, uint16_t depthWidth, uint16_t depthHeight) {
    (void)width;
    (void)height;
    return renderFrame(out, true, image, depth, depthWidth, depthHeight);
}

uint32_t close() {
    DepthViewState& s = g_state;
    s.shiftTable.reset();
    s.depthBuffer.reset();
    s.resizer = DepthResizer();
    s.depthTemp.release();
    s.depthAligned.release();
    s.invalidList.release();
    s.resizeScratch.release();
    s.slots.release();
    s.zeroRow.release();
    s.initialised = false;
    return kvDSR_OK;
}

}  // namespace kvdsr::depthview
