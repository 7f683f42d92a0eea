// Crop transform of the 16:9 branch: turns each camera section of a
// calibration block into the section of a camera whose image is one
// rectangle of the calibrated image, scaled to the working size.
#pragma once

#include <cstdint>

#include "calibration/camera_model.h"

namespace kvdsr::stereoview {

constexpr uint32_t kCropOk = 0xA000;
constexpr uint32_t kCropSolveFailed = 0xA114;

// Inclusive pixel rectangle in calibrated pixels.
struct CropRect {
    uint16_t x0, y0, x1, y1;
};

// Centred 16:9 crop of a W x H calibrated image: y = (H - 9*floor(W/16))/2,
// full width. Clamped to the image when it is already wider than 16:9.
CropRect centredCrop169(uint16_t calibWidth, uint16_t calibHeight);

// Homography G (row-major, G[8] = 1) with G * from[i] ~ to[i] for the four
// point pairs (x, y interleaved). False when the system is singular.
bool homographyFromCorners(const double from[8], const double to[8], double G[9]);

// cameras[0] and rects[0] for camera 1, [1] for camera 2. When both cover the whole
// calibrated image of their camera the block is left untouched (kCropOk).
// Otherwise, per camera, G maps the corners of the working frame (pixel
// edges, -0.5) onto the rectangle's corners in the section's model grid;
// the homography becomes G^-1 H G, the projection G^-1 P with its last
// element normalised to 1, the principal point G^-1 of itself, the
// calibrated size the rectangle's and the model size width x height. The
// distortion table is kept: its radii are lengths on the sensor, which the
// crop does not change. The homography also carries the ratio of the map's
// fill scale for the whole image to the one for the crop, so that the crop
// shows the same geometry as the whole image's rectification. A camera whose
// G cannot be solved is left untouched and kCropSolveFailed is returned (the
// other camera is still transformed).
uint32_t cropTransform(calib::CameraModel cameras[2], uint16_t width, uint16_t height, const CropRect rects[2]);
// The same on camera sections 1 and 2 of a parameter block.
uint32_t cropTransform(uint8_t* block, uint16_t width, uint16_t height, const CropRect rects[2]);

}  // namespace kvdsr::stereoview
