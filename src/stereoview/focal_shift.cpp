// Focal alignment shift: distance-derived horizontal shift of two views.
#include "stereoview/focal_shift.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <utility>

#include "calibration/calib_block.h"
#include "calibration/calib_parser.h"
#include "calibration/geometry.h"
#include "common/alloc.h"
#include "common/camera_layout.h"
#include "common/frame_team.h"
#include "stereoview/halve_kernels.h"

namespace kvdsr::focalshift {
namespace {

// The engine's process-wide state; constant-initialised.
struct FocalShiftState {
    calib::CalibSummary summary;
    float baseline = 0.f;
    int32_t alignShift = 0;
    std::unique_ptr<uint8_t[]> shiftBuffer;
    size_t shiftBufferBytes = 0;
};

FocalShiftState g_state;

constexpr uint8_t kNeutralChroma = 128;

// Small frames are not worth waking the team for; the result is the same
// either way.
inline bool worthATeam(size_t bytes) { return bytes >= (size_t(1) << 16); }

// Bytes of rows an item copies at least: row copies are short, and claiming
// an item should cost little beside its work.
constexpr size_t kItemBytes = 65536;

inline size_t rowsPerItem(size_t rowBytes) { return rowBytes ? std::max<size_t>(1, kItemBytes / rowBytes) : 1; }
inline size_t itemsFor(size_t rows, size_t perItem) { return (rows + perItem - 1) / perItem; }

inline size_t clampedCopy(size_t width, size_t s) { return s < width ? width - s : 0; }

bool isShiftFormat(uint32_t f) { return f == kvDSR_FMT_YUV420SP || f == kvDSR_FMT_YUV420P; }

// A side-by-side frame of width W shifted row by row: `lumaRows` luma rows,
// then the chroma area, which is filled with neutral chroma (fillBytes, a
// half row more than its rows when their count is odd) before its rows are
// shifted into it. Each row touches only its own bytes, so rows go to the
// team in any order.
struct SideBySideShift {
    uint8_t* dst = nullptr;
    uint8_t* dstChroma = nullptr;
    const uint8_t* src = nullptr;
    const uint8_t* srcChroma = nullptr;
    size_t W = 0, lumaRows = 0, chromaRows = 0, fillBytes = 0, s = 0;
    uint32_t format = 0;

    // Full-width frame of W x height into dst with its chroma area at
    // dstChromaOffset, `rows` luma rows written.
    SideBySideShift(uint8_t* out, size_t dstChromaOffset, const uint8_t* in, size_t width, size_t height,
                    size_t rows, uint32_t fmt, size_t shift)
        : dst(out), dstChroma(out + dstChromaOffset), src(in), srcChroma(in + width * height), W(width),
          lumaRows(rows), chromaRows(rows / 2), fillBytes(width * rows / 2), s(shift), format(fmt) {}

    size_t rows() const { return W ? lumaRows + (fillBytes + W - 1) / W : 0; }

    void row(size_t r) const {
        if (r < lumaRows) {
            shiftRowParts(dst + r * W, src + r * W, W, 1, 2, s);
            return;
        }
        const size_t c = r - lumaRows;
        std::memset(dstChroma + c * W, kNeutralChroma, std::min(W, fillBytes - c * W));
        if (c >= chromaRows) return;
        // Planar: a W-byte chroma row holds two rows of each view's W/4-wide plane.
        if (format == kvDSR_FMT_YUV420SP)
            shiftRowParts(dstChroma + c * W, srcChroma + c * W, W, 1, 2, s);
        else
            shiftRowParts(dstChroma + c * W, srcChroma + c * W, W, 1, 4, s / 2);
    }
};

}  // namespace

// ---- Kernels -------------------------------------------------------------

void shiftRowsLeft(uint8_t* dst, const uint8_t* src, size_t width, size_t stride, size_t rows, size_t s) {
    const size_t n = clampedCopy(width, s);
    if (n == 0) return;
    for (size_t r = 0; r < rows; ++r) std::memmove(dst + r * stride, src + r * stride + s, n);
}

void shiftRowsRight(uint8_t* dst, const uint8_t* src, size_t width, size_t stride, size_t rows, size_t s) {
    const size_t n = clampedCopy(width, s);
    if (n == 0) return;
    for (size_t r = 0; r < rows; ++r) std::memmove(dst + r * stride + s, src + r * stride, n);
}

void shiftRowParts(uint8_t* dst, const uint8_t* src, size_t width, size_t rows, size_t parts, size_t s) {
    const size_t part = width / parts;
    for (size_t p = 0; p < parts; ++p) {
        if (p % 2 == 0)
            shiftRowsLeft(dst + p * part, src + p * part, part, width, rows, s);
        else
            shiftRowsRight(dst + p * part, src + p * part, part, width, rows, s);
    }
}

void halveRows(uint8_t* dst, const uint8_t* src, size_t outWidth, size_t rows, size_t unitBytes) {
    const bool pairs = unitBytes == 2;
    const HalveGroupsFn kernel = pairs ? halvePairsKernel() : halveBytesKernel();
    const size_t groups = outWidth / kHalveGroup, done = groups * kHalveGroup;
    for (size_t r = 0; r < rows; ++r) {
        uint8_t* d = dst + r * outWidth;
        const uint8_t* s = src + r * 2 * outWidth;
        if (groups) kernel(d, s, groups);
        if (pairs)
            HalvePairs_C(d + done, s + 2 * done, outWidth - done);
        else
            HalveBytes_C(d + done, s + 2 * done, outWidth - done);
    }
}

// ---- Set-up --------------------------------------------------------------

void fillDepthTable(float table[kDepthLevels], float baseline, float focalPx) {
    for (int i = 0; i < kDepthLevels; ++i) table[i] = 0.f;
    for (int i = 0; i < kDepthLevels - 1; ++i) {
        const double disparity = i * 0.125;
        float depth = 65535.f;
        if (disparity > 1.1920929e-7) {
            depth = static_cast<float>(static_cast<double>(baseline) * focalPx / disparity);
            if (depth > 65535.f) depth = 65535.f;
        }
        table[i] = depth;
    }
}

int32_t searchShift(const float table[kDepthLevels], uint16_t distance) {
    const float d = distance;
    for (int j = 1; j < kDepthLevels; ++j) {
        // The shift is half the index, not the disparity; kept on purpose.
        if (table[j - 1] >= d && table[j] <= d) return -((j - 1) / 2);
    }
    return 0;
}

uint32_t computeSetup(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
                      uint32_t keyMaterialSize, uint16_t width, uint16_t distance, ShiftSetup& setup) {
    uint8_t block[calib::kBlockSize] = {};
    uint32_t calibSize = 0, calibType = 0, calibIndex = 0;
    const uint32_t rc = calib::parseCalibration(block, &calibSize, &calibType, &calibIndex, calibration,
                                                calibrationSize, keyMaterial, keyMaterialSize, 0, layoutSelector(),
                                                0, 0);
    if (rc != 0) return rc;

    calib::CalibSummary summary;
    calib::readSummary(block, calibType, summary);
    double p1[12], p2[12];
    for (int i = 0; i < 12; ++i) {
        p1[i] = summary.projection1[i];
        p2[i] = summary.projection2[i];
    }
    setup.imageWidth = summary.width;
    setup.imageHeight = summary.height;
    setup.focalLength = summary.focalLength;
    setup.pixelPitch = summary.pixelPitch;
    setup.baseline = static_cast<float>(geom::cameraBaseline(p1, p2));
    setup.focalPx = width * summary.focalLength / (summary.width * summary.pixelPitch);
    fillDepthTable(setup.depthTable, setup.baseline, setup.focalPx);
    setup.alignShift = searchShift(setup.depthTable, distance);
    return 0;
}

// ---- Entry points ----------------------------------------------------------

uint32_t init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
              uint32_t keyMaterialSize, uint16_t width, uint16_t height, uint16_t distance) {
    ShiftSetup setup;
    const uint32_t rc =
        computeSetup(calibration, calibrationSize, keyMaterial, keyMaterialSize, width, distance, setup);
    if (rc != 0) return rc;

    // New buffer first: a failed allocation leaves the previous state whole.
    const size_t lumaBytes = size_t{2} * width * height;
    const size_t bytes = lumaBytes * 3 / 2;
    auto buffer = allocArray<uint8_t>(bytes);
    std::memset(buffer.get(), 0, lumaBytes);
    std::memset(buffer.get() + lumaBytes, kNeutralChroma, bytes - lumaBytes);

    g_state.summary.width = setup.imageWidth;
    g_state.summary.height = setup.imageHeight;
    g_state.summary.focalLength = setup.focalLength;
    g_state.summary.pixelPitch = setup.pixelPitch;
    g_state.baseline = setup.baseline;
    g_state.alignShift = setup.alignShift;
    g_state.shiftBuffer = std::move(buffer);
    g_state.shiftBufferBytes = bytes;
    prepareTeam();  // the first frame should not wait for new threads
    return 0;
}

// Both frames' rows (luma, then chroma: height * 3/2 rows of width bytes in
// either format) as one item list.
uint32_t shiftPair(uint8_t* outSecond, uint8_t* outFirst, const kvDSR_ImageDesc& imageSecond,
                   const kvDSR_ImageDesc& imageFirst, uint16_t width, uint16_t height) {
    const size_t s = static_cast<size_t>(-g_state.alignShift);
    const size_t rows = size_t{height} + height / 2;
    const size_t perItem = rowsPerItem(width);
    const size_t frameItems = itemsFor(rows, perItem);
    const uint8_t* first = imageFirst.plane[0];
    const uint8_t* second = imageSecond.plane[0];
    runItems(uint32_t(2 * frameItems), worthATeam(2 * size_t{width} * rows), [&](uint32_t item, int) {
        const bool isFirst = item < frameItems;
        const size_t r0 = (isFirst ? item : item - frameItems) * perItem, n = std::min(perItem, rows - r0);
        const size_t at = r0 * width;
        if (isFirst)
            shiftRowsLeft(outFirst + at, first + at, width, width, n, s);
        else
            shiftRowsRight(outSecond + at, second + at, width, width, n, s);
    });
    return kvDSR_OK;
}

uint32_t shiftSideBySide(uint8_t* out, uint32_t outWidth, uint32_t outHeight, const kvDSR_ImageDesc& image,
                         uint16_t width, uint16_t height) {
    const size_t s = static_cast<size_t>(-g_state.alignShift);
    const size_t W = width;

    if (outWidth == W) {
        if (!isShiftFormat(image.format)) return kvDSR_ERR_IMAGE_FORMAT;
        if (!image.plane[0]) return kvDSR_ERR_NULL_POINTER;
        // Rows past the caller's outHeight would leave its buffer.
        const size_t rows = std::min<size_t>(height, outHeight);
        const SideBySideShift frame(out, size_t{outWidth} * outHeight, image.plane[0], W, height, rows, image.format,
                                    s);
        const size_t perItem = rowsPerItem(W);
        runItems(uint32_t(itemsFor(frame.rows(), perItem)), worthATeam(W * frame.rows()), [&](uint32_t item, int) {
            const size_t r0 = item * perItem, r1 = std::min(frame.rows(), r0 + perItem);
            for (size_t r = r0; r < r1; ++r) frame.row(r);
        });
        return kvDSR_OK;
    }

    // Half width: shift into the intermediate buffer, then drop every other unit.
    if (!isShiftFormat(image.format)) {
        g_state.shiftBuffer.reset();
        g_state.shiftBufferBytes = 0;
        return kvDSR_ERR_IMAGE_FORMAT;
    }
    if (!g_state.shiftBuffer) return kvDSR_ERR_NOT_INITIALISED;
    // The intermediate frame is W wide with its chroma right after the luma;
    // it must fit the buffer sized at Init (a frame twice the Init width).
    const size_t halvedRows = size_t{height} * 3 / 2;
    const size_t needed = std::max(W * height + W * height / 2, W * halvedRows);
    if (needed > g_state.shiftBufferBytes) return kvDSR_ERR_SIZE_COMBINATION;
    if (!image.plane[0]) return kvDSR_ERR_NULL_POINTER;

    // Buffer row r (luma rows, then chroma rows) is halved into output row r
    // by the item that shifted it. A caller's outHeight below the frame's
    // height gets the rows that fit its buffer; the buffer gets them all.
    uint8_t* buf = g_state.shiftBuffer.get();
    const SideBySideShift frame(buf, W * height, image.plane[0], W, height, height, image.format, s);
    const size_t outRows = static_cast<size_t>(std::min<uint64_t>(halvedRows, uint64_t{outHeight} * 3 / 2));
    const size_t unit = image.format == kvDSR_FMT_YUV420SP ? 2 : 1;
    const size_t perItem = rowsPerItem(W);
    runItems(uint32_t(itemsFor(frame.rows(), perItem)), worthATeam(W * frame.rows()), [&](uint32_t item, int) {
        const size_t r0 = item * perItem, r1 = std::min(frame.rows(), r0 + perItem);
        for (size_t r = r0; r < r1; ++r) {
            frame.row(r);
            if (r < outRows) halveRows(out + r * outWidth, buf + r * W, outWidth, 1, unit);
        }
    });
    return kvDSR_OK;
}

uint32_t close() {
    g_state.shiftBuffer.reset();
    g_state.shiftBufferBytes = 0;
    return kvDSR_OK;
}

int32_t currentShift() { return g_state.alignShift; }
bool hasShiftBuffer() { return g_state.shiftBuffer != nullptr; }

}  // namespace kvdsr::focalshift
