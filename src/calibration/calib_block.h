// The 512-byte calibration parameter block and its camera sections.
//
// Kind-3/4 layout: 4-byte header, camera 1 section at 4, camera 2 at 244,
// 240 bytes each. Kind-1 bodies (464 bytes) have no header and two 232-byte
// sections (see kind1); the parser copies them into the block unchanged.
// All fields little-endian. docs/calibration-format.md has the full map.
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

// Block header of kinds 3 and 4.
namespace hdr {
constexpr uint32_t kRevision = 0;        // u16, >= 2
constexpr uint32_t kReferenceWidth = 2;  // u16, one of the two calibration widths
}  // namespace hdr

// Block offsets of camera 2's focus values, kinds 3 and 4.
namespace k3 {
constexpr uint32_t kCamera1Width = 4 + sec::kCalibWidth;          // 100
constexpr uint32_t kCamera2Width = 244 + sec::kCalibWidth;        // 340
constexpr uint32_t kFocusSlope = 244 + sec::kFocusSlope;          // 348
constexpr uint32_t kFocusInfinity = 244 + sec::kFocusInfinity;    // 352
constexpr uint32_t kFocalLength = 244 + sec::kFocalLength;        // 356
constexpr uint32_t kObjectDistance = 244 + sec::kObjectDistance;  // 360
}  // namespace k3

// Kind-1 body: two 232-byte sections (camera 1 at 0, camera 2 at 232), each
// a kind-3 section without its leading i32 and without the two map values.
namespace kind1 {
constexpr uint32_t kSectionSize = 232;
constexpr uint32_t kSectionOffset[3] = {0, 0, 232};
// Offsets inside a kind-1 section.
constexpr uint32_t kHomography = 0;
constexpr uint32_t kProjection = 36;
constexpr uint32_t kModelWidth = 84;
constexpr uint32_t kModelHeight = 86;
constexpr uint32_t kCalibWidth = 88;
constexpr uint32_t kCalibHeight = 90;
constexpr uint32_t kPixelPitch = 92;
constexpr uint32_t kFocusSlope = 96;
constexpr uint32_t kFocusInfinity = 100;
constexpr uint32_t kFocalLength = 104;
constexpr uint32_t kObjectDistance = 108;
constexpr uint32_t kPrincipalX = 112;
constexpr uint32_t kPrincipalY = 114;
constexpr uint32_t kDistortionCount = 116;
constexpr uint32_t kDistortionRadii = 118;
constexpr uint32_t kDistortionValues = 162;
// Block offsets the engines read directly.
constexpr uint32_t kProjection1 = 36;
constexpr uint32_t kProjection2 = 268;
constexpr uint32_t kCamera2Width = 320;
constexpr uint32_t kCamera2Height = 322;
constexpr uint32_t kCamera2Pitch = 324;
constexpr uint32_t kFocusSlope2 = 328;
constexpr uint32_t kFocusInfinity2 = 332;
constexpr uint32_t kFocalLength2 = 336;
constexpr uint32_t kObjectDistance2 = 340;
}  // namespace kind1

// Kind-4 source: two 724-byte camera-pair sub-records.
namespace kind4 {
constexpr uint32_t kSourceSize = 1488;
constexpr uint32_t kSubRecordSize = 724;
// Offsets inside a sub-record.
constexpr uint32_t kRevision = 0;        // u16
constexpr uint32_t kReferenceWidth = 2;  // u16
constexpr uint32_t kDistanceCount = 4;   // u16, 3
constexpr uint32_t kFocalLength = 6;     // f32
constexpr uint32_t kFocusSlope = 10;     // f32
constexpr uint32_t kFocusInfinity = 14;  // f32
constexpr uint32_t kDistances = 18;      // 3 x f32
constexpr uint32_t kSection1 = 32;       // 240-byte camera section
constexpr uint32_t kSection2 = 272;      // 240-byte camera section
constexpr uint32_t kPerDistance = 512;   // 3 records of kPerDistanceSize
constexpr uint32_t kPerDistanceSize = 64;
// Offsets inside a per-distance record: camera 2's values at that focus.
constexpr uint32_t kPdProjection = 0;    // 12 x f32
constexpr uint32_t kPdPrincipalX = 48;   // u16, 1/16 pixel
constexpr uint32_t kPdPrincipalY = 50;   // u16, 1/16 pixel
}  // namespace kind4

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

// Rewrites a kind-1 body into the kind-3 section layout (header: revision 0,
// reference width = camera 2's; section numbers 1 and 2; map values 0), for
// code that reads camera sections at their kind-3 offsets.
void expandKind1(const uint8_t body[kKind1BodySize], uint8_t out[kBlockSize]);

}  // namespace kvdsr::calib
