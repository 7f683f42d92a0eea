// Focal alignment shift: process-wide state and the calls the C interface makes.
#pragma once

#include <cstdint>

#include "kvDSR.h"

namespace kvdsr::focalshift {

// distance has been checked (<= 10000) by the interface.
uint32_t init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
              uint32_t keyMaterialSize, uint16_t width, uint16_t height, uint16_t distance);
// Formats checked (equal, 0xF01 or 0xF05) by the interface.
uint32_t shiftPair(uint8_t* outSecond, uint8_t* outFirst, const kvDSR_ImageDesc& imageSecond,
                   const kvDSR_ImageDesc& imageFirst, uint16_t width, uint16_t height);
// outWidth checked against width by the interface; format checked here
// (an unknown format in the half-width path also releases the buffer).
uint32_t shiftSideBySide(uint8_t* out, uint32_t outWidth, uint32_t outHeight, const kvDSR_ImageDesc& image,
                         uint16_t width, uint16_t height);
uint32_t close();

}  // namespace kvdsr::focalshift
