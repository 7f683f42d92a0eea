// A plausible phone module: a 1600x1200 fixed-focus camera beside a
// 4160x3120 autofocus main camera, 14.5 mm apart. The main camera is the
// reference frame (R = I, t = 0); lengths are in millimetres.
#include <cmath>

#include "calibpack.h"

namespace kvdsr::calibpack {

namespace {

struct Intrinsics {
    double fx, fy, cx, cy;
};

// P = K [R | t], stored as f32.
std::array<float, 12> projection(const Intrinsics& k, const double R[9], const double t[3]) {
    const double K[9] = {k.fx, 0, k.cx, 0, k.fy, k.cy, 0, 0, 1};
    std::array<float, 12> P{};
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c) {
            double sum = 0;
            for (int i = 0; i < 3; ++i) sum += K[r * 3 + i] * (c < 3 ? R[i * 3 + c] : t[i]);
            P[r * 4 + c] = static_cast<float>(sum);
        }
    return P;
}

// Rz(gz) Ry(gy) Rx(gx), angles in radians.
void rotation(double R[9], double gx, double gy, double gz) {
    const double cx = std::cos(gx), sx = std::sin(gx), cy = std::cos(gy), sy = std::sin(gy), cz = std::cos(gz),
                 sz = std::sin(gz);
    const double v[9] = {cz * cy, cz * sy * sx - sz * cx, cz * sy * cx + sz * sx,
                         sz * cy, sz * sy * sx + cz * cx, sz * sy * cx - cz * sx,
                         -sy,     cy * sx,                cy * cx};
    for (int i = 0; i < 9; ++i) R[i] = v[i];
}

// Barrel distortion D(r) = -k r^2 percent, sampled every `step` mm from 0.
std::vector<DistortionEntry> barrelTable(double k, double step, int entries) {
    std::vector<DistortionEntry> table;
    for (int i = 0; i < entries; ++i) {
        const double r = step * i;
        table.push_back({static_cast<int16_t>(std::lround(r * 1000.0)), static_cast<int16_t>(std::lround(-k * r * r * 1000.0))});
    }
    return table;
}

uint16_t fixed16(double v) { return static_cast<uint16_t>(std::lround(v * 16.0)); }

}  // namespace

std::vector<Body> sampleModule() {
    constexpr double kPi = 3.14159265358979323846;
    constexpr double kDeg = kPi / 180.0;

    // Camera 1: 1.75 um pixels, 2.2 mm fixed-focus lens (about 65 degrees across).
    constexpr double kPitch1 = 0.00175, kFocal1 = 2.2;
    const Intrinsics k1{kFocal1 / kPitch1, kFocal1 / kPitch1, 803.5, 596.25};
    double R1[9];
    rotation(R1, 0.21 * kDeg, -0.34 * kDeg, 0.12 * kDeg);
    const double centre1[3] = {-14.5, 0.42, -0.18};
    double t1[3];
    for (int r = 0; r < 3; ++r) t1[r] = -(R1[r * 3] * centre1[0] + R1[r * 3 + 1] * centre1[1] + R1[r * 3 + 2] * centre1[2]);

    // Camera 2: 1.12 um pixels, 3.83 mm autofocus lens (about 63 degrees across).
    constexpr double kPitch2 = 0.00112, kFocal2 = 3.83;
    constexpr double kSlope = 3100.0, kInfinity = 180.0;  // actuator steps per mm, position at infinity
    const double R2[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    const double t2[3] = {0, 0, 0};
    const double cx2 = 2086.25, cy2 = 1556.5;

    const double distances[3] = {300.0, 1000.0, 3000.0};
    std::vector<Body> bodies;
    for (double d : distances) {
        Body b;
        b.revision = 2;
        b.referenceWidth = 4160;

        CameraSection& c1 = b.camera1;
        c1.number = 1;
        c1.homography = {1.0008f, -0.0021f, 1.7f, 0.0019f, 0.9994f, -3.2f, 4.0e-7f, -2.5e-7f, 1.0f};
        c1.projection = projection(k1, R1, t1);
        c1.modelWidth = c1.calibWidth = 1600;
        c1.modelHeight = c1.calibHeight = 1200;
        c1.pixelPitch = static_cast<float>(kPitch1);
        c1.focalLength = static_cast<float>(kFocal1);
        c1.objectDistance = static_cast<float>(d);
        c1.principalX = fixed16(k1.cx);
        c1.principalY = fixed16(k1.cy);
        c1.distortion = barrelTable(0.82, 0.1, 21);  // reaches 2.0 mm; the corner is at 1.75 mm

        // The focused lens sits further from the sensor: focal length in pixels grows as d falls.
        const double imageDistance = d * kFocal2 / (d - kFocal2);
        const Intrinsics k2{imageDistance / kPitch2, imageDistance / kPitch2, cx2, cy2};
        CameraSection& c2 = b.camera2;
        c2.number = 2;
        c2.homography = {0.9997f, 0.0006f, -0.4f, -0.0005f, 1.0002f, 0.9f, -1.0e-7f, 0.5e-7f, 1.0f};
        c2.projection = projection(k2, R2, t2);
        c2.modelWidth = c2.calibWidth = 4160;
        c2.modelHeight = c2.calibHeight = 3120;
        c2.pixelPitch = static_cast<float>(kPitch2);
        c2.focusSlope = static_cast<float>(kSlope);
        c2.focusInfinity = static_cast<float>(kInfinity);
        c2.focalLength = static_cast<float>(kFocal2);
        c2.objectDistance = static_cast<float>(d);
        c2.principalX = fixed16(cx2);
        c2.principalY = fixed16(cy2);
        c2.distortion = barrelTable(0.36, 0.16, 21);  // reaches 3.2 mm; the corner is at 2.92 mm
        bodies.push_back(b);
    }
    return bodies;
}

}  // namespace kvdsr::calibpack
