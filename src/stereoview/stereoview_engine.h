// Stereo view engine: process-wide state and the calls the C interface makes.
// The interface has checked pointers, initialisation, width, formats and sizes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvDSR.h"

namespace kvdsr::stereoview {

bool initialised();
bool sizesMatch(uint32_t width, uint32_t height);

uint32_t init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
              uint32_t keyMaterialSize, uint16_t width, uint16_t height);
uint32_t run(uint8_t* outSecond, uint8_t* outFirst, const kvDSR_ImageDesc& imageSecond,
             const kvDSR_ImageDesc& imageFirst, uint16_t width, uint16_t height);
uint32_t runSideBySide(uint8_t* out, const kvDSR_ImageDesc& imageSecond, const kvDSR_ImageDesc& imageFirst,
                       uint16_t width, uint16_t height);
uint32_t close();

// Introspection for tests and benchmarks.
struct MapCapacity {
    std::size_t full = 0;  // bytes of the full-resolution map buffer
    std::size_t half = 0;
};
MapCapacity mapCapacity();
// 1 when the last Init rescaled the camera models, 0 when it used the 16:9 crops.
uint8_t useModelTransforms();

}  // namespace kvdsr::stereoview
