// SPR engine: the stereo view's 0xF01 warp from one frame size to another,
// always with the camera models rescaled to the output size.
#include "stereoview/spr_engine.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "calibration/calib_block.h"
#include "common/alloc.h"
#include "stereoview/stereo_params.h"
#include "stereoview/stereo_warp.h"

namespace kvdsr::spr {

namespace {

using stereoview::MapSet;

struct State {
    uint8_t initialised = 0;
    uint16_t inWidth = 0, inHeight = 0, outWidth = 0, outHeight = 0;
    MapSet fullMap, halfMap;
    std::unique_ptr<uint8_t[]> scratch[4];
};

State& state() {
    static State s;  // built on first use, not at load
    return s;
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

    std::memcpy(params.calibBlock, block, calib::kBlockSize);
    stereoview::rescaleBothCameras(params.calibBlock, outWidth, outHeight);
    stereoview::buildMapSet(st.fullMap, params.calibBlock, inWidth, inHeight, outWidth, outHeight);

    std::memcpy(params.halfCalibBlock, block, calib::kBlockSize);
    stereoview::rescaleBothCameras(params.halfCalibBlock, outWidth / 2, outHeight / 2);
    stereoview::buildMapSet(st.halfMap, params.halfCalibBlock, inWidth / 2, inHeight / 2, outWidth / 2,
                            outHeight / 2);

    // Sized for the larger frame so that an upscaling warp stays inside.
    const std::size_t scratchBytes =
        std::max(std::size_t(inWidth) * inHeight, std::size_t(outWidth) * outHeight) * 3;
    for (auto& s : st.scratch) {
        s.reset();
        s = allocArray<uint8_t>(scratchBytes);
    }
    st.inWidth = inWidth;
    st.inHeight = inHeight;
    st.outWidth = outWidth;
    st.outHeight = outHeight;
    st.initialised = 1;
    return kvDSR_OK;
}

uint32_t run(uint8_t* outSecond, uint8_t* outFirst, const kvDSR_ImageDesc& imageSecond,
             const kvDSR_ImageDesc& imageFirst, uint16_t, uint16_t, uint16_t, uint16_t) {
    if (imageFirst.format != kvDSR_FMT_YUV420SP || imageSecond.format != imageFirst.format) return kvDSR_OK;
    State& st = state();
    uint8_t* p[4];
    for (int i = 0; i < 4; ++i) p[i] = st.scratch[i].get();
    stereoview::warpPair420SP(st.fullMap, st.halfMap, outSecond, outFirst, imageSecond, imageFirst, p);
    return kvDSR_OK;
}

uint32_t close() {
    State& st = state();
    stereoview::releaseMapSet(st.fullMap);
    stereoview::releaseMapSet(st.halfMap);
    for (auto& s : st.scratch) s.reset();
    st.initialised = 0;
    return kvDSR_OK;
}

}  // namespace kvdsr::spr
