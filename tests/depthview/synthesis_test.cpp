// Virtual camera, shift table and the per-row synthesis over explicit buffers.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <tuple>
#include <algorithm>
#include <vector>

#include "common/colorconv.h"
#include "depthview/synthesis.h"

namespace {

using namespace kvdsr::depthview;

const CameraValues kCam{4000, 4.0f, 0.0014f};  // sensor 5.6 mm wide, f = 4 mm

std::vector<uint16_t> table(int width, uint16_t viewShift, const CameraValues& cam = kCam) {
    double m[16];
    virtualCamera(m, cam, viewShift);
    std::vector<uint16_t> t(size_t(kDepthLevels) * width);
    buildShiftTable(t.data(), m, cam, width);
    return t;
}

TEST(ViewMatrix, ProjectionThenTranslation) {
    double m[16];
    virtualCamera(m, kCam, 250);
    const double halfFov = std::atan(4000 * 0.0014f * 0.5 / 4.0f);
    const double f = 1.0 / std::tan(halfFov * 114.59165581759557 * 0.008726646259971648);
    EXPECT_NEAR(f, 1 / 0.7, 1e-5);  // the short pi leaves a small difference
    EXPECT_NE(f, 1 / std::tan(halfFov));
    EXPECT_DOUBLE_EQ(m[0], f);
    EXPECT_DOUBLE_EQ(m[5], f);
    EXPECT_DOUBLE_EQ(m[10], -1.0019569471624266);
    EXPECT_DOUBLE_EQ(m[11], -1.0);
    EXPECT_NEAR(m[12], 2.5 * f, 1e-12);
    EXPECT_DOUBLE_EQ(m[14], -2.0019569471624266);
    EXPECT_EQ(m[15], 0.0);
}

TEST(ShiftTable, LevelZeroMapsToTheCentre) {
    for (int width : {64, 63}) {
        const auto t = table(width, 300);
        for (int x = 0; x < width; ++x) ASSERT_EQ(t[x], width / 2) << x;
    }
}

TEST(ShiftTable, NoShiftIsNearlyIdentity) {
    const int w = 64;
    const auto t = table(w, 0);
    for (int d = 1; d < kDepthLevels; ++d)
        for (int x = 0; x < w; ++x) ASSERT_NEAR(t[d * w + x], x, 1) << d << "," << x;
}

TEST(ShiftTable, DisplacementGrowsWithShiftAndFallsWithDepth) {
    const int w = 64;
    const auto weak = table(w, 20), strong = table(w, 200);
    for (int x = 0; x < w; ++x) {
        for (int d = 1; d < kDepthLevels; ++d) {
            ASSERT_LE(weak[d * w + x], strong[d * w + x]) << d << "," << x;
            if (d > 1) ASSERT_LE(strong[d * w + x], strong[(d - 1) * w + x]) << d << "," << x;
        }
        // Close to x + width * t * f / (2d).
        const double f = 1 / 0.7;
        EXPECT_NEAR(strong[10 * w + x], x + w * 2.0 * f / 20, 1.5) << x;
    }
    EXPECT_GT(strong[1 * w + 10], weak[1 * w + 10] + 50);
}

TEST(ShiftTable, HugeShiftsAndBrokenCalibrationStayDefined) {
    // Targets of near levels pass 65535 and wrap; a zero focal length gives
    // NaN columns, which become 0 and are never written.
    const auto t = table(64, 65535);
    EXPECT_EQ(t[0], 32);
    const auto broken = table(16, 100, CameraValues{4000, 0.f, 0.0014f});
    EXPECT_EQ(broken[5 * 16 + 8], 0);  // 0 * infinity at the centre column
}

TEST(FirstColumn, ScalesWithWidthAndShift) {
    EXPECT_EQ(firstWritableColumn(1080, 720.0, 0), 60);
    EXPECT_EQ(firstWritableColumn(1080, 720.0, 100), int(1.5 * (100 * 0.12 + 40)));
    EXPECT_EQ(firstWritableColumn(1920, 1280.0, 17), int(1.5 * (17 * 0.12 + 40.0)));
    EXPECT_EQ(firstWritableColumn(640, 0.0, 0), INT32_MAX);
}

// A hand-made table: one depth level whose targets are given per column.
struct Scene {
    int w, h;
    std::vector<uint16_t> shift, depth;
    std::vector<uint8_t> src, dst;
    Scene(int w_, int h_) : w(w_), h(h_), shift(size_t(kDepthLevels) * w_, 0xFFFF), depth(size_t(w_) * h_, 0),
                            src(3 * size_t(w_) * h_), dst(3 * size_t(w_) * h_, 0xEE) {
        std::mt19937 rng(w * 31 + h);
        for (auto& b : src) b = uint8_t(rng());
    }
    void run(int firstColumn) {
        const size_t p = size_t(w) * h;
        uint8_t* const d[3] = {dst.data(), dst.data() + p, dst.data() + 2 * p};
        const uint8_t* const s[3] = {src.data(), src.data() + p, src.data() + 2 * p};
        synthesizeView(d, w, s, w, depth.data(), shift.data(), firstColumn, w, h);
    }
    uint8_t& out(int plane, int y, int x) { return dst[size_t(plane) * w * h + size_t(y) * w + x]; }
    uint8_t in(int plane, int y, int x) const { return src[size_t(plane) * w * h + size_t(y) * w + x]; }
};

TEST(Synthesize, IdentityTargetsCopyFromTheFirstColumnOn) {
    Scene s(24, 4);
    for (int x = 0; x < s.w; ++x) s.shift[x] = uint16_t(x);
    s.run(5);
    for (int p = 0; p < 3; ++p)
        for (int y = 0; y < s.h; ++y)
            for (int x = 0; x < s.w; ++x) ASSERT_EQ(s.out(p, y, x), x < 5 ? 0xEE : s.in(p, y, x)) << p << y << x;
}

TEST(Synthesize, GapsAreInterpolated) {
    // Column x lands on 3x: gaps of 3 between neighbours; beyond the image
    // the pixels are dropped.
    Scene s(30, 2);
    for (int x = 0; x < s.w; ++x) s.shift[x] = uint16_t(3 * x);
    s.run(0);
    for (int p = 0; p < 3; ++p)
        for (int y = 0; y < 2; ++y)
            for (int x = 1; x < 10; ++x) {
                const int a = s.in(p, y, x - 1), b = s.in(p, y, x);
                ASSERT_EQ(s.out(p, y, 3 * x - 3), a);
                ASSERT_EQ(s.out(p, y, 3 * x - 2), (b + 2 * a) / 3) << p << y << x;
                ASSERT_EQ(s.out(p, y, 3 * x - 1), (2 * b + a) / 3);
                ASSERT_EQ(s.out(p, y, 3 * x), b);
            }
    // Gap of two: the midpoint, rounded down.
    Scene two(12, 1);
    for (int x = 0; x < two.w; ++x) two.shift[x] = uint16_t(2 * x);
    two.run(0);
    for (int x = 1; x < 6; ++x) ASSERT_EQ(two.out(0, 0, 2 * x - 1), (two.in(0, 0, x - 1) + two.in(0, 0, x)) >> 1);
}

TEST(Synthesize, InterpolationUsesTheReciprocalOfTheGap) {
    // A constant run of 1 over a gap of 49: 49 * (1.0 / 49) is just below 1.
    Scene s(64, 1);
    std::fill(s.src.begin(), s.src.end(), 1);
    s.shift[1] = 2;
    s.shift[2] = 51;
    s.run(2);
    EXPECT_EQ(s.out(0, 0, 2), 1);
    EXPECT_EQ(s.out(0, 0, 10), 0);
    EXPECT_EQ(s.out(0, 0, 51), 1);
}

TEST(Synthesize, OccludedPixelsVanish) {
    // Depth per column picks level 0 (target x) or level 5 (target x + 6):
    // pixels landing on or left of the last written column are dropped.
    Scene s(20, 1);
    for (int x = 0; x < s.w; ++x) {
        s.shift[x] = uint16_t(x);
        s.shift[5 * s.w + x] = uint16_t(x + 6);
    }
    for (int x = 4; x < 8; ++x) s.depth[x] = 5;  // columns 4..7 jump to 10..13
    s.run(0);
    EXPECT_EQ(s.out(0, 0, 3), s.in(0, 0, 3));
    EXPECT_EQ(s.out(0, 0, 10), s.in(0, 0, 4));
    EXPECT_EQ(s.out(0, 0, 12), s.in(0, 0, 6));
    // Columns 8..13 land on 8..13 <= 13 and vanish; column 14 lands right
    // after and writes its left neighbour (13) over the landing of 7.
    EXPECT_EQ(s.out(0, 0, 13), s.in(0, 0, 13));
    EXPECT_EQ(s.out(0, 0, 14), s.in(0, 0, 14));
    // Levels above 1023 are read as 1023 (no target there: nothing written).
    s.depth.assign(s.w, 4000);
    std::fill(s.dst.begin(), s.dst.end(), 0xEE);
    s.run(0);
    for (uint8_t b : s.dst) ASSERT_EQ(b, 0xEE);
}

TEST(Synthesize, SideBySideWritesOnlyTheLeftHalves) {
    const int w = 16, h = 3;
    Scene s(w, h);
    for (int x = 0; x < w; ++x) s.shift[x] = uint16_t(std::min(x + 2, 0xFFFF));
    s.run(1);
    std::vector<uint8_t> sbs(6 * w * h, 0x77);
    synthesizeViewSideBySide(sbs.data(), s.src.data(), s.depth.data(), s.shift.data(), 1, w, h);
    for (int p = 0; p < 3; ++p)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < 2 * w; ++x) {
                const uint8_t v = sbs[size_t(p) * 2 * w * h + size_t(y) * 2 * w + x];
                if (x >= w || s.out(p, y, x) == 0xEE)
                    ASSERT_EQ(v, 0x77) << p << "," << y << "," << x;
                else
                    ASSERT_EQ(v, s.out(p, y, x)) << p << "," << y << "," << x;
            }
}

}  // namespace

namespace {

// The 4:2:0 synthesis against the straightforward path: convert to 4:4:4,
// synthesise pixel by pixel into a cleared image (side by side: beside the
// input), convert back. Depth either random per pixel (gaps and occlusions
// of every kind) or in stretches of one level (long runs, every shift parity).
class Fused420 : public ::testing::TestWithParam<std::tuple<int, int, bool, uint32_t, bool>> {};

std::vector<uint16_t> depthPattern(size_t n, int w, bool smooth, std::mt19937& rng) {
    std::vector<uint16_t> depth(n);
    if (!smooth) {
        for (auto& d : depth) d = uint16_t(rng() % 2 ? 1 + rng() % 40 : 1 + rng() % 1023);
        return depth;
    }
    uint16_t level = 30;
    for (size_t i = 0; i < n; ++i) {
        if (i % size_t(w) == 0 || rng() % 23 == 0) level = uint16_t(1 + rng() % (rng() % 3 ? 60 : 1023));
        depth[i] = level;
    }
    return depth;
}

// The reference path from a 4:4:4 source image.
std::vector<uint8_t> via444(const std::vector<uint8_t>& src444, const std::vector<uint16_t>& depth,
                            const std::vector<uint16_t>& table, int32_t first, int w, int h, bool sideBySide) {
    const size_t plane = size_t(w) * h, ow = sideBySide ? 2 * size_t(w) : size_t(w), op = ow * h;
    std::vector<uint8_t> dst444(3 * op, 128), out(op * 3 / 2 + ow, 0xEE);
    std::fill(dst444.begin(), dst444.begin() + op, 0);
    uint8_t* const d[3] = {dst444.data(), dst444.data() + op, dst444.data() + 2 * op};
    const uint8_t* const s[3] = {src444.data(), src444.data() + plane, src444.data() + 2 * plane};
    synthesizeViewReference(d, ow, s, w, depth.data(), table.data(), first, w, h);
    if (sideBySide)
        for (int r = 0; r < 3 * h; ++r) std::copy_n(&src444[size_t(r) * w], w, &dst444[r * ow + w]);
    EXPECT_TRUE(kvdsr::ycbcr444pTo420sp(d[0], d[1], d[2], 0, out.data(), 0, out.data() + op, 0, uint32_t(ow), h));
    return out;
}

TEST_P(Fused420, MatchesTheFourFourFourPath) {
    const auto [w, h, sideBySide, stride, smooth] = GetParam();
    const size_t plane = size_t(w) * h, ow = sideBySide ? 2 * size_t(w) : size_t(w), op = ow * h;
    const uint32_t sy = stride ? stride : uint32_t(w);
    std::mt19937 rng(w * 7 + h + sideBySide + 100 * smooth);
    std::vector<uint8_t> y(size_t(sy) * h), uv(size_t(sy) * (h / 2) + 1);
    for (auto& b : y) b = uint8_t(rng());
    for (auto& b : uv) b = uint8_t(rng());
    double m[16];
    virtualCamera(m, kCam, 900);
    std::vector<uint16_t> table(size_t(kDepthLevels) * w);
    buildShiftTable(table.data(), m, kCam, w);
    const std::vector<uint16_t> depth = depthPattern(plane, w, smooth, rng);
    const int32_t first = 3;

    std::vector<uint8_t> src444(3 * plane);
    ASSERT_TRUE(kvdsr::ycbcr420spTo444p(y.data(), stride, uv.data(), stride, src444.data(), src444.data() + plane,
                                        src444.data() + 2 * plane, 0, w, h));
    const std::vector<uint8_t> ref = via444(src444, depth, table, first, w, h, sideBySide);

    std::vector<uint8_t> fused(ref.size(), 0x11);
    synthesizeView420({fused.data(), fused.data() + op, sideBySide, y.data(), sy, uv.data(), sy, 128, table.data(),
                       first, w, h},
                      depth.data());
    // Both leave the bytes past height / 2 chroma rows alone.
    for (size_t i = op + (h / 2) * ow; i < ref.size(); ++i) fused[i] = ref[i];
    EXPECT_EQ(fused, ref);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Fused420,
                         ::testing::Combine(::testing::Values(64, 37, 130, 5, 2), ::testing::Values(21, 48, 1),
                                            ::testing::Bool(), ::testing::Values(0u, 131u), ::testing::Bool()));

// A source the 4:4:4 conversion refuses is synthesised as the all-zero image
// it leaves: rows of zeros, and a zero Cr for an odd width's last column.
TEST(Fused420, ZeroSourceMatchesTheAllZeroImage) {
    for (int w : {33, 32})
        for (bool sideBySide : {false, true}) {
            const int h = 10;
            const size_t ow = sideBySide ? 2 * size_t(w) : size_t(w), op = ow * h;
            std::mt19937 rng(w);
            double m[16];
            virtualCamera(m, kCam, 900);
            std::vector<uint16_t> table(size_t(kDepthLevels) * w);
            buildShiftTable(table.data(), m, kCam, w);
            const std::vector<uint16_t> depth = depthPattern(size_t(w) * h, w, false, rng);
            const std::vector<uint8_t> ref =
                via444(std::vector<uint8_t>(3 * size_t(w) * h, 0), depth, table, 2, w, h, sideBySide);
            const std::vector<uint8_t> zero(size_t(w) + 1, 0);
            std::vector<uint8_t> fused(ref.size(), 0x11);
            synthesizeView420({fused.data(), fused.data() + op, sideBySide, zero.data(), 0, zero.data(), 0, 0,
                               table.data(), 2, w, h},
                              depth.data());
            for (size_t i = op + (h / 2) * ow; i < ref.size(); ++i) fused[i] = ref[i];
            EXPECT_EQ(fused, ref) << w << " " << sideBySide;
        }
}

}  // namespace

namespace {

// Row targets and run ends against their one-at-a-time definitions: stretches
// of one level of every length and alignment, levels past the table, targets
// one apart with breaks anywhere.
TEST(RowTargets, StretchesOfOneLevelReadTheTableLikeSinglePixels) {
    for (int round = 0; round < 40; ++round) {
        std::mt19937 rng(round);
        const int w = 1 + int(rng() % 70);
        std::vector<uint16_t> table(size_t(kDepthLevels) * w), levels(w), targets(w + 1, 0xBEEF);
        for (auto& t : table) t = uint16_t(rng());
        uint16_t level = 0;
        for (int x = 0; x < w; ++x) {
            if (rng() % 5 == 0) level = uint16_t(rng() % 3 == 0 ? 1024 + rng() % 3000 : rng() % 1024);
            levels[x] = level;
        }
        rowTargets(targets.data(), levels.data(), table.data(), w);
        for (int x = 0; x < w; ++x)
            ASSERT_EQ(targets[x], table[size_t(std::min<int>(levels[x], 1023)) * w + x]) << round << " " << x;
        EXPECT_EQ(targets[w], 0xBEEF);
    }
}

TEST(RowTargets, RunEndIsTheFirstTargetOutOfStep) {
    for (int round = 0; round < 200; ++round) {
        std::mt19937 rng(round);
        const int n = 1 + int(rng() % 40), from = int(rng() % 5);
        const uint16_t first = uint16_t(round % 7 == 0 ? 65535 - n - from : rng() % 60000);
        std::vector<uint16_t> targets(size_t(from + n) + 4);
        for (int i = 0; i < int(targets.size()); ++i) targets[i] = uint16_t(first + (i - from));
        const int breakAt = from + int(rng() % (n + 1));
        if (breakAt < from + n) targets[breakAt] = uint16_t(targets[breakAt] + 1 + rng() % 3);
        const int limit = from + n;
        int expected = from;
        while (expected < limit && targets[expected] == uint16_t(first + (expected - from))) ++expected;
        ASSERT_EQ(runEnd(targets.data(), from, limit, first), expected) << round;
    }
}

// The row loop against the plain reference: random targets (in and out of
// the image, repeated, backwards), random levels (some above 1023), several
// first columns, strides wider than the rows.
TEST(SynthesizeReference, RandomTablesGiveTheSameBytes) {
    for (int round = 0; round < 12; ++round) {
        std::mt19937 rng(round);
        const int w = 8 + int(rng() % 90), h = 1 + int(rng() % 6);
        const size_t stride = size_t(w) + rng() % 5;
        std::vector<uint16_t> table(size_t(kDepthLevels) * w), depth(size_t(w) * h);
        for (int d = 0; d < kDepthLevels; ++d) {
            const int shift = int(rng() % 9) - 2;
            for (int x = 0; x < w; ++x) {
                const uint32_t r = rng() % 16;
                int t = x + shift;
                if (r == 0) t = int(rng() % (w + 5));
                if (r == 1) t = 0xFFFF;
                table[size_t(d) * w + x] = uint16_t(std::clamp(t, 0, 0xFFFF));
            }
        }
        for (auto& v : depth) v = uint16_t(rng() % 8 == 0 ? rng() % 2000 : rng() % 6);
        std::vector<uint8_t> src(3 * stride * h);
        for (auto& b : src) b = uint8_t(rng());
        const int32_t first = round % 3 == 0 ? -5 : int32_t(rng() % 6);
        std::vector<uint8_t> a(3 * stride * h, 0x42), b(a);
        const uint8_t* const s[3] = {src.data(), src.data() + stride * h, src.data() + 2 * stride * h};
        uint8_t* const da[3] = {a.data(), a.data() + stride * h, a.data() + 2 * stride * h};
        uint8_t* const db[3] = {b.data(), b.data() + stride * h, b.data() + 2 * stride * h};
        synthesizeView(da, stride, s, stride, depth.data(), table.data(), first, w, h);
        synthesizeViewReference(db, stride, s, stride, depth.data(), table.data(), first, w, h);
        ASSERT_EQ(a, b) << "round " << round;
    }
}

}  // namespace
