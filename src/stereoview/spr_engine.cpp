// SPR engine: the stereo view's 0xF01 warp from one frame size to another,
// always with the camera models rescaled to the output size.
#include "stereoview/spr_engine.h"

#include <cstring>

#include "calibration/camera_model.h"
#include "common/frame_team.h"
#include "stereoview/stereo_params.h"
#include "stereoview/stereo_warp.h"

namespace kvdsr::spr {

namespace {

using stereoview::MapSet;

struct State {
    uint8_t initialised = 0;
    uint16_t inWidth = 0, inHeight = 0, outWidth = 0, outHeight = 0;
    MapSet fullMap, halfMap;
};

State& state() {
    static State s;  // built on first use, not at load
    return s;
}

// The parameter block of one resolution (kept, shared with the stereo view)
// and the tables built from its cameras, rescaled to the output size.
void buildResolution(uint8_t* keptBlock, const uint8_t* parsed, MapSet& set, uint16_t inWidth, uint16_t inHeight,
                     uint16_t outWidth, uint16_t outHeight) {
    calib::CameraModel cameras[2];
    stereoview::readCameras(parsed, cameras);
    for (calib::CameraModel& c : cameras) stereoview::rescaleModel(c, outWidth, outHeight);
    stereoview::keepCameras(keptBlock, parsed, cameras);
    stereoview::buildMapSet(set, cameras, inWidth, inHeight, outWidth, outHeight);
}

}  // namespace

bool initialised() { return state().initialised != 0; }

bool sizesMatch(uint32_t inWidth, uint32_t inHeight, uint32_t outWidth, uint32_t outHeight) {
    const State& st = state();
    return inWidth == st.inWidth && inHeight == st.inHeight && outWidth == st.outWidth &&
           outHeight == st.outHeight;
}


uint32_t init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
              uint32_t keyMaterialSize, uint16_t inWidth, uint16_t inHeight, uint16_t outWidth,
              uint16_t outHeight) {
    alignas(8) uint8_t block[calib::kBlockSize];
    const uint32_t rc =
        stereoview::parseStereoCalibration(block, calibration, calibrationSize, keyMaterial, keyMaterialSize);
    if (rc != 0) return rc;

    State& st = state();
    st.initialised = 0;  // a failed allocation from here on leaves it uninitialised
    stereoview::StereoParams& params = stereoview::stereoParams();

    buildResolution(params.calibBlock, block, st.fullMap, inWidth, inHeight, outWidth, outHeight);
    buildResolution(params.halfCalibBlock, block, st.halfMap, inWidth / 2, inHeight / 2, outWidth / 2,
                    outHeight / 2);

    st.inWidth = inWidth;
    st.inHeight = inHeight;
    st.outWidth = outWidth;
    st.outHeight = outHeight;
    st.initialised = 1;
    prepareTeam();  // the first frame should not wait for new threads
    return kvDSR_OK;
}

uint32_t run(uint8_t* outSecond, uint8_t* outFirst, const kvDSR_ImageDesc& imageSecond,
             const kvDSR_ImageDesc& imageFirst, uint16_t, uint16_t, uint16_t, uint16_t) {
    if (imageFirst.format != kvDSR_FMT_YUV420SP || imageSecond.format != imageFirst.format) return kvDSR_OK;
    const State& st = state();
    stereoview::FrameWarp warp;
    warp.addView(st.fullMap, st.halfMap, 2, imageSecond,
                 stereoview::viewTarget(outSecond, st.fullMap, st.halfMap, kvDSR_FMT_YUV420SP, 1, 0));
    warp.addView(st.fullMap, st.halfMap, 1, imageFirst,
                 stereoview::viewTarget(outFirst, st.fullMap, st.halfMap, kvDSR_FMT_YUV420SP, 1, 0));
    warp.run();
    return kvDSR_OK;
}

uint32_t close() {
    State& st = state();
    stereoview::releaseMapSet(st.fullMap);
    stereoview::releaseMapSet(st.halfMap);
    st.initialised = 0;
    return kvDSR_OK;
}

}  // namespace kvdsr::spr
