// 4:2:0 pseudo-planar <-> 4:4:4 planar conversions.
#include <gtest/gtest.h>

#include <random>
#include <tuple>
#include <vector>

#include "common/colorconv.h"

namespace {

using kvdsr::ycbcr420spTo444p;
using kvdsr::ycbcr444pTo420sp;

std::vector<uint8_t> randomBytes(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> v(n);
    for (auto& b : v) b = uint8_t(rng());
    return v;
}

// (width, height, luma stride, chroma stride); strides of 0 mean packed.
class RoundTrip : public ::testing::TestWithParam<std::tuple<uint32_t, uint32_t, uint32_t, uint32_t>> {};

TEST_P(RoundTrip, ChromaRepeatsAndComesBackUnchanged) {
    const auto [w, h, sy, suv] = GetParam();
    const uint32_t ys = sy ? sy : w, uvs = suv ? suv : w;
    const auto y = randomBytes(size_t(ys) * h, 1);
    const auto uv = randomBytes(size_t(uvs) * (h / 2), 2);
    const size_t plane = size_t(w) * h;
    std::vector<uint8_t> p444(3 * plane, 0xEE);
    ASSERT_TRUE(ycbcr420spTo444p(y.data(), sy, uv.data(), suv, p444.data(), p444.data() + plane,
                                 p444.data() + 2 * plane, 0, w, h));
    for (uint32_t r = 0; r < h; ++r) {
        const uint32_t cr = std::min(r / 2, h / 2 - 1);
        for (uint32_t x = 0; x < w; ++x) {
            ASSERT_EQ(p444[r * w + x], y[r * ys + x]);
            const uint32_t pair = x & ~1u;
            ASSERT_EQ(p444[plane + r * w + x], uv[cr * uvs + pair]) << x << "," << r;
            const uint8_t expectCr = pair + 1 < w ? uv[cr * uvs + pair + 1] : 128;
            ASSERT_EQ(p444[2 * plane + r * w + x], expectCr) << x << "," << r;
        }
    }

    // Back into buffers with the same strides; padding bytes stay as they were.
    std::vector<uint8_t> y2(y.size(), 0xA5), uv2(uv.size(), 0xA5);
    ASSERT_TRUE(ycbcr444pTo420sp(p444.data(), p444.data() + plane, p444.data() + 2 * plane, w, y2.data(), sy,
                                 uv2.data(), suv, w, h));
    for (uint32_t r = 0; r < h; ++r)
        for (uint32_t x = 0; x < ys; ++x) ASSERT_EQ(y2[r * ys + x], x < w ? y[r * ys + x] : 0xA5);
    for (uint32_t r = 0; r < h / 2; ++r)
        for (uint32_t x = 0; x < uvs; ++x) ASSERT_EQ(uv2[r * uvs + x], x < w ? uv[r * uvs + x] : 0xA5) << x;
}

INSTANTIATE_TEST_SUITE_P(Sizes, RoundTrip,
                         ::testing::Values(std::make_tuple(64u, 48u, 0u, 0u), std::make_tuple(2u, 2u, 0u, 0u),
                                           std::make_tuple(10u, 6u, 16u, 12u), std::make_tuple(7u, 5u, 0u, 9u),
                                           std::make_tuple(33u, 3u, 40u, 0u)));

TEST(Downsample, KeepsTheEvenColumnAndRowOfEachBlock) {
    const uint32_t w = 6, h = 4, plane = w * h;
    std::vector<uint8_t> p444(3 * plane);
    for (uint32_t i = 0; i < plane; ++i) {
        p444[plane + i] = uint8_t(i);
        p444[2 * plane + i] = uint8_t(100 + i);
    }
    std::vector<uint8_t> y(plane), uv(w * h / 2);
    ASSERT_TRUE(ycbcr444pTo420sp(p444.data(), p444.data() + plane, p444.data() + 2 * plane, 0, y.data(), 0,
                                 uv.data(), 0, w, h));
    for (uint32_t cy = 0; cy < h / 2; ++cy)
        for (uint32_t p = 0; p < w / 2; ++p) {
            EXPECT_EQ(uv[cy * w + 2 * p], 2 * cy * w + 2 * p);
            EXPECT_EQ(uv[cy * w + 2 * p + 1], 100 + 2 * cy * w + 2 * p);
        }
}

TEST(Rejection, NullPlanesZeroSizesAndShortStridesWriteNothing) {
    const uint32_t w = 8, h = 4, plane = w * h;
    std::vector<uint8_t> y(plane, 1), uv(plane / 2, 2), out(3 * plane, 0x5A);
    uint8_t* cb = out.data() + plane;
    uint8_t* cr = out.data() + 2 * plane;
    EXPECT_FALSE(ycbcr420spTo444p(nullptr, 0, uv.data(), 0, out.data(), cb, cr, 0, w, h));
    EXPECT_FALSE(ycbcr420spTo444p(y.data(), 0, nullptr, 0, out.data(), cb, cr, 0, w, h));
    EXPECT_FALSE(ycbcr420spTo444p(y.data(), 0, uv.data(), 0, out.data(), nullptr, cr, 0, w, h));
    EXPECT_FALSE(ycbcr420spTo444p(y.data(), 0, uv.data(), 0, out.data(), cb, cr, 0, 0, h));
    EXPECT_FALSE(ycbcr420spTo444p(y.data(), 0, uv.data(), 0, out.data(), cb, cr, 0, w, 0));
    EXPECT_FALSE(ycbcr420spTo444p(y.data(), w - 1, uv.data(), 0, out.data(), cb, cr, 0, w, h));
    EXPECT_FALSE(ycbcr420spTo444p(y.data(), 0, uv.data(), w - 1, out.data(), cb, cr, 0, w, h));
    EXPECT_FALSE(ycbcr420spTo444p(y.data(), 0, uv.data(), 0, out.data(), cb, cr, w - 1, w, h));
    for (uint8_t b : out) ASSERT_EQ(b, 0x5A);

    std::vector<uint8_t> y2(plane, 0x5A), uv2(plane / 2, 0x5A);
    EXPECT_FALSE(ycbcr444pTo420sp(out.data(), nullptr, cr, 0, y2.data(), 0, uv2.data(), 0, w, h));
    EXPECT_FALSE(ycbcr444pTo420sp(out.data(), cb, cr, 0, y2.data(), 0, nullptr, 0, w, h));
    EXPECT_FALSE(ycbcr444pTo420sp(out.data(), cb, cr, 0, y2.data(), 0, uv2.data(), 0, 0, h));
    EXPECT_FALSE(ycbcr444pTo420sp(out.data(), cb, cr, 3, y2.data(), 0, uv2.data(), 0, w, h));
    EXPECT_FALSE(ycbcr444pTo420sp(out.data(), cb, cr, 0, y2.data(), 0, uv2.data(), 7, w, h));
    for (uint8_t b : y2) ASSERT_EQ(b, 0x5A);
    for (uint8_t b : uv2) ASSERT_EQ(b, 0x5A);
}

TEST(Upsample, SingleRowImageHasNeutralChroma) {
    const uint8_t y[4] = {1, 2, 3, 4}, uv[1] = {0};
    uint8_t out[12];
    ASSERT_TRUE(ycbcr420spTo444p(y, 0, uv, 0, out, out + 4, out + 8, 0, 4, 1));
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(out[i], y[i]);
        EXPECT_EQ(out[4 + i], 128);
        EXPECT_EQ(out[8 + i], 128);
    }
}

}  // namespace
