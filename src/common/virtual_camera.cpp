#include "common/virtual_camera.h"

#include <cmath>

namespace kvdsr {

namespace {
constexpr double kDegreesPerRadian5 = 114.59165581759557;    // 360 / 3.14159
constexpr double kHalfDegreeRadians = 0.008726646259971648;  // pi / 360
constexpr double kFarTerm = -1.0019569471624266;             // -(1023 + 1) / (1023 - 1)
constexpr double kFarOffset = -2.0019569471624266;           // -2 * 1023 * 1 / (1023 - 1)
}  // namespace

double fieldOfViewDegrees(uint16_t sensorWidth, float pixelSize, float focalLength) {
    // sensorWidth * pixelSize is a single-precision product, kept.
    return std::atan(sensorWidth * pixelSize * 0.5 / focalLength) * kDegreesPerRadian5;
}

void buildViewMatrix(double m[16], double fovDegrees, double shiftX) {
    const double f = 1.0 / std::tan(fovDegrees * kHalfDegreeRadians);
    // The identity times the projection is the projection itself.
    for (int i = 0; i < 16; ++i) m[i] = 0.0;
    m[0] = f;
    m[5] = f;
    m[10] = kFarTerm;
    m[11] = -1.0;
    m[14] = kFarOffset;
    // Times the translation: the last row (column) += shiftX * the first.
    for (int k = 0; k < 4; ++k) m[12 + k] += shiftX * m[k];
}

}  // namespace kvdsr
