// Size arithmetic, model, distortion table, coordinate map, lookup table,
// and the per-camera build against the map-then-table path it replaces.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "calibration/camera_model.h"
#include "remap/distortion_map_kernels.h"
#include "remap/remap.h"
#include "remap/remap_lut_kernels.h"

namespace {

using namespace kvdsr;
using namespace kvdsr::remap;

struct SectionShape {
    uint16_t gridWidth = 32, gridHeight = 24;
    uint16_t calibWidth = 320, calibHeight = 240;
    float pitch = 0.01f;  // radius units per calibration pixel: corner radius 2.0
    uint16_t principalX = 0, principalY = 0;
    std::vector<int16_t> radii{0, 1000, 2000, 3000};  // thousandths
    std::vector<int16_t> distortions{0, 0, 0, 0};     // thousandths of a percent
    float homography[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
};

calib::CameraModel cameraWith(const SectionShape& s) {
    calib::CameraModel c;
    c.number = 1;
    std::copy(s.homography, s.homography + 9, c.homography);
    c.modelWidth = s.gridWidth;
    c.modelHeight = s.gridHeight;
    c.calibWidth = s.calibWidth;
    c.calibHeight = s.calibHeight;
    c.pixelPitch = s.pitch;
    c.principalX = s.principalX;
    c.principalY = s.principalY;
    c.distortionCount = uint16_t(s.radii.size());
    for (size_t i = 0; i < s.radii.size() && i < calib::sec::kMaxDistortionEntries; ++i) {
        c.distortionRadii[i] = s.radii[i];
        c.distortionValues[i] = s.distortions[i];
    }
    return c;
}

std::vector<uint8_t> randomBytes(std::mt19937& rng, size_t n) {
    std::vector<uint8_t> v(n);
    for (auto& b : v) b = uint8_t(rng());
    return v;
}

// ---- Sizes and table storage -------------------------------------------------

TEST(RemapSizes, StereoViewSizesForSquareImages) {
    for (uint32_t side : {1u, 7u, 96u, 1024u, 4000u}) {
        const uint16_t s = uint16_t(side);
        uint32_t ws = 0, mb = 0;
        ASSERT_EQ(Remap_QuerySize(&ws, &mb, s, s, s, s, s, s, 0, 1, 1), 0u);
        EXPECT_EQ(ws, 73u * side * side);
        EXPECT_EQ(mb, 32u * side * side);
    }
}

TEST(RemapSizes, QueryFormulasZeroSizesAndSaturation) {
    uint32_t ws = 0, mb = 0;
    // A = 10*4 + 6*5 = 70; out 8x3.
    ASSERT_EQ(Remap_QuerySize(&ws, &mb, 10, 4, 6, 5, 8, 3, 0, 3, 0), 0u);
    EXPECT_EQ(ws, 16u * 70 + 8u * 3 * 16);
    EXPECT_EQ(mb, 16u * 3 * 70);
    ASSERT_EQ(Remap_QuerySize(&ws, &mb, 10, 4, 6, 5, 8, 3, 2, 1, 1), 0u);
    EXPECT_EQ(ws, 16u * 70 + 33u * 24 + 8u * 3 * 10);
    // Without a map store the plain formula is 8*oh*extra short of two blocks.
    ASSERT_EQ(Remap_QuerySize(&ws, &mb, 10, 4, 6, 5, 8, 3, 5, 1, 0), 0u);
    EXPECT_EQ(ws, 16u * 70 + 2 * 8u * 3 * 13);
    EXPECT_EQ(Remap_QuerySize(&ws, &mb, 10, 4, 6, 5, 8, 3, 0, 0, 1), kZeroSize);  // no map slots
    EXPECT_EQ(mb, 0u);
    EXPECT_EQ(Remap_QuerySize(&ws, &mb, 0, 4, 6, 0, 8, 3, 0, 1, 1), kZeroSize);  // no source pixels
    ASSERT_EQ(Remap_QuerySize(&ws, &mb, 65535, 65535, 65535, 65535, 65535, 65535, 0, 1, 1), 0u);
    EXPECT_EQ(ws, 0xFFFFFFFFu);
    EXPECT_EQ(mb, 0xFFFFFFFFu);
}

TEST(RemapSizes, TablesLieBackToBackInTheirStorage) {
    const RemapLayout layout{10, 4, 8, 3, 2};
    EXPECT_EQ(layout.stride(), 10u);
    EXPECT_EQ(Remap_TableBytes(layout), 8u * 30);
    std::vector<uint8_t> storage(Remap_TableBytes(layout));
    const RemapTables t = Remap_TablesIn(storage.data(), layout);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(t.offset), storage.data());
    EXPECT_EQ(reinterpret_cast<uint8_t*>(t.columnWeight), storage.data() + 4 * 30);
    EXPECT_EQ(reinterpret_cast<uint8_t*>(t.rowWeight), storage.data() + 6 * 30);
    EXPECT_EQ(t.stride, 10u);
    EXPECT_EQ(Remap_TablesIn(nullptr, layout).offset, nullptr);
}

TEST(RemapSizes, NullTablesAndEmptyLayoutsAreRefused) {
    const calib::CameraModel cam = cameraWith(SectionShape{});
    const RemapLayout layout{32, 24, 32, 24};
    std::vector<uint8_t> storage(Remap_TableBytes(layout));
    RemapTables t = Remap_TablesIn(storage.data(), layout);
    RemapTables missing = t;
    missing.rowWeight = nullptr;
    EXPECT_EQ(Remap_BuildCamera(missing, cam, layout), kNullBuffer);
    EXPECT_EQ(Remap_BuildCamera(RemapTables{}, cam, layout), kNullBuffer);
    EXPECT_EQ(Remap_BuildCamera(t, cam, RemapLayout{32, 24, 0, 24}), kZeroSize);
    EXPECT_EQ(Remap_BuildCamera(t, cam, RemapLayout{32, 24, 32, 0}), kZeroSize);
    EXPECT_EQ(Remap_BuildCamera(t, cam, layout), 0u);
}

// ---- Model ---------------------------------------------------------------

TEST(RemapModelSetUp, PrincipalPointRules) {
    SectionShape s;  // grid 32x24, calibration 320x240
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
        const RemapModel m = Remap_BuildModel(cameraWith(s), RemapLayout{64, 48, 40, 30});
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

TEST(DistortionTable, CameraValuesGoThroughSinglePrecision) {
    SectionShape s;
    s.radii = {0, 1234, 2345};
    s.distortions = {0, -777, -1555};
    calib::CameraModel cam = cameraWith(s);
    const DistortionTable t = DistortionTable_FromModel(cam, 0);
    EXPECT_EQ(t.calibrationEntries, 3);
    EXPECT_EQ(t.radius[1], double(1234.0f * 0.001f));
    EXPECT_EQ(t.distortion[2], double(-1555.0f * 0.001f));
    // More than 22 entries cannot be stored; the count is clamped.
    cam.distortionCount = 500;
    EXPECT_EQ(DistortionTable_FromModel(cam, 0).calibrationEntries, 22);
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
    return m;
}

TEST(DistortionMap, ConstantDistortionScalesAboutCentreAndFillScaleUndoesIt) {
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
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 24; ++x) EXPECT_NEAR(map[2 * (y * 24 + x)], x, 1e-5);
}

TEST(DistortionMap, FittedBarrelMapFillsTheFrame) {
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

TEST(DistortionMap, PixelsBeyondTheTableStillGetACompleteMap) {
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
    EXPECT_EQ(DistortionMap_Build(map.data(), m, r, d, 3, 0, &sx, &sy, 1), kMapFillScaleFailed);
}

// ---- Lookup table ------------------------------------------------------------

struct Tables {
    explicit Tables(size_t n) : offset(n, 0xDEADBEEF), columnWeight(n, 0xBEEF), rowWeight(n, 0xBEEF) {}
    RemapTables view(uint32_t stride) { return {offset.data(), columnWeight.data(), rowWeight.data(), stride}; }
    std::vector<uint32_t> offset;
    std::vector<uint16_t> columnWeight, rowWeight;
};

std::vector<double> randomMap(std::mt19937& rng, int w, int h, double lo, double hi) {
    std::uniform_real_distribution<double> dist(lo, hi);
    std::vector<double> map(2 * size_t(w) * h);
    for (double& v : map) v = dist(rng);
    return map;
}

TEST(RemapLut, TableEntriesFollowTheSourcePoint) {
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
    RemapLut_Build(t.view(w), RemapLayout{srcW, srcH, w, h}, identity, map.data(), w, h, rect);
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
TEST(RemapLut, IdentityMatrixByValueAndClampedProjectiveSampling) {
    std::mt19937 rng(5);
    const int mw = 6, mh = 5, ow = 9, oh = 5;
    const auto map = randomMap(rng, mw, mh, 0.0, 18.0);
    const uint16_t rect[4] = {0, 0, ow - 1, oh - 1};
    const double negZero[9] = {1, -0.0, -0.0, -0.0, 1, -0.0, -0.0, -0.0, 1};
    const double doubled[9] = {2, 0, 0, 0, 2, 0, 0, 0, 2};  // same mapping, not the identity
    Tables a(ow * oh), b(ow * oh);
    const RemapLayout layout{20, 20, ow, oh};
    RemapLut_Build(a.view(ow), layout, negZero, map.data(), mw, mh, rect);
    RemapLut_Build(b.view(ow), layout, doubled, map.data(), mw, mh, rect);
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

TEST(RemapLut, ProjectiveTranslationSamplesBetweenRecords) {
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
    RemapLut_Build(t.view(mw), RemapLayout{40, 40, mw, mh}, shift, map.data(), mw, mh, rect);
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

// Rows written shifted by the extra columns (modes 1 and 2 with the flag) or
// not; a rectangle entirely beyond the output width writes nothing.
TEST(RemapLut, ExtraColumnsShiftTheRowsWhenAsked) {
    const uint16_t w = 6, h = 2;
    const uint32_t extra = 3, stride = w + extra;
    std::vector<double> map(2 * w * h);
    for (int i = 0; i < w * h; ++i) {
        map[2 * i] = 1.0 + i % w;
        map[2 * i + 1] = 1.0;
    }
    const double id[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    const uint16_t rect[4] = {0, 0, w - 1, h - 1};
    for (const uint32_t shift : {0u, extra}) {
        Tables t(stride * h);
        RemapLut_Build(t.view(stride), RemapLayout{20, 20, w, h, extra, shift}, id, map.data(), w, h, rect);
        for (int y = 0; y < h; ++y)
            for (uint32_t col = 0; col < stride; ++col) {
                const int x = int(col) - int(shift);
                const uint32_t expected = x >= 0 && x < w ? uint32_t(21 + x) : 0xDEADBEEFu;
                EXPECT_EQ(t.offset[y * stride + col], expected) << "shift " << shift << " col " << col;
            }
    }
    Tables t(stride * h);
    const uint16_t beyond[4] = {uint16_t(w), 0, uint16_t(w + 2), 1};
    RemapLut_Build(t.view(stride), RemapLayout{20, 20, w, h, extra, extra}, id, map.data(), w, h, beyond);
    for (uint32_t v : t.offset) EXPECT_EQ(v, 0xDEADBEEFu);
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
TEST(RemapLut, ProjectiveTableMatchesPlainReference) {
    std::mt19937 rng(17);
    const int mw = 37, mh = 21, ow = 45, oh = 27, sw = 33, sh = 19;
    const auto map = randomMap(rng, mw, mh, -1.0, 34.0);
    const double mild[9] = {1.03, 0.04, -2.5, -0.02, 0.97, 1.25, 0.0009, -0.0004, 1.01};
    const double steep[9] = {1.0, 0.1, 0.5, 0.05, 1.0, -0.5, -0.05, 0.001, 1.0};
    // Runs of consecutive records (the kernels' whole-load path).
    const double near[9] = {1.0, 0.001, -3.7, 0.002, 1.0, -1.6, 0.00001, 0, 1.0};
    const uint16_t rect[4] = {0, 0, ow - 1, oh - 1};
    const LutRowVariant* kernels;
    const int count = lutRowVariants(&kernels);
    for (int k = 0; k < count; ++k) {
        for (const double* h : {mild, steep, near}) {
            setLutRowKernel(kernels[k].fn);
            Tables t(ow * oh);
            RemapLut_Build(t.view(ow), RemapLayout{sw, sh, ow, oh}, h, map.data(), mw, mh, rect);
            setLutRowKernel(nullptr);
            for (int y = 0; y < oh; ++y) {
                double su = h[0] * 0 + h[1] * y + h[2], sv = h[3] * 0 + h[4] * y + h[5],
                       sz = h[6] * 0 + h[7] * y + h[8];
                for (int x = 0; x < ow; ++x, su += h[0], sv += h[3], sz += h[6]) {
                    uint32_t o;
                    uint16_t cw, rw;
                    reference::lutEntry(map.data(), mw, mh, sw, sh, su / sz, sv / sz, &o, &cw, &rw);
                    const int i = y * ow + x;
                    ASSERT_EQ(t.offset[i], o) << kernels[k].name << " at " << x << "," << y;
                    ASSERT_EQ(t.columnWeight[i], cw) << kernels[k].name << " at " << x << "," << y;
                    ASSERT_EQ(t.rowWeight[i], rw) << kernels[k].name << " at " << x << "," << y;
                }
            }
        }
    }
}

// The map build (every row kernel this CPU runs) against a linear-search
// version of the same composition (docs/remap.md): ascending and unordered
// tables, fitted or not, and a pitch that puts the corners beyond the table.
TEST(DistortionMap, MapMatchesPlainReference) {
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
    const MapRowVariant* kernels;
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
            setMapRowKernel(kernels[k].fn);
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
                        << kernels[k].name << " at " << x << "," << y << " pitch " << c.pitch << " fit " << c.fit;
                    ASSERT_EQ(map[2 * (y * gw + x) + 1], m.cy + f * (y * ky - oy)) << x << "," << y;
                }
            }
            EXPECT_EQ(res, beyond ? kMapBeyondTable : kMapOk) << "kernel " << k;
            if (c.pitch > 100 && c.radii == sortedR) EXPECT_TRUE(beyond);
        }
    }
}


// ---- Per-camera build against the map-then-table path -------------------------

namespace {

struct Built {
    uint32_t code = 0;
    std::vector<uint32_t> offset;
    std::vector<uint16_t> columnWeight, rowWeight;
    bool operator==(const Built& o) const {
        return code == o.code && offset == o.offset && columnWeight == o.columnWeight && rowWeight == o.rowWeight;
    }
};

// The reference: the whole coordinate map with the plain row kernel, then
// the table from it with the plain row kernel; a failed map leaves border
// entries (all zero).
Built mapThenTable(const calib::CameraModel& cam, const RemapLayout& layout) {
    setMapRowKernel(MapRow_C);
    setLutRowKernel(LutRowProjective_C);
    const RemapModel m = Remap_BuildModel(cam, layout);
    const DistortionTable t = DistortionTable_FromModel(cam, 0);
    std::vector<double> map(2 * size_t(m.gridWidth) * m.gridHeight + 2);
    double sx, sy;
    Built b;
    b.code = DistortionMap_Build(map.data(), m, t.radius, t.distortion, t.calibrationEntries, 0, &sx, &sy, 1);
    b.offset.assign(layout.entries(), 0);
    b.columnWeight.assign(layout.entries(), 0);
    b.rowWeight.assign(layout.entries(), 0);
    if (b.code == kMapOk) {
        const RemapTables view{b.offset.data(), b.columnWeight.data(), b.rowWeight.data(), layout.stride()};
        RemapLut_Build(view, layout, m.homography, map.data(), m.gridWidth, m.gridHeight, m.rect);
        b.code = 0;
    }
    setMapRowKernel(nullptr);
    setLutRowKernel(nullptr);
    return b;
}

constexpr uint8_t kCanary = 0xA5;
constexpr size_t kPad = 64;

// Remap_BuildCamera into canary-padded storage; false when it wrote outside.
bool buildCamera(const calib::CameraModel& cam, const RemapLayout& layout, Built* out) {
    const size_t bytes = Remap_TableBytes(layout);
    std::vector<uint8_t> storage(bytes + 2 * kPad, kCanary);
    const RemapTables t = Remap_TablesIn(storage.data() + kPad, layout);
    out->code = Remap_BuildCamera(t, cam, layout);
    const size_t n = layout.entries();
    out->offset.assign(t.offset, t.offset + n);
    out->columnWeight.assign(t.columnWeight, t.columnWeight + n);
    out->rowWeight.assign(t.rowWeight, t.rowWeight + n);
    for (size_t i = 0; i < kPad; ++i)
        if (storage[i] != kCanary || storage[kPad + bytes + i] != kCanary) return false;
    return true;
}

struct BuildCase {
    const char* name;
    SectionShape shape;
    RemapLayout layout;
    uint32_t code;  // what both paths must return
};
void PrintTo(const BuildCase& c, std::ostream* os) { *os << c.name; }

SectionShape shape(uint16_t gw, uint16_t gh, std::initializer_list<float> h) {
    SectionShape s;
    s.gridWidth = gw;
    s.gridHeight = gh;
    s.calibWidth = uint16_t(gw * 10);
    s.calibHeight = uint16_t(gh * 10);
    s.pitch = 0.005f;
    s.distortions = {0, -2000, -5000, -9000};
    std::copy(h.begin(), h.end(), s.homography);
    return s;
}

std::vector<BuildCase> buildCases() {
    std::vector<BuildCase> c;
    const std::initializer_list<float> identity{1, 0, 0, 0, 1, 0, 0, 0, 1};
    const std::initializer_list<float> mild{1.01f, 0.02f, -0.3f, -0.01f, 0.99f, 0.4f, 0.0001f, 0, 1};
    c.push_back({"identity", shape(52, 75, identity), {52, 75, 52, 75}, 0});
    c.push_back({"mild", shape(52, 75, mild), {52, 75, 52, 75}, 0});
    // Reads 37 rows further down; a rotation reads a band of rows per row.
    c.push_back({"far rows", shape(52, 75, {1, 0, 0, 0, 1, 37.5f, 0, 0, 1}), {52, 75, 52, 75}, 0});
    c.push_back({"rotation", shape(52, 75, {0.94f, 0.34f, -6, -0.34f, 0.94f, 20, 0, 0, 1}), {52, 75, 52, 75}, 0});
    // Rows that cannot be bounded: the whole map is built first.
    c.push_back({"w leaves [0.5, 2]", shape(52, 75, {1, 0.05f, 0, 0.3f, 1, -4, 0.004f, 0.002f, 1}), {52, 75, 52, 75}, 0});
    c.push_back({"w through zero", shape(52, 75, {1, 0, 0, 0, 1, 0, -0.03f, 0, 1.2f}), {52, 75, 52, 75}, 0});
    // SPR: the grid is the output, the source another size.
    c.push_back({"downscale", shape(40, 30, mild), {64, 48, 40, 30}, 0});
    c.push_back({"upscale", shape(40, 30, mild), {16, 12, 40, 30}, 0});
    c.push_back({"grid unlike output", shape(30, 50, mild), {52, 75, 52, 75}, 0});
    SectionShape off = shape(52, 75, mild);
    off.principalX = 21 * 16 + 5;
    off.principalY = 14 * 16;
    c.push_back({"principal point", off, {52, 75, 52, 75}, 0});
    SectionShape unsorted = shape(52, 75, mild);
    unsorted.radii = {0, 1000, 2500, 2000, 3000};
    unsorted.distortions = {0, -1000, -4000, -3000, -7000};
    c.push_back({"unsorted table", unsorted, {52, 75, 52, 75}, 0});
    // Large enough for the thread team.
    c.push_back({"team mild", shape(300, 200, mild), {300, 200, 300, 200}, 0});
    c.push_back({"team rotation", shape(300, 200, {0.98f, 0.17f, -6, -0.17f, 0.98f, 30, 0, 0, 1}), {300, 200, 300, 200}, 0});
    // Failures: every corner beyond the table (fill scale), and corners that
    // only go beyond it once the fill scale has widened the view.
    SectionShape far = shape(52, 75, mild);
    far.pitch = 0.5f;
    c.push_back({"fill scale fails", far, {52, 75, 52, 75}, kMapFillScaleFailed});
    SectionShape widened = shape(40, 30, mild);
    widened.radii = {0, 10, 20};
    widened.distortions = {0, -800, -1600};
    widened.pitch = 0.00104f;  // corner radius 0.26 of 0.27 (extended); fill scale about 1.14
    c.push_back({"beyond after fitting", widened, {40, 30, 40, 30}, kMapBeyondTable});
    SectionShape empty = shape(52, 75, mild);
    empty.gridWidth = 0;
    empty.gridHeight = 0;
    c.push_back({"empty grid", empty, {52, 75, 52, 75}, 0});
    return c;
}

class BuildCamera : public ::testing::TestWithParam<BuildCase> {};

// Every row kernel pair this CPU runs, on one thread and on three: the same
// code and the same entries, nothing written outside the tables.
TEST_P(BuildCamera, MatchesMapThenTable) {
    const BuildCase& c = GetParam();
    const calib::CameraModel cam = cameraWith(c.shape);
    const Built expected = mapThenTable(cam, c.layout);
    ASSERT_EQ(expected.code, c.code);
    const MapRowVariant* maps;
    const LutRowVariant* luts;
    const int mapCount = mapRowVariants(&maps), lutCount = lutRowVariants(&luts);
    const int threads = omp_get_max_threads();
    for (int team : {1, 3}) {
        omp_set_num_threads(team);
        for (int m = 0; m < mapCount; ++m)
            for (int l = 0; l < lutCount; ++l) {
                setMapRowKernel(maps[m].fn);
                setLutRowKernel(luts[l].fn);
                Built actual;
                const bool inside = buildCamera(cam, c.layout, &actual);
                setMapRowKernel(nullptr);
                setLutRowKernel(nullptr);
                const std::string what = std::string(maps[m].name) + "/" + luts[l].name + " team " + std::to_string(team);
                EXPECT_TRUE(inside) << what;
                EXPECT_EQ(actual.code, expected.code) << what;
                EXPECT_TRUE(actual == expected) << what;
            }
    }
    omp_set_num_threads(threads);
    if (c.code == 0 && c.shape.gridWidth != 0)
        EXPECT_NE(std::count(expected.offset.begin(), expected.offset.end(), 0u), long(expected.offset.size()))
            << "all border entries: the case tests nothing";
}

INSTANTIATE_TEST_SUITE_P(Cases, BuildCamera, ::testing::ValuesIn(buildCases()));

// The one-call build and warp: an undistorted identity copies the interior
// and gives the border value elsewhere, for the planes asked for.
TEST(BuildAndApply, WarpsTheRequestedPlanes) {
    const uint16_t w = 24, h = 16;
    SectionShape s;
    s.gridWidth = w;
    s.gridHeight = h;
    s.calibWidth = 240;
    s.calibHeight = 160;
    const calib::CameraModel cam = cameraWith(s);
    std::mt19937 rng(21);
    const size_t plane = size_t(w) * h;
    const auto src = randomBytes(rng, 3 * plane);
    for (uint32_t planes : {0u, 1u, 2u, 3u}) {
        std::vector<uint8_t> dst(3 * plane, kCanary);
        ASSERT_EQ(Remap_BuildAndApply(dst.data(), src.data(), cam, RemapLayout{w, h, w, h}, planes), 0u);
        for (uint32_t k = 0; k < 3; ++k) {
            const bool warped = (planes == 0 && k == 0) || planes == 1 || (planes == 2 && k > 0);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    const uint8_t got = dst[k * plane + y * w + x];
                    if (!warped)
                        ASSERT_EQ(got, kCanary);
                    else if (x < w - 1 && y < h - 1)
                        ASSERT_EQ(got, src[k * plane + y * w + x]) << k << ":" << x << "," << y;
                    else
                        ASSERT_EQ(got, src[k * plane + w + 1]) << "border value";
                }
        }
    }
    // A failed build warps nothing and says why.
    s.pitch = 0.5f;
    std::vector<uint8_t> dst(3 * plane, kCanary);
    EXPECT_EQ(Remap_BuildAndApply(dst.data(), src.data(), cameraWith(s), RemapLayout{w, h, w, h}, 1),
              kMapFillScaleFailed);
    EXPECT_EQ(dst, std::vector<uint8_t>(3 * plane, kCanary));
}

// Shifted layouts move the warped columns right by the extra columns, for
// every plane (all planes share the table).
TEST(BuildAndApply, ShiftedColumns) {
    const uint16_t w = 10, h = 6, extra = 3, stride = w + extra;
    SectionShape s;
    s.gridWidth = w;
    s.gridHeight = h;
    const calib::CameraModel cam = cameraWith(s);
    std::mt19937 rng(4);
    const auto src = randomBytes(rng, 3 * size_t(w) * h);
    for (uint32_t shift : {0u, uint32_t(extra)}) {
        std::vector<uint8_t> dst(3 * size_t(stride) * h, kCanary);
        ASSERT_EQ(Remap_BuildAndApply(dst.data(), src.data(), cam, RemapLayout{w, h, w, h, extra, shift}, 1), 0u);
        for (int k = 0; k < 3; ++k)
            for (int y = 0; y < h - 1; ++y)
                for (int col = 0; col < stride; ++col) {
                    const int x = col - int(shift);
                    const uint8_t got = dst[size_t(k) * stride * h + size_t(y) * stride + col];
                    if (x < 0 || x >= w)
                        ASSERT_EQ(got, kCanary) << "shift " << shift << " col " << col;
                    else if (x < w - 1)
                        ASSERT_EQ(got, src[size_t(k) * w * h + size_t(y) * w + x]) << "shift " << shift << " col " << col;
                }
    }
}

}  // namespace
