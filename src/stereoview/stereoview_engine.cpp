// Stereo view engine: Init turns the calibration into full- and half-
// resolution maps of both cameras; the runs warp each plane through them.
#include "stereoview/stereoview_engine.h"

#include <cstring>

#include "calibration/camera_model.h"
#include "common/aspect.h"
#include "common/frame_team.h"
#include "stereoview/crop_transform.h"
#include "stereoview/stereo_params.h"
#include "stereoview/stereo_warp.h"

namespace kvdsr::stereoview {

namespace {

// The half-size crops are fixed, deliberately independent of the calibration.
constexpr CropRect kHalfCrops[2] = {{0, 150, 1599, 1049}, {0, 390, 4159, 2729}};

struct State {
    uint8_t initialised = 0;
    uint16_t width = 0, height = 0;
    AspectState aspect;  // is43 is useModelTransforms; a square size keeps it
    MapSet fullMap, halfMap;
};

State& state() {
    static State s;  // built on first use, not at load
    return s;
}

// Both cameras prepared for the working size: rescaled (4:3 class), or
// cropped to 16:9 and brought to the working size.
void prepareCameras(calib::CameraModel cameras[2], uint16_t width, uint16_t height, bool useModel,
                    const CropRect crops[2]) {
    if (!useModel) cropTransform(cameras, width, height, crops);
    // A camera the crop left untouched (whole-image crop, unsolvable
    // corners) is still at its calibrated size.
    for (int k = 0; k < 2; ++k)
        if (useModel || cameras[k].modelWidth != width || cameras[k].modelHeight != height)
            rescaleModel(cameras[k], width, height);
}

// The parameter block of one resolution (kept, shared with SPR) and the
// tables built from its cameras.
void buildResolution(uint8_t* keptBlock, const uint8_t* parsed, MapSet& set, uint16_t width, uint16_t height,
                     bool useModel, const CropRect crops[2]) {
    calib::CameraModel cameras[2];
    readCameras(parsed, cameras);
    prepareCameras(cameras, width, height, useModel, crops);
    keepCameras(keptBlock, parsed, cameras);
    buildMapSet(set, cameras, width, height, width, height);
}

// Both views of one call into a frame of viewsPerRow views (1: the two
// outputs, 2: one side-by-side frame), as one team call.
void warpViews(const State& st, uint8_t* outSecond, uint8_t* outFirst, uint32_t viewsPerRow,
               const kvDSR_ImageDesc& imageSecond, const kvDSR_ImageDesc& imageFirst) {
    const uint32_t format = imageFirst.format;
    const uint32_t secondIndex = viewsPerRow == 1 ? 0 : 1;
    FrameWarp warp;
    warp.addView(st.fullMap, st.halfMap, 2, imageSecond,
                 viewTarget(outSecond, st.fullMap, st.halfMap, format, viewsPerRow, secondIndex));
    warp.addView(st.fullMap, st.halfMap, 1, imageFirst,
                 viewTarget(outFirst, st.fullMap, st.halfMap, format, viewsPerRow, 0));
    warp.run();
}

bool isStereoFormat(uint32_t format) {
    return format == kvDSR_FMT_YUV444P || format == kvDSR_FMT_YUV420P || format == kvDSR_FMT_YUV420SP;
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
    return {st.fullMap.storage.capacity(), st.halfMap.storage.capacity()};
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

    CropRect crops[2];
    for (int camera = 1; camera <= 2; ++camera) {
        const calib::CameraModel c = calib::readCamera(block, camera);
        crops[camera - 1] = centredCrop169(c.calibWidth, c.calibHeight);
    }
    buildResolution(params.calibBlock, block, st.fullMap, width, height, useModel, crops);
    buildResolution(params.halfCalibBlock, block, st.halfMap, width / 2, height / 2, useModel, kHalfCrops);

    st.width = width;
    st.height = height;
    st.initialised = 1;
    prepareTeam();  // the first frame should not wait for new threads
    return kvDSR_OK;
}

uint32_t run(uint8_t* outSecond, uint8_t* outFirst, const kvDSR_ImageDesc& imageSecond,
             const kvDSR_ImageDesc& imageFirst, uint16_t, uint16_t) {
    if (!isStereoFormat(imageFirst.format)) return kvDSR_ERR_IMAGE_FORMAT;
    warpViews(state(), outSecond, outFirst, 1, imageSecond, imageFirst);
    return kvDSR_OK;
}

// Camera 1 on the left of every row, camera 2 on the right: each view is
// warped straight into its half.
uint32_t runSideBySide(uint8_t* out, const kvDSR_ImageDesc& imageSecond, const kvDSR_ImageDesc& imageFirst,
                       uint16_t, uint16_t) {
    if (!isStereoFormat(imageFirst.format)) return kvDSR_ERR_IMAGE_FORMAT;
    warpViews(state(), out, out, 2, imageSecond, imageFirst);
    return kvDSR_OK;
}

uint32_t close() {
    State& st = state();
    releaseMapSet(st.fullMap);
    releaseMapSet(st.halfMap);
    st.initialised = 0;
    return kvDSR_OK;
}

}  // namespace kvdsr::stereoview
