#include "calibration/calib_block.h"

namespace kvdsr::calib {

bool readSummary(const uint8_t block[kBlockSize], uint32_t calibType, CalibSummary& out) {
    uint32_t width, height, pitch, focal, proj1, proj2;
    if (calibType == 1) {
        width = kind1::kCamera2Width;
        height = kind1::kCamera2Height;
        pitch = kind1::kCamera2Pitch;
        focal = kind1::kFocalLength2;
        proj1 = kind1::kProjection1;
        proj2 = kind1::kProjection2;
    } else if (calibType == 3 || calibType == 4) {
        width = kSectionOffset[2] + sec::kCalibWidth;
        height = kSectionOffset[2] + sec::kCalibHeight;
        pitch = kSectionOffset[2] + sec::kPixelPitch;
        focal = kSectionOffset[2] + sec::kFocalLength;
        proj1 = kSectionOffset[1] + sec::kProjection;
        proj2 = kSectionOffset[2] + sec::kProjection;
    } else {
        return false;
    }
    out.width = load<uint16_t>(block, width);
    out.height = load<uint16_t>(block, height);
    out.pixelPitch = load<float>(block, pitch);
    out.focalLength = load<float>(block, focal);
    for (uint32_t i = 0; i < 12; ++i) {
        out.projection1[i] = load<float>(block, proj1 + 4 * i);
        out.projection2[i] = load<float>(block, proj2 + 4 * i);
    }
    return true;
}

void expandKind1(const uint8_t body[kKind1BodySize], uint8_t out[kBlockSize]) {
    uint8_t block[kBlockSize] = {};  // body and out may be the same block
    for (uint32_t camera = 1; camera <= 2; ++camera) {
        const uint8_t* src = body + kind1::kSectionOffset[camera];
        uint8_t* dst = block + kSectionOffset[camera];
        store<int32_t>(dst, sec::kFirstField, static_cast<int32_t>(camera));
        // Homography and projection are contiguous in both layouts.
        std::memcpy(dst + sec::kHomography, src + kind1::kHomography, 84);
        // Model size through the distortion values, contiguous in both.
        std::memcpy(dst + sec::kModelWidth, src + kind1::kModelWidth, kind1::kSectionSize - kind1::kModelWidth);
    }
    store<uint16_t>(block, hdr::kRevision, 0);
    store<uint16_t>(block, hdr::kReferenceWidth, load<uint16_t>(body, kind1::kCamera2Width));
    std::memcpy(out, block, kBlockSize);
}

}  // namespace kvdsr::calib
