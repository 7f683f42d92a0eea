#include "calibration/camera_model.h"

namespace kvdsr::calib {

namespace {

template <class T, int N>
void loadArray(T (&out)[N], const uint8_t* p, uint32_t offset) {
    for (int i = 0; i < N; ++i) out[i] = load<T>(p, offset + uint32_t(sizeof(T)) * i);
}

template <class T, int N>
void storeArray(uint8_t* p, uint32_t offset, const T (&v)[N]) {
    for (int i = 0; i < N; ++i) store<T>(p, offset + uint32_t(sizeof(T)) * i, v[i]);
}

}  // namespace

CameraModel readCamera(const uint8_t block[kBlockSize], int camera) {
    CameraModel m;
    if (camera != 1 && camera != 2) return m;
    const uint8_t* s = block + kSectionOffset[camera];
    m.number = load<int32_t>(s, sec::kFirstField);
    loadArray(m.homography, s, sec::kHomography);
    loadArray(m.projection, s, sec::kProjection);
    loadArray(m.mapValues, s, sec::kMapValues);
    m.modelWidth = load<uint16_t>(s, sec::kModelWidth);
    m.modelHeight = load<uint16_t>(s, sec::kModelHeight);
    m.calibWidth = load<uint16_t>(s, sec::kCalibWidth);
    m.calibHeight = load<uint16_t>(s, sec::kCalibHeight);
    m.pixelPitch = load<float>(s, sec::kPixelPitch);
    m.focusSlope = load<float>(s, sec::kFocusSlope);
    m.focusInfinity = load<float>(s, sec::kFocusInfinity);
    m.focalLength = load<float>(s, sec::kFocalLength);
    m.objectDistance = load<float>(s, sec::kObjectDistance);
    m.principalX = load<uint16_t>(s, sec::kPrincipalX);
    m.principalY = load<uint16_t>(s, sec::kPrincipalY);
    m.distortionCount = load<uint16_t>(s, sec::kDistortionCount);
    loadArray(m.distortionRadii, s, sec::kDistortionRadii);
    loadArray(m.distortionValues, s, sec::kDistortionValues);
    return m;
}

void writeCamera(uint8_t block[kBlockSize], int camera, const CameraModel& m) {
    if (camera != 1 && camera != 2) return;
    uint8_t* s = block + kSectionOffset[camera];
    store<int32_t>(s, sec::kFirstField, m.number);
    storeArray(s, sec::kHomography, m.homography);
    storeArray(s, sec::kProjection, m.projection);
    storeArray(s, sec::kMapValues, m.mapValues);
    store<uint16_t>(s, sec::kModelWidth, m.modelWidth);
    store<uint16_t>(s, sec::kModelHeight, m.modelHeight);
    store<uint16_t>(s, sec::kCalibWidth, m.calibWidth);
    store<uint16_t>(s, sec::kCalibHeight, m.calibHeight);
    store<float>(s, sec::kPixelPitch, m.pixelPitch);
    store<float>(s, sec::kFocusSlope, m.focusSlope);
    store<float>(s, sec::kFocusInfinity, m.focusInfinity);
    store<float>(s, sec::kFocalLength, m.focalLength);
    store<float>(s, sec::kObjectDistance, m.objectDistance);
    store<uint16_t>(s, sec::kPrincipalX, m.principalX);
    store<uint16_t>(s, sec::kPrincipalY, m.principalY);
    store<uint16_t>(s, sec::kDistortionCount, m.distortionCount);
    storeArray(s, sec::kDistortionRadii, m.distortionRadii);
    storeArray(s, sec::kDistortionValues, m.distortionValues);
}

void readProjections(const uint8_t block[kBlockSize], float projection1[12], float projection2[12]) {
    for (uint32_t i = 0; i < 12; ++i) {
        projection1[i] = load<float>(block, kSectionOffset[1] + sec::kProjection + 4 * i);
        projection2[i] = load<float>(block, kSectionOffset[2] + sec::kProjection + 4 * i);
    }
}

}  // namespace kvdsr::calib
