// Chroma split / interleave and side-by-side packing helpers.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "stereoview/plane_pack.h"

namespace kvdsr::test {
namespace {

constexpr uint8_t kCanary = 0xC3;

class ChromaLayout : public ::testing::TestWithParam<int> {};

// Odd and even widths, rows with padding: V is the first byte of each pair,
// padding and the bytes around the planes are never touched, and the two
// conversions undo each other.
TEST_P(ChromaLayout, SplitAndInterleaveAreInverse) {
    const uint32_t hw = GetParam(), hh = 5, stride = 2 * hw + 3;
    std::mt19937 rng(hw);
    std::vector<uint8_t> vu(stride * hh + 8, kCanary);
    for (uint32_t y = 0; y < hh; ++y)
        for (uint32_t x = 0; x < 2 * hw; ++x) vu[y * stride + x] = uint8_t(rng());
    std::vector<uint8_t> u(hw * hh + 8, kCanary), v(hw * hh + 8, kCanary);
    stereoview::splitVU(vu.data(), stride, u.data(), v.data(), hw, hh);
    for (uint32_t y = 0; y < hh; ++y)
        for (uint32_t x = 0; x < hw; ++x) {
            ASSERT_EQ(v[y * hw + x], vu[y * stride + 2 * x]);
            ASSERT_EQ(u[y * hw + x], vu[y * stride + 2 * x + 1]);
        }
    for (size_t i = hw * hh; i < u.size(); ++i) ASSERT_TRUE(u[i] == kCanary && v[i] == kCanary);

    std::vector<uint8_t> back(vu.size(), kCanary);
    stereoview::interleaveVU(u.data(), v.data(), back.data(), stride, hw, hh);
    for (uint32_t y = 0; y < hh; ++y)
        for (uint32_t x = 0; x < stride && y * stride + x < back.size(); ++x)
            ASSERT_EQ(back[y * stride + x], x < 2 * hw ? vu[y * stride + x] : kCanary) << y << " " << x;
}

INSTANTIATE_TEST_SUITE_P(Widths, ChromaLayout, ::testing::Values(1, 2, 7, 8, 33));

TEST(SideBySidePacking, LeftThenRightPerRow) {
    const uint32_t w = 5, h = 3;
    std::vector<uint8_t> left(w * h), right(w * h), out(2 * w * h + 4, kCanary);
    for (uint32_t i = 0; i < w * h; ++i) {
        left[i] = uint8_t(i);
        right[i] = uint8_t(100 + i);
    }
    stereoview::packSideBySide(out.data(), left.data(), right.data(), w, h);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < 2 * w; ++x)
            ASSERT_EQ(out[y * 2 * w + x], x < w ? left[y * w + x] : right[y * w + x - w]);
    for (size_t i = 2 * w * h; i < out.size(); ++i) ASSERT_EQ(out[i], kCanary);
}

}  // namespace
}  // namespace kvdsr::test
