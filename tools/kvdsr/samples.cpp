#include "samples.h"

#include "calibpack.h"

namespace kvdsrtool {

Calibration aloeCalibration() {
    namespace cp = kvdsr::calibpack;
    // The engine moves a pixel of disparity v by t * Q / round(Q * B / v)
    // columns, truncated (t = viewShift / 100, Q the focal length in
    // pixels, B the baseline). With t = B exactly, depth-level rounding
    // leaves that a hair below v about half the time and truncation then
    // loses a whole column; t a quarter percent above B keeps it in
    // [v, v + 1) for Aloe's disparities (43..211 px at full size). Q * B puts
    // the smallest disparity on level ~1022, the finest depth steps there are.
    constexpr double kBaseline = kAloeViewShift * 0.01 / 1.0025;
    constexpr float kPitch = 0.001f, kFocal = 88.145f;
    constexpr uint16_t kWidth = 1282, kHeight = 1110;
    const double f = kFocal / kPitch, cx = (kWidth - 1) * 0.5, cy = (kHeight - 1) * 0.5;
    cp::Body body;
    body.revision = 2;
    body.referenceWidth = kWidth;
    for (int cam = 1; cam <= 2; ++cam) {
        cp::CameraSection& s = cam == 1 ? body.camera1 : body.camera2;
        s.number = cam;
        const double tx = cam == 1 ? 0.0 : -kBaseline;  // camera 2 to the right of camera 1
        s.projection = {static_cast<float>(f), 0, static_cast<float>(cx), static_cast<float>(f * tx),
                        0, static_cast<float>(f), static_cast<float>(cy), 0,
                        0, 0, 1, 0};
        s.modelWidth = s.calibWidth = kWidth;
        s.modelHeight = s.calibHeight = kHeight;
        s.pixelPitch = kPitch;
        s.focalLength = kFocal;
        s.objectDistance = 1000.f;
        s.distortion = {{0, 0}, {1000, 0}, {2000, 0}};
    }
    return cp::packKind3(body);
}

Calibration moduleCalibration() {
    namespace cp = kvdsr::calibpack;
    return cp::packContainer(cp::sampleModule(), 1547);
}

}  // namespace kvdsrtool
