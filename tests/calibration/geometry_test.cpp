#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "calibpack.h"
#include "calibration/camera_model.h"
#include "calibration/geometry.h"

namespace kvdsr {
namespace {

using namespace geom;

void rotationXYZ(double R[9], double ax, double ay, double az) {
    const double Rx[9] = {1, 0, 0, 0, std::cos(ax), -std::sin(ax), 0, std::sin(ax), std::cos(ax)};
    const double Ry[9] = {std::cos(ay), 0, std::sin(ay), 0, 1, 0, -std::sin(ay), 0, std::cos(ay)};
    const double Rz[9] = {std::cos(az), -std::sin(az), 0, std::sin(az), std::cos(az), 0, 0, 0, 1};
    double T[9];
    matMul(T, Ry, Rx, 3, 3, 3);
    matMul(R, Rz, T, 3, 3, 3);
}

// P = lambda * K [R | -R c]
void buildProjection(double P[12], const double K[9], const double R[9], const double c[3], double lambda) {
    double Rt[12];
    for (int r = 0; r < 3; ++r) {
        for (int k = 0; k < 3; ++k) Rt[r * 4 + k] = R[r * 3 + k];
        Rt[r * 4 + 3] = -(R[r * 3] * c[0] + R[r * 3 + 1] * c[1] + R[r * 3 + 2] * c[2]);
    }
    matMul(P, K, Rt, 3, 3, 4);
    for (int i = 0; i < 12; ++i) P[i] *= lambda;
}

TEST(MatrixKit, ProductAndTransposeOfKnownMatrices) {
    const double A[6] = {1, 2, 3, 4, 5, 6};       // 2x3
    const double B[6] = {7, 8, 9, 10, 11, 12};    // 3x2
    double C[4], At[6];
    matMul(C, A, B, 2, 3, 2);
    EXPECT_DOUBLE_EQ(C[0], 58);
    EXPECT_DOUBLE_EQ(C[1], 64);
    EXPECT_DOUBLE_EQ(C[2], 139);
    EXPECT_DOUBLE_EQ(C[3], 154);
    matTranspose(At, A, 2, 3);
    const double expected[6] = {1, 4, 2, 5, 3, 6};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(At[i], expected[i]);
}

TEST(MatrixKit, InverseOfRandomMatrices) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(-1, 1);
    for (int n : {1, 2, 3, 4, 6}) {
        for (int trial = 0; trial < 20; ++trial) {
            std::vector<double> A(n * n), Ainv(n * n), I(n * n);
            for (auto& a : A) a = u(rng);
            for (int i = 0; i < n; ++i) A[i * n + i] += 2.5;  // keep it well conditioned
            ASSERT_TRUE(matInverse(Ainv.data(), A.data(), n));
            matMul(I.data(), A.data(), Ainv.data(), n, n, n);
            for (int r = 0; r < n; ++r)
                for (int c = 0; c < n; ++c) EXPECT_NEAR(I[r * n + c], r == c ? 1.0 : 0.0, 1e-12);
        }
    }
}

TEST(MatrixKit, InverseReportsSingularAndNonFiniteInput) {
    double out[9];
    const double zero[9] = {};
    const double rankTwo[9] = {1, 2, 3, 2, 4, 6, 0, 1, 1};
    const double withNan[9] = {1, 0, 0, 0, NAN, 0, 0, 0, 1};
    EXPECT_FALSE(matInverse(out, zero, 3));
    EXPECT_FALSE(matInverse(out, withNan, 3));
    // Numerically rank two: either refused or far from an inverse; never a crash.
    if (matInverse(out, rankTwo, 3)) {
        double I[9];
        matMul(I, rankTwo, out, 3, 3, 3);
        EXPECT_GT(std::fabs(I[0] - 1) + std::fabs(I[4] - 1) + std::fabs(I[8] - 1) + std::fabs(I[1]), 1e-6);
    }
    EXPECT_FALSE(matInverse(out, zero, 0));
}

struct Camera {
    double K[9];
    double angles[3];
    double centre[3];
    double lambda;
};

class Decompose : public ::testing::TestWithParam<Camera> {};

TEST_P(Decompose, RecoversKRAndTUpToTheScaleOfK) {
    const Camera& cam = GetParam();
    double R[9], P[12];
    rotationXYZ(R, cam.angles[0], cam.angles[1], cam.angles[2]);
    buildProjection(P, cam.K, R, cam.centre, cam.lambda);
    Decomposition d;
    ASSERT_TRUE(decomposeProjection(P, d));
    const double k22 = cam.K[8];
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(d.K[i], cam.K[i] / k22, 1e-9 * std::fabs(cam.K[0] / k22) + 1e-12) << "K" << i;
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(d.R[i], R[i], 1e-10) << "R" << i;
    for (int r = 0; r < 3; ++r) {
        const double t = -(R[r * 3] * cam.centre[0] + R[r * 3 + 1] * cam.centre[1] + R[r * 3 + 2] * cam.centre[2]);
        EXPECT_NEAR(d.t[r], t, 1e-9 * (1 + std::fabs(t))) << "t" << r;
    }
    EXPECT_NEAR(d.scale, 1.0 / (cam.lambda * k22), 1e-12 / (cam.lambda * k22));
}

INSTANTIATE_TEST_SUITE_P(
    Cameras, Decompose,
    ::testing::Values(Camera{{1000, 0, 640, 0, 1000, 360, 0, 0, 1}, {0, 0, 0}, {0, 0, 0}, 1.0},
                      Camera{{3419.6, 1.5, 2086.25, 0, 3411.0, 1556.5, 0, 0, 1}, {0.01, -0.02, 0.003}, {-14.5, 0.4, -0.2}, 0.37},
                      Camera{{800, 0, 400, 0, 820, 300, 0, 0, 2}, {0.3, 0.2, -0.1}, {100, -50, 20}, 2.5e-3}));

TEST(Baseline, DistanceBetweenHandBuiltCentres) {
    const double K1[9] = {1257.1, 0, 803.5, 0, 1257.1, 596.25, 0, 0, 1};
    const double K2[9] = {3420, 0, 2086, 0, 3420, 1556, 0, 0, 1};
    double R1[9], R2[9], P1[12], P2[12];
    rotationXYZ(R1, 0.004, -0.006, 0.002);
    rotationXYZ(R2, -0.001, 0.002, 0.0);
    const double c1[3] = {-12.0, 0.5, 0.3}, c2[3] = {3.0, 0.5, -0.1};
    buildProjection(P1, K1, R1, c1, 0.8);
    buildProjection(P2, K2, R2, c2, 1.7);
    const double expected = std::sqrt(15.0 * 15.0 + 0.0 + 0.4 * 0.4);
    EXPECT_NEAR(cameraBaseline(P1, P2), expected, 1e-9);
    EXPECT_NEAR(cameraBaseline(P2, P1), expected, 1e-9);
    EXPECT_NEAR(cameraBaseline(P1, P1), 0.0, 1e-9);
    const double zero[12] = {};
    EXPECT_TRUE(std::isnan(cameraBaseline(P1, zero)));
}

// ---- Rescaling -------------------------------------------------------------

std::array<uint8_t, 512> sampleBlock() {
    const auto bytes = calibpack::packKind3(calibpack::sampleModule()[0]);
    std::array<uint8_t, 512> b{};
    std::copy(bytes.begin(), bytes.end(), b.begin());
    return b;
}

calib::CameraModel cameraOf(const std::array<uint8_t, 512>& b, int camera) { return calib::readCamera(b.data(), camera); }
// Field by field, through their bytes in otherwise empty blocks.
bool sameCamera(const calib::CameraModel& a, const calib::CameraModel& b) {
    std::array<uint8_t, 512> x{}, y{};
    calib::writeCamera(x.data(), 1, a);
    calib::writeCamera(y.data(), 1, b);
    return x == y;
}
void projectionOf(const std::array<uint8_t, 512>& b, int camera, double P[12]) {
    const calib::CameraModel c = cameraOf(b, camera);
    for (int i = 0; i < 12; ++i) P[i] = c.projection[i];
}
void homographyOf(const std::array<uint8_t, 512>& b, int camera, double H[9]) {
    const calib::CameraModel c = cameraOf(b, camera);
    for (int i = 0; i < 9; ++i) H[i] = c.homography[i];
}

TEST(Rescale, ToTheModelSizeOnlyNormalisesP) {
    for (int camera : {1, 2}) {
        auto block = sampleBlock();
        const auto before = block;
        const uint16_t w = cameraOf(block, camera).modelWidth, h = cameraOf(block, camera).modelHeight;
        EXPECT_EQ(rescaleCameraSection(block.data(), w, h, camera), 0xA000u);
        double P0[12], P1[12], H0[9], H1[9];
        projectionOf(before, camera, P0);
        projectionOf(block, camera, P1);
        double norm = 0;
        for (double v : P0) norm += v * v;
        norm = std::sqrt(norm);
        for (int i = 0; i < 12; ++i) EXPECT_NEAR(P1[i], P0[i] / norm, 1e-6 * std::fabs(P0[i] / norm) + 1e-12);
        homographyOf(before, camera, H0);
        homographyOf(block, camera, H1);
        for (int i = 0; i < 9; ++i) EXPECT_NEAR(H1[i], H0[i], 1e-6 * std::fabs(H0[i]) + 1e-12);
        EXPECT_EQ(cameraOf(block, camera).principalX, cameraOf(before, camera).principalX);
        EXPECT_EQ(cameraOf(block, camera).principalY, cameraOf(before, camera).principalY);
        // The other section is untouched.
        const int other = 3 - camera;
        EXPECT_TRUE(sameCamera(cameraOf(block, other), cameraOf(before, other)));
    }
}

struct Scale {
    uint16_t width, height;
};
class RescaleTo : public ::testing::TestWithParam<Scale> {};

TEST_P(RescaleTo, PixelCentresFollowTheScale) {
    const Scale target = GetParam();
    auto block = sampleBlock();
    const auto before = block;
    const int camera = 1;  // 1600 x 1200
    rescaleCameraSection(block.data(), target.width, target.height, camera);
    const double sx = static_cast<float>(target.width / 1600.0), sy = static_cast<float>(target.height / 1200.0);
    EXPECT_EQ(cameraOf(block, camera).modelWidth, target.width);
    EXPECT_EQ(cameraOf(block, camera).modelHeight, target.height);

    // A world point projects to the rescaled position of its old pixel.
    double P0[12], P1[12];
    projectionOf(before, camera, P0);
    projectionOf(block, camera, P1);
    for (const auto& X : {std::array<double, 4>{100, -50, 900, 1}, std::array<double, 4>{-300, 200, 2500, 1}}) {
        double x0[3], x1[3];
        matMul(x0, P0, X.data(), 3, 4, 1);
        matMul(x1, P1, X.data(), 3, 4, 1);
        EXPECT_NEAR(x1[0] / x1[2], sx * (x0[0] / x0[2] + 0.5) - 0.5, 2e-3);
        EXPECT_NEAR(x1[1] / x1[2], sy * (x0[1] / x0[2] + 0.5) - 0.5, 2e-3);
    }

    // H' maps a rescaled point where H maps the original, rescaled.
    double H0[9], H1[9];
    homographyOf(before, camera, H0);
    homographyOf(block, camera, H1);
    for (const auto& p : {std::array<double, 3>{10, 20, 1}, std::array<double, 3>{1500, 1100, 1}}) {
        const double q[3] = {sx * (p[0] + 0.5) - 0.5, sy * (p[1] + 0.5) - 0.5, 1};
        double a[3], b[3];
        matMul(a, H0, p.data(), 3, 3, 1);
        matMul(b, H1, q, 3, 3, 1);
        EXPECT_NEAR(b[0] / b[2], sx * (a[0] / a[2] + 0.5) - 0.5, 2e-3);
        EXPECT_NEAR(b[1] / b[2], sy * (a[1] / a[2] + 0.5) - 0.5, 2e-3);
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, RescaleTo,
                         ::testing::Values(Scale{800, 600}, Scale{1920, 1080}, Scale{3200, 2400}, Scale{640, 480}));

TEST(Rescale, FixedPointCoordinatesByHand) {
    auto block = sampleBlock();
    calib::CameraModel cam = cameraOf(block, 1);
    cam.principalX = 12856;  // 803.5 px
    cam.principalY = 0;      // unset stays unset
    rescaleCamera(cam, 800, 300);
    // (803.5 + 0.5) * 0.5 - 0.5 = 401.5 px = 6424 / 16
    EXPECT_EQ(cam.principalX, 6424);
    EXPECT_EQ(cam.principalY, 0);

    cam.principalY = 100;  // 6.25 px at height 300
    rescaleCamera(cam, 800, 900);
    // ((6.25 + 0.5) * 3 - 0.5) * 16 = 316
    EXPECT_EQ(cam.principalY, 316);
}

// The block form is the model form read from and written back to the block.
TEST(Rescale, SectionAndModelAgree) {
    for (int camera : {1, 2}) {
        auto block = sampleBlock();
        calib::CameraModel cam = cameraOf(block, camera);
        rescaleCamera(cam, 1440, 1080);
        rescaleCameraSection(block.data(), 1440, 1080, camera);
        EXPECT_TRUE(sameCamera(cameraOf(block, camera), cam)) << camera;
    }
}

TEST(Rescale, OtherCameraNumbersLeaveTheBlockAlone) {
    for (int camera : {0, 3, -1}) {
        auto block = sampleBlock();
        const auto before = block;
        EXPECT_EQ(rescaleCameraSection(block.data(), 10, 10, camera), 0xA000u);
        EXPECT_EQ(block, before);
    }
}

TEST(Rescale, EmptySectionDoesNotCrash) {
    std::array<uint8_t, 512> block{};
    EXPECT_EQ(rescaleCameraSection(block.data(), 640, 480, 2), 0xA000u);
    EXPECT_EQ(cameraOf(block, 2).modelWidth, 640);
}

}  // namespace
}  // namespace kvdsr
