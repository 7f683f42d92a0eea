// Binocular engine: process-wide state and the calls the C interface makes.
// The interface has done the pointer, initialisation, depth-format and size
// checks; run does the depth pass, then the image-format and plane checks.
#pragma once

#include <cstdint>

#include "kvDSR.h"

namespace kvdsr::binocular {

bool initialised();
bool sizesMatch(uint32_t width, uint32_t height, uint32_t depthWidth, uint32_t depthHeight);

uint32_t init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
              uint32_t keyMaterialSize, uint16_t width, uint16_t height, uint16_t depthWidth,
              uint16_t depthHeight, uint16_t viewShift);
uint32_t run(uint8_t* out, const kvDSR_ImageDesc& left, const kvDSR_ImageDesc& right, uint32_t width,
             uint16_t height, const kvDSR_ImageDesc& depth, uint16_t depthWidth, uint16_t depthHeight);
uint32_t close();

// Read-only views for tests and tools (null before init): the filtered depth
// levels of the last depth pass (depthWidth x depthHeight; the level map at
// image size is their resize), and the landing table.
const uint16_t* depthLevels();
const uint16_t* landingTable();

}  // namespace kvdsr::binocular
