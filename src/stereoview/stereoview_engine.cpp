// Stereo view engine: Init turns the calibration into full- and half-
// resolution maps of both cameras; the runs warp each plane through them.
#include "stereoview/stereoview_engine.h"

#include <cstring>
#include <memory>
#include <system_error>
#include <thread>

#include "calibration/calib_block.h"
#include "common/alloc.h"
#include "common/aspect.h"
#include "stereoview/crop_transform.h"
#include "stereoview/plane_pack.h"
#include "stereoview/stereo_params.h"
#include "stereoview/stereo_warp.h"

namespace kvdsr::stereoview {

namespace {

// Below this many luma pixels the chroma split costs less than starting its
// worker thread (the same threshold below which the warps skip their team).
constexpr std::size_t kWorkerMinPixels = std::size_t(1) << 15;

// The half-size crops are fixed, deliberately independent of the calibration.
constexpr CropRect kHalfCrops[2] = {{0, 150, 1599, 1049}, {0, 390, 4159, 2729}};

struct State {
    uint8_t initialised = 0;
    uint16_t width = 0, height = 0;
    AspectState aspect;  // is43 is useModelTransforms; a square size keeps it
    MapSet fullMap, halfMap;
    std::unique_ptr<uint8_t[]> scratch[4];  // width * height * 3 bytes each
};

State& state() {
    static State s;  // built on first use, not at load
    return s;
}

// Camera sections rescaled to the working size (4:3 class), or cropped to
// 16:9 and then brought to the working size.
void prepareBlock(uint8_t* block, uint16_t width, uint16_t height, bool useModel, const CropRect crops[2]) {
    if (useModel) {
        rescaleBothCameras(block, width, height);
        return;
    }
    cropTransform(block, width, height, crops);
    // A section the crop left untouched (whole-image crop, unsolvable
    // corners) is still at its calibrated size: bring it to the working size.
    for (int camera = 1; camera <= 2; ++camera) {
        const uint8_t* s = block + calib::kSectionOffset[camera];
        if (calib::load<uint16_t>(s, calib::sec::kModelWidth) != width ||
            calib::load<uint16_t>(s, calib::sec::kModelHeight) != height)
            rescaleCamera(block, width, height, camera);
    }
}

uint8_t* const* scratchPointers(State& st, uint8_t* (&p)[4]) {
    for (int i = 0; i < 4; ++i) p[i] = st.scratch[i].get();
    return p;
}

void warpPlanar420(const State& st, int camera, uint8_t* out, const kvDSR_ImageDesc& in) {
    const std::size_t luma = std::size_t(st.width) * st.height;
    const std::size_t chroma = std::size_t(st.halfMap.outWidth) * st.halfMap.outHeight;
    warpPlane(st.fullMap, camera, out, in.plane[0]);
    warpPlane(st.halfMap, camera, out + luma, in.plane[1]);
    warpPlane(st.halfMap, camera, out + luma + chroma, in.plane[2]);
}

}  // namespace

bool initialised() { return state().initialised != 0; }

bool sizesMatch(uint32_t width, uint32_t height) {
    const State& st = state();
    return width == st.width && height == st.height;
}

uint8_t useModelTransforms() { return state().aspect.is43; }

MapCapacity mapCapacity() {
    const State& st = state();
    return {st.fullMap.workspace.capacity(), st.halfMap.workspace.capacity()};
}

uint32_t init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
              uint32_t keyMaterialSize, uint16_t width, uint16_t height) {
    alignas(8) uint8_t block[calib::kBlockSize];
    const uint32_t rc = parseStereoCalibration(block, calibration, calibrationSize, keyMaterial, keyMaterialSize);
    if (rc != 0) return rc;

    State& st = state();
    // The same size twice: the class check cannot fail, it only sets the class.
    checkSizeCombination(width, height, width, height, st.aspect);
    const bool useModel = st.aspect.is43 != 0;

    // From here on a failed allocation leaves the engine uninitialised.
    st.initialised = 0;
    StereoParams& params = stereoParams();

    std::memcpy(params.calibBlock, block, calib::kBlockSize);
    CropRect crops[2];
    for (int camera = 1; camera <= 2; ++camera) {
        const uint8_t* s = block + calib::kSectionOffset[camera];
        crops[camera - 1] = centredCrop169(calib::load<uint16_t>(s, calib::sec::kCalibWidth),
                                           calib::load<uint16_t>(s, calib::sec::kCalibHeight));
    }
    prepareBlock(params.calibBlock, width, height, useModel, crops);
    buildMapSet(st.fullMap, params.calibBlock, width, height, width, height);

    const uint16_t hw = width / 2, hh = height / 2;
    std::memcpy(params.halfCalibBlock, block, calib::kBlockSize);
    prepareBlock(params.halfCalibBlock, hw, hh, useModel, kHalfCrops);
    buildMapSet(st.halfMap, params.halfCalibBlock, hw, hh, hw, hh);

    const std::size_t scratchBytes = std::size_t(width) * height * 3;
    for (auto& s : st.scratch) {
        s.reset();
        s = allocArray<uint8_t>(scratchBytes);
    }
    st.width = width;
    st.height = height;
    st.initialised = 1;
    return kvDSR_OK;
}

uint32_t run(uint8_t* outSecond, uint8_t* outFirst, const kvDSR_ImageDesc& imageSecond,
             const kvDSR_ImageDesc& imageFirst, uint16_t width, uint16_t height) {
    State& st = state();
    switch (imageFirst.format) {
        case kvDSR_FMT_YUV444P:
            warpPlane(st.fullMap, 2, outSecond, imageSecond.plane[0]);
            warpPlane(st.fullMap, 1, outFirst, imageFirst.plane[0]);
            return kvDSR_OK;
        case kvDSR_FMT_YUV420P:
            warpPlanar420(st, 2, outSecond, imageSecond);
            warpPlanar420(st, 1, outFirst, imageFirst);
            return kvDSR_OK;
        case kvDSR_FMT_YUV420SP: {
            uint8_t* p[4];
            warpPair420SP(st.fullMap, st.halfMap, outSecond, outFirst, imageSecond, imageFirst,
                          scratchPointers(st, p));
            return kvDSR_OK;
        }
        default: return kvDSR_ERR_IMAGE_FORMAT;
    }
}

uint32_t runSideBySide(uint8_t* out, const kvDSR_ImageDesc& imageSecond, const kvDSR_ImageDesc& imageFirst,
                       uint16_t width, uint16_t height) {
    State& st = state();
    const uint32_t format = imageFirst.format;
    if (format != kvDSR_FMT_YUV444P && format != kvDSR_FMT_YUV420P && format != kvDSR_FMT_YUV420SP)
        return kvDSR_ERR_IMAGE_FORMAT;

    uint8_t* first = st.scratch[0].get();   // camera 1, packed on the left
    uint8_t* second = st.scratch[1].get();  // camera 2, on the right
    const std::size_t luma = std::size_t(width) * height;
    const uint32_t hw = st.halfMap.outWidth, hh = st.halfMap.outHeight;
    const std::size_t chroma = std::size_t(hw) * hh;

    if (format == kvDSR_FMT_YUV420SP) {
        // Chroma is split on a worker while this thread (and its team) warps luma.
        uint8_t* splitFirst = st.scratch[2].get() + luma;
        uint8_t* splitSecond = st.scratch[3].get() + luma;
        auto split = [&] {
            splitVU(imageFirst.plane[1], width, splitFirst, splitFirst + chroma, hw, hh);
            splitVU(imageSecond.plane[1], width, splitSecond, splitSecond + chroma, hw, hh);
        };
        std::thread worker;
        if (luma >= kWorkerMinPixels) {
            try {
                worker = std::thread(split);
            } catch (const std::system_error&) {
            }
        }
        if (!worker.joinable()) split();  // small frame, or no thread to be had
        warpPlane(st.fullMap, 1, first, imageFirst.plane[0]);
        warpPlane(st.fullMap, 2, second, imageSecond.plane[0]);
        if (worker.joinable()) worker.join();
        warpPlane(st.halfMap, 1, first + luma, splitFirst);
        warpPlane(st.halfMap, 1, first + luma + chroma, splitFirst + chroma);
        warpPlane(st.halfMap, 2, second + luma, splitSecond);
        warpPlane(st.halfMap, 2, second + luma + chroma, splitSecond + chroma);
        packSideBySide(out, first, second, width, height);
        uint8_t* outChroma = out + 2 * luma;
        interleaveVU(first + luma, first + luma + chroma, outChroma, 2u * width, hw, hh);
        interleaveVU(second + luma, second + luma + chroma, outChroma + width, 2u * width, hw, hh);
        return kvDSR_OK;
    }

    if (format == kvDSR_FMT_YUV444P) {
        warpPlane(st.fullMap, 1, first, imageFirst.plane[0]);
        warpPlane(st.fullMap, 2, second, imageSecond.plane[0]);
        packSideBySide(out, first, second, width, height);
        return kvDSR_OK;
    }

    warpPlanar420(st, 1, first, imageFirst);
    warpPlanar420(st, 2, second, imageSecond);
    packSideBySide(out, first, second, width, height);
    packSideBySide(out + 2 * luma, first + luma, second + luma, hw, hh);
    packSideBySide(out + 2 * luma + 2 * chroma, first + luma + chroma, second + luma + chroma, hw, hh);
    return kvDSR_OK;
}

uint32_t close() {
    State& st = state();
    releaseMapSet(st.fullMap);
    releaseMapSet(st.halfMap);
    for (auto& s : st.scratch) s.reset();
    st.initialised = 0;
    return kvDSR_OK;
}

}  // namespace kvdsr::stereoview
