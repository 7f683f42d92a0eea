// Stereo view engine through its C entry points: geometry of both cameras in
// each format and branch, side-by-side packing, errors, repeated Init.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <vector>

#include "kvDSR.h"
#include "stereo_fixtures.h"
#include "stereoview/stereoview_engine.h"

namespace kvdsr::test {
namespace {

uint32_t initWith(const calibpack::Bytes& c, uint16_t w, uint16_t h) {
    return kvDSR_StereoView_Init(c.data(), uint32_t(c.size()), nullptr, 0, w, h);
}

// dst(x, y) against src sampled at (x + dx/2, y + dy/2), half pixels averaged,
// over the pixels whose four taps lie inside the source.
void expectShifted(const uint8_t* dst, const uint8_t* src, int w, int h, int dx2, int dy2, const char* what) {
    int bad = 0;
    for (int y = 0; y + dy2 / 2 + 2 < h; ++y)
        for (int x = 0; x + dx2 / 2 + 2 < w; ++x) {
            const int x0 = x + dx2 / 2, y0 = y + dy2 / 2;
            const int fx = dx2 & 1, fy = dy2 & 1;
            auto at = [&](int xx, int yy) { return double(src[yy * w + xx]); };
            const double top = fx ? 0.5 * (at(x0, y0) + at(x0 + 1, y0)) : at(x0, y0);
            const double bottom = fx ? 0.5 * (at(x0, y0 + 1) + at(x0 + 1, y0 + 1)) : at(x0, y0 + 1);
            const double expected = fy ? 0.5 * (top + bottom) : top;
            if (std::abs(dst[y * w + x] - expected) > 1.0 && bad++ < 5)
                ADD_FAILURE() << what << " at (" << x << ", " << y << "): " << int(dst[y * w + x]) << " vs "
                              << expected;
        }
    EXPECT_EQ(bad, 0) << what;
}

struct Branch {
    uint16_t w, h;
    uint8_t useModel;
};
void PrintTo(const Branch& b, std::ostream* os) { *os << b.w << "x" << b.h; }

class ShiftGeometry : public ::testing::TestWithParam<Branch> {};

// Camera 1 moves w/64 columns, camera 2 w/32 rows, in either branch: a swap
// of cameras, outputs, planes or half maps shows up as a wrong shift.
TEST_P(ShiftGeometry, EachCameraGetsItsOwnMapsInEveryFormat) {
    const Branch b = GetParam();
    const auto module = shiftModule();
    ASSERT_EQ(initWith(module, b.w, b.h), kvDSR_OK);
    EXPECT_EQ(stereoview::useModelTransforms(), b.useModel);
    const int hw = b.w / 2, hh = b.h / 2;
    const size_t luma = size_t(b.w) * b.h, quarter = size_t(hw) * hh;
    const int k = b.w / 64;  // the module's shifts scale with the width

    for (uint32_t fmt : {kvDSR_FMT_YUV444P, kvDSR_FMT_YUV420P}) {
        SCOPED_TRACE(fmt);
        Frame first(fmt, b.w, b.h, 1), second(fmt, b.w, b.h, 2);
        std::vector<uint8_t> outFirst(outputBytes(fmt, b.w, b.h)), outSecond(outFirst.size());
        ASSERT_EQ(kvDSR_StereoView_Run(outSecond.data(), outFirst.data(), &second.desc, &first.desc, b.w, b.h),
                  kvDSR_OK);
        expectShifted(outFirst.data(), first.plane(0), b.w, b.h, 2 * k, 0, "camera 1 luma");
        expectShifted(outSecond.data(), second.plane(0), b.w, b.h, 0, 4 * k, "camera 2 luma");
        if (fmt == kvDSR_FMT_YUV420P) {
            expectShifted(outFirst.data() + luma, first.plane(1), hw, hh, k, 0, "camera 1 U");
            expectShifted(outFirst.data() + luma + quarter, first.plane(2), hw, hh, k, 0, "camera 1 V");
            expectShifted(outSecond.data() + luma, second.plane(1), hw, hh, 0, 2 * k, "camera 2 U");
            expectShifted(outSecond.data() + luma + quarter, second.plane(2), hw, hh, 0, 2 * k, "camera 2 V");
        }
    }
    kvDSR_StereoView_Close();
}

INSTANTIATE_TEST_SUITE_P(Branches, ShiftGeometry,
                         ::testing::Values(Branch{64, 48, 1},   // 4:3: camera models rescaled
                                           Branch{64, 36, 0},   // 16:9: centred crops
                                           Branch{128, 72, 0}));

// The 16:9 branch shows the centre rows of what the 4:3 branch shows for the
// same scene: crops and fill scales are chosen so that the two modes agree.
// A smooth scene turns any geometric difference into a value difference.
TEST(StereoView, SixteenByNineIsTheCentreOfFourByThree) {
    const uint16_t w = 160, h43 = 120, h169 = 90, top = (h43 - h169) / 2;
    const auto module = sampleContainer();
    std::vector<uint8_t> scene(size_t(w) * h43);
    for (int y = 0; y < h43; ++y)
        for (int x = 0; x < w; ++x)
            scene[y * w + x] = uint8_t(128 + 60 * std::sin(x / 6.0) * std::cos(y / 5.0));
    auto run = [&](uint16_t h, const uint8_t* rows, std::vector<uint8_t>& o1, std::vector<uint8_t>& o2) {
        ASSERT_EQ(initWith(module, w, h), kvDSR_OK);
        kvDSR_ImageDesc d{kvDSR_FMT_YUV444P, {0, 0, 0}, {const_cast<uint8_t*>(rows), nullptr, nullptr}};
        o1.assign(size_t(w) * h, 0);
        o2.assign(size_t(w) * h, 0);
        ASSERT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &d, &d, w, h), kvDSR_OK);
    };
    std::vector<uint8_t> a1, a2, b1, b2;
    run(h43, scene.data(), a1, a2);
    ASSERT_EQ(stereoview::useModelTransforms(), 1);
    run(h169, scene.data() + size_t(top) * w, b1, b2);
    ASSERT_EQ(stereoview::useModelTransforms(), 0);
    int worst = 0;
    for (int y = 4; y < h169 - 4; ++y)
        for (int x = 4; x < w - 4; ++x) {
            worst = std::max(worst, std::abs(b1[y * w + x] - a1[(y + top) * w + x]));
            worst = std::max(worst, std::abs(b2[y * w + x] - a2[(y + top) * w + x]));
        }
    EXPECT_LE(worst, 2);
    kvDSR_StereoView_Close();
}

// 0xF01 carries the same chroma as 0xF05, interleaved with V first.
TEST(StereoView, InterleavedChromaMatchesPlanar) {
    const uint16_t w = 64, h = 48;
    const auto module = sampleContainer();
    ASSERT_EQ(initWith(module, w, h), kvDSR_OK);
    const size_t luma = size_t(w) * h, quarter = size_t(w / 2) * (h / 2);
    Frame p1(kvDSR_FMT_YUV420P, w, h, 11), p2(kvDSR_FMT_YUV420P, w, h, 12);
    Frame s1(kvDSR_FMT_YUV420SP, w, h, 0), s2(kvDSR_FMT_YUV420SP, w, h, 0);
    for (auto [p, s] : {std::pair<Frame*, Frame*>{&p1, &s1}, {&p2, &s2}}) {
        std::memcpy(s->plane(0), p->plane(0), luma);
        for (size_t i = 0; i < quarter; ++i) {
            s->plane(1)[2 * i] = p->plane(2)[i];      // V
            s->plane(1)[2 * i + 1] = p->plane(1)[i];  // U
        }
    }
    const size_t n = outputBytes(kvDSR_FMT_YUV420P, w, h);
    std::vector<uint8_t> a1(n), a2(n), b1(n), b2(n);
    ASSERT_EQ(kvDSR_StereoView_Run(a2.data(), a1.data(), &p2.desc, &p1.desc, w, h), kvDSR_OK);
    ASSERT_EQ(kvDSR_StereoView_Run(b2.data(), b1.data(), &s2.desc, &s1.desc, w, h), kvDSR_OK);
    for (auto [planar, inter] : {std::pair<uint8_t*, uint8_t*>{a1.data(), b1.data()}, {a2.data(), b2.data()}}) {
        ASSERT_EQ(0, std::memcmp(planar, inter, luma));
        for (size_t i = 0; i < quarter; ++i) {
            ASSERT_EQ(inter[luma + 2 * i], planar[luma + quarter + i]) << i;  // V first
            ASSERT_EQ(inter[luma + 2 * i + 1], planar[luma + i]) << i;
        }
    }
    kvDSR_StereoView_Close();
}

struct SbsCase {
    uint32_t format;
    uint16_t w, h;
};
void PrintTo(const SbsCase& c, std::ostream* os) { *os << std::hex << c.format << std::dec << " " << c.w << "x" << c.h; }

class SideBySide : public ::testing::TestWithParam<SbsCase> {};

// Every row: camera 1 (second descriptor) left, camera 2 right, for luma and
// for the chroma rows that follow the 2*w*h luma bytes.
TEST_P(SideBySide, PacksCameraOneLeft) {
    const uint32_t fmt = GetParam().format;
    const uint16_t w = GetParam().w, h = GetParam().h;  // 16:9: the crop branch on a real module
    const int hw = w / 2, hh = h / 2;
    const auto module = sampleContainer();
    ASSERT_EQ(initWith(module, w, h), kvDSR_OK);
    Frame first(fmt, w, h, 21), second(fmt, w, h, 22);
    const size_t one = outputBytes(fmt, w, h), luma = size_t(w) * h, quarter = size_t(hw) * hh;
    std::vector<uint8_t> outFirst(one), outSecond(one), sbs(2 * one + 16, 0xA5);
    ASSERT_EQ(kvDSR_StereoView_Run(outSecond.data(), outFirst.data(), &second.desc, &first.desc, w, h), kvDSR_OK);
    ASSERT_EQ(kvDSR_StereoView_Run_SideBySide(sbs.data(), 2u * w, h, &second.desc, &first.desc, w, h), kvDSR_OK);
    // The sample module's maps are real warps, not a border fill.
    for (const auto* v : {&outFirst, &outSecond}) {
        bool seen[256] = {};
        int distinct = 0;
        for (size_t i = 0; i < luma; ++i) distinct += !seen[(*v)[i]], seen[(*v)[i]] = true;
        ASSERT_GT(distinct, 100);
    }

    auto rowsMatch = [&](size_t sbsAt, size_t viewAt, int rowBytes, int rows, const char* what) {
        for (int y = 0; y < rows; ++y) {
            const uint8_t* row = sbs.data() + sbsAt + size_t(y) * 2 * rowBytes;
            ASSERT_EQ(0, std::memcmp(row, outFirst.data() + viewAt + size_t(y) * rowBytes, rowBytes))
                << what << " left, row " << y;
            ASSERT_EQ(0, std::memcmp(row + rowBytes, outSecond.data() + viewAt + size_t(y) * rowBytes, rowBytes))
                << what << " right, row " << y;
        }
    };
    rowsMatch(0, 0, w, h, "luma");
    if (fmt == kvDSR_FMT_YUV420SP) rowsMatch(2 * luma, luma, w, hh, "V,U");
    if (fmt == kvDSR_FMT_YUV420P) {
        rowsMatch(2 * luma, luma, hw, hh, "U");
        rowsMatch(2 * luma + 2 * quarter, luma + quarter, hw, hh, "V");
    }
    for (size_t i = 2 * one; i < sbs.size(); ++i) ASSERT_EQ(sbs[i], 0xA5) << "written past the frame at " << i;
    kvDSR_StereoView_Close();
}

INSTANTIATE_TEST_SUITE_P(Formats, SideBySide,
                         ::testing::Values(SbsCase{kvDSR_FMT_YUV444P, 64, 36}, SbsCase{kvDSR_FMT_YUV420P, 64, 36},
                                           SbsCase{kvDSR_FMT_YUV420SP, 64, 36}));
// Large enough for the frame team.
INSTANTIATE_TEST_SUITE_P(Team, SideBySide, ::testing::Values(SbsCase{kvDSR_FMT_YUV420SP, 320, 180}));

TEST(StereoView, RefusedCallsWriteNothing) {
    const uint16_t w = 32, h = 24;
    const auto module = sampleContainer();
    Frame a(kvDSR_FMT_YUV420SP, w, h, 1), b(kvDSR_FMT_YUV420P, w, h, 2), c(kvDSR_FMT_YUV420SP, w, h, 3);
    std::vector<uint8_t> o1(4 * w * h, 0x5A), o2(4 * w * h, 0x5A);
    ASSERT_EQ(kvDSR_StereoView_Close(), kvDSR_OK);
    EXPECT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &c.desc, &a.desc, w, h), kvDSR_ERR_NOT_INITIALISED);

    ASSERT_EQ(initWith(module, w, h), kvDSR_OK);
    EXPECT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &b.desc, &a.desc, w, h), kvDSR_ERR_IMAGE_FORMAT);
    EXPECT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &a.desc, &b.desc, w, h), kvDSR_ERR_IMAGE_FORMAT);
    EXPECT_EQ(kvDSR_StereoView_Run_SideBySide(o1.data(), 2u * w, h, &b.desc, &a.desc, w, h),
              kvDSR_ERR_IMAGE_FORMAT);
    for (uint32_t outWidth : {uint32_t(w), 2u * w - 1, 2u * w + 1, 4u * w})
        EXPECT_EQ(kvDSR_StereoView_Run_SideBySide(o1.data(), outWidth, h, &c.desc, &a.desc, w, h),
                  kvDSR_ERR_SIDE_BY_SIDE_WIDTH)
            << outWidth;
    EXPECT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &c.desc, &a.desc, w, h + 2), kvDSR_ERR_SIZE_COMBINATION);
    for (size_t i = 0; i < o1.size(); ++i) ASSERT_TRUE(o1[i] == 0x5A && o2[i] == 0x5A) << i;

    // A rejected container leaves the engine as it was.
    const uint8_t junk[100] = {};
    EXPECT_EQ(kvDSR_StereoView_Init(junk, sizeof junk, nullptr, 0, w, h), kvDSR_ERR_CALIB_LENGTH);
    EXPECT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &c.desc, &a.desc, w, h), kvDSR_OK);
    kvDSR_StereoView_Close();
    EXPECT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &c.desc, &a.desc, w, h), kvDSR_ERR_NOT_INITIALISED);
}

std::vector<uint8_t> runPair(uint16_t w, uint16_t h) {
    Frame first(kvDSR_FMT_YUV420SP, w, h, 31), second(kvDSR_FMT_YUV420SP, w, h, 32);
    const size_t one = outputBytes(kvDSR_FMT_YUV420SP, w, h);
    std::vector<uint8_t> out(2 * one);
    EXPECT_EQ(kvDSR_StereoView_Run(out.data() + one, out.data(), &second.desc, &first.desc, w, h), kvDSR_OK);
    return out;
}

// Maps grow and never shrink; a smaller Init after a larger one must still
// give what a fresh Init of the smaller size gives.
TEST(StereoView, InitLargerThenSmallerKeepsBuffersAndResults) {
    const auto module = sampleContainer();
    kvDSR_StereoView_Close();
    ASSERT_EQ(initWith(module, 32, 24), kvDSR_OK);
    const auto fresh = runPair(32, 24);
    const auto small = stereoview::mapCapacity();

    ASSERT_EQ(initWith(module, 64, 48), kvDSR_OK);
    const auto large = stereoview::mapCapacity();
    EXPECT_GT(large.full, small.full);
    EXPECT_GT(large.half, small.half);

    ASSERT_EQ(initWith(module, 32, 24), kvDSR_OK);
    const auto again = stereoview::mapCapacity();
    EXPECT_EQ(again.full, large.full);
    EXPECT_EQ(again.half, large.half);
    EXPECT_EQ(runPair(32, 24), fresh);
    kvDSR_StereoView_Close();
    EXPECT_EQ(stereoview::mapCapacity().full, 0u);
}

// A kind-1 body keeps its camera sections at other offsets; the same camera
// data must rectify the same way whichever body kind carries it.
TEST(StereoView, KindOneBodyRectifiesLikeKindThree) {
    const auto bodies = calibpack::sampleModule();
    const auto kind3 = calibpack::packContainer(bodies, 512);
    const auto kind1 = calibpack::packContainer(bodies, 464);
    kvDSR_StereoView_Close();
    ASSERT_EQ(initWith(kind3, 64, 48), kvDSR_OK);
    const auto expected = runPair(64, 48);
    ASSERT_EQ(initWith(kind1, 64, 48), kvDSR_OK);
    EXPECT_EQ(runPair(64, 48), expected);
    kvDSR_StereoView_Close();
}

// Frames too small for a 2x2 neighbourhood at full or half size are
// accepted; nothing is read or written outside the planes.
TEST(StereoView, TinySizesStayInsideThePlanes) {
    const auto module = sampleContainer();
    for (auto [w, h] : {std::pair<uint16_t, uint16_t>{1, 1}, {3, 2}, {5, 3}, {2, 7}}) {
        SCOPED_TRACE(testing::Message() << w << "x" << h);
        ASSERT_EQ(initWith(module, w, h), kvDSR_OK);
        for (uint32_t fmt : {kvDSR_FMT_YUV444P, kvDSR_FMT_YUV420P, kvDSR_FMT_YUV420SP}) {
            Frame a(fmt, w, h, 1), b(fmt, w, h, 2);
            const size_t n = outputBytes(fmt, w, h);
            std::vector<uint8_t> o1(n + 4, 0x11), o2(n + 4, 0x11), sbs(2 * n + 4, 0x11);
            EXPECT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &b.desc, &a.desc, w, h), kvDSR_OK);
            EXPECT_EQ(kvDSR_StereoView_Run_SideBySide(sbs.data(), 2u * w, h, &b.desc, &a.desc, w, h), kvDSR_OK);
            for (size_t i = n; i < o1.size(); ++i) ASSERT_TRUE(o1[i] == 0x11 && o2[i] == 0x11) << fmt;
            for (size_t i = 2 * n; i < sbs.size(); ++i) ASSERT_EQ(sbs[i], 0x11) << fmt;
        }
    }
    kvDSR_StereoView_Close();
}

// Sizes whose buffers the allocator refuses: 0x7400C, and no half-built
// engine left behind.
TEST(StereoView, RefusedAllocationLeavesItUninitialised) {
    const auto module = sampleContainer();
    ASSERT_EQ(initWith(module, 32, 24), kvDSR_OK);
    EXPECT_EQ(initWith(module, 65535, 49152), kvDSR_ERR_OUT_OF_MEMORY);
    Frame a(kvDSR_FMT_YUV420SP, 32, 24, 1), b(kvDSR_FMT_YUV420SP, 32, 24, 2);
    std::vector<uint8_t> o1(2 * 32 * 24), o2(2 * 32 * 24);
    EXPECT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &b.desc, &a.desc, 32, 24), kvDSR_ERR_NOT_INITIALISED);
    ASSERT_EQ(initWith(module, 32, 24), kvDSR_OK);
    EXPECT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &b.desc, &a.desc, 32, 24), kvDSR_OK);
    kvDSR_StereoView_Close();
}

}  // namespace
}  // namespace kvdsr::test
