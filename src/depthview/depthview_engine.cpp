// Depth view engine: its process-wide state, Init (calibration, virtual
// camera, shift table) and the per-frame pipelines of Run and Run_SideBySide.
#include "depthview/depthview_engine.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "calibration/calib_block.h"
#include "calibration/calib_parser.h"
#include "calibration/geometry.h"
#include "common/alloc.h"
#include "common/aspect.h"
#include "common/camera_layout.h"
#include "common/colorconv.h"
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
    std::unique_ptr<uint16_t[]> depthUpscaled;  // width x height

    // Per-frame temporaries, kept between frames (grow-only).
    GrowBuffer depthTemp;      // converted map before the minimum filter
    GrowBuffer resizeScratch;  // horizontal pass of the resize
    GrowBuffer sourceImage;    // packed 4:4:4 input
    GrowBuffer synthImage;     // 4:4:4 (side-by-side: double width) output
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

// Depth conversion, hole filling and minimum filter into depthBuffer.
// Returns false for an unknown depth format.
bool prepareDepth(DepthViewState& s, const kvDSR_ImageDesc& depth, int dw, int dh) {
    const size_t n = size_t(dw) * dh;
    const float focalPx = float(dw) * (s.focalLength / (s.sensorWidth * s.pixelSize));
    uint16_t* temp = bufferOf<uint16_t>(s.depthTemp, n);
    if (depth.format == kvDSR_FMT_DEPTH8) {
        uint8_t* map = depth.plane[0];
        fillInvalidDepth8(map, dw, dh);
        const uint8_t scale = dh ? uint8_t((1440 / dh) & 0xFF) : 0;
        disparity8ToDepth(temp, map, dw, dh, scale, 1023, 255, focalPx, s.baseline);
        minFilterDepth(s.depthBuffer.get(), temp, dw, dh, 2);
        return true;
    }
    if (depth.format == kvDSR_FMT_DEPTH16) {
        uint16_t* map = reinterpret_cast<uint16_t*>(depth.plane[0]);
        fillInvalidDepth16(map, dw, dh);
        disparity16ToDepth(temp, map, dw, dh, 8, 1023, 1023, focalPx, s.baseline);
        minFilterDepth(s.depthBuffer.get(), temp, dw, dh, 3);
        return true;
    }
    return false;
}

bool depthIsFlat(const uint16_t* map, size_t n) {
    uint16_t lo = 65535, hi = 0;
    for (size_t i = 0; i < n; ++i) {
        lo = std::min(lo, map[i]);
        hi = std::max(hi, map[i]);
    }
    return lo == hi;
}

// The flat-depth copy reads plane 0 as the base of the whole image.
size_t flatImageBytes(const kvDSR_ImageDesc& image, size_t w, size_t h) {
    return image.format == kvDSR_FMT_YUV420SP ? w * h * 3 / 2 : w * h * 3;
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

void copyPaddedPlanes(uint8_t* packed, const kvDSR_ImageDesc& image, size_t w, size_t h) {
    for (int i = 0; i < 3; ++i)
        for (size_t y = 0; y < h; ++y)
            std::memcpy(packed + (i * h + y) * w, image.plane[i] + y * image.stride[i], w);
}

// 0xF01 frames the 4:4:4 conversion accepts go through the fused 4:2:0
// synthesis (same bytes); the others through the 4:4:4 images.
bool directStrides(const kvDSR_ImageDesc& image, uint32_t width) {
    const uint32_t sy = image.stride[0], suv = image.stride[1];
    return width > 0 && (sy == 0 || sy >= width) && (suv == 0 || suv >= width);
}

// 0xF01 input to a packed 4:4:4 image. A conversion the converter refuses
// (stride below the width) leaves a defined all-zero image.
void to444(uint8_t* dst, const kvDSR_ImageDesc& image, uint32_t w, uint32_t h) {
    const size_t plane = size_t(w) * h;
    if (!ycbcr420spTo444p(image.plane[0], image.stride[0], image.plane[1], image.stride[1], dst, dst + plane,
                          dst + 2 * plane, w, w, h))
        std::memset(dst, 0, 3 * plane);
}

void clear444(uint8_t* img, size_t lumaBytes) {
    std::memset(img, 0, lumaBytes);
    std::memset(img + lumaBytes, 128, 2 * lumaBytes);
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
        for (int i = 0; i < 12; ++i) {
            summary.projection1[i] = calib::load<float>(block, calib::kSectionOffset[1] + calib::sec::kProjection + 4 * i);
            summary.projection2[i] = calib::load<float>(block, calib::kSectionOffset[2] + calib::sec::kProjection + 4 * i);
        }
    }
    double p1[12], p2[12];
    for (int i = 0; i < 12; ++i) {
        p1[i] = summary.projection1[i];
        p2[i] = summary.projection2[i];
    }
    baseline = geom::cameraBaseline(p1, p2);
    if (width < height) std::swap(cam.sensorWidth, sensorHeight);

    auto depthBuffer = allocArray<uint16_t>(size_t(depthWidth) * depthHeight);
    auto depthUpscaled = allocArray<uint16_t>(size_t(width) * height);
    auto shiftTable = allocArray<uint16_t>(size_t(kDepthLevels) * width);
    double viewMatrix[16];
    buildViewMatrix(viewMatrix, cam, viewShift);
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
    s.depthUpscaled = std::move(depthUpscaled);
    s.shiftTable = std::move(shiftTable);
    s.initialised = true;
    return kvDSR_OK;
}

uint32_t run(uint8_t* out, const kvDSR_ImageDesc& image, uint32_t width, uint32_t height,
             const kvDSR_ImageDesc& depth, uint16_t depthWidth, uint16_t depthHeight) {
    DepthViewState& s = g_state;
    const size_t w = width, h = height, plane = w * h;
    if (!prepareDepth(s, depth, depthWidth, depthHeight)) return kvDSR_ERR_DEPTH_FORMAT;

    const size_t mapSize = size_t(depthWidth) * depthHeight;
    if (mapSize && depthIsFlat(s.depthBuffer.get(), mapSize)) {
        if (image.format != kvDSR_FMT_YUV420SP && image.format != kvDSR_FMT_YUV444P) return kvDSR_ERR_DEPTH_FORMAT;
        if (!image.plane[0]) return kvDSR_ERR_NULL_POINTER;
        std::memcpy(out, image.plane[0], flatImageBytes(image, w, h));
        return kvDSR_OK;
    }

    uint32_t* scratch = bufferOf<uint32_t>(s.resizeScratch, resizeScratchSize(depthHeight, int(width)));
    resizeDepth(s.depthUpscaled.get(), s.depthBuffer.get(), depthWidth, depthHeight, int(width), int(height), scratch);

    const uint16_t* table = s.shiftTable.get();
    const uint16_t* depthMap = s.depthUpscaled.get();
    if (image.format == kvDSR_FMT_YUV420SP) {
        if (!image.plane[0] || !image.plane[1]) return kvDSR_ERR_NULL_POINTER;
        if (directStrides(image, width)) {
            synthesizeView420({out, out + plane, false, image.plane[0], image.stride[0], image.plane[1],
                               image.stride[1], depthMap, table, s.firstColumn, int(width), int(height)});
            return kvDSR_OK;
        }
        uint8_t* src = bufferOf<uint8_t>(s.sourceImage, 3 * plane);
        uint8_t* dst = bufferOf<uint8_t>(s.synthImage, 3 * plane);
        to444(src, image, width, height);
        clear444(dst, plane);
        const uint8_t* const sp[3] = {src, src + plane, src + 2 * plane};
        uint8_t* const dp[3] = {dst, dst + plane, dst + 2 * plane};
        synthesizeView(dp, w, sp, w, depthMap, table, s.firstColumn, int(width), int(height));
        ycbcr444pTo420sp(dp[0], dp[1], dp[2], width, out, width, out + plane, width, width, height);
        return kvDSR_OK;
    }
    if (image.format == kvDSR_FMT_YUV444P) {
        const uint8_t* src;
        if (packedStrides(image, width)) {
            if (!image.plane[0]) return kvDSR_ERR_NULL_POINTER;
            src = image.plane[0];
            clear444(out, plane);
        } else {
            if (uint32_t rc = checkPaddedPlanes(image, width)) return rc;
            uint8_t* packed = bufferOf<uint8_t>(s.sourceImage, 3 * plane);
            copyPaddedPlanes(packed, image, w, h);
            src = packed;
        }
        const uint8_t* const sp[3] = {src, src + plane, src + 2 * plane};
        uint8_t* const dp[3] = {out, out + plane, out + 2 * plane};
        synthesizeView(dp, w, sp, w, depthMap, table, s.firstColumn, int(width), int(height));
        return kvDSR_OK;
    }
    return kvDSR_ERR_IMAGE_FORMAT;
}

uint32_t runSideBySide(uint8_t* out, const kvDSR_ImageDesc& image, uint16_t width, uint16_t height,
                       const kvDSR_ImageDesc& depth, uint16_t depthWidth, uint16_t depthHeight) {
    DepthViewState& s = g_state;
    const size_t w = width, h = height, plane = w * h, outWidth = 2 * w;
    if (!prepareDepth(s, depth, depthWidth, depthHeight)) return kvDSR_ERR_DEPTH_FORMAT;

    const size_t mapSize = size_t(depthWidth) * depthHeight;
    if (mapSize && depthIsFlat(s.depthBuffer.get(), mapSize)) {
        if (image.format != kvDSR_FMT_YUV420SP && image.format != kvDSR_FMT_YUV444P) return kvDSR_ERR_DEPTH_FORMAT;
        if (!image.plane[0]) return kvDSR_ERR_NULL_POINTER;
        const size_t rows = image.format == kvDSR_FMT_YUV420SP ? h * 3 / 2 : h * 3;
        for (size_t r = 0; r < rows; ++r) {
            const uint8_t* row = image.plane[0] + r * w;
            std::memcpy(out + r * outWidth, row, w);
            std::memcpy(out + r * outWidth + w, row, w);
        }
        return kvDSR_OK;
    }

    uint32_t* scratch = bufferOf<uint32_t>(s.resizeScratch, resizeScratchSize(depthHeight, width));
    resizeDepth(s.depthUpscaled.get(), s.depthBuffer.get(), depthWidth, depthHeight, width, height, scratch);

    const uint16_t* table = s.shiftTable.get();
    const uint16_t* depthMap = s.depthUpscaled.get();
    // Input rows (3 * height of them, packed) into the right halves.
    auto copyRightHalves = [&](uint8_t* dst, const uint8_t* src) {
        for (size_t r = 0; r < 3 * h; ++r) std::memcpy(dst + r * outWidth + w, src + r * w, w);
    };
    if (image.format == kvDSR_FMT_YUV420SP) {
        if (!image.plane[0] || !image.plane[1]) return kvDSR_ERR_NULL_POINTER;
        if (directStrides(image, width)) {
            synthesizeView420({out, out + h * outWidth, true, image.plane[0], image.stride[0], image.plane[1],
                               image.stride[1], depthMap, table, s.firstColumn, width, height});
            return kvDSR_OK;
        }
        uint8_t* src = bufferOf<uint8_t>(s.sourceImage, 3 * plane);
        uint8_t* dst = bufferOf<uint8_t>(s.synthImage, 6 * plane);
        to444(src, image, width, height);
        clear444(dst, 2 * plane);
        synthesizeViewSideBySide(dst, src, depthMap, table, s.firstColumn, width, height);
        copyRightHalves(dst, src);
        ycbcr444pTo420sp(dst, dst + 2 * plane, dst + 4 * plane, uint32_t(outWidth), out, uint32_t(outWidth),
                         out + h * outWidth, uint32_t(outWidth), uint32_t(outWidth), height);
        return kvDSR_OK;
    }
    if (image.format == kvDSR_FMT_YUV444P) {
        const uint8_t* src;
        if (packedStrides(image, width)) {
            if (!image.plane[0]) return kvDSR_ERR_NULL_POINTER;
            src = image.plane[0];
        } else {
            if (uint32_t rc = checkPaddedPlanes(image, width)) return rc;
            uint8_t* packed = bufferOf<uint8_t>(s.sourceImage, 3 * plane);
            copyPaddedPlanes(packed, image, w, h);
            src = packed;
        }
        synthesizeViewSideBySide(out, src, depthMap, table, s.firstColumn, width, height);
        copyRightHalves(out, src);
        return kvDSR_OK;
    }
    return kvDSR_ERR_IMAGE_FORMAT;
}

uint32_t close() {
    DepthViewState& s = g_state;
    s.shiftTable.reset();
    s.depthBuffer.reset();
    s.depthUpscaled.reset();
    s.depthTemp.release();
    s.resizeScratch.release();
    s.sourceImage.release();
    s.synthImage.release();
    s.initialised = false;
    return kvDSR_OK;
}

}  // namespace kvdsr::depthview
