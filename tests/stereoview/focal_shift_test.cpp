// Focal alignment shift: row kernels, the depth table and shift search, and
// the four entry points on small frames with canary-filled outputs.
#include <gtest/gtest.h>
#include <omp.h>

#include <cstring>
#include <numeric>
#include <random>
#include <tuple>
#include <vector>

#include "calibpack.h"
#include "kvDSR.h"
#include "stereoview/focal_shift.h"

namespace {

using namespace kvdsr;
using Bytes = std::vector<uint8_t>;

constexpr uint8_t kCanary = 0xA5;

Bytes randomBytes(size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    Bytes b(n);
    for (auto& v : b) v = static_cast<uint8_t>(rng());
    return b;
}

// ---- Kernels ---------------------------------------------------------------

class RowShift : public ::testing::TestWithParam<std::tuple<size_t, size_t>> {};

TEST_P(RowShift, MovesBytesAndLeavesUncoveredColumns) {
    const auto [width, s] = GetParam();
    const size_t stride = width + 3, rows = 3, pad = 8;
    const Bytes src = randomBytes(stride * rows, static_cast<uint32_t>(width * 31 + s));
    Bytes left(stride * rows + 2 * pad, kCanary), right = left;
    focalshift::shiftRowsLeft(left.data() + pad, src.data(), width, stride, rows, s);
    focalshift::shiftRowsRight(right.data() + pad, src.data(), width, stride, rows, s);
    for (size_t r = 0; r < rows; ++r) {
        for (size_t c = 0; c < stride; ++c) {
            const size_t i = pad + r * stride + c;
            const bool moved = c + s < width;
            ASSERT_EQ(left[i], moved ? src[r * stride + c + s] : kCanary) << r << "," << c;
            const bool landed = c >= s && c < width;
            ASSERT_EQ(right[i], landed ? src[r * stride + c - s] : kCanary) << r << "," << c;
        }
    }
    for (size_t i = 0; i < pad; ++i) {
        ASSERT_EQ(left[i], kCanary);
        ASSERT_EQ(right[right.size() - 1 - i], kCanary);
    }
}

INSTANTIATE_TEST_SUITE_P(WidthsAndShifts, RowShift,
                         ::testing::Combine(::testing::Values(1, 7, 16, 33),
                                            ::testing::Values(0, 1, 2, 6, 7, 15, 16, 32, 33, 40)));

TEST(RowParts, QuartersMoveAlternately) {
    const size_t W = 24, rows = 2, s = 2, q = W / 4;
    const Bytes src = randomBytes(W * rows, 7);
    Bytes dst(W * rows, kCanary);
    focalshift::shiftRowParts(dst.data(), src.data(), W, rows, 4, s);
    for (size_t r = 0; r < rows; ++r)
        for (size_t p = 0; p < 4; ++p)
            for (size_t c = 0; c < q; ++c) {
                const size_t at = r * W + p * q + c;
                uint8_t want = kCanary;
                if (p % 2 == 0 && c + s < q) want = src[at + s];
                if (p % 2 == 1 && c >= s) want = src[at - s];
                ASSERT_EQ(dst[at], want) << r << " part " << p << " col " << c;
            }
}

TEST(Halve, KeepsTwoByteUnitsOrSingleBytes) {
    for (size_t outWidth : {1, 2, 5, 8}) {
        const size_t rows = 3;
        const Bytes src = randomBytes(2 * outWidth * rows, static_cast<uint32_t>(outWidth));
        Bytes pairs(outWidth * rows + 1, kCanary), singles = pairs;
        focalshift::halveRows(pairs.data(), src.data(), outWidth, rows, 2);
        focalshift::halveRows(singles.data(), src.data(), outWidth, rows, 1);
        for (size_t r = 0; r < rows; ++r)
            for (size_t k = 0; k < outWidth; ++k) {
                const uint8_t* row = src.data() + r * 2 * outWidth;
                // Units 0, 2, 4... of two bytes survive: bytes 0 1, 4 5, 8 9...
                ASSERT_EQ(pairs[r * outWidth + k], row[(k / 2) * 4 + (k % 2)]) << outWidth;
                ASSERT_EQ(singles[r * outWidth + k], row[2 * k]) << outWidth;
            }
        EXPECT_EQ(pairs.back(), kCanary);
        EXPECT_EQ(singles.back(), kCanary);
    }
}

// ---- Depth table and shift search -------------------------------------------

TEST(DepthTable, EndsAndMonotonicFiniteEntries) {
    float table[focalshift::kDepthLevels];
    focalshift::fillDepthTable(table, 10.f, 64.f);
    EXPECT_EQ(table[0], 65535.f);
    EXPECT_EQ(table[1023], 0.f);
    EXPECT_FLOAT_EQ(table[8], 640.f);  // one pixel of disparity
    EXPECT_FLOAT_EQ(table[1022], 10.f * 64.f * 8.f / 1022.f);
    for (int i = 2; i < 1023; ++i) ASSERT_LT(table[i], table[i - 1]) << i;
    focalshift::fillDepthTable(table, 1000.f, 1000.f);
    EXPECT_EQ(table[1], 65535.f);  // clamped
}

TEST(DepthTable, ShiftIsHalfTheBracketingIndex) {
    float table[focalshift::kDepthLevels];
    focalshift::fillDepthTable(table, 10.f, 64.f);  // entry j = 5120 / j
    EXPECT_EQ(focalshift::searchShift(table, 100), -25);   // j = 52
    EXPECT_EQ(focalshift::searchShift(table, 1000), -2);   // j = 6
    EXPECT_EQ(focalshift::searchShift(table, 3000), 0);    // j = 2
    EXPECT_EQ(focalshift::searchShift(table, 10000), 0);   // j = 1
    // Below every finite entry only entry 1023 (0) brackets it.
    EXPECT_EQ(focalshift::searchShift(table, 5), -511);
    EXPECT_EQ(focalshift::searchShift(table, 0), -511);
}

// ---- Entry points -------------------------------------------------------------

// A body whose camera 2 gives focalPx = 64 at working width 64 and whose
// cameras sit `baseline` apart along x.
calibpack::Body makeBody(float baseline) {
    calibpack::Body b;
    b.referenceWidth = 1600;
    const double f = 2000, cx = 800, cy = 600;
    for (int cam = 1; cam <= 2; ++cam) {
        calibpack::CameraSection& c = cam == 1 ? b.camera1 : b.camera2;
        c.number = cam;
        const double tx = cam == 2 ? -baseline : 0.0;
        c.projection = {float(f), 0, float(cx), float(f * tx), 0, float(f), float(cy), 0, 0, 0, 1, 0};
        c.modelWidth = c.calibWidth = 1600;
        c.modelHeight = c.calibHeight = 1200;
        c.pixelPitch = 0.0025f;
        c.focalLength = 4.f;
    }
    return b;
}

constexpr uint16_t kW = 64, kH = 6;

uint32_t initWith(uint16_t distance, uint16_t w = kW, uint16_t h = kH) {
    const Bytes body = calibpack::packKind3(makeBody(10.f));
    return kvDSR_StereoView_FocalAlignmentShift_Init(body.data(), static_cast<uint32_t>(body.size()), nullptr, 0, w,
                                                     h, distance);
}

kvDSR_ImageDesc desc(uint32_t format, Bytes& frame) {
    kvDSR_ImageDesc d{};
    d.format = format;
    d.plane[0] = frame.data();
    return d;
}

TEST(FocalShiftInit, DistanceLimitBeforeCalibration) {
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift_Init(nullptr, 0, nullptr, 0, kW, kH, 10001),
              kvDSR_ERR_DISTANCE_RANGE);
    // 10000 goes on to the parser, which finds no data.
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift_Init(nullptr, 0, nullptr, 0, kW, kH, 10000),
              kvDSR_ERR_CALIB_NO_DATA);
    EXPECT_EQ(initWith(10000), kvDSR_OK);
    EXPECT_EQ(focalshift::currentShift(), 0);
}

class FocalShiftSetup : public ::testing::TestWithParam<uint32_t> {};

// Every body kind yields camera 2's values and the baseline; in multi-body
// containers the first body is taken, whatever the others say.
TEST_P(FocalShiftSetup, CameraTwoValuesAndBaselineOfTheFirstBody) {
    calibpack::Body other = makeBody(40.f);
    other.camera2.focalLength = 8.f;
    const Bytes container = calibpack::packContainer({makeBody(10.f), other}, GetParam());
    focalshift::ShiftSetup setup;
    ASSERT_EQ(focalshift::computeSetup(container.data(), static_cast<uint32_t>(container.size()), nullptr, 0, kW,
                                       100, setup),
              0u);
    EXPECT_EQ(setup.imageWidth, 1600);
    EXPECT_EQ(setup.imageHeight, 1200);
    EXPECT_NEAR(setup.baseline, 10.f, 1e-3);
    EXPECT_NEAR(setup.focalPx, 64.f, 1e-3);
    EXPECT_EQ(setup.alignShift, -25);
}

INSTANTIATE_TEST_SUITE_P(Containers, FocalShiftSetup, ::testing::Values(464u, 496u, 1403u, 512u, 1547u, 1643u));

TEST(FocalShiftInit, ParserCodesPassThroughAndKeepState) {
    ASSERT_EQ(initWith(100), kvDSR_OK);
    const Bytes bad(465, 0);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift_Init(bad.data(), 465, nullptr, 0, kW, kH, 5),
              kvDSR_ERR_CALIB_LENGTH);
    EXPECT_EQ(focalshift::currentShift(), -25);
    EXPECT_TRUE(focalshift::hasShiftBuffer());
}

struct PairCase {
    uint32_t format;
    uint16_t distance;
    size_t shift;
};

class FocalShiftPair : public ::testing::TestWithParam<PairCase> {};

TEST_P(FocalShiftPair, FirstMovesLeftSecondMovesRight) {
    const PairCase pc = GetParam();
    ASSERT_EQ(initWith(pc.distance), kvDSR_OK);
    ASSERT_EQ(static_cast<size_t>(-focalshift::currentShift()), pc.shift);
    const size_t rows = kH + kH / 2, s = pc.shift;
    Bytes first = randomBytes(kW * rows, 1), second = randomBytes(kW * rows, 2);
    Bytes outFirst(kW * rows, kCanary), outSecond(kW * rows, kCanary);
    kvDSR_ImageDesc dFirst = desc(pc.format, first), dSecond = desc(pc.format, second);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShift(outSecond.data(), outFirst.data(), &dSecond, &dFirst, kW, kH),
              kvDSR_OK);
    for (size_t r = 0; r < rows; ++r)
        for (size_t c = 0; c < kW; ++c) {
            const size_t i = r * kW + c;
            ASSERT_EQ(outFirst[i], c + s < kW ? first[i + s] : kCanary) << r << "," << c;
            ASSERT_EQ(outSecond[i], c >= s ? second[i - s] : kCanary) << r << "," << c;
        }
}

INSTANTIATE_TEST_SUITE_P(Shifts, FocalShiftPair,
                         ::testing::Values(PairCase{kvDSR_FMT_YUV420SP, 10000, 0},
                                           PairCase{kvDSR_FMT_YUV420P, 3000, 0},
                                           PairCase{kvDSR_FMT_YUV420SP, 100, 25},
                                           PairCase{kvDSR_FMT_YUV420P, 1000, 2},
                                           PairCase{kvDSR_FMT_YUV420SP, 5, 511},  // s > w: nothing written
                                           PairCase{kvDSR_FMT_YUV420P, 7, 365}));

// Expected full-width side-by-side result, computed per view and plane.
Bytes expectedSideBySide(const Bytes& in, uint32_t format, size_t W, size_t H, size_t s, uint8_t unwritten) {
    Bytes out(W * H * 3 / 2, unwritten);
    std::memset(out.data() + W * H, 128, W * H / 2);
    auto move = [&](size_t rowStart, size_t partStart, size_t part, size_t shift, bool leftward) {
        for (size_t c = 0; c + shift < part; ++c) {
            const size_t from = leftward ? c + shift : c, to = leftward ? c : c + shift;
            out[rowStart + partStart + to] = in[rowStart + partStart + from];
        }
    };
    for (size_t r = 0; r < H; ++r) {
        move(r * W, 0, W / 2, s, true);
        move(r * W, W / 2, W / 2, s, false);
    }
    for (size_t r = 0; r < H / 2; ++r) {
        const size_t row = W * H + r * W;
        if (format == kvDSR_FMT_YUV420SP) {
            move(row, 0, W / 2, s, true);
            move(row, W / 2, W / 2, s, false);
        } else {
            for (size_t q = 0; q < 4; ++q) move(row, q * W / 4, W / 4, s / 2, q % 2 == 0);
        }
    }
    return out;
}

class FocalShiftSideBySide : public ::testing::TestWithParam<uint32_t> {};

TEST_P(FocalShiftSideBySide, FullWidthMovesHalvesApart) {
    const uint32_t format = GetParam();
    ASSERT_EQ(initWith(100), kvDSR_OK);  // s = 25, odd: planar chroma moves 12
    const size_t W = kW, H = kH;
    Bytes in = randomBytes(W * H * 3 / 2, 3), out(W * H * 3 / 2, kCanary);
    kvDSR_ImageDesc d = desc(format, in);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data(), kW, kH, &d, kW, kH), kvDSR_OK);
    EXPECT_EQ(out, expectedSideBySide(in, format, W, H, 25, kCanary));
}

TEST_P(FocalShiftSideBySide, HalfWidthIsTheFullWidthResultHalved) {
    const uint32_t format = GetParam();
    ASSERT_EQ(initWith(100, kW / 2, kH), kvDSR_OK);  // buffer holds a kW-wide frame
    const size_t s = static_cast<size_t>(-focalshift::currentShift());
    ASSERT_EQ(s, 12u);  // focal length in pixels halves with the Init width
    const size_t W = kW, H = kH, outW = W / 2;
    Bytes in = randomBytes(W * H * 3 / 2, 4), out(outW * H * 3 / 2 + 4, kCanary);
    kvDSR_ImageDesc d = desc(format, in);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data(), outW, kH, &d, kW, kH), kvDSR_OK);
    // Luma the shift leaves uncovered is the buffer's initial 0.
    const Bytes full = expectedSideBySide(in, format, W, H, s, 0);
    for (size_t r = 0; r < H * 3 / 2; ++r)
        for (size_t k = 0; k < outW; ++k) {
            const size_t from = r * W + (format == kvDSR_FMT_YUV420SP ? (k / 2) * 4 + k % 2 : 2 * k);
            ASSERT_EQ(out[r * outW + k], full[from]) << r << "," << k;
        }
    for (size_t i = outW * H * 3 / 2; i < out.size(); ++i) ASSERT_EQ(out[i], kCanary);
}

INSTANTIATE_TEST_SUITE_P(Formats, FocalShiftSideBySide,
                         ::testing::Values(kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV420P));

class FocalShiftTeam : public ::testing::TestWithParam<std::tuple<uint32_t, int>> {
protected:
    void SetUp() override { omp_set_num_threads(std::get<1>(GetParam())); }
    void TearDown() override { omp_set_num_threads(saved_); }
    const int saved_ = omp_get_max_threads();
};

// Frames large enough for the team, with an odd height (a half row of
// neutral chroma past the chroma rows): the rows shared out, a few to an
// item, come out as the serial rule says, in all three paths.
TEST_P(FocalShiftTeam, LargeFramesMatchTheRule) {
    const uint32_t format = std::get<0>(GetParam());
    const uint16_t W = 640, H = 241, w = W / 2;
    ASSERT_EQ(initWith(100, w, H), kvDSR_OK);
    const size_t s = static_cast<size_t>(-focalshift::currentShift());
    ASSERT_GT(s, 0u);

    const size_t rows = size_t{H} + H / 2;
    Bytes first = randomBytes(w * rows, 11), second = randomBytes(w * rows, 12);
    Bytes outFirst(first.size(), kCanary), outSecond(first.size(), kCanary);
    kvDSR_ImageDesc dFirst = desc(format, first), dSecond = desc(format, second);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShift(outSecond.data(), outFirst.data(), &dSecond, &dFirst, w, H),
              kvDSR_OK);
    for (size_t r = 0; r < rows; ++r)
        for (size_t c = 0; c < w; ++c) {
            const size_t i = r * w + c;
            ASSERT_EQ(outFirst[i], c + s < w ? first[i + s] : kCanary) << r << "," << c;
            ASSERT_EQ(outSecond[i], c >= s ? second[i - s] : kCanary) << r << "," << c;
        }

    Bytes in = randomBytes(size_t{W} * H * 3 / 2, 6), full(in.size(), kCanary), half(in.size() / 2 + 8, kCanary);
    kvDSR_ImageDesc d = desc(format, in);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(full.data(), W, H, &d, W, H), kvDSR_OK);
    EXPECT_EQ(full, expectedSideBySide(in, format, W, H, s, kCanary));
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(half.data(), w, H, &d, W, H), kvDSR_OK);
    const Bytes buffered = expectedSideBySide(in, format, W, H, s, 0);
    for (size_t r = 0; r < rows; ++r)
        for (size_t k = 0; k < w; ++k) {
            const size_t from = r * W + (format == kvDSR_FMT_YUV420SP ? (k / 2) * 4 + k % 2 : 2 * k);
            ASSERT_EQ(half[r * w + k], buffered[from]) << r << "," << k;
        }
    for (size_t i = rows * w; i < half.size(); ++i) ASSERT_EQ(half[i], kCanary) << i;
}

INSTANTIATE_TEST_SUITE_P(FormatsAndThreads, FocalShiftTeam,
                         ::testing::Combine(::testing::Values(kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV420P),
                                            ::testing::Values(1, 2, 3)));

// An output shorter than the frame gets only its own rows: nothing is
// written past outWidth * outHeight * 3/2 bytes.
TEST(FocalShiftSideBySide, FullWidthStaysInsideAShorterOutput) {
    ASSERT_EQ(initWith(100), kvDSR_OK);
    const uint16_t outH = kH - 2;
    Bytes in = randomBytes(kW * kH * 3 / 2, 8), out(kW * outH * 3 / 2 + 16, kCanary);
    kvDSR_ImageDesc d = desc(kvDSR_FMT_YUV420SP, in);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data(), kW, outH, &d, kW, kH), kvDSR_OK);
    for (size_t i = kW * outH * 3 / 2; i < out.size(); ++i) ASSERT_EQ(out[i], kCanary) << i;
    // The rows it does write follow the rule: row 0 of the left half moved left.
    EXPECT_EQ(out[0], in[25]);
    EXPECT_EQ(out[kW * outH], in[kW * kH + 25]);  // chroma starts after the output's own luma
}

// Half width, an output shorter than the frame: the first outHeight * 3/2
// rows of the halved frame, exactly as a tall enough output gets them, and
// nothing past them.
TEST_P(FocalShiftSideBySide, HalfWidthStaysInsideAShorterOutput) {
    constexpr size_t kPadding = 16;
    const uint32_t format = GetParam();
    ASSERT_EQ(initWith(100, kW / 2, kH), kvDSR_OK);
    const size_t outW = kW / 2;
    Bytes in = randomBytes(size_t{kW} * kH * 3 / 2, 10);
    kvDSR_ImageDesc d = desc(format, in);
    Bytes tall(outW * kH * 3 / 2, kCanary);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(tall.data(), outW, kH, &d, kW, kH), kvDSR_OK);
    for (uint16_t outH : {0, 1, 2, 3, kH - 1}) {
        const size_t fits = outW * (size_t{outH} * 3 / 2);
        Bytes out(fits + 2 * kPadding, kCanary);
        ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data() + kPadding, outW, outH, &d, kW, kH),
                  kvDSR_OK);
        EXPECT_EQ(0, std::memcmp(out.data() + kPadding, tall.data(), fits)) << "outHeight " << outH;
        for (size_t i = 0; i < kPadding; ++i)
            ASSERT_TRUE(out[i] == kCanary && out[fits + kPadding + i] == kCanary) << "outHeight " << outH;
    }
}

TEST(FocalShiftSideBySide, HalfWidthNeedsTheBufferOfAMatchingInit) {
    Bytes in(kW * kH * 3 / 2, 9), out(kW * kH * 3 / 2, 0);
    kvDSR_ImageDesc d = desc(kvDSR_FMT_YUV420SP, in);
    ASSERT_EQ(initWith(100, kW / 2, kH), kvDSR_OK);
    // Bigger than the buffer: refused; full width needs no buffer at all.
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data(), kW / 2, kH + 2, &d, kW, kH + 2),
              kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data(), kW / 2, kH, &d, kW, kH), kvDSR_OK);

    // An unknown format releases the buffer: the next half-width call needs Init.
    kvDSR_ImageDesc bad = desc(kvDSR_FMT_YUV444P, in);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data(), kW / 2, kH, &bad, kW, kH),
              kvDSR_ERR_IMAGE_FORMAT);
    EXPECT_FALSE(focalshift::hasShiftBuffer());
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data(), kW / 2, kH, &d, kW, kH),
              kvDSR_ERR_NOT_INITIALISED);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data(), kW, kH, &bad, kW, kH),
              kvDSR_ERR_IMAGE_FORMAT);

    ASSERT_EQ(initWith(100, kW / 2, kH), kvDSR_OK);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift_Close(), kvDSR_OK);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data(), kW / 2, kH, &d, kW, kH),
              kvDSR_ERR_NOT_INITIALISED);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift_Close(), kvDSR_OK);
}

TEST(FocalShiftClose, ShiftSurvivesForTheTwoFramePath) {
    ASSERT_EQ(initWith(100), kvDSR_OK);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShift_Close(), kvDSR_OK);
    EXPECT_EQ(focalshift::currentShift(), -25);
    Bytes in = randomBytes(kW * kH * 3 / 2, 5), a(in.size(), kCanary), b(in.size(), kCanary);
    kvDSR_ImageDesc d = desc(kvDSR_FMT_YUV420P, in);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShift(a.data(), b.data(), &d, &d, kW, kH), kvDSR_OK);
    EXPECT_EQ(b[0], in[25]);
    EXPECT_EQ(a[25], in[0]);
    EXPECT_EQ(a[24], kCanary);
}

}  // namespace
