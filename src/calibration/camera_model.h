// One camera of the parameter block as a value: what the geometry, the crop
// transform and the remap read and change, with the block's field types, so
// that reading a section and writing it back leaves every byte as it was.
// Only this area knows where the fields lie.
#pragma once

#include <cstdint>

#include "calibration/calib_block.h"

namespace kvdsr::calib {

struct CameraModel {
    int32_t number = 0;          // the section's first field (>= 1 in a valid block)
    float homography[9] = {};    // rectifying homography, row-major
    float projection[12] = {};   // P = K [R | t], 3x4 row-major
    uint16_t mapValues[2] = {};  // carried into the map model unchanged
    uint16_t modelWidth = 0;     // size the section is currently scaled to: the map grid
    uint16_t modelHeight = 0;
    uint16_t calibWidth = 0;     // calibration image
    uint16_t calibHeight = 0;
    float pixelPitch = 0;        // length of one calibration pixel, in the distortion radii's unit
    float focusSlope = 0;
    float focusInfinity = 0;
    float focalLength = 0;
    float objectDistance = 0;
    uint16_t principalX = 0;     // 1/16 pixel in the model grid; both 0: the calibration image's centre
    uint16_t principalY = 0;
    uint16_t distortionCount = 0;  // as stored; readers clamp it to kMaxDistortionEntries
    int16_t distortionRadii[sec::kMaxDistortionEntries] = {};   // thousandths of the radius unit
    int16_t distortionValues[sec::kMaxDistortionEntries] = {};  // thousandths of a percent
};

// Camera 1 or 2 of a block in the kind-3 section layout (kind-1 bodies are
// expanded to it first); any other camera gives an empty model.
CameraModel readCamera(const uint8_t block[kBlockSize], int camera);
// Writes every field of camera 1 or 2 back; any other camera is ignored.
void writeCamera(uint8_t block[kBlockSize], int camera, const CameraModel& model);

// Both projection matrices at the kind-3 places, whatever the kind (the
// engines' fallback for kinds without a summary).
void readProjections(const uint8_t block[kBlockSize], float projection1[12], float projection2[12]);

}  // namespace kvdsr::calib
