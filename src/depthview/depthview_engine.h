// Depth view engine: process-wide state and the calls the C interface makes.
// The interface has done the pointer, initialisation, side-by-side width,
// depth-format and size checks before run/runSideBySide are called.
#pragma once

#include <cstdint>

#include "kvDSR.h"

namespace kvdsr::depthview {

bool initialised();
// True when the run sizes are those given to the last successful init.
bool sizesMatch(uint32_t width, uint32_t height, uint32_t depthWidth, uint32_t depthHeight);

uint32_t init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
              uint32_t keyMaterialSize, uint16_t width, uint16_t height, uint16_t depthWidth,
              uint16_t depthHeight, uint16_t viewShift);
uint32_t run(uint8_t* out, const kvDSR_ImageDesc& image, uint32_t width, uint32_t height,
             const kvDSR_ImageDesc& depth, uint16_t depthWidth, uint16_t depthHeight);
uint32_t runSideBySide(uint8_t* out, const kvDSR_ImageDesc& image, uint16_t width, uint16_t height,
                       const kvDSR_ImageDesc& depth, uint16_t depthWidth, uint16_t depthHeight);
uint32_t close();

}  // namespace kvdsr::depthview
