// Layout of one fuzz input: a 9-byte control header, then the key blob, then
// the calibration data.
//   0     mode: bit 0 pass the blob, bit 1 pass no data (record from the blob)
//   1     layout selector
//   2..5  focus position (i32)
//   6     requested index (0xFF: choose by focus)
//   7..8  blob length (u16, clipped to what follows)
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

namespace kvdsr::fuzz {

constexpr size_t kControlSize = 9;

struct FuzzInput {
    uint8_t mode = 0;
    uint8_t layout = 0;
    int32_t focus = 0;
    uint8_t index = 0xFF;
    const uint8_t* blob = nullptr;
    uint32_t blobSize = 0;
    const uint8_t* data = nullptr;
    uint32_t dataSize = 0;
};

inline bool splitInput(const uint8_t* in, size_t size, FuzzInput& out) {
    if (size < kControlSize) return false;
    out.mode = in[0];
    out.layout = in[1];
    std::memcpy(&out.focus, in + 2, 4);
    out.index = in[6];
    uint16_t blobSize;
    std::memcpy(&blobSize, in + 7, 2);
    const size_t rest = size - kControlSize;
    out.blobSize = blobSize < rest ? blobSize : static_cast<uint32_t>(rest);
    out.blob = in + kControlSize;
    out.data = out.blob + out.blobSize;
    out.dataSize = static_cast<uint32_t>(rest - out.blobSize);
    return true;
}

inline std::vector<uint8_t> joinInput(uint8_t mode, uint8_t layout, int32_t focus, uint8_t index,
                                      const std::vector<uint8_t>& blob, const std::vector<uint8_t>& data) {
    std::vector<uint8_t> out(kControlSize);
    out[0] = mode;
    out[1] = layout;
    std::memcpy(out.data() + 2, &focus, 4);
    out[6] = index;
    const uint16_t blobSize = static_cast<uint16_t>(blob.size());
    std::memcpy(out.data() + 7, &blobSize, 2);
    out.insert(out.end(), blob.begin(), blob.end());
    out.insert(out.end(), data.begin(), data.end());
    return out;
}

}  // namespace kvdsr::fuzz
