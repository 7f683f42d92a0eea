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

void readCameras(const uint8_t block[calib::kBlockSize], calib::CameraModel cameras[2]) {
    cameras[0] = calib::readCamera(block, 1);
    cameras[1] = calib::readCamera(block, 2);
}

void keepCameras(uint8_t kept[calib::kBlockSize], const uint8_t parsed[calib::kBlockSize],
                 const calib::CameraModel cameras[2]) {
    std::memcpy(kept, parsed, calib::kBlockSize);
    calib::writeCamera(kept, 1, cameras[0]);
    calib::writeCamera(kept, 2, cameras[1]);
}

void rescaleModel(calib::CameraModel& camera, uint16_t width, uint16_t height) {
    if (camera.modelWidth == 0 || camera.modelHeight == 0) return;
    geom::rescaleCamera(camera, width, height);
}

void rescaleCamera(uint8_t* block, uint16_t width, uint16_t height, int camera) {
    calib::CameraModel model = calib::readCamera(block, camera);
    if (model.modelWidth == 0 || model.modelHeight == 0) return;
    rescaleModel(model, width, height);
    calib::writeCamera(block, camera, model);
}

void rescaleBothCameras(uint8_t* block, uint16_t width, uint16_t height) {
    for (int camera = 1; camera <= 2; ++camera) rescaleCamera(block, width, height, camera);
}

}  // namespace kvdsr::stereoview
