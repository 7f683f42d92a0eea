#include <gtest/gtest.h>

#include <cmath>

#include "calibpack.h"
#include "calibration/calib_parser.h"
#include "calibration/geometry.h"

namespace kvdsr {
namespace {

using calibpack::CameraSection;

std::array<double, 12> toDouble(const std::array<float, 12>& p) {
    std::array<double, 12> d;
    for (int i = 0; i < 12; ++i) d[i] = p[i];
    return d;
}

TEST(SampleModule, SizesAndThreeDistances) {
    const auto bodies = calibpack::sampleModule();
    ASSERT_EQ(bodies.size(), 3u);
    for (size_t i = 0; i < bodies.size(); ++i) {
        EXPECT_EQ(bodies[i].camera1.calibWidth, 1600);
        EXPECT_EQ(bodies[i].camera1.calibHeight, 1200);
        EXPECT_EQ(bodies[i].camera2.calibWidth, 4160);
        EXPECT_EQ(bodies[i].camera2.calibHeight, 3120);
        if (i > 0) EXPECT_GT(bodies[i].camera2.objectDistance, bodies[i - 1].camera2.objectDistance);
    }
}

TEST(SampleModule, GeometryIsAPhoneModule) {
    for (const auto& b : calibpack::sampleModule()) {
        const auto P1 = toDouble(b.camera1.projection), P2 = toDouble(b.camera2.projection);
        const double baseline = geom::cameraBaseline(P1.data(), P2.data());
        EXPECT_GT(baseline, 10.0);
        EXPECT_LT(baseline, 25.0);
        for (const CameraSection* c : {&b.camera1, &b.camera2}) {
            geom::Decomposition d;
            const auto P = toDouble(c->projection);
            ASSERT_TRUE(geom::decomposeProjection(P.data(), d));
            // Focal length in pixels is the lens focal length over the pitch
            // (a little more for the focused main lens).
            const double nominal = c->focalLength / c->pixelPitch;
            EXPECT_GE(d.K[0], nominal * 0.9999);
            EXPECT_LT(d.K[0], nominal * 1.02);
            EXPECT_NEAR(d.K[2], c->principalX / 16.0, 0.01);
            EXPECT_NEAR(d.K[5], c->principalY / 16.0, 0.01);
            for (int i = 0; i < 9; ++i)
                if (i != 2 && i != 5 && i != 8) EXPECT_NEAR(c->homography[i], i % 4 == 0 ? 1.0 : 0.0, 0.01) << i;
        }
    }
}

TEST(SampleModule, BarrelTablesReachPastTheCorners) {
    for (const auto& b : calibpack::sampleModule())
        for (const CameraSection* c : {&b.camera1, &b.camera2}) {
            ASSERT_GE(c->distortion.size(), 2u);
            ASSERT_LE(c->distortion.size(), 22u);
            const double cx = c->principalX / 16.0, cy = c->principalY / 16.0;
            const double dx = std::max(cx + 0.5, c->calibWidth - 0.5 - cx);
            const double dy = std::max(cy + 0.5, c->calibHeight - 0.5 - cy);
            const double cornerRadius = std::hypot(dx, dy) * c->pixelPitch;  // mm
            EXPECT_GT(c->distortion.back().radius * 0.001, cornerRadius);
            EXPECT_LT(c->distortion.back().radius * 0.001, cornerRadius * 1.5);
            for (size_t i = 1; i < c->distortion.size(); ++i) {
                EXPECT_GT(c->distortion[i].radius, c->distortion[i - 1].radius);
                EXPECT_LT(c->distortion[i].distortion, c->distortion[i - 1].distortion);  // barrel: ever more negative
                // The distorted radius still grows.
                const double r0 = c->distortion[i - 1].radius * (1 + c->distortion[i - 1].distortion * 1e-5);
                const double r1 = c->distortion[i].radius * (1 + c->distortion[i].distortion * 1e-5);
                EXPECT_GT(r1, r0);
            }
        }
}

TEST(SampleModule, FocusRuleFindsEachBodyAtItsOwnActuatorPosition) {
    const auto bodies = calibpack::sampleModule();
    const auto& c2 = bodies[0].camera2;
    for (uint32_t length : {1547u, 1403u, 1488u}) {
        const auto data = calibpack::packContainer(bodies, length);
        for (uint32_t i = 0; i < 3; ++i) {
            const double F = c2.focalLength, d = bodies[i].camera2.objectDistance;
            const int32_t position = static_cast<int32_t>(c2.focusInfinity + (d * F / (d - F) - F) * c2.focusSlope);
            uint8_t block[512] = {};
            uint32_t size, type, index = 99;
            ASSERT_EQ(calib::parseCalibration(block, &size, &type, &index, data.data(), length, nullptr, 0, 0, 0,
                                              position, calib::kChooseByFocus),
                      0u);
            EXPECT_EQ(index, i) << length << " position " << position;
        }
    }
}

}  // namespace
}  // namespace kvdsr
