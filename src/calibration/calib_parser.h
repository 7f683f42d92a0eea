// The calibration parser: accepts a container, deciphers and selects one
// body, and fills the caller's zeroed 512-byte parameter block.
#pragma once

#include <cstdint>

namespace kvdsr::calib {

constexpr uint32_t kChooseByFocus = 0xFFFFFFFFu;

// What a container length stands for (false for a length the parser rejects).
struct ContainerInfo {
    uint32_t kind;        // body kind: 1, 3 or 4
    uint32_t bodies;      // bodies to choose from (kind 4: calibrated distances)
    uint32_t bodySize;    // 464 or 512
    bool enciphered;
};
bool describeContainer(uint32_t length, ContainerInfo& out);

// Returns 0 or a parser code (0x6002, 0x6004..0x6008, 0x600A..0x600C).
// layoutSelector: 0 for camera layout 1, else layout - 1 (kind 4: odd picks
// the second sub-record). keyBlobSize is in bytes. A requested index past the
// container's bodies yields an all-zero body. The three results are written
// only on success (and only when non-null).
uint32_t parseCalibration(uint8_t block[512], uint32_t* calibSize, uint32_t* calibType, uint32_t* calibIndex,
                          const uint8_t* data, uint32_t dataSize, const uint32_t* keyBlob, uint32_t keyBlobSize,
                          int32_t reserved, uint32_t layoutSelector, int32_t focusPosition,
                          uint32_t requestedIndex);

}  // namespace kvdsr::calib
