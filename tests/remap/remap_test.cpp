// Size query, context, distortion table, coordinate map, lookup table and
// the per-camera build-and-warp chain.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "calibration/calib_block.h"
#include "remap/distortion_map_kernels.h"
#include "remap/remap.h"
#include "remap/remap_lut_kernels.h"

namespace {

using namespace kvdsr;
using namespace kvdsr::remap;

struct SectionSpec {
    uint16_t gridWidth = 32, gridHeight = 24;
    uint16_t calibWidth = 320, calibHeight = 240;
    float pitch = 0.01f;  // radius units per calibration pixel: corner radius 2.0
    uint16_t principalX = 0, principalY = 0;
    std::vector<int16_t> radii{0, 1000, 2000, 3000};  // thousandths
    std::vector<int16_t> distortions{0, 0, 0, 0};     // thousandths of a percent
    float homography[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
};

void writeSection(uint8_t* block, int camera, const SectionSpec& s) {
    uint8_t* sec = block + calib::kSectionOffset[camera];
    calib::store<int32_t>(sec, calib::sec::kFirstField, 1);
    for (int i = 0; i < 9; ++i) calib::store<float>(sec, calib::sec::kHomography + 4 * i, s.homography[i]);
    calib::store<uint16_t>(sec, calib::sec::kModelWidth, s.gridWidth);
    calib::store<uint16_t>(sec, calib::sec::kModelHeight, s.gridHeight);
    calib::store<uint16_t>(sec, calib::sec::kCalibWidth, s.calibWidth);
    calib::store<uint16_t>(sec, calib::sec::kCalibHeight, s.calibHeight);
    calib::store<float>(sec, calib::sec::kPixelPitch, s.pitch);
    calib::store<uint16_t>(sec, calib::sec::kPrincipalX, s.principalX);
    calib::store<uint16_t>(sec, calib::sec::kPrincipalY, s.principalY);
    calib::store<uint16_t>(sec, calib::sec::kDistortionCount, uint16_t(s.radii.size()));
    for (size_t i = 0; i < s.radii.size(); ++i) {
        calib::store<int16_t>(sec, calib::sec::kDistortionRadii + 2 * uint32_t(i), s.radii[i]);
        calib::store<int16_t>(sec, calib::sec::kDistortionValues + 2 * uint32_t(i), s.distortions[i]);
    }
}

std::vector<uint8_t> blockWith(const SectionSpec& one, const SectionSpec& two) {
    std::vector<uint8_t> block(calib::kBlockSize, 0);
    writeSection(block.data(), 1, one);
    writeSection(block.data(), 2, two);
    return block;
}

class RemapTest : public ::testing::Test {
protected:
    void SetUp() override { Remap_Reset(); }
    void TearDown() override { Remap_Reset(); }
};

// ---- Size query and context --------------------------------------------------

TEST_F(RemapTest, StereoViewSizesForSquareImages) {
    for (uint32_t side : {1u, 7u, 96u, 1024u, 4000u}) {
        const uint16_t s = uint16_t(side);
        uint32_t ws = 0, mb = 0;
        ASSERT_EQ(Remap_QuerySize(&ws, &mb, s, s, s, s, s, s, 0, 1, 1), 0u);
        EXPECT_EQ(ws, 73u * side * side);
        EXPECT_EQ(mb, 32u * side * side);
        EXPECT_EQ(Remap_Context().workspaceSize, ws);
    }
}

TEST_F(RemapTest, SizeQueryFormulasAndZeroSizes) {
    uint32_t ws = 0, mb = 0;
    // A = 10*4 + 6*5 = 70; out 8x3.
    ASSERT_EQ(Remap_QuerySize(&ws, &mb, 10, 4, 6, 5, 8, 3, 0, 3, 0), 0u);
    EXPECT_EQ(ws, 16u * 70 + 8u * 3 * 16);
    EXPECT_EQ(mb, 16u * 3 * 70);
    ASSERT_EQ(Remap_QuerySize(&ws, &mb, 10, 4, 6, 5, 8, 3, 2, 1, 1), 0u);
    EXPECT_EQ(ws, 16u * 70 + 33u * 24 + 8u * 3 * 10);
    EXPECT_EQ(Remap_QuerySize(&ws, &mb, 10, 4, 6, 5, 8, 3, 0, 0, 1), kZeroSize);  // no map slots
    EXPECT_EQ(mb, 0u);
    EXPECT_EQ(Remap_QuerySize(&ws, &mb, 0, 4, 6, 0, 8, 3, 0, 1, 1), kZeroSize);  // no source pixels
}

TEST_F(RemapTest, WorkspaceCoversBothBlocksWithExtraColumnsAndSaturates) {
    uint32_t ws = 0, mb = 0;
    // Without a map store the plain formula is 8*oh*extra short of two blocks.
    ASSERT_EQ(Remap_QuerySize(&ws, &mb, 10, 4, 6, 5, 8, 3, 5, 1, 0), 0u);
    std::vector<uint8_t> workspace(ws);
    const RemapTables two = Remap_WorkspaceTables(workspace.data(), 2);
    const uint8_t* end = reinterpret_cast<const uint8_t*>(two.rowWeight + 3 * 13);
    EXPECT_LE(end, workspace.data() + workspace.size());
    ASSERT_EQ(Remap_QuerySize(&ws, &mb, 65535, 65535, 65535, 65535, 65535, 65535, 0, 1, 1), 0u);
    EXPECT_EQ(ws, 0xFFFFFFFFu);
    EXPECT_EQ(mb, 0xFFFFFFFFu);
}

TEST_F(RemapTest, BuffersAreRecordedOnlyWhenAllPresent) {
    uint8_t a = 0, b = 0;
    EXPECT_EQ(Remap_SetWorkspace(nullptr), kNullBuffer);
    EXPECT_EQ(Remap_Context().workspace, nullptr);
    EXPECT_EQ(Remap_SetWorkspace(&a), 0u);
    EXPECT_EQ(Remap_Context().workspace, &a);
    EXPECT_EQ(Remap_SetBuffers(&a, nullptr), kNullBuffer);
    EXPECT_EQ(Remap_SetBuffers(nullptr, &b), kNullBuffer);
    EXPECT_EQ(Remap_Context().mapStore, nullptr);
    EXPECT_EQ(Remap_Context().lutStore, nullptr);
    EXPECT_EQ(Remap_SetBuffers(&a, &b), 0u);
    EXPECT_EQ(Remap_Context().lutStore, &b);
    Remap_Reset();
    EXPECT_EQ(Remap_Context().workspace, nullptr);
    EXPECT_EQ(Remap_Context().mapStore, nullptr);
}

TEST_F(RemapTest, CameraTwoBlockFollowsCameraOneTables) {
    uint32_t ws = 0, mb = 0;
    ASSERT_EQ(Remap_QuerySize(&ws, &mb, 10, 4, 6, 5, 8, 3, 2, 1, 1), 0u);
    std::vector<uint8_t> w(ws);
    const RemapTables one = Remap_WorkspaceTables(w.data(), 1);
    const RemapTables two = Remap_WorkspaceTables(w.data(), 2);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(one.map), w.data());
    EXPECT_EQ(reinterpret_cast<uint8_t*>(one.offset), w.data() + 16 * 40);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(one.columnWeight), w.data() + 16 * 40 + 4 * 30);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(one.rowWeight), w.data() + 16 * 40 + 6 * 30);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(two.map), w.data() + 16 * 40 + 8 * 30);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(two.offset), w.data() + 16 * 40 + 8 * 30 + 16 * 30);
    EXPECT_EQ(one.stride, 10u);
    EXPECT_EQ(two.mapRecords, 30u);
    EXPECT_EQ(Remap_WorkspaceTables(w.data(), 0).offset, nullptr);
    EXPECT_EQ(Remap_WorkspaceTables(nullptr, 1).offset, nullptr);
}

// ---- Model ---------------------------------------------------------------

TEST_F(RemapTest, PrincipalPointRules) {
    uint32_t ws, mb;
    Remap_QuerySize(&ws, &mb, 64, 48, 64, 48, 40, 30, 0, 1, 1);
    SectionSpec s;  // grid 32x24, calibration 320x240
    struct Case {
        uint16_t px, py;
        double cx, cy;
    };
    // Source 64x48: twice the grid.
    const Case cases[] = {
        {0, 0, 31.5, 23.5},                              // centre of the calibration image
        {160, 0, -0.5 + 2.0 * 10.5, -0.5 + 2.0 * 0.5},   // zero row used as row 0
        {0, 80, -0.5 + 2.0 * 0.5, -0.5 + 2.0 * 5.5},     // zero column used as column 0
        {248, 184, -0.5 + 2.0 * 16.0, -0.5 + 2.0 * 12.0},
    };
    for (const Case& c : cases) {
        s.principalX = c.px;
        s.principalY = c.py;
        const auto block = blockWith(s, s);
        const RemapModel m = Remap_BuildModel(block.data(), 2, 64, 48);
        EXPECT_DOUBLE_EQ(m.cx, c.cx) << c.px << "," << c.py;
        EXPECT_DOUBLE_EQ(m.cy, c.cy) << c.px << "," << c.py;
        EXPECT_EQ(m.gridWidth, 32);
        EXPECT_EQ(m.rect[2], 39);
        EXPECT_EQ(m.rect[3], 29);
        EXPECT_NEAR(m.pixelPitch, 10.0, 1e-6);
    }
}

// ---- Distortion table --------------------------------------------------------

TEST(DistortionTable, ExtensionKeepsDistortedRadiusGrowing) {
    // Strong barrel: linear extrapolation of D alone would fold the image.
    const double r[] = {0, 1, 2, 3};
    const double d[] = {0, -10, -25, -45};
    const DistortionTable t = DistortionTable_Make(r, d, 4, 0);
    ASSERT_EQ(t.count, 29);
    for (int i = 4; i < t.count; ++i) {
        EXPECT_DOUBLE_EQ(t.radius[i] - t.radius[i - 1], 1.0) << i;
        EXPECT_GE((1 + t.distortion[i] / 100) * t.radius[i], (1 + t.distortion[i - 1] / 100) * t.radius[i - 1])
            << i;
    }
    EXPECT_DOUBLE_EQ(t.largestRadius, 28.0);
    // Mild distortion extrapolates linearly.
    const double mild[] = {0, 0.1, 0.2};
    const DistortionTable u = DistortionTable_Make(r, mild, 3, 0);
    EXPECT_NEAR(u.distortion[3], 0.3, 1e-12);
    EXPECT_NEAR(u.distortion[10], 1.0, 1e-12);
}

TEST(DistortionTable, InverseReexpressesOnDistortedRadius) {
    const double r[] = {0, 1, 2, 3, 4};
    const double d[] = {0, -2, -5, -9, -14};
    const DistortionTable fwd = DistortionTable_Make(r, d, 5, 0);
    const DistortionTable inv = DistortionTable_Make(r, d, 5, 1);
    for (int i = 1; i < 5; ++i) {
        const double distorted = (1 + d[i] / 100) * r[i];
        EXPECT_DOUBLE_EQ(inv.radius[i], distorted);
        double f, g;
        ASSERT_TRUE(DistortionTable_Factor(inv, distorted, &g));
        ASSERT_TRUE(DistortionTable_Factor(fwd, r[i], &f));
        EXPECT_NEAR(g * distorted, r[i], 1e-12);  // undoes the forward factor
        EXPECT_NEAR(f * r[i], distorted, 1e-12);
    }
    double f;
    EXPECT_FALSE(DistortionTable_Factor(fwd, fwd.largestRadius, &f));
}

TEST(DistortionTable, SectionValuesGoThroughSinglePrecision) {
    SectionSpec s;
    s.radii = {0, 1234, 2345};
    s.distortions = {0, -777, -1555};
    const auto block = blockWith(s, s);
    const DistortionTable t = DistortionTable_FromSection(block.data(), 1, 0);
    EXPECT_EQ(t.calibrationEntries, 3);
    EXPECT_EQ(t.radius[1], double(1234.0f * 0.001f));
    EXPECT_EQ(t.distortion[2], double(-1555.0f * 0.001f));
    // More than 22 entries cannot be stored; the count is clamped.
    std::vector<uint8_t> bad = block;
    calib::store<uint16_t>(bad.data() + calib::kSectionOffset[1], calib::sec::kDistortionCount, 500);
    EXPECT_EQ(DistortionTable_FromSection(bad.data(), 1, 0).calibrationEntries, 22);
}

// ---- Coordinate map ----------------------------------------------------------

RemapModel plainModel(uint16_t w, uint16_t h) {
    RemapModel m;
    m.gridWidth = m.srcWidth = w;
    m.gridHeight = m.srcHeight = h;
    m.calibWidth = uint16_t(w * 10);
    m.calibHeight = uint16_t(h * 10);
    m.pixelPitch = 10.0;  // 0.01 per calibration pixel
    m.cx = (w - 1) / 2.0;
    m.cy = (h - 1) / 2.0;
    m.camera = 1;
    return m;
}

TEST_F(RemapTest, ConstantDistortionScalesAboutCentreAndFillScaleUndoesIt) {
    const RemapModel m = plainModel(24, 16);  // corner radius ~1.44
    const double r[] = {0, 1, 2};
    const double d[] = {-10, -10, -10};
    std::vector<double> map(2 * 24 * 16);
    double sx = 0, sy = 0;
    ASSERT_EQ(DistortionMap_Build(map.data(), m, r, d, 3, 0, &sx, &sy, 0), kMapOk);
    EXPECT_EQ(sx, 1.0);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 24; ++x) {
            EXPECT_NEAR(map[2 * (y * 24 + x)], m.cx + 0.9 * (x - m.cx), 1e-9);
            EXPECT_NEAR(map[2 * (y * 24 + x) + 1], m.cy + 0.9 * (y - m.cy), 1e-9);
        }
    ASSERT_EQ(DistortionMap_Build(map.data(), m, r, d, 3, 0, &sx, &sy, 1), kMapOk);
    EXPECT_EQ(sx, double(float(1 / 0.9)));
    EXPECT_EQ(sy, sx);
    EXPECT_EQ(Remap_Context().fillScaleX, sx);
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 24; ++x) EXPECT_NEAR(map[2 * (y * 24 + x)], x, 1e-5);
}

TEST_F(RemapTest, FittedBarrelMapFillsTheFrame) {
    RemapModel m = plainModel(40, 30);  // radius 0.01 per calibration pixel, corner ~2.5
    const double r[] = {0, 1, 2, 3};
    const double d[] = {0, -3, -8, -15};
    std::vector<double> map(2 * 40 * 30);
    double sx, sy;
    const uint32_t res = DistortionMap_Build(map.data(), m, r, d, 4, 0, &sx, &sy, 1);
    ASSERT_TRUE(res == kMapOk || res == kMapBeyondTable);
    EXPECT_GT(sx, 1.0);  // barrel: the fitted view widens
    double left = 1e9, right = -1e9, up = 1e9, down = -1e9;
    for (int i = 0; i < 40 * 30; ++i) {
        left = std::min(left, map[2 * i]);
        right = std::max(right, map[2 * i]);
        up = std::min(up, map[2 * i + 1]);
        down = std::max(down, map[2 * i + 1]);
    }
    // Every grid point samples inside the source, and along the tighter axis
    // the frame reaches the source edge to within a pixel.
    EXPECT_GE(left, -1e-9);
    EXPECT_LE(right, 39 + 1e-9);
    EXPECT_GE(up, -1e-9);
    EXPECT_LE(down, 29 + 1e-9);
    EXPECT_TRUE(left < 1.0 || up < 1.0);
}

TEST_F(RemapTest, PixelsBeyondTheTableStillGetACompleteMap) {
    RemapModel m = plainModel(30, 20);
    m.pixelPitch = 200.0;  // 0.2 per calibration pixel: corners far outside
    const double r[] = {0, 1, 2};
    const double d[] = {0, -1, -2};  // extended table ends at radius 27
    std::vector<double> map(2 * 30 * 20, std::numeric_limits<double>::quiet_NaN());
    double sx = 7, sy = 7;
    EXPECT_EQ(DistortionMap_Build(map.data(), m, r, d, 3, 0, &sx, &sy, 0), kMapBeyondTable);
    for (double v : map) ASSERT_TRUE(std::isfinite(v));
    // A row whose start is beyond the table keeps factor 1 until it enters.
    EXPECT_DOUBLE_EQ(map[0], 0.0);
    EXPECT_DOUBLE_EQ(map[1], 0.0);
    // The same grid cannot be fitted: an edge pixel is beyond the table.
    Remap_Reset();
    EXPECT_EQ(DistortionMap_Build(map.data(), m, r, d, 3, 0, &sx, &sy, 1), kMapFillScaleFailed);
    EXPECT_EQ(Remap_Context().fillScaleX, 0.0);
}

TEST_F(RemapTest, FillScaleOfCameraZeroIsKeptApart) {
    RemapModel m = plainModel(8, 6);
    const double r[] = {0, 1, 2};
    const double d[] = {-20, -20, -20};
    std::vector<double> map(2 * 8 * 6);
    double sx, sy;
    m.camera = 0;
    ASSERT_EQ(DistortionMap_Build(map.data(), m, r, d, 3, 0, &sx, &sy, 1), kMapOk);
    EXPECT_EQ(Remap_Context().fillScaleCamera0X, double(float(1 / 0.8)));
    EXPECT_EQ(Remap_Context().fillScaleX, 0.0);
    m.camera = 2;
    ASSERT_EQ(DistortionMap_Build(map.data(), m, r, d, 3, 0, &sx, &sy, 0), kMapOk);
    EXPECT_EQ(Remap_Context().fillScaleX, 1.0);
}

// ---- Lookup table ------------------------------------------------------------

struct Tables {
    explicit Tables(size_t n) : offset(n, 0xDEADBEEF), columnWeight(n, 0xBEEF), rowWeight(n, 0xBEEF) {}
    std::vector<uint32_t> offset;
    std::vector<uint16_t> columnWeight, rowWeight;
};

std::vector<double> randomMap(std::mt19937& rng, int w, int h, double lo, double hi) {
    std::uniform_real_distribution<double> dist(lo, hi);
    std::vector<double> map(2 * size_t(w) * h);
    for (double& v : map) v = dist(rng);
    return map;
}

TEST_F(RemapTest, TableEntriesFollowTheSourcePoint) {
    std::mt19937 rng(11);
    const int w = 17, h = 9;
    const uint16_t srcW = 13, srcH = 7;
    auto map = randomMap(rng, w, h, -2.0, 14.0);
    map[0] = srcW - 1;  // exactly on the last column: invalid
    map[1] = 2.5;
    map[2] = srcW - 1 - 1e-9;  // just inside
    map[3] = 0;
    map[4] = 3.0;
    map[5] = srcH - 1;  // exactly on the last row: invalid
    const double identity[9] = {1, -0.0, 0, 0, 1, -0.0, 0, -0.0, 1};
    const uint16_t rect[4] = {0, 0, w - 1, h - 1};
    Tables t(size_t(w) * h);
    RemapLut_Build(t.offset.data(), t.columnWeight.data(), t.rowWeight.data(), srcW, srcH, w, h, w, 0, 0, identity,
                   map.data(), rect);
    for (int i = 0; i < w * h; ++i) {
        const double X = map[2 * i], Y = map[2 * i + 1];
        if (X >= 0 && Y >= 0 && X < srcW - 1 && Y < srcH - 1) {
            EXPECT_EQ(t.offset[i] % srcW, uint32_t(std::floor(X))) << i;
            EXPECT_EQ(t.offset[i] / srcW, uint32_t(std::floor(Y))) << i;
            EXPECT_NEAR(t.columnWeight[i], (std::floor(X) + 1 - X) * 1024, 1.0) << i;
            EXPECT_NEAR(t.rowWeight[i], (std::floor(Y) + 1 - Y) * 1024, 1.0) << i;
        } else {
            EXPECT_EQ(t.offset[i], 0u) << i;
            EXPECT_EQ(t.columnWeight[i], 0) << i;
            EXPECT_EQ(t.rowWeight[i], 0) << i;
        }
    }
    EXPECT_EQ(t.offset[0], 0u);
    EXPECT_EQ(t.offset[1], uint32_t(srcW - 2));
    EXPECT_EQ(t.columnWeight[1], 0);
    EXPECT_EQ(t.rowWeight[2], 0);
}

// Identity (even with -0.0 entries) reads the record at the same position;
// any other matrix samples the map, clamping at its border.
TEST_F(RemapTest, IdentityMatrixByValueAndClampedProjectiveSampling) {
    std::mt19937 rng(5);
    const int mw = 6, mh = 5, ow = 9, oh = 5;
    const auto map = randomMap(rng, mw, mh, 0.0, 18.0);
    const uint16_t rect[4] = {0, 0, ow - 1, oh - 1};
    const double negZero[9] = {1, -0.0, -0.0, -0.0, 1, -0.0, -0.0, -0.0, 1};
    const double doubled[9] = {2, 0, 0, 0, 2, 0, 0, 0, 2};  // same mapping, not the identity
    Tables a(ow * oh), b(ow * oh);
    RemapLut_Build(a.offset.data(), a.columnWeight.data(), a.rowWeight.data(), 20, 20, mw, mh, ow, 0, 0, negZero,
                   map.data(), rect);
    RemapLut_Build(b.offset.data(), b.columnWeight.data(), b.rowWeight.data(), 20, 20, mw, mh, ow, 0, 0, doubled,
                   map.data(), rect);
    for (int y = 0; y < oh; ++y)
        for (int x = 0; x < ow; ++x) {
            const int i = y * ow + x;
            if (x < mw) {
                EXPECT_EQ(a.offset[i], b.offset[i]) << x << "," << y;
                EXPECT_EQ(a.columnWeight[i], b.columnWeight[i]);
            } else {
                // Identity has no record there; the projective path repeats the last column.
                EXPECT_EQ(a.offset[i], 0u);
                EXPECT_EQ(a.columnWeight[i], 0);
                EXPECT_EQ(b.offset[i], b.offset[y * ow + mw - 1]) << x << "," << y;
            }
        }
}

TEST_F(RemapTest, ProjectiveTranslationSamplesBetweenRecords) {
    const int mw = 8, mh = 6;
    std::vector<double> map(2 * mw * mh);
    for (int y = 0; y < mh; ++y)
        for (int x = 0; x < mw; ++x) {
            map[2 * (y * mw + x)] = 2.0 * x;
            map[2 * (y * mw + x) + 1] = 1.5 * y;
        }
    // Output (x, y) looks at map point (x + 0.25, y + 0.5).
    const double shift[9] = {1, 0, 0.25, 0, 1, 0.5, 0, 0, 1};
    const uint16_t rect[4] = {1, 1, 5, 3};
    Tables t(mw * mh);
    RemapLut_Build(t.offset.data(), t.columnWeight.data(), t.rowWeight.data(), 40, 40, mw, mh, mw, 0, 0, shift,
                   map.data(), rect);
    for (int y = 0; y < mh; ++y)
        for (int x = 0; x < mw; ++x) {
            const int i = y * mw + x;
            if (x < 1 || x > 5 || y < 1 || y > 3) {
                EXPECT_EQ(t.offset[i], 0xDEADBEEFu) << "outside rect";
                continue;
            }
            const double X = 2.0 * (x + 0.25), Y = 1.5 * (y + 0.5);
            EXPECT_EQ(t.offset[i], uint32_t(X) + 40 * uint32_t(Y));
            EXPECT_EQ(t.columnWeight[i], uint16_t((std::floor(X) + 1 - X) * 1024));
            EXPECT_EQ(t.rowWeight[i], uint16_t((std::floor(Y) + 1 - Y) * 1024));
        }
}

TEST_F(RemapTest, ExtraColumnsShiftOnlyInModesOneAndTwoWithTheFlag) {
    const int w = 6, h = 2, extra = 3, stride = w + extra;
    std::vector<double> map(2 * w * h);
    for (int i = 0; i < w * h; ++i) {
        map[2 * i] = 1.0 + i % w;
        map[2 * i + 1] = 1.0;
    }
    const double id[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    const uint16_t rect[4] = {0, 0, w - 1, h - 1};
    struct Case {
        int mode;
        uint32_t flag;
        int shift;
    };
    for (const Case c : {Case{0, 1, 0}, Case{1, 0, 0}, Case{1, 1, extra}, Case{2, 1, extra}}) {
        Remap_SetColumnShiftFlag(c.flag);
        Tables t(stride * h);
        RemapLut_Build(t.offset.data(), t.columnWeight.data(), t.rowWeight.data(), 20, 20, w, h, w, c.mode, extra,
                       id, map.data(), rect);
        for (int y = 0; y < h; ++y)
            for (int col = 0; col < stride; ++col) {
                const int x = col - c.shift;
                const uint32_t expected = x >= 0 && x < w ? uint32_t(21 + x) : 0xDEADBEEFu;
                EXPECT_EQ(t.offset[y * stride + col], expected) << "mode " << c.mode << " col " << col;
            }
    }
    // A rectangle entirely beyond the output width writes nothing.
    Remap_SetColumnShiftFlag(1);
    Tables t(stride * h);
    const uint16_t beyond[4] = {uint16_t(w), 0, uint16_t(w + 2), 1};
    RemapLut_Build(t.offset.data(), t.columnWeight.data(), t.rowWeight.data(), 20, 20, w, h, w, 1, extra, id,
                   map.data(), beyond);
    for (uint32_t v : t.offset) EXPECT_EQ(v, 0xDEADBEEFu);
}

// ---- Per-camera chain --------------------------------------------------------

struct Chain {
    std::vector<uint8_t> workspace, maps, luts;
};

Chain setUpChain(uint16_t srcW, uint16_t srcH, uint16_t outW, uint16_t outH) {
    Chain c;
    uint32_t ws = 0, mb = 0;
    EXPECT_EQ(Remap_QuerySize(&ws, &mb, srcW, srcH, srcW, srcH, outW, outH, 0, 1, 1), 0u);
    c.workspace.assign(ws + 8, 0x77);  // bytes past the size must stay untouched
    c.maps.assign(mb, 0);
    c.luts.assign(16, 0);
    EXPECT_EQ(Remap_SetWorkspace(c.workspace.data()), 0u);
    EXPECT_EQ(Remap_SetBuffers(c.maps.data(), c.luts.data()), 0u);
    return c;
}

std::vector<uint8_t> randomPlanes(std::mt19937& rng, size_t bytes) {
    std::vector<uint8_t> v(bytes);
    for (auto& b : v) b = uint8_t(rng());
    return v;
}

TEST_F(RemapTest, UndistortedIdentityChainCopiesInteriorAndUsesBorderValue) {
    const uint16_t w = 24, h = 16;
    SectionSpec s;
    s.gridWidth = w;
    s.gridHeight = h;
    s.calibWidth = 240;
    s.calibHeight = 160;
    const auto block = blockWith(s, s);
    Chain chain = setUpChain(w, h, w, h);
    ASSERT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, w, h, 1, -1, 1, 1, 3), 0u);
    ASSERT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, w, h, 2, -1, 1, 1, 3), 0u);
    EXPECT_EQ(Remap_Context().fillScaleX, 1.0);

    std::mt19937 rng(21);
    const size_t plane = size_t(w) * h;
    const auto src = randomPlanes(rng, 3 * plane);
    for (uint32_t planes : {0u, 1u, 2u, 3u}) {
        std::vector<uint8_t> dst(3 * plane, 0xA5);
        ASSERT_EQ(Remap_BuildCamera(dst.data(), block.data(), src.data(), w, h, 2, -1, 0, 0, planes), 0u);
        for (uint32_t k = 0; k < 3; ++k) {
            const bool warped = (planes == 0 && k == 0) || planes == 1 || (planes == 2 && k > 0);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    const uint8_t got = dst[k * plane + y * w + x];
                    if (!warped)
                        ASSERT_EQ(got, 0xA5);
                    else if (x < w - 1 && y < h - 1)
                        ASSERT_EQ(got, src[k * plane + y * w + x]) << k << ":" << x << "," << y;
                    else
                        ASSERT_EQ(got, src[k * plane + w + 1]) << "border value";
                }
        }
    }
    for (size_t i = chain.workspace.size() - 8; i < chain.workspace.size(); ++i) EXPECT_EQ(chain.workspace[i], 0x77);
}

TEST_F(RemapTest, WorkspaceTablesDriveTheSameWarpAsTheChain) {
    const uint16_t w = 40, h = 30;
    SectionSpec s;
    s.gridWidth = w;
    s.gridHeight = h;
    s.calibWidth = 400;
    s.calibHeight = 300;  // corner radius 2.5
    s.distortions = {0, -2000, -5000, -9000};
    s.principalX = 21 * 16;
    s.principalY = 14 * 16;
    const float h2[9] = {1.01f, 0.02f, -0.3f, -0.01f, 0.99f, 0.4f, 0.0001f, 0, 1};
    SectionSpec s2 = s;
    std::copy(h2, h2 + 9, s2.homography);
    const auto block = blockWith(s, s2);
    Chain chain = setUpChain(w, h, w, h);
    ASSERT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, w, h, 1, -1, 1, 1, 3), 0u);
    const RemapTables one = Remap_WorkspaceTables(chain.workspace.data(), 1);
    const std::vector<uint32_t> oneBefore(one.offset, one.offset + w * h);
    ASSERT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, w, h, 2, -1, 1, 1, 3), 0u);
    EXPECT_EQ(std::vector<uint32_t>(one.offset, one.offset + w * h), oneBefore) << "camera 2 overwrote camera 1";

    std::mt19937 rng(8);
    const auto src = randomPlanes(rng, size_t(w) * h);
    for (int camera : {1, 2}) {
        const RemapTables t = Remap_WorkspaceTables(chain.workspace.data(), camera);
        std::vector<uint8_t> viaChain(size_t(w) * h), direct(size_t(w) * h);
        ASSERT_EQ(Remap_BuildCamera(viaChain.data(), block.data(), src.data(), w, h, camera, -1, 0, 0, 0), 0u);
        const uint16_t rect[4] = {0, 0, w - 1, h - 1};
        Remap_ApplyPlane(direct.data(), src.data(), t.offset, t.columnWeight, t.rowWeight, w, t.stride, rect);
        EXPECT_EQ(viaChain, direct) << camera;
    }
    // The two cameras differ only by the homography, so their tables do too.
    EXPECT_NE(std::vector<uint32_t>(one.offset, one.offset + w * h),
              std::vector<uint32_t>(Remap_WorkspaceTables(chain.workspace.data(), 2).offset,
                                    Remap_WorkspaceTables(chain.workspace.data(), 2).offset + w * h));
}

// Building map and tables together (table rows follow the map in bands)
// gives the tables of building the map first and the tables afterwards:
// rows reading far below their own, rotations, and perspectives where the
// row bound cannot be trusted.
TEST_F(RemapTest, TablesBuiltAlongTheMapEqualTablesBuiltAfterIt) {
    const uint16_t w = 52, h = 75;  // several bands
    SectionSpec s;
    s.gridWidth = w;
    s.gridHeight = h;
    s.calibWidth = 520;
    s.calibHeight = 750;
    s.pitch = 0.005f;
    s.distortions = {0, -2000, -5000, -9000};
    const float matrices[][9] = {
        {1, 0, 0, 0, 1, 0, 0, 0, 1},
        {1, 0, 0, 0, 1, 37.5f, 0, 0, 1},             // reads 37 rows further down
        {0.94f, 0.34f, -6, -0.34f, 0.94f, 20, 0, 0, 1},  // rotation: rows across the band
        {1, 0.05f, 0, 0.3f, 1, -4, 0.004f, 0.002f, 1},   // w leaves [0.5, 2]
        {1, 0, 0, 0, 1, 0, -0.03f, 0, 1.2f},             // w through zero inside the frame
    };
    std::mt19937 rng(23);
    const auto src = randomPlanes(rng, size_t(w) * h);
    for (const auto& m : matrices) {
        std::copy(m, m + 9, s.homography);
        const auto block = blockWith(s, s);
        Chain chain = setUpChain(w, h, w, h);
        const RemapTables t = Remap_WorkspaceTables(chain.workspace.data(), 2);
        std::vector<uint8_t> warped(size_t(w) * h);
        ASSERT_EQ(Remap_BuildCamera(warped.data(), block.data(), src.data(), w, h, 2, -1, 1, 1, 0), 0u);
        const std::vector<uint32_t> offset(t.offset, t.offset + w * h);
        const std::vector<uint16_t> cw(t.columnWeight, t.columnWeight + w * h), rw(t.rowWeight, t.rowWeight + w * h);
        std::fill(t.offset, t.offset + w * h, 0xDEADu);
        ASSERT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, w, h, 2, -1, 1, 0, 3), 0u);
        ASSERT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, w, h, 2, -1, 0, 1, 3), 0u);
        EXPECT_EQ(std::vector<uint32_t>(t.offset, t.offset + w * h), offset) << m[5];
        EXPECT_EQ(std::vector<uint16_t>(t.columnWeight, t.columnWeight + w * h), cw) << m[5];
        EXPECT_EQ(std::vector<uint16_t>(t.rowWeight, t.rowWeight + w * h), rw) << m[5];
        std::vector<uint8_t> again(size_t(w) * h);
        const uint16_t rect[4] = {0, 0, w - 1, h - 1};
        Remap_ApplyPlane(again.data(), src.data(), t.offset, t.columnWeight, t.rowWeight, w, t.stride, rect);
        EXPECT_EQ(warped, again) << "the warp of the combined call used finished tables";
        EXPECT_NE(std::count(offset.begin(), offset.end(), 0u), w * h) << "all border entries";
    }
}

// An output larger than the source: the map grid does not fit the block's
// map region and is built aside; nothing outside the workspace is touched.
TEST_F(RemapTest, OutputLargerThanSourceStaysInsideTheWorkspace) {
    const uint16_t srcW = 16, srcH = 12, outW = 40, outH = 30;
    SectionSpec s;
    s.gridWidth = outW;
    s.gridHeight = outH;
    const auto block = blockWith(s, s);
    Chain chain = setUpChain(srcW, srcH, outW, outH);
    ASSERT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, srcW, srcH, 1, -1, 1, 1, 3), 0u);
    ASSERT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, srcW, srcH, 2, -1, 1, 1, 3), 0u);
    for (size_t i = chain.workspace.size() - 8; i < chain.workspace.size(); ++i) ASSERT_EQ(chain.workspace[i], 0x77);
    // Without distortion the output is the source scaled up about its centre.
    const RemapTables t = Remap_WorkspaceTables(chain.workspace.data(), 1);
    const double X = -0.5 + (16.0 / 40) * (20 + 0.5), Y = -0.5 + (12.0 / 30) * (15 + 0.5);
    EXPECT_EQ(t.offset[15 * outW + 20], uint32_t(X) + srcW * uint32_t(Y));
}

TEST_F(RemapTest, MapFailuresAreReturnedUnchanged) {
    const uint16_t w = 30, h = 20;
    SectionSpec s;
    s.gridWidth = w;
    s.gridHeight = h;
    s.pitch = 0.5f;  // every corner far beyond the table
    const auto block = blockWith(s, s);
    Chain chain = setUpChain(w, h, w, h);
    EXPECT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, w, h, 1, -1, 1, 1, 3), kMapFillScaleFailed);
    // The kept tables hold border entries, not the workspace's old bytes.
    const RemapTables t = Remap_WorkspaceTables(chain.workspace.data(), 1);
    for (int i = 0; i < w * h; ++i) {
        ASSERT_EQ(t.offset[i], 0u) << i;
        ASSERT_EQ(t.columnWeight[i], 0) << i;
        ASSERT_EQ(t.rowWeight[i], 0) << i;
    }
    // Neither workspace nor stores: the same failure, and no leak (ASan).
    Remap_Reset();
    uint32_t ws, mb;
    Remap_QuerySize(&ws, &mb, w, h, w, h, w, h, 0, 1, 1);
    EXPECT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, w, h, 2, -1, 1, 1, 3), kMapFillScaleFailed);
}

TEST_F(RemapTest, MapStoreSlotFeedsTheTable) {
    const uint16_t w = 12, h = 8;
    SectionSpec s;
    s.gridWidth = w;
    s.gridHeight = h;
    const auto block = blockWith(s, s);
    uint32_t ws = 0, mb = 0;
    ASSERT_EQ(Remap_QuerySize(&ws, &mb, w, h, w, h, w, h, 0, 2, 1), 0u);
    std::vector<uint8_t> workspace(ws), maps(mb), luts(16);
    Remap_SetWorkspace(workspace.data());
    Remap_SetBuffers(maps.data(), luts.data());
    // Slot 1, camera 2: every point fetches source (3.5, 2.25).
    double* slot = reinterpret_cast<double*>(maps.data()) + 2 * (size_t(2 * w * h) + w * h);
    for (int i = 0; i < w * h; ++i) {
        slot[2 * i] = 3.5;
        slot[2 * i + 1] = 2.25;
    }
    ASSERT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, w, h, 2, 1, 0, 1, 3), 0u);
    const RemapTables t = Remap_WorkspaceTables(workspace.data(), 2);
    for (int i = 0; i < w * h; ++i) {
        ASSERT_EQ(t.offset[i], 3u + 2u * w);
        ASSERT_EQ(t.columnWeight[i], 512);
        ASSERT_EQ(t.rowWeight[i], 768);
    }
    // A slot beyond the store yields border entries, not a stray read.
    ASSERT_EQ(Remap_BuildCamera(nullptr, block.data(), nullptr, w, h, 2, 2, 0, 1, 3), 0u);
    EXPECT_EQ(t.offset[5], 0u);
    EXPECT_EQ(t.columnWeight[5], 0);
}

}  // namespace

// ---- Fast builders against plain per-pixel references ---------------------

namespace reference {

// One pixel of the projective table build, written straight from its rules.
void lutEntry(const double* map, int mw, int mh, int sw, int sh, double u, double v, uint32_t* o, uint16_t* cw,
              uint16_t* rw) {
    *o = 0;
    *cw = *rw = 0;
    if (std::isnan(u) || std::isnan(v)) return;
    auto clamp = [](double c, int n, int& i0, int& i1, double& f) {
        if (c < 0) {
            i0 = i1 = 0;
            f = c;
        } else if (c >= n - 1) {
            i0 = i1 = n - 1;
            f = c - (n - 1);
        } else {
            i0 = int(c);
            i1 = i0 + 1;
            f = c - i0;
        }
    };
    int c0, c1, r0, r1;
    double fu, fv;
    clamp(u, mw, c0, c1, fu);
    clamp(v, mh, r0, r1, fv);
    auto at = [&](int r, int c, int k) { return map[(size_t(r) * mw + c) * 2 + k]; };
    const double xt = at(r0, c0, 0) + fu * (at(r0, c1, 0) - at(r0, c0, 0));
    const double xb = at(r1, c0, 0) + fu * (at(r1, c1, 0) - at(r1, c0, 0));
    const double yt = at(r0, c0, 1) + fu * (at(r0, c1, 1) - at(r0, c0, 1));
    const double yb = at(r1, c0, 1) + fu * (at(r1, c1, 1) - at(r1, c0, 1));
    const double X = xt + fv * (xb - xt), Y = yt + fv * (yb - yt);
    if (X >= 0 && Y >= 0 && X < sw - 1 && Y < sh - 1) {
        const int ix = int(X), iy = int(Y);
        *o = uint32_t(ix + sw * iy);
        *cw = uint16_t((ix + 1 - X) * 1024);
        *rw = uint16_t((iy + 1 - Y) * 1024);
    }
}

}  // namespace reference

// Every row kernel this CPU runs, against the plain per-pixel rules; the
// second matrix sends w through zero inside the frame (infinite and negative
// map coordinates).
TEST_F(RemapTest, ProjectiveTableMatchesPlainReference) {
    std::mt19937 rng(17);
    const int mw = 37, mh = 21, ow = 45, oh = 27, sw = 33, sh = 19;
    const auto map = randomMap(rng, mw, mh, -1.0, 34.0);
    const double mild[9] = {1.03, 0.04, -2.5, -0.02, 0.97, 1.25, 0.0009, -0.0004, 1.01};
    const double steep[9] = {1.0, 0.1, 0.5, 0.05, 1.0, -0.5, -0.05, 0.001, 1.0};
    // Runs of consecutive records (the kernels' whole-load path).
    const double near[9] = {1.0, 0.001, -3.7, 0.002, 1.0, -1.6, 0.00001, 0, 1.0};
    const uint16_t rect[4] = {0, 0, ow - 1, oh - 1};
    const LutRowFn* kernels;
    const int count = lutRowVariants(&kernels);
    for (int k = 0; k < count; ++k) {
        for (const double* h : {mild, steep, near}) {
            setLutRowKernel(kernels[k]);
            Tables t(ow * oh);
            RemapLut_Build(t.offset.data(), t.columnWeight.data(), t.rowWeight.data(), sw, sh, mw, mh, ow, 0, 0, h,
                           map.data(), rect);
            setLutRowKernel(nullptr);
            for (int y = 0; y < oh; ++y) {
                double su = h[0] * 0 + h[1] * y + h[2], sv = h[3] * 0 + h[4] * y + h[5],
                       sz = h[6] * 0 + h[7] * y + h[8];
                for (int x = 0; x < ow; ++x, su += h[0], sv += h[3], sz += h[6]) {
                    uint32_t o;
                    uint16_t cw, rw;
                    reference::lutEntry(map.data(), mw, mh, sw, sh, su / sz, sv / sz, &o, &cw, &rw);
                    const int i = y * ow + x;
                    ASSERT_EQ(t.offset[i], o) << "kernel " << k << " at " << x << "," << y;
                    ASSERT_EQ(t.columnWeight[i], cw) << "kernel " << k << " at " << x << "," << y;
                    ASSERT_EQ(t.rowWeight[i], rw) << "kernel " << k << " at " << x << "," << y;
                }
            }
        }
    }
}

// The map build (every row kernel this CPU runs) against a linear-search
// version of the same composition (docs/remap.md): ascending and unordered
// tables, fitted or not, and a pitch that puts the corners beyond the table.
TEST_F(RemapTest, MapMatchesPlainReference) {
    const int gw = 48, gh = 36;
    RemapModel m = plainModel(gw, gh);
    m.srcWidth = 40;
    m.srcHeight = 30;
    m.calibWidth = 400;
    m.calibHeight = 300;
    m.cx = 21.3;
    m.cy = 13.9;
    const double sortedR[] = {0, 0.8, 1.6, 2.4, 3.2};
    const double unsortedR[] = {0, 0.8, 2.0, 1.6, 3.2};
    const double d[] = {0, -1.5, -4.0, -8.5, -14.0};
    const MapRowFn* kernels;
    const int count = mapRowVariants(&kernels);
    struct Case {
        const double* radii;
        int fit;
        double pitch;
    };
    const Case cases[] = {{sortedR, 0, 10}, {sortedR, 1, 10}, {unsortedR, 0, 10}, {unsortedR, 1, 10},
                          {sortedR, 0, 120}, {unsortedR, 0, 120}};
    for (int k = 0; k < count; ++k) {
        for (const Case& c : cases) {
            m.pixelPitch = c.pitch;
            std::vector<double> map(2 * gw * gh);
            double sx = 0, sy = 0;
            setMapRowKernel(kernels[k]);
            const uint32_t res = DistortionMap_Build(map.data(), m, c.radii, d, 5, 0, &sx, &sy, c.fit);
            setMapRowKernel(nullptr);
            const DistortionTable table = DistortionTable_Make(c.radii, d, 5, 0);
            const double s = sx;
            const double kx = s * (40.0 / gw), ox = s * (m.cx + 0.5 - 0.5 * (40.0 / gw));
            const double ax = s * (400.0 / gw), bx = s * ((m.cx + 0.5) * (400.0 / 40) - 0.5 * (400.0 / gw));
            const double ky = s * (30.0 / gh), oy = s * (m.cy + 0.5 - 0.5 * (30.0 / gh));
            const double ay = s * (300.0 / gh), by = s * ((m.cy + 0.5) * (300.0 / 30) - 0.5 * (300.0 / gh));
            bool beyond = false;
            for (int y = 0; y < gh; ++y) {
                double f = 1.0;
                for (int x = 0; x < gw; ++x) {
                    const double qx = (x * ax - bx) * (x * ax - bx), ty = y * ay - by;
                    const double rad = std::sqrt(qx + ty * ty) * m.pixelPitch * 0.001;
                    beyond |= !(rad < table.largestRadius);
                    if (rad < table.largestRadius) {
                        for (int i = 1; i < table.count; ++i)
                            if (rad < table.radius[i]) {
                                const double dd = table.distortion[i - 1] + (rad - table.radius[i - 1]) *
                                                                                (table.distortion[i] - table.distortion[i - 1]) /
                                                                                (table.radius[i] - table.radius[i - 1]);
                                f = 1 + dd * 0.01;
                                break;
                            }
                    }
                    ASSERT_EQ(map[2 * (y * gw + x)], m.cx + f * (x * kx - ox))
                        << "kernel " << k << " at " << x << "," << y << " pitch " << c.pitch << " fit " << c.fit;
                    ASSERT_EQ(map[2 * (y * gw + x) + 1], m.cy + f * (y * ky - oy)) << x << "," << y;
                }
            }
            EXPECT_EQ(res, beyond ? kMapBeyondTable : kMapOk) << "kernel " << k;
            if (c.pitch > 100 && c.radii == sortedR) EXPECT_TRUE(beyond);
        }
    }
}

// Without workspace or stores the tables live for one call; modes 1 and 2
// with the shift flag move the warped columns right by the extra columns,
// for every plane (all planes share the table).
TEST_F(RemapTest, ShiftedWarpThroughCallLocalTables) {
    const uint16_t w = 10, h = 6, extra = 3, stride = w + extra;
    SectionSpec s;
    s.gridWidth = w;
    s.gridHeight = h;
    const auto block = blockWith(s, s);
    uint32_t ws, mb;
    Remap_QuerySize(&ws, &mb, w, h, w, h, w, h, extra, 1, 1);
    const RemapModel m = Remap_BuildModel(block.data(), 1, w, h);
    std::mt19937 rng(4);
    const auto src = randomPlanes(rng, 3 * size_t(w) * h);
    for (uint32_t flag : {0u, 1u}) {
        Remap_SetColumnShiftFlag(flag);
        std::vector<uint8_t> dst(3 * size_t(stride) * h, 0xA5);
        ASSERT_EQ(Remap_BuildAndApply(dst.data(), block.data(), m, src.data(), w, h, w, h, 1, -1, 1, extra, m.rect, 1,
                                      1, 1),
                  0u);
        const int shift = flag ? extra : 0;
        for (int k = 0; k < 3; ++k)
            for (int y = 0; y < h - 1; ++y)
                for (int col = 0; col < stride; ++col) {
                    const int x = col - shift;
                    const uint8_t got = dst[size_t(k) * stride * h + size_t(y) * stride + col];
                    if (x < 0 || x >= w)
                        ASSERT_EQ(got, 0xA5) << "flag " << flag << " col " << col;
                    else if (x < w - 1)
                        ASSERT_EQ(got, src[size_t(k) * w * h + size_t(y) * w + x]) << "flag " << flag << " col " << col;
                }
    }
}
