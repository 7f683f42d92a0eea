// Layout of one engine fuzz input: a 14-byte control header, then the bytes
// of the depth map (repeated to fill it).
//   0      run path (kPaths of them, taken modulo)
//   1, 2   width, height (modulo 48, 32: 0 included)
//   3, 4   depth map size, or SPR output size (modulo 48, 32)
//   5      image format (modulo 6: 0xF01 0xF02 0xF05 0xF03 0 0xF04)
//   6      depth format (modulo 4: 0xF03 0xF04 0xF01 0)
//   7      bit 0 separate planes, bit 1 image at an odd address, bit 2 depth
//          map at an odd address, bit 3 second image of another format,
//          bit 4 second image at an odd address, bits 5-7 (when all of
//          bits 5-7 are not 0) one of them: a NULL plane 0, 1 or 2
//   8..10  stride of plane 0..2: low 2 bits pick 0, width, above, below;
//          the rest says by how much
//   11     viewShift (x4) or focal distance (x40)
//   12     side-by-side width: 0 the right one, else a wrong one; bit 7 of
//          it with focal shift: half width
//   13     output height for the focal side by side (0: the frame's)
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kvdsr::fuzz {

enum class Path : uint8_t {
    DepthView,
    DepthViewSideBySide,
    Binocular,
    StereoView,
    StereoViewSideBySide,
    Spr,
    FocalShift,
    FocalShiftSideBySide,
};
constexpr int kPaths = 8;
constexpr size_t kEngineControlSize = 14;

struct EngineInput {
    Path path = Path::DepthView;
    uint16_t w = 0, h = 0, dw = 0, dh = 0;
    uint8_t format = 0, depthFormat = 0, layout = 0;
    uint8_t stride[3] = {};
    uint8_t shift = 0, sideWidth = 0, outHeight = 0;
    const uint8_t* mapBytes = nullptr;
    size_t mapSize = 0;
};

inline bool splitEngineInput(const uint8_t* in, size_t size, EngineInput& out) {
    if (size < kEngineControlSize) return false;
    out.path = static_cast<Path>(in[0] % kPaths);
    out.w = in[1] % 48;
    out.h = in[2] % 32;
    out.dw = in[3] % 48;
    out.dh = in[4] % 32;
    out.format = in[5];
    out.depthFormat = in[6];
    out.layout = in[7];
    for (int i = 0; i < 3; ++i) out.stride[i] = in[8 + i];
    out.shift = in[11];
    out.sideWidth = in[12];
    out.outHeight = in[13];
    out.mapBytes = in + kEngineControlSize;
    out.mapSize = size - kEngineControlSize;
    return true;
}

inline std::vector<uint8_t> joinEngineInput(const uint8_t control[kEngineControlSize],
                                            const std::vector<uint8_t>& map) {
    std::vector<uint8_t> out(control, control + kEngineControlSize);
    out.insert(out.end(), map.begin(), map.end());
    return out;
}

}  // namespace kvdsr::fuzz
