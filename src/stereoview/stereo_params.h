// Calibration parameter blocks shared by the stereo view and SPR engines: an
// Init of either engine replaces both blocks (each engine keeps its own maps).
#pragma once

#include <cstdint>

#include "calibration/camera_model.h"

namespace kvdsr::stereoview {

struct StereoParams {
    alignas(8) uint8_t calibBlock[calib::kBlockSize];
    alignas(8) uint8_t halfCalibBlock[calib::kBlockSize];
};
StereoParams& stereoParams();

// Parses into a zeroed block with the camera-layout selector, focus position
// 0 and body index 1; returns the parser's code.
uint32_t parseStereoCalibration(uint8_t block[calib::kBlockSize], const uint8_t* calibration,
                                uint32_t calibrationSize, const uint32_t* keyMaterial, uint32_t keyMaterialSize);

// Cameras 1 and 2 of a parsed block ([0] is camera 1).
void readCameras(const uint8_t block[calib::kBlockSize], calib::CameraModel cameras[2]);
// The parsed block with its cameras replaced by prepared ones, kept as the
// parameter block of one resolution.
void keepCameras(uint8_t kept[calib::kBlockSize], const uint8_t parsed[calib::kBlockSize],
                 const calib::CameraModel cameras[2]);

// Rescales a camera to width x height. A camera with a zero model size is
// left alone: its scale factors would be infinite.
void rescaleModel(calib::CameraModel& camera, uint16_t width, uint16_t height);
// The same on camera section 1 or 2 of a block.
void rescaleCamera(uint8_t* block, uint16_t width, uint16_t height, int camera);
void rescaleBothCameras(uint8_t* block, uint16_t width, uint16_t height);

}  // namespace kvdsr::stereoview
