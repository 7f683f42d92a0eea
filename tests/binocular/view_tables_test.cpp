#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "binocular/view_tables.h"
#include "common/virtual_camera.h"

using namespace kvdsr::binocular;

namespace {

// A 5.6 mm wide sensor of 4000 pixels behind a 4 mm lens.
const CameraModel kCamera{4000, 4.0f, 0.0014f};

using kvdsr::buildViewMatrix;
double fieldOfViewDegrees(const CameraModel& cam) {
    return kvdsr::fieldOfViewDegrees(cam.calibratedWidth, cam.pixelPitch, cam.focalLength);
}

std::vector<uint16_t> buildTable(int width, int depthWidth, double shift, const CameraModel& cam = kCamera) {
    double m[16], inv[kLevels];
    buildViewMatrix(m, fieldOfViewDegrees(cam), shift);
    inverseDepthTable(inv, m);
    std::vector<double> col(width);
    columnFactors(col.data(), width, depthWidth, cam, m);
    std::vector<uint16_t> table(static_cast<size_t>(kLevels) * width);
    fillViewTable(table.data(), width, m, inv, col.data());
    return table;
}

TEST(ViewMatrix, PerspectiveFollowsCalibrationAndShiftIsAlongX) {
    double m[16];
    const double shift = 0.75;
    buildViewMatrix(m, fieldOfViewDegrees(kCamera), shift);
    // The focal term is the inverse half-width tangent, off only by the
    // five-digit pi of the field of view.
    const double halfTan = 4000 * 0.0014f * 0.5 / 4.0f;
    EXPECT_NEAR(m[0] * halfTan, 1.0, 1e-5);
    EXPECT_NE(m[0] * halfTan, 1.0);
    EXPECT_EQ(m[5], m[0]);
    EXPECT_EQ(m[11], -1.0);
    EXPECT_EQ(m[12], shift * m[0]);  // row 0 of column 3
    EXPECT_EQ(m[3], 0.0);            // not row 3 of column 0
    EXPECT_EQ(m[13], 0.0);
    EXPECT_NEAR(m[14], -2.0019569471624266, 1e-15);

    double inv[kLevels];
    inverseDepthTable(inv, m);
    for (int j : {0, 1, 511, 1022}) EXPECT_DOUBLE_EQ(inv[j] * (j + 1), -1.0);
}

struct TableCase {
    int width;
    double shift;
};
class ViewTable : public ::testing::TestWithParam<TableCase> {};

TEST_P(ViewTable, ShapeOfTheLandingColumns) {
    const int w = GetParam().width;  // not a structured binding: lambdas capture it
    const double shift = GetParam().shift;
    const std::vector<uint16_t> t = buildTable(w, w / 4, shift);
    auto at = [&, w = w](int level, int x) { return int(t[size_t(level) * w + x]); };
    const double c = [] {
        double m[16];
        buildViewMatrix(m, fieldOfViewDegrees(kCamera), 0);
        return m[0];
    }();
    // Level 0 sends every column to one place.
    const int level0 = int(std::floor(w * 0.5 * (1 + shift * c)));
    for (int x = 0; x < w; ++x) ASSERT_EQ(at(0, x), level0 & 0xFFFF) << x;
    for (int level = 1; level < kLevels; ++level) {
        for (int x = 1; x < w; ++x) ASSERT_LE(at(level, x - 1), at(level, x)) << level << "," << x;
        // The scan starts at column 20: nothing lands left of it.
        ASSERT_GE(at(level, 20), 20) << level;
    }
    // Left half moves right, less so the deeper the level.
    for (int x = 20; x < w / 2; x += 7)
        for (int level = 2; level < kLevels; ++level) ASSERT_LE(at(level, x), at(level - 1, x)) << level;
    // The deepest level barely moves a pixel.
    for (int x = 0; x < w; ++x) EXPECT_NEAR(at(1022, x), x, 1.0 + w * 0.5 * (shift * c + 1) / 1023);
}

INSTANTIATE_TEST_SUITE_P(Widths, ViewTable,
                         ::testing::Values(TableCase{64, 0.0}, TableCase{96, 0.5}, TableCase{321, 1.2},
                                           TableCase{200, 3.0}));

TEST(ViewTable, DisplacementGrowsWithShift) {
    const int w = 128;
    const std::vector<uint16_t> small = buildTable(w, 32, 0.2);
    const std::vector<uint16_t> large = buildTable(w, 32, 0.8);
    int moved = 0;
    for (int level = 1; level < kLevels; ++level)
        for (int x = 0; x < w; ++x) {
            const size_t i = size_t(level) * w + x;
            ASSERT_LE(small[i], large[i]);
            moved += small[i] != large[i];
        }
    EXPECT_GT(moved, 0);
}

TEST(ViewTable, EntriesKeepTheirLowBitsAndSurviveNonFiniteValues) {
    // floor(100 * 0.5 * (1 + 1400)) = 70050 keeps its low 16 bits.
    EXPECT_EQ(viewTableEntry(100, -1400.0, 0.0, 1.0, 0), 70050 - 65536);
    EXPECT_EQ(viewTableEntry(100, 0.0, 0.0, INFINITY, 0), 0xFFFF);
    EXPECT_EQ(viewTableEntry(100, 0.0, 0.0, NAN, 0), 0xFFFF);
}

}  // namespace
