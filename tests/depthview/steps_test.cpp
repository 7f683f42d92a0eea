// Depth-map steps one by one: hole filling, disparity conversion, minimum
// filter and the resampler with its fast paths.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

#include "depthview/depth_steps.h"
#include "depthview/resize_kernels.h"

namespace {

using namespace kvdsr::depthview;

constexpr uint8_t I8 = 255;
constexpr uint16_t I16 = 1023;

// ---- Hole filling ---------------------------------------------------------

TEST(FillInvalid, ForwardPassUsesItsOwnRepairs) {
    std::vector<uint8_t> row = {20, I8, I8, 80};
    fillInvalidDepth8(row.data(), 4, 1);
    // Pixel 2 sees the repaired 20 of pixel 1 beside the 80.
    EXPECT_EQ(row, (std::vector<uint8_t>{20, 20, 50, 80}));
}

TEST(FillInvalid, LeftoversAreRepairedBackwards) {
    // Only pixel 2 has a valid neighbour in the forward pass; pixels 1 then 0
    // are repaired walking back, so both need a backward order.
    std::vector<uint16_t> row = {I16, I16, I16, 9};
    fillInvalidDepth16(row.data(), 4, 1);
    EXPECT_EQ(row, (std::vector<uint16_t>{9, 9, 9, 9}));

    std::vector<uint8_t> col = {I8, I8, I8, 30, 60};  // one column
    fillInvalidDepth8(col.data(), 1, 5);
    EXPECT_EQ(col, (std::vector<uint8_t>{30, 30, 30, 30, 60}));
}

TEST(FillInvalid, MeanOfTheThreeByThreeNeighbourhood) {
    std::vector<uint16_t> m = {1, 2, 3,  //
                               4, I16, 6,  //
                               7, 8, 1000};
    fillInvalidDepth16(m.data(), 3, 3);
    EXPECT_EQ(m[4], (1 + 2 + 3 + 4 + 6 + 7 + 8 + 1000) / 8);

    // Values above the marker are not valid either.
    std::vector<uint16_t> n = {2000, 10, I16, 30};
    fillInvalidDepth16(n.data(), 4, 1);
    EXPECT_EQ(n[2], 20);
    EXPECT_EQ(n[0], 2000);
}

TEST(FillInvalid, AllInvalidStaysInvalid) {
    std::vector<uint8_t> m(12, I8);
    fillInvalidDepth8(m.data(), 4, 3);
    for (uint8_t v : m) EXPECT_EQ(v, I8);
}

// ---- Disparity to depth ---------------------------------------------------

TEST(Disparity8, ScaleDividesTheDisparity) {
    // focalPx * baseline = 1000; scale 4 turns value 8 into disparity 2.
    const std::vector<uint8_t> src = {8, 16, 200, 3, 0, I8};
    std::vector<uint16_t> dst(src.size(), 0xBEEF);
    disparity8ToDepth(dst.data(), src.data(), 3, 2, 4, 1023, I8, 100.f, 10.0);
    EXPECT_EQ(dst[0], 500);
    EXPECT_EQ(dst[1], 250);
    EXPECT_EQ(dst[2], 20);
    EXPECT_EQ(dst[3], 1023);  // 1333 is beyond the far plane
    EXPECT_EQ(dst[4], 1023);  // zero disparity
    EXPECT_EQ(dst[5], 0);     // invalid
}

TEST(Disparity8, ZeroScaleGivesDepthZeroAndFarPlaneForZero) {
    std::vector<uint8_t> src(256);
    for (int v = 0; v < 256; ++v) src[v] = uint8_t(v);
    std::vector<uint16_t> dst(256, 0xBEEF);
    disparity8ToDepth(dst.data(), src.data(), 16, 16, 0, 1023, I8, 100.f, 10.0);
    EXPECT_EQ(dst[0], 1023);
    for (int v = 1; v < 255; ++v) ASSERT_EQ(dst[v], 0) << v;
    EXPECT_EQ(dst[255], 0);
}

TEST(Disparity16, EighthsOfAPixelAndOutOfTableValues) {
    const std::vector<uint16_t> src = {16, 80, I16, 0, 2000, 1022};
    std::vector<uint16_t> dst(src.size(), 0xBEEF);
    disparity16ToDepth(dst.data(), src.data(), 6, 1, 8, 1023, I16, 100.f, 10.0);
    EXPECT_EQ(dst[0], 500);
    EXPECT_EQ(dst[1], 100);
    EXPECT_EQ(dst[2], 0);
    EXPECT_EQ(dst[3], 1023);
    EXPECT_EQ(dst[4], 0);
    EXPECT_EQ(dst[5], 8);  // 1000 / 127.75 = 7.83
}

TEST(Disparity16, DepthFallsAsDisparityGrows) {
    std::vector<uint16_t> src(1023), dst(1023);
    for (int v = 0; v < 1023; ++v) src[v] = uint16_t(v);
    disparity16ToDepth(dst.data(), src.data(), 1023, 1, 8, 1023, I16, 600.f, 3.0);
    for (int v = 1; v < 1023; ++v) ASSERT_LE(dst[v], dst[v - 1]) << v;
    EXPECT_EQ(dst[0], 1023);
    EXPECT_LT(dst[1022], 20);
}

// A calibration with a negative or absurd focal length or pixel pitch passes
// Init; its negative depths saturate to level 0 (a float-to-unsigned
// conversion of a negative value is undefined), a NaN goes to the far plane.
TEST(Disparity, NegativeAndNonFiniteDepthsSaturate) {
    const float inf = std::numeric_limits<float>::infinity();
    for (auto [focalPx, baseline] : {std::pair{-100.f, 10.0}, {100.f, -10.0}, {-3e30f, 1e9}, {-inf, 1.0}}) {
        const std::vector<uint8_t> src8 = {8, 16, 200, 1, I8};
        std::vector<uint16_t> dst(src8.size(), 0xBEEF);
        disparity8ToDepth(dst.data(), src8.data(), 5, 1, 4, 1023, I8, focalPx, baseline);
        for (uint16_t v : dst) EXPECT_EQ(v, 0) << focalPx << " " << baseline;
        const std::vector<uint16_t> src16 = {16, 80, 1022, 1, I16};
        disparity16ToDepth(dst.data(), src16.data(), 5, 1, 8, 1023, I16, focalPx, baseline);
        for (uint16_t v : dst) EXPECT_EQ(v, 0) << focalPx << " " << baseline;
    }
    const std::vector<uint8_t> src8 = {8, I8};
    std::vector<uint16_t> dst(2, 0xBEEF);
    disparity8ToDepth(dst.data(), src8.data(), 2, 1, 4, 1023, I8, std::nanf(""), 10.0);
    EXPECT_EQ(dst[0], 1023);
    EXPECT_EQ(dst[1], 0);
}

// ---- Minimum filter -------------------------------------------------------

class MinFilter : public ::testing::TestWithParam<std::tuple<int, int, int>> {};

TEST_P(MinFilter, RowRangeBordersAndNeighbourhood) {
    const auto [w, h, r] = GetParam();
    std::mt19937 rng(w * 131 + h * 7 + r);
    std::vector<uint16_t> src(size_t(w) * h), dst(src.size(), 0xBEEF);
    for (auto& v : src) v = uint16_t(rng() % 1024);
    minFilterDepth(dst.data(), src.data(), w, h, r);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const bool filtered = y >= r && y <= h - r - 2 && x >= r && x <= w - r - 1;
            uint16_t expect = src[y * w + x];
            if (filtered)
                for (int dy = -r; dy <= r; ++dy)
                    for (int dx = -r; dx <= r; ++dx) expect = std::min(expect, src[(y + dy) * w + x + dx]);
            ASSERT_EQ(dst[y * w + x], expect) << x << "," << y << " r=" << r;
        }
}

INSTANTIATE_TEST_SUITE_P(Radii, MinFilter,
                         ::testing::Values(std::make_tuple(16, 12, 1), std::make_tuple(16, 12, 2),
                                           std::make_tuple(17, 13, 3), std::make_tuple(5, 8, 3),
                                           std::make_tuple(9, 7, 3), std::make_tuple(4, 3, 1)));

TEST(MinFilterGrowth, NearValueGrowsByTheRadius) {
    const int w = 16, h = 12;
    std::vector<uint16_t> src(w * h, 900), dst(w * h);
    src[6 * w + 8] = 100;
    minFilterDepth(dst.data(), src.data(), w, h, 2);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            ASSERT_EQ(dst[y * w + x], (std::abs(y - 6) <= 2 && std::abs(x - 8) <= 2) ? 100 : 900) << x << "," << y;
}

// ---- Resampling -----------------------------------------------------------

std::vector<uint16_t> randomMap(int w, int h, int maxStep, uint32_t seed) {
    // Neighbouring values differ by at most maxStep (full range when 1023).
    std::mt19937 rng(seed);
    std::vector<uint16_t> m(size_t(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            if (maxStep >= 1023) {
                m[y * w + x] = uint16_t(rng() % 1024);
                continue;
            }
            int base = x ? m[y * w + x - 1] : (y ? m[(y - 1) * w] : 512);
            if (y && x) base = (base + m[(y - 1) * w + x]) / 2;
            const int v = base + int(rng() % (2 * maxStep + 1)) - maxStep;
            m[y * w + x] = uint16_t(std::clamp(v, 0, 1023));
        }
    return m;
}

std::vector<uint16_t> general(const std::vector<uint16_t>& src, int sw, int sh, int dw, int dh) {
    std::vector<uint16_t> out(size_t(dw) * dh);
    resizeDepthGeneral(out.data(), src.data(), sw, sh, dw, dh);
    return out;
}

TEST(Resize, GeneralKeepsConstantsAndIdentity) {
    const auto ramp = randomMap(16, 12, 1023, 5);
    EXPECT_EQ(general(ramp, 16, 12, 16, 12), ramp);
    const std::vector<uint16_t> flat(16 * 12, 777);
    for (auto [dw, dh] : {std::pair{64, 48}, {40, 30}, {7, 5}, {64, 5}, {13, 48}})
        for (uint16_t v : general(flat, 16, 12, dw, dh)) ASSERT_EQ(v, 777) << dw << "x" << dh;
}

// Enlargement against the bilinear formula evaluated directly per pixel:
// floored source positions in 1/256, clamped at the borders, the 1/256
// horizontal sums kept, the vertical sum truncated.
TEST(Resize, GeneralEnlargementIsPlainBilinear) {
    for (auto [sw, sh, dw, dh] : {std::tuple{16, 12, 64, 48}, {7, 5, 23, 17}, {10, 3, 10, 11}, {5, 5, 96, 6}}) {
        const auto src = randomMap(sw, sh, 1023, uint32_t(sw * dw));
        const auto out = general(src, sw, sh, dw, dh);
        auto tap = [](int o, int s, int d, int& i0, int& i1, int& f) {
            const int64_t num = int64_t(o) * s * 256 + int64_t(s - d) * 128;
            const int64_t pos = num >= 0 ? num / d : -((-num + d - 1) / d);
            const int64_t i = pos >= 0 ? pos / 256 : -((-pos + 255) / 256);
            f = int(pos - i * 256);
            if (i < 0 || i >= s - 1) {
                i0 = i1 = i < 0 ? 0 : s - 1;
                f = 0;
            } else {
                i0 = int(i);
                i1 = int(i) + 1;
            }
        };
        for (int y = 0; y < dh; ++y)
            for (int x = 0; x < dw; ++x) {
                int x0, x1, fx, y0, y1, fy;
                tap(x, sw, dw, x0, x1, fx);
                tap(y, sh, dh, y0, y1, fy);
                auto row = [&, sw = sw](int r) { return (256 - fx) * src[r * sw + x0] + fx * src[r * sw + x1]; };
                const uint32_t v = uint32_t((256 - fy) * row(y0) + fy * row(y1)) >> 16;
                ASSERT_EQ(out[y * dw + x], v) << x << "," << y << " " << sw << "->" << dw;
            }
    }
}

TEST(Resize, CentreAlignedEnlargement) {
    // Factor 4 along a row: output x samples source (x + 0.5) / 4 - 0.5.
    const std::vector<uint16_t> src = {0, 256, 512, 768};
    const auto out = general(src, 4, 1, 16, 1);
    const std::vector<uint16_t> expect = {0, 0, 32, 96, 160, 224, 288, 352, 416, 480, 544, 608, 672, 736, 768, 768};
    EXPECT_EQ(out, expect);
}

TEST(Resize, ShrinkingAveragesAreas) {
    // 2 x 2 blocks of one value shrink to that value; a 3:1 shrink averages.
    std::vector<uint16_t> blocks(8 * 4);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 8; ++x) blocks[y * 8 + x] = uint16_t(100 * (x / 2) + 10 * (y / 2));
    const auto out = general(blocks, 8, 4, 4, 2);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x) EXPECT_EQ(out[y * 4 + x], 100 * x + 10 * y);

    const std::vector<uint16_t> row = {0, 30, 60, 300, 300, 300};
    EXPECT_EQ(general(row, 6, 1, 2, 1), (std::vector<uint16_t>{30, 300}));  // weights 85, 85, 86
    // 3 -> 2: the middle sample is split over both outputs.
    EXPECT_EQ(general(std::vector<uint16_t>{0, 90, 300}, 3, 1, 2, 1), (std::vector<uint16_t>{30, 230}));
}

// Fast paths against the general resampler on the same input. Factor 2:
// within 1 everywhere (the fast path rounds each axis, the general one
// truncates once). Factor 3: the vertical axis uses the general weights; the
// horizontal one rounds the two-thirds weight to 171/256 where the general
// resampler's floored position gives 170/256, so output columns 3i (i >= 1)
// may differ by a further |a - b| / 256 of their two source samples.
class FastPaths : public ::testing::TestWithParam<std::tuple<int, int, int, int>> {};

TEST_P(FastPaths, StayWithinOneLevelOfTheGeneralResampler) {
    const auto [factor, w, h, maxStep] = GetParam();
    const auto src = randomMap(w, h, maxStep, uint32_t(factor * 1000 + w + maxStep));
    const int dw = factor * w, dh = factor * h;
    std::vector<uint16_t> fast(size_t(dw) * dh);
    resizeDepth(fast.data(), src.data(), w, h, dw, dh);
    const auto ref = general(src, w, h, dw, dh);
    int maxDiff = 0;
    for (int y = 0; y < dh; ++y)
        for (int x = 0; x < dw; ++x) {
            int tol = 1;
            if (factor == 3 && x % 3 == 0 && x > 0) {
                int step = 0;
                for (int sy = std::max(y / 3 - 1, 0); sy <= std::min(y / 3 + 1, h - 1); ++sy)
                    step = std::max(step, std::abs(src[sy * w + x / 3] - src[sy * w + x / 3 - 1]));
                tol = 1 + (step + 255) / 256;
            }
            const int diff = std::abs(int(fast[y * dw + x]) - int(ref[y * dw + x]));
            maxDiff = std::max(maxDiff, diff);
            ASSERT_LE(diff, tol) << "at " << x << "," << y;
        }
    // The paths are different code: identical output would mean the fast
    // path was not taken for this size.
    if (maxStep > 8 && w > 1) EXPECT_GT(maxDiff, 0);
}

INSTANTIATE_TEST_SUITE_P(Factors, FastPaths,
                         ::testing::Values(std::make_tuple(2, 16, 12, 1023), std::make_tuple(2, 17, 9, 40),
                                           std::make_tuple(3, 16, 12, 1023), std::make_tuple(3, 11, 7, 40),
                                           std::make_tuple(3, 5, 4, 4), std::make_tuple(2, 1, 1, 1023)));

// A whole horizontal factor runs through per-phase taps found at configure
// time; every column must still be the general resampler's. Vertical sizes
// that are not the same factor keep the factor-2 and -3 paths out; factor 9
// has no phase loop; widths below 3 and near the edges use the columns.
TEST(Resize, WholeHorizontalFactorsMatchTheGeneralResampler) {
    for (int k = 2; k <= 9; ++k)
        for (const int w : {1, 2, 3, 4, 7, 30, 61})
            for (const auto& [h, dh] : {std::pair{5, 7}, {9, 40}, {12, 5}}) {
                const auto src = randomMap(w, h, 1023, uint32_t(100 * k + w + h));
                const int dw = k * w;
                std::vector<uint16_t> out(size_t(dw) * dh);
                resizeDepth(out.data(), src.data(), w, h, dw, dh);
                ASSERT_EQ(out, general(src, w, h, dw, dh)) << "factor " << k << " width " << w << " rows " << h;
            }
}

TEST(Resize, FastPathsCopyEveryThirdSampleAndHalveAtTheEdges) {
    const auto src = randomMap(8, 6, 1023, 77);
    std::vector<uint16_t> out3(24 * 18), out2(16 * 12);
    resizeDepth(out3.data(), src.data(), 8, 6, 24, 18);
    for (int y = 0; y < 6; ++y)
        for (int x = 0; x < 8; ++x) ASSERT_EQ(out3[(3 * y + 1) * 24 + 3 * x + 1], src[y * 8 + x]);
    resizeDepth(out2.data(), src.data(), 8, 6, 16, 12);
    EXPECT_EQ(out2[0], src[0]);
    EXPECT_EQ(out2[16 * 12 - 1], src[8 * 6 - 1]);
}

TEST(Resize, EmptySourceGivesZeros) {
    std::vector<uint16_t> out(12, 0xBEEF);
    resizeDepth(out.data(), nullptr, 0, 0, 4, 3);
    for (uint16_t v : out) EXPECT_EQ(v, 0);
}

// One value at a time (the colour-match column) as the rows give it, on
// every path: factors 2 and 3, general enlargement and shrinking, empty.
// Each output row, whole or one value, reads no scratch row outside the
// ones rowsRead names: frames wait for those rows alone.
TEST(Resize, SingleValuesAndRowsReadMatchTheRows) {
    for (auto [sw, sh, dw, dh] : {std::tuple{16, 12, 32, 24}, {16, 12, 48, 36}, {7, 5, 23, 17}, {30, 20, 11, 7},
                                  {0, 4, 8, 8}}) {
        const auto src = randomMap(std::max(sw, 1), sh, 1023, uint32_t(sw + dw));
        std::vector<uint16_t> whole(size_t(dw) * dh);
        resizeDepth(whole.data(), src.data(), sw, sh, dw, dh);
        DepthResizer r;
        r.configure(sw, sh, dw, dh);
        std::vector<uint32_t> scratch(r.scratchSize() + 1);
        for (int y = 0; sw > 0 && y < sh; ++y) r.horizontalRow(src.data() + size_t(y) * sw, y, scratch.data());
        for (int y = 0; y < dh; ++y)
            for (int x = 0; x < dw; ++x) ASSERT_EQ(r.at(y, x, scratch.data()), whole[size_t(y) * dw + x]) << x << "," << y;

        std::vector<uint16_t> row(static_cast<size_t>(dw));
        for (int y = 0; y < dh; ++y) {
            const DepthResizer::Rows read = r.rowsRead(y);
            ASSERT_LE(0, read.first);
            ASSERT_LE(read.first, read.end);
            ASSERT_LE(read.end, sh);
            std::vector<uint32_t> poisoned = scratch;
            for (int sy = 0; sy < sh; ++sy)
                if (sy < read.first || sy >= read.end)
                    for (int x = 0; x < dw; ++x) poisoned[size_t(sy) * dw + x] = 0x7FFFu + uint32_t(sy * 131 + x);
            r.row(y, poisoned.data(), row.data());
            ASSERT_TRUE(std::equal(row.begin(), row.end(), whole.begin() + size_t(y) * dw)) << "row " << y;
            for (int x = 0; x < dw; ++x) ASSERT_EQ(r.at(y, x, poisoned.data()), row[size_t(x)]) << x << "," << y;
        }
    }
}

// Every vertical-pass kernel this CPU runs against the C row: random rows
// and weights (wrapping products included), every length up to three
// groups and a tail, a canary past the output.
TEST(Resize, BlendKernelsMatchTheReference) {
    const BlendVariant* variants;
    const int n = blendVariants(&variants);
    std::mt19937 rng(5);
    for (int v = 0; v < n; ++v)
        for (uint32_t count = 0; count <= 8 * 3 + 7; ++count) {
            std::vector<uint32_t> r0(count + 1), r1(count + 1);
            for (auto& x : r0) x = rng() % 2 ? rng() % (1u << 18) : rng();
            for (auto& x : r1) x = rng() % 2 ? rng() % (1u << 18) : rng();
            const uint32_t w1 = rng() % 257, w0 = count % 3 ? 256 - w1 : rng();
            std::vector<uint16_t> want(count + 4, 0xC3C3), got(count + 4, 0xC3C3);
            BlendRows_C(want.data(), r0.data(), r1.data(), w0, w1, count);
            setBlendKernel(variants[v].fn);
            blendRows(got.data(), r0.data(), r1.data(), w0, w1, count);
            setBlendKernel(nullptr);
            ASSERT_EQ(got, want) << variants[v].name << " count " << count;
        }
}

// The hole filling against its definition written plainly (list by a scan
// of every pixel), on maps of every size with invalid pixels in clusters,
// alone, at the ends and across 64-bit words.
template <class T>
void fillPlainly(T* map, int w, int h, T invalid) {
    std::vector<uint32_t> list;
    for (uint32_t i = 0; i < uint32_t(w * h); ++i)
        if (map[i] == invalid) list.push_back(i);
    auto mean = [&](uint32_t p, T& out) {
        const int x = int(p % w), y = int(p / w);
        uint32_t sum = 0, count = 0;
        for (int yy = y - 1; yy <= y + 1; ++yy)
            for (int xx = x - 1; xx <= x + 1; ++xx)
                if (yy >= 0 && yy < h && xx >= 0 && xx < w && map[yy * w + xx] < invalid) {
                    sum += map[yy * w + xx];
                    ++count;
                }
        if (count) out = T(sum / count);
        return count > 0;
    };
    std::vector<uint32_t> left;
    for (uint32_t p : list) {
        T m;
        if (mean(p, m))
            map[p] = m;
        else
            left.push_back(p);
    }
    for (size_t i = left.size(); i-- > 0;) {
        T m;
        if (map[left[i]] == invalid && mean(left[i], m)) map[left[i]] = m;
    }
}

TEST(FillInvalid, MatchesThePlainDefinitionOnRandomMaps) {
    for (int round = 0; round < 60; ++round) {
        std::mt19937 rng(round);
        const int w = 1 + int(rng() % 23), h = 1 + int(rng() % 9);
        const int density = int(rng() % 100);
        std::vector<uint8_t> m8(size_t(w) * h);
        std::vector<uint16_t> m16(m8.size());
        for (size_t i = 0; i < m8.size(); ++i) {
            const bool bad = int(rng() % 100) < density;
            m8[i] = bad ? I8 : uint8_t(rng() % 255);
            m16[i] = bad ? I16 : uint16_t(rng() % 1023);
        }
        auto want8 = m8;
        auto want16 = m16;
        fillPlainly<uint8_t>(want8.data(), w, h, I8);
        fillPlainly<uint16_t>(want16.data(), w, h, I16);
        fillInvalidDepth8(m8.data(), w, h);
        fillInvalidDepth16(m16.data(), w, h);
        ASSERT_EQ(m8, want8) << round;
        ASSERT_EQ(m16, want16) << round;
    }
}

}  // namespace
