// The 512-byte calibration parameter block and its camera sections.
//
// Kind-3/4 layout: 4-byte header, camera 1 section at 4, camera 2 at 244,
// 240 bytes each. Kind-1 bodies (464 bytes) keep some fields at their own
// offsets (see CalibSummary). All fields little-endian.
#pragma once

#include <cstdint>
#include <cstring>

namespace kvdsr::calib {

constexpr uint32_t kBlockSize = 512;
constexpr uint32_t kKind1BodySize = 464;
constexpr uint32_t kSectionSize = 240;
constexpr uint32_t kSectionOffset[3] = {0, 4, 244};  // indexed by camera 1, 2

// Offsets inside a camera section.
namespace sec {
constexpr uint32_t kFirstField = 0;     // i32, must be >= 1
constexpr uint32_t kHomography = 4;     // 9 x f32, row-major
constexpr uint32_t kProjection = 40;    // 12 x f32, row-major 3x4
constexpr uint32_t kMapValues = 88;     // 2 x u16, copied into the map model
constexpr uint32_t kModelWidth = 92;    // u16
constexpr uint32_t kModelHeight = 94;   // u16
constexpr uint32_t kCalibWidth = 96;    // u16
constexpr uint32_t kCalibHeight = 98;   // u16
constexpr uint32_t kPixelPitch = 100;   // f32
constexpr uint32_t kFocusSlope = 104;   // f32
constexpr uint32_t kFocusInfinity = 108;// f32
constexpr uint32_t kFocalLength = 112;  // f32
constexpr uint32_t kObjectDistance = 116;// f32
constexpr uint32_t kPrincipalX = 120;   // u16, 1/16 pixel
constexpr uint32_t kPrincipalY = 122;   // u16, 1/16 pixel
constexpr uint32_t kDistortionCount = 124; // u16, <= 22
constexpr uint32_t kDistortionRadii = 126; // 22 x i16
constexpr uint32_t kDistortionValues = 170;// 22 x i16
constexpr uint32_t kMaxDistortionEntries = 22;
}  // namespace sec

template <class T>
inline T load(const uint8_t* p, uint32_t offset) {
    T v;
    std::memcpy(&v, p + offset, sizeof v);
    return v;
}
template <class T>
inline void store(uint8_t* p, uint32_t offset, T v) {
    std::memcpy(p + offset, &v, sizeof v);
}

// Values every engine that synthesises or shifts needs, read at the offsets
// of the block's kind (camera 2 is the calibrated main camera).
struct CalibSummary {
    uint16_t width = 0;       // camera-2 calibration image width
    uint16_t height = 0;      // camera-2 calibration image height
    float pixelPitch = 0.f;   // camera-2 pixel pitch
    float focalLength = 0.f;  // camera-2 lens focal length
    float projection1[12] = {};
    float projection2[12] = {};
};

// Kind 1: camera-2 values at 320/322/324/336, projections at 36 and 268.
// Kinds 3 and 4: 340/342/344/356, projections at 44 and 284.
// Returns false (summary untouched) for any other kind.
bool readSummary(const uint8_t block[kBlockSize], uint32_t calibType, CalibSummary& out);

}  // namespace kvdsr::calib
