// SPR engine through its C entry points.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include "kvDSR.h"
#include "stereo_fixtures.h"

namespace kvdsr::test {
namespace {

uint32_t sprInit(const calibpack::Bytes& c, uint16_t iw, uint16_t ih, uint16_t ow, uint16_t oh) {
    return kvDSR_SPR_Init(c.data(), uint32_t(c.size()), nullptr, 0, iw, ih, ow, oh);
}

// At one size, SPR is the stereo view's model-rescale branch for 0xF01 (a
// 4:3 size, so that the stereo view does not crop).
TEST(Spr, EqualSizesMatchTheStereoView) {
    const uint16_t w = 64, h = 48;
    const auto module = sampleContainer();
    ASSERT_EQ(sprInit(module, w, h, w, h), kvDSR_OK);
    ASSERT_EQ(kvDSR_StereoView_Init(module.data(), uint32_t(module.size()), nullptr, 0, w, h), kvDSR_OK);
    Frame first(kvDSR_FMT_YUV420SP, w, h, 41), second(kvDSR_FMT_YUV420SP, w, h, 42);
    const size_t n = outputBytes(kvDSR_FMT_YUV420SP, w, h);
    std::vector<uint8_t> s1(n), s2(n), v1(n), v2(n);
    ASSERT_EQ(kvDSR_SPR_Run(s2.data(), s1.data(), &second.desc, &first.desc, w, h, w, h), kvDSR_OK);
    ASSERT_EQ(kvDSR_StereoView_Run(v2.data(), v1.data(), &second.desc, &first.desc, w, h), kvDSR_OK);
    EXPECT_EQ(s1, v1);
    EXPECT_EQ(s2, v2);
    EXPECT_NE(s1, s2);
    kvDSR_StereoView_Close();
    kvDSR_SPR_Close();
}

// Halving: output pixel x samples the input at 2x + 0.5 (centres kept), plus
// the module's shifts at the output scale (camera 1 half a column, camera 2
// one row), so every luma pixel is a mean of four input pixels.
TEST(Spr, DownscaleSamplesBetweenInputPixels) {
    const uint16_t iw = 64, ih = 48, ow = 32, oh = 24;
    const auto module = shiftModule();
    ASSERT_EQ(sprInit(module, iw, ih, ow, oh), kvDSR_OK);
    Frame first(kvDSR_FMT_YUV420SP, iw, ih, 51), second(kvDSR_FMT_YUV420SP, iw, ih, 52);
    const size_t n = outputBytes(kvDSR_FMT_YUV420SP, ow, oh);
    std::vector<uint8_t> o1(n), o2(n);
    ASSERT_EQ(kvDSR_SPR_Run(o2.data(), o1.data(), &second.desc, &first.desc, iw, ih, ow, oh), kvDSR_OK);
    // Sample positions: camera 1 (2x + 1.5, 2y + 0.5), camera 2 (2x + 0.5, 2y + 2.5).
    auto mean4 = [&](const uint8_t* p, int x0, int y0) {
        return 0.25 * (p[y0 * iw + x0] + p[y0 * iw + x0 + 1] + p[(y0 + 1) * iw + x0] + p[(y0 + 1) * iw + x0 + 1]);
    };
    int bad = 0;
    for (int y = 0; y < oh - 2; ++y)
        for (int x = 0; x < ow - 2; ++x) {
            if (std::abs(o1[y * ow + x] - mean4(first.plane(0), 2 * x + 1, 2 * y)) > 1.0) ++bad;
            if (std::abs(o2[y * ow + x] - mean4(second.plane(0), 2 * x, 2 * y + 2)) > 1.0) ++bad;
        }
    EXPECT_EQ(bad, 0);
    kvDSR_SPR_Close();
}

// Bilinear sample of a w-wide plane at (X, Y), as the warp rounds it.
double bilinear(const uint8_t* p, int w, double X, double Y) {
    const int x0 = int(X), y0 = int(Y);
    const double fx = X - x0, fy = Y - y0;
    auto at = [&](int x, int y) { return double(p[y * w + x]); };
    const double top = at(x0, y0) * (1 - fx) + at(x0 + 1, y0) * fx;
    const double bottom = at(x0, y0 + 1) * (1 - fx) + at(x0 + 1, y0 + 1) * fx;
    return top * (1 - fy) + bottom * fy;
}

// Doubling: output pixel x samples the input at (x + 0.5)/2 - 0.5 after the
// module's shifts at the output scale (camera 1 one column, camera 2 two
// rows). The chroma of the larger output also goes through SPR's scratch
// buffers, which must hold the output size.
TEST(Spr, UpscaleSamplesBetweenInputPixels) {
    const uint16_t iw = 32, ih = 24, ow = 64, oh = 48;
    const auto module = shiftModule();
    ASSERT_EQ(sprInit(module, iw, ih, ow, oh), kvDSR_OK);
    Frame first(kvDSR_FMT_YUV420SP, iw, ih, 61), second(kvDSR_FMT_YUV420SP, iw, ih, 62);
    const size_t n = outputBytes(kvDSR_FMT_YUV420SP, ow, oh);
    std::vector<uint8_t> o1(n + 8, 0x3C), o2(n + 8, 0x3C);
    ASSERT_EQ(kvDSR_SPR_Run(o2.data(), o1.data(), &second.desc, &first.desc, iw, ih, ow, oh), kvDSR_OK);
    int bad = 0, checked = 0;
    for (int y = 0; y < oh; ++y)
        for (int x = 0; x < ow; ++x) {
            const double x1 = (x + 1.5) / 2 - 0.5, y1 = (y + 0.5) / 2 - 0.5;
            const double x2 = (x + 0.5) / 2 - 0.5, y2 = (y + 2.5) / 2 - 0.5;
            if (x1 >= 0 && y1 >= 0 && x1 < iw - 1 && y1 < ih - 1) {
                ++checked;
                bad += std::abs(o1[y * ow + x] - bilinear(first.plane(0), iw, x1, y1)) > 1.0;
            }
            if (x2 >= 0 && y2 >= 0 && x2 < iw - 1 && y2 < ih - 1) {
                ++checked;
                bad += std::abs(o2[y * ow + x] - bilinear(second.plane(0), iw, x2, y2)) > 1.0;
            }
        }
    EXPECT_GT(checked, ow * oh);
    EXPECT_EQ(bad, 0);
    for (size_t i = n; i < o1.size(); ++i) ASSERT_TRUE(o1[i] == 0x3C && o2[i] == 0x3C);
    kvDSR_SPR_Close();
}

TEST(Spr, OtherFormatsAreASilentNoOp) {
    const uint16_t w = 32, h = 24;
    const auto module = sampleContainer();
    ASSERT_EQ(sprInit(module, w, h, w, h), kvDSR_OK);
    Frame p1(kvDSR_FMT_YUV420P, w, h, 1), p2(kvDSR_FMT_YUV420P, w, h, 2), s1(kvDSR_FMT_YUV420SP, w, h, 3);
    std::vector<uint8_t> o1(2 * w * h, 0x77), o2(2 * w * h, 0x77);
    EXPECT_EQ(kvDSR_SPR_Run(o2.data(), o1.data(), &p2.desc, &p1.desc, w, h, w, h), kvDSR_OK);
    EXPECT_EQ(kvDSR_SPR_Run(o2.data(), o1.data(), &p2.desc, &s1.desc, w, h, w, h), kvDSR_OK);  // mixed
    EXPECT_EQ(kvDSR_SPR_Run(o2.data(), o1.data(), &s1.desc, &p1.desc, w, h, w, h), kvDSR_OK);  // first not 0xF01
    for (size_t i = 0; i < o1.size(); ++i) ASSERT_TRUE(o1[i] == 0x77 && o2[i] == 0x77) << i;
    kvDSR_SPR_Close();
}

TEST(Spr, CloseTwiceIsHarmless) {
    const uint16_t w = 32, h = 24;
    const auto module = sampleContainer();
    ASSERT_EQ(sprInit(module, w, h, w, h), kvDSR_OK);
    EXPECT_EQ(kvDSR_SPR_Close(), kvDSR_OK);
    EXPECT_EQ(kvDSR_SPR_Close(), kvDSR_OK);
    Frame a(kvDSR_FMT_YUV420SP, w, h, 1), b(kvDSR_FMT_YUV420SP, w, h, 2);
    std::vector<uint8_t> o1(2 * w * h), o2(2 * w * h);
    EXPECT_EQ(kvDSR_SPR_Run(o2.data(), o1.data(), &b.desc, &a.desc, w, h, w, h), kvDSR_ERR_NOT_INITIALISED);
    // And it comes back after a new Init.
    ASSERT_EQ(sprInit(module, w, h, w, h), kvDSR_OK);
    EXPECT_EQ(kvDSR_SPR_Run(o2.data(), o1.data(), &b.desc, &a.desc, w, h, w, h), kvDSR_OK);
    kvDSR_SPR_Close();
}

TEST(Spr, RefusedAllocationLeavesItUninitialised) {
    const auto module = sampleContainer();
    ASSERT_EQ(sprInit(module, 32, 24, 32, 24), kvDSR_OK);
    EXPECT_EQ(sprInit(module, 32, 24, 65535, 49152), kvDSR_ERR_OUT_OF_MEMORY);
    Frame a(kvDSR_FMT_YUV420SP, 32, 24, 1), b(kvDSR_FMT_YUV420SP, 32, 24, 2);
    std::vector<uint8_t> o1(2 * 32 * 24), o2(2 * 32 * 24);
    EXPECT_EQ(kvDSR_SPR_Run(o2.data(), o1.data(), &b.desc, &a.desc, 32, 24, 32, 24), kvDSR_ERR_NOT_INITIALISED);
    kvDSR_SPR_Close();
}

}  // namespace
}  // namespace kvdsr::test
