#include "stereoview/stereo_params.h"

#include <cstring>

#include "calibration/calib_parser.h"
#include "calibration/geometry.h"
#include "common/camera_layout.h"

namespace kvdsr::stereoview {

namespace {
StereoParams g_params{};  // constant-initialised
}

StereoParams& stereoParams() { return g_params; }

uint32_t parseStereoCalibration(uint8_t block[calib::kBlockSize], const uint8_t* calibration,
                                uint32_t calibrationSize, const uint32_t* keyMaterial, uint32_t keyMaterialSize) {
    std::memset(block, 0, calib::kBlockSize);
    uint32_t size = 0, type = 0, index = 0;
    const uint32_t rc = calib::parseCalibration(block, &size, &type, &index, calibration, calibrationSize,
                                                keyMaterial, keyMaterialSize, 0, layoutSelector(), 0, 1);
    // The maps read camera sections at their kind-3 places; a kind-1 body
    // keeps them elsewhere.
    if (rc == 0 && type == 1) calib::expandKind1(block, block);
    return rc;
}

void rescaleCamera(uint8_t* block, uint16_t width, uint16_t height, int camera) {
    const uint8_t* s = block + calib::kSectionOffset[camera];
    if (calib::load<uint16_t>(s, calib::sec::kModelWidth) == 0 ||
        calib::load<uint16_t>(s, calib::sec::kModelHeight) == 0)
        return;
    geom::rescaleCameraSection(block, width, height, camera);
}

void rescaleBothCameras(uint8_t* block, uint16_t width, uint16_t height) {
    for (int camera = 1; camera <= 2; ++camera) rescaleCamera(block, width, height, camera);
}

}  // namespace kvdsr::stereoview
