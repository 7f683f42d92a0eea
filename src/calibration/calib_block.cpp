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

}  // namespace kvdsr::calib
