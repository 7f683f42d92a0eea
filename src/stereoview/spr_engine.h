// SPR engine: process-wide state and the calls the C interface makes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvDSR.h"

namespace kvdsr::spr {

bool initialised();
bool sizesMatch(uint32_t inWidth, uint32_t inHeight, uint32_t outWidth, uint32_t outHeight);

uint32_t init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
              uint32_t keyMaterialSize, uint16_t inWidth, uint16_t inHeight, uint16_t outWidth,
              uint16_t outHeight);
// Called for 0xF01 pairs only, after the interface's checks.
uint32_t run(uint8_t* outSecond, uint8_t* outFirst, const kvDSR_ImageDesc& imageSecond,
             const kvDSR_ImageDesc& imageFirst, uint16_t inWidth, uint16_t inHeight, uint16_t outWidth,
             uint16_t outHeight);
uint32_t close();


}  // namespace kvdsr::spr
