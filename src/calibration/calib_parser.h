// The calibration parser: accepts a container, deciphers and selects one
// body, and fills the caller's zeroed 512-byte parameter block.
#pragma once

#include <cstdint>

namespace kvdsr::calib {

constexpr uint32_t kChooseByFocus = 0xFFFFFFFFu;

// Returns 0 or a parser code (0x6002, 0x6004..0x6008, 0x600A..0x600C).
// layoutSelector: 0 for camera layout 1, else layout - 1.
uint32_t parseCalibration(uint8_t block[512], uint32_t* calibSize, uint32_t* calibType, uint32_t* calibIndex,
                          const uint8_t* data, uint32_t dataSize, const uint32_t* keyBlob, uint32_t keyBlobSize,
                          int32_t reserved, uint32_t layoutSelector, int32_t focusPosition,
                          uint32_t requestedIndex);

}  // namespace kvdsr::calib
