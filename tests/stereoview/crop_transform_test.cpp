// Crop transform of the 16:9 branch and the corner-pair homography solver.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

#include "calibpack.h"
#include "calibration/camera_model.h"
#include "calibration/calib_parser.h"
#include "stereoview/crop_transform.h"

namespace kvdsr::test {
namespace {

using stereoview::CropRect;

void project(const double G[9], double x, double y, double& u, double& v) {
    const double w = G[6] * x + G[7] * y + G[8];
    u = (G[0] * x + G[1] * y + G[2]) / w;
    v = (G[3] * x + G[4] * y + G[5]) / w;
}

TEST(CornerHomography, RecoversRandomProjectiveMaps) {
    std::mt19937 rng(3);
    std::uniform_real_distribution<double> small(-1e-4, 1e-4), off(-50, 50), lin(-0.3, 0.3);
    for (int trial = 0; trial < 50; ++trial) {
        const double G[9] = {2 + lin(rng), lin(rng), off(rng), lin(rng), 1.5 + lin(rng), off(rng),
                             small(rng), small(rng), 1};
        const double from[8] = {-0.5, -0.5, 639.5, -0.5, 639.5, 359.5, -0.5, 359.5};
        double to[8];
        for (int i = 0; i < 4; ++i) project(G, from[2 * i], from[2 * i + 1], to[2 * i], to[2 * i + 1]);
        double S[9];
        ASSERT_TRUE(stereoview::homographyFromCorners(from, to, S));
        for (int i = 0; i < 9; ++i) EXPECT_NEAR(S[i], G[i], 1e-7 * (1 + std::fabs(G[i]))) << trial << " " << i;
    }
}

TEST(CornerHomography, DegenerateCornersFail) {
    const double from[8] = {0, 0, 10, 0, 10, 10, 0, 10};
    const double line[8] = {0, 0, 5, 5, 10, 10, 20, 20};    // all on one line
    const double twice[8] = {0, 0, 0, 0, 10, 10, 0, 10};    // a corner repeated
    double G[9];
    EXPECT_FALSE(stereoview::homographyFromCorners(from, line, G));
    EXPECT_FALSE(stereoview::homographyFromCorners(from, twice, G));
}

TEST(CentredCrop, SixteenByNineOfTheCalibratedImage) {
    const CropRect a = stereoview::centredCrop169(1600, 1200);
    EXPECT_EQ(a.x0, 0);
    EXPECT_EQ(a.y0, 150);
    EXPECT_EQ(a.x1, 1599);
    EXPECT_EQ(a.y1, 1049);
    const CropRect b = stereoview::centredCrop169(4160, 3120);
    EXPECT_EQ(b.y0, 390);
    EXPECT_EQ(b.y1, 2729);
    const CropRect wide = stereoview::centredCrop169(2000, 1000);  // already wider than 16:9
    EXPECT_EQ(wide.y0, 0);
    EXPECT_EQ(wide.y1, 999);
}

struct Block {
    alignas(8) uint8_t bytes[512];
};

// The sample module's body 0; flat: without lens distortion, so that the
// maps' fill scale is 1 at any size and the crop is a pure change of frame.
Block sampleBlock(bool flat = false) {
    auto bodies = calibpack::sampleModule();
    if (flat) bodies[0].camera1.distortion = bodies[0].camera2.distortion = {{0, 0}, {10000, 0}};
    const auto c = calibpack::packContainer({bodies[0]}, 512);
    Block b;
    std::memset(b.bytes, 0, sizeof b.bytes);
    uint32_t size, type, index;
    EXPECT_EQ(calib::parseCalibration(b.bytes, &size, &type, &index, c.data(), uint32_t(c.size()), nullptr, 0, 0,
                                      3, 0, 1),
              0u);
    return b;
}

void widen(const float* f, double* m) {
    for (int i = 0; i < 9; ++i) m[i] = f[i];
}

TEST(CropTransform, WholeImageRectanglesLeaveTheBlockAlone) {
    Block b = sampleBlock();
    const Block before = b;
    const CropRect whole[2] = {{0, 0, 1599, 1199}, {0, 0, 4159, 3119}};
    EXPECT_EQ(stereoview::cropTransform(b.bytes, 640, 360, whole), stereoview::kCropOk);
    EXPECT_EQ(0, std::memcmp(b.bytes, before.bytes, 512));
}

// The new section at the working size must describe the crop: a working
// pixel o sits at calibrated (o + 0.5) * s - 0.5 + origin, and the new
// homography equals the old one seen through that change of frame.
TEST(CropTransform, SectionDescribesTheScaledCrop) {
    Block b = sampleBlock(true);
    const Block before = b;
    const uint16_t w = 640, h = 360;
    const CropRect rects[2] = {stereoview::centredCrop169(1600, 1200), stereoview::centredCrop169(4160, 3120)};
    ASSERT_EQ(stereoview::cropTransform(b.bytes, w, h, rects), stereoview::kCropOk);
    for (int camera = 1; camera <= 2; ++camera) {
        SCOPED_TRACE(camera);
        const calib::CameraModel s = calib::readCamera(b.bytes, camera);
        const calib::CameraModel s0 = calib::readCamera(before.bytes, camera);
        const CropRect& r = rects[camera - 1];
        const double cw = r.x1 - r.x0 + 1, ch = r.y1 - r.y0 + 1;
        EXPECT_EQ(s.modelWidth, w);
        EXPECT_EQ(s.modelHeight, h);
        EXPECT_EQ(s.calibWidth, cw);
        EXPECT_EQ(s.calibHeight, ch);
        // Distortion table untouched.
        EXPECT_EQ(s.distortionCount, s0.distortionCount);
        EXPECT_EQ(0, std::memcmp(s.distortionRadii, s0.distortionRadii, sizeof s.distortionRadii));
        EXPECT_EQ(0, std::memcmp(s.distortionValues, s0.distortionValues, sizeof s.distortionValues));

        const double sx = cw / w, sy = ch / h;
        auto toCalib = [&](double x, double y, double& X, double& Y) {
            X = (x + 0.5) * sx - 0.5 + r.x0;
            Y = (y + 0.5) * sy - 0.5 + r.y0;
        };
        auto toWork = [&](double X, double Y, double& x, double& y) {
            x = (X - r.x0 + 0.5) / sx - 0.5;
            y = (Y - r.y0 + 0.5) / sy - 0.5;
        };
        double H0[9], H1[9];
        widen(s0.homography, H0);
        widen(s.homography, H1);
        for (double y : {0.0, 100.0, 359.0})
            for (double x : {0.0, 333.0, 639.0}) {
                double X, Y, U, V, u, v, u1, v1;
                toCalib(x, y, X, Y);
                project(H0, X, Y, U, V);
                toWork(U, V, u, v);
                project(H1, x, y, u1, v1);
                EXPECT_NEAR(u1, u, 2e-3);
                EXPECT_NEAR(v1, v, 2e-3);
            }
        // Principal point moved with the crop (1/16 pixel fixed point).
        double px, py;
        toWork(s0.principalX / 16.0, s0.principalY / 16.0, px, py);
        EXPECT_NEAR(s.principalX / 16.0, px, 1.0 / 16);
        EXPECT_NEAR(s.principalY / 16.0, py, 1.0 / 16);
        // Projection normalised to a last element of 1, unless that element
        // is 0 (a camera at the origin), where there is nothing to divide by.
        const float last = s0.projection[11];
        EXPECT_EQ(s.projection[11], last == 0.f ? 0.f : 1.0f);
    }
}

TEST(CropTransform, UnsolvableRectangleLeavesItsCameraAlone) {
    Block b = sampleBlock();
    const Block before = b;
    const CropRect rects[2] = {{0, 10, 1599, 9}, stereoview::centredCrop169(4160, 3120)};  // camera 1: no height
    EXPECT_EQ(stereoview::cropTransform(b.bytes, 640, 360, rects), stereoview::kCropSolveFailed);
    EXPECT_EQ(0, std::memcmp(b.bytes + 4, before.bytes + 4, 240));
    EXPECT_EQ(calib::readCamera(b.bytes, 2).modelWidth, 640);
}

}  // namespace
}  // namespace kvdsr::test
