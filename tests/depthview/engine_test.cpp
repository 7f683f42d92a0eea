// The depth view engine through its exported functions: Init's checks and
// calibration values, the paths of Run and Run_SideBySide, their codes and
// what they leave in the caller's buffers.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "calibration/calib_block.h"
#include "common/colorconv.h"
#include "kvDSR.h"

namespace {

using kvdsr::calib::store;

struct CameraFields {
    uint16_t width = 4000, height = 3000;
    float pitch = 0.0014f, focal = 4.0f;
};

// Plain 512-byte container (one kind-3 body): camera 2 offset by `baseline`
// along x from camera 1.
std::vector<uint8_t> calibration(CameraFields cam2 = {}, CameraFields cam1 = {1000, 800, 0.002f, 3.0f},
                                 float baseline = 20.f) {
    std::vector<uint8_t> c(512, 0);
    const CameraFields cams[2] = {cam1, cam2};
    for (int i = 0; i < 2; ++i) {
        const uint32_t base = kvdsr::calib::kSectionOffset[i + 1];
        store<int32_t>(c.data(), base, 1);
        store<uint16_t>(c.data(), base + 96, cams[i].width);
        store<uint16_t>(c.data(), base + 98, cams[i].height);
        store<float>(c.data(), base + 100, cams[i].pitch);
        store<float>(c.data(), base + 112, cams[i].focal);
        const float f = 1000.f, tx = i ? -baseline * f : 0.f;
        const float P[12] = {f, 0, 320, tx, 0, f, 240, 0, 0, 0, 1, 0};
        for (int k = 0; k < 12; ++k) store<float>(c.data(), base + 40 + 4 * k, P[k]);
        const float H[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
        for (int k = 0; k < 9; ++k) store<float>(c.data(), base + 4 + 4 * k, H[k]);
    }
    return c;
}

constexpr int W = 64, H = 48, DW = 16, DH = 12;
constexpr uint16_t kShift = 1000;

uint32_t initEngine(int w = W, int h = H, int dw = DW, int dh = DH, uint16_t shift = kShift,
                    const std::vector<uint8_t>& calib = calibration()) {
    return kvDSR_Init(calib.data(), uint32_t(calib.size()), nullptr, 0, uint16_t(w), uint16_t(h), uint16_t(dw),
                      uint16_t(dh), shift);
}

std::vector<uint8_t> pattern(size_t n, uint32_t seed) {
    std::vector<uint8_t> v(n);
    for (size_t i = 0; i < n; ++i) v[i] = uint8_t((i * 37 + seed * 11 + (i / 64) * 5) & 0xFF);
    return v;
}

// A far background with a near block in the middle (8-bit disparities).
std::vector<uint8_t> disparityMap(int dw = DW, int dh = DH) {
    std::vector<uint8_t> m(size_t(dw) * dh, 20);
    for (int y = dh / 4; y < 3 * dh / 4; ++y)
        for (int x = dw / 3; x < 2 * dw / 3; ++x) m[y * dw + x] = 250;
    return m;
}

kvDSR_ImageDesc desc(uint32_t format, uint8_t* p0, uint8_t* p1 = nullptr, uint8_t* p2 = nullptr, uint32_t s0 = 0,
                     uint32_t s1 = 0, uint32_t s2 = 0) {
    kvDSR_ImageDesc d{};
    d.format = format;
    d.stride[0] = s0;
    d.stride[1] = s1;
    d.stride[2] = s2;
    d.plane[0] = p0;
    d.plane[1] = p1;
    d.plane[2] = p2;
    return d;
}

class DepthView : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(initEngine(), kvDSR_OK); }
    void TearDown() override { kvDSR_Close(); }

    std::vector<uint8_t> img444 = pattern(3 * W * H, 1);
    std::vector<uint8_t> img420 = pattern(W * H * 3 / 2, 2);
    std::vector<uint8_t> map = disparityMap();
    kvDSR_ImageDesc depth8() { return desc(kvDSR_FMT_DEPTH8, map.data()); }
    kvDSR_ImageDesc yuv444() {
        return desc(kvDSR_FMT_YUV444P, img444.data(), img444.data() + W * H, img444.data() + 2 * W * H);
    }
    kvDSR_ImageDesc yuv420() { return desc(kvDSR_FMT_YUV420SP, img420.data(), img420.data() + W * H); }

    std::vector<uint8_t> run(const kvDSR_ImageDesc& image, size_t bytes, uint8_t fill = 0xEE,
                             uint32_t expect = kvDSR_OK) {
        std::vector<uint8_t> out(bytes, fill);
        auto d = depth8();
        EXPECT_EQ(kvDSR_Run(out.data(), &image, W, H, &d, DW, DH), expect);
        return out;
    }
    std::vector<uint8_t> runSbs(const kvDSR_ImageDesc& image, size_t bytes, uint8_t fill = 0xEE,
                                uint32_t expect = kvDSR_OK) {
        std::vector<uint8_t> out(bytes, fill);
        auto d = depth8();
        EXPECT_EQ(kvDSR_Run_SideBySide(out.data(), 2 * W, 0, &image, W, H, &d, DW, DH), expect);
        return out;
    }
};

std::vector<uint8_t> cleared444(int w, int h) {
    std::vector<uint8_t> v(3 * size_t(w) * h, 128);
    std::fill(v.begin(), v.begin() + size_t(w) * h, 0);
    return v;
}

TEST(DepthViewInit, SizeAndCalibrationChecksKeepTheEngineAsItWas) {
    const auto calib = calibration();
    EXPECT_EQ(initEngine(1920, 1080, 640, 480), kvDSR_ERR_SIZE_COMBINATION);
    std::vector<uint8_t> shortCalib(100, 0);
    EXPECT_EQ(kvDSR_Init(shortCalib.data(), 100, nullptr, 0, W, H, DW, DH, 0), kvDSR_ERR_CALIB_LENGTH);
    std::vector<uint8_t> out(W * H * 3, 0xEE), in = pattern(W * H * 3, 3), m = disparityMap();
    auto image = desc(kvDSR_FMT_YUV444P, in.data());
    auto depth = desc(kvDSR_FMT_DEPTH8, m.data());
    EXPECT_EQ(kvDSR_Run(out.data(), &image, W, H, &depth, DW, DH), kvDSR_ERR_NOT_INITIALISED);

    ASSERT_EQ(initEngine(), kvDSR_OK);
    EXPECT_EQ(initEngine(1920, 1080, 640, 480), kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_EQ(kvDSR_Init(shortCalib.data(), 100, nullptr, 0, 32, 24, 8, 6, 0), kvDSR_ERR_CALIB_LENGTH);
    EXPECT_EQ(kvDSR_Run(out.data(), &image, W, H, &depth, DW, DH), kvDSR_OK);  // old sizes still in force
    // Buffers past the element limit: out of memory, previous set-up kept.
    EXPECT_EQ(initEngine(65535, 65534, 65535, 65534), kvDSR_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(kvDSR_Run(out.data(), &image, W, H, &depth, DW, DH), kvDSR_OK);
    kvDSR_Close();
}

TEST(DepthViewInit, CallSequenceInitRunSideBySideCloseRun) {
    ASSERT_EQ(initEngine(), kvDSR_OK);
    auto in = pattern(W * H * 3 / 2, 4);
    auto m = disparityMap();
    auto image = desc(kvDSR_FMT_YUV420SP, in.data(), in.data() + W * H);
    auto depth = desc(kvDSR_FMT_DEPTH8, m.data());
    std::vector<uint8_t> out(W * H * 3 / 2), sbs(W * H * 3);
    EXPECT_EQ(kvDSR_Run(out.data(), &image, W, H, &depth, DW, DH), kvDSR_OK);
    EXPECT_EQ(kvDSR_Run_SideBySide(sbs.data(), 2 * W, 0, &image, W, H, &depth, DW, DH), kvDSR_OK);
    EXPECT_EQ(kvDSR_Close(), kvDSR_OK);
    std::vector<uint8_t> untouched(out.size(), 0x3C);
    EXPECT_EQ(kvDSR_Run(untouched.data(), &image, W, H, &depth, DW, DH), kvDSR_ERR_NOT_INITIALISED);
    EXPECT_EQ(kvDSR_Run_SideBySide(untouched.data(), 2 * W, 0, &image, W, H, &depth, DW, DH),
              kvDSR_ERR_NOT_INITIALISED);
    for (uint8_t b : untouched) ASSERT_EQ(b, 0x3C);
    EXPECT_EQ(kvDSR_Close(), kvDSR_OK);
}

TEST(DepthViewInit, CalibrationValuesComeFromCameraTwo) {
    auto runWith = [](const std::vector<uint8_t>& calib) {
        EXPECT_EQ(initEngine(W, H, DW, DH, kShift, calib), kvDSR_OK);
        auto in = pattern(W * H * 3, 5);
        auto m = disparityMap();
        auto image = desc(kvDSR_FMT_YUV444P, in.data());
        auto depth = desc(kvDSR_FMT_DEPTH8, m.data());
        std::vector<uint8_t> out(W * H * 3);
        EXPECT_EQ(kvDSR_Run(out.data(), &image, W, H, &depth, DW, DH), kvDSR_OK);
        return out;
    };
    const auto base = runWith(calibration());
    EXPECT_EQ(runWith(calibration({}, {3000, 2000, 0.01f, 9.0f})), base);
    for (CameraFields cam2 : {CameraFields{4000, 3000, 0.0014f, 2.0f}, CameraFields{4000, 3000, 0.003f, 4.0f},
                              CameraFields{2000, 3000, 0.0014f, 4.0f}})
        EXPECT_NE(runWith(calibration(cam2)), base);
    EXPECT_NE(runWith(calibration({}, {1000, 800, 0.002f, 3.0f}, 60.f)), base);
    kvDSR_Close();
}

// Implausible calibrations pass Init; every frame is still defined: all
// depth levels 0 (negative depths saturate) give a flat map and the copy.
TEST(DepthViewInit, NegativePitchOrFocalLengthGivesFlatDepth) {
    for (CameraFields cam2 : {CameraFields{4000, 3000, -0.0014f, 4.0f}, CameraFields{4000, 3000, 0.0014f, -4.0f}}) {
        const auto calib = calibration(cam2);
        ASSERT_EQ(initEngine(W, H, DW, DH, kShift, calib), kvDSR_OK);
        auto in = pattern(W * H * 3, 8);
        auto m = disparityMap();
        auto image = desc(kvDSR_FMT_YUV444P, in.data());
        auto depth = desc(kvDSR_FMT_DEPTH8, m.data());
        std::vector<uint8_t> out(W * H * 3);
        EXPECT_EQ(kvDSR_Run(out.data(), &image, W, H, &depth, DW, DH), kvDSR_OK);
        EXPECT_EQ(out, in);
    }
    kvDSR_Close();
}

TEST_F(DepthView, RunWritesTheShiftedViewBlackWhereNothingLands) {
    const auto out = run(yuv444(), 3 * W * H);
    const int firstColumn = int(W / 1280.0 * (kShift * 0.12 + 40));
    int moved = 0;
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const size_t i = size_t(y) * W + x;
            if (x < firstColumn) {
                ASSERT_EQ(out[i], 0);
                ASSERT_EQ(out[W * H + i], 128);
                ASSERT_EQ(out[2 * W * H + i], 128);
            }
            moved += out[i] != img444[i];
        }
    EXPECT_GT(moved, W * H / 4);
    // The near block moves further than the background: its rows differ from
    // background-only rows' pattern of movement.
    EXPECT_NE(std::vector<uint8_t>(out.begin() + 24 * W, out.begin() + 25 * W),
              std::vector<uint8_t>(out.begin() + 0 * W, out.begin() + 1 * W));
}

TEST_F(DepthView, PseudoPlanarGoesThroughFourFourFour) {
    const auto out = run(yuv420(), W * H * 3 / 2);
    std::vector<uint8_t> p444(3 * W * H), back(W * H * 3 / 2);
    ASSERT_TRUE(kvdsr::ycbcr420spTo444p(img420.data(), 0, img420.data() + W * H, 0, p444.data(), p444.data() + W * H,
                                        p444.data() + 2 * W * H, 0, W, H));
    auto image = desc(kvDSR_FMT_YUV444P, p444.data());
    map = disparityMap();
    const auto out444 = run(image, 3 * W * H);
    ASSERT_TRUE(kvdsr::ycbcr444pTo420sp(out444.data(), out444.data() + W * H, out444.data() + 2 * W * H, 0,
                                        back.data(), 0, back.data() + W * H, 0, W, H));
    EXPECT_EQ(out, back);
}

TEST_F(DepthView, PaddedPlanesAreNotPreCleared) {
    const auto packed = run(yuv444(), 3 * W * H);
    const uint32_t stride = W + 16;
    std::vector<uint8_t> padded(3 * size_t(stride) * H, 0x99);
    for (int p = 0; p < 3; ++p)
        for (int y = 0; y < H; ++y)
            std::memcpy(&padded[(size_t(p) * H + y) * stride], &img444[(size_t(p) * H + y) * W], W);
    auto image = desc(kvDSR_FMT_YUV444P, padded.data(), padded.data() + stride * H, padded.data() + 2 * stride * H,
                      stride, stride, stride);
    std::vector<uint8_t> out = cleared444(W, H);
    auto d = depth8();
    ASSERT_EQ(kvDSR_Run(out.data(), &image, W, H, &d, DW, DH), kvDSR_OK);
    EXPECT_EQ(out, packed);
    const auto kept = run(image, 3 * W * H, 0x55);
    EXPECT_EQ(kept[0], 0x55);
    EXPECT_EQ(kept[2 * W * H + W * H - W], 0x55);
}

TEST_F(DepthView, StrideRuleAndNullPlanesWriteNothing) {
    struct Case {
        kvDSR_ImageDesc image;
        uint32_t code;
    };
    uint8_t* p = img444.data();
    const Case cases[] = {
        {desc(kvDSR_FMT_YUV444P, p, p + W * H, p + 2 * W * H, W + 64, W, W + 64), kvDSR_ERR_STRIDE},
        {desc(kvDSR_FMT_YUV444P, p, p, p, W + 4, W + 4, 0), kvDSR_ERR_STRIDE},
        {desc(kvDSR_FMT_YUV444P, p, p, p, W - 1, W + 4, W + 4), kvDSR_ERR_STRIDE},
        {desc(kvDSR_FMT_YUV444P, p, nullptr, p, W + 1, W + 1, W + 1), kvDSR_ERR_NULL_POINTER},
        {desc(kvDSR_FMT_YUV444P, nullptr, nullptr, nullptr, 0, W, 0), kvDSR_ERR_NULL_POINTER},
        {desc(kvDSR_FMT_YUV420SP, nullptr, nullptr), kvDSR_ERR_NULL_POINTER},
        {desc(kvDSR_FMT_YUV420SP, nullptr, p), kvDSR_ERR_NULL_POINTER},
        {desc(kvDSR_FMT_YUV420SP, p, nullptr), kvDSR_ERR_NULL_POINTER},
        {desc(kvDSR_FMT_YUV420P, p, p, p), kvDSR_ERR_IMAGE_FORMAT},
        {desc(kvDSR_FMT_DEPTH8, p), kvDSR_ERR_IMAGE_FORMAT},
    };
    for (const Case& c : cases) {
        const auto out = run(c.image, 3 * W * H, 0xEE, c.code);
        for (uint8_t b : out) ASSERT_EQ(b, 0xEE) << std::hex << c.code;
        const auto sbs = runSbs(c.image, 6 * W * H, 0xEE, c.code);
        for (uint8_t b : sbs) ASSERT_EQ(b, 0xEE) << std::hex << c.code;
    }
    // Packed strides (0 or the width, mixed) are fine.
    run(desc(kvDSR_FMT_YUV444P, p, nullptr, nullptr, W, 0, W), 3 * W * H);
}

TEST_F(DepthView, InterfaceCodesComeFirst) {
    auto image = yuv444();
    auto d = depth8();
    std::vector<uint8_t> out(6 * W * H, 0xEE);
    EXPECT_EQ(kvDSR_Run_SideBySide(out.data(), 2 * W + 2, 0, &image, W, H, &d, DW, DH), kvDSR_ERR_SIDE_BY_SIDE_WIDTH);
    EXPECT_EQ(kvDSR_Run(out.data(), &image, W, H, &d, DW, DH + 1), kvDSR_ERR_SIZE_COMBINATION);
    auto bad = desc(kvDSR_FMT_YUV444P, map.data());
    EXPECT_EQ(kvDSR_Run(out.data(), &image, W, H, &bad, DW, DH), kvDSR_ERR_DEPTH_FORMAT);
    for (uint8_t b : out) ASSERT_EQ(b, 0xEE);
}

TEST_F(DepthView, InvalidDepthIsRepairedInPlace) {
    map[1 * DW + 1] = 255;
    map[0] = 255;
    run(yuv444(), 3 * W * H);
    EXPECT_EQ(map[1 * DW + 1], 20);
    EXPECT_EQ(map[0], 20);
    // A later failing check still leaves the repair behind.
    map[1] = 255;
    run(desc(kvDSR_FMT_YUV420P, img444.data()), 3 * W * H, 0xEE, kvDSR_ERR_IMAGE_FORMAT);
    EXPECT_EQ(map[1], 20);
}

TEST_F(DepthView, FlatDepthCopiesTheImage) {
    std::fill(map.begin(), map.end(), 255);  // all invalid: all depth 0
    EXPECT_EQ(run(yuv444(), 3 * W * H), img444);
    std::fill(map.begin(), map.end(), 255);
    EXPECT_EQ(run(yuv420(), W * H * 3 / 2), img420);
    std::fill(map.begin(), map.end(), 77);
    const auto sbs = runSbs(yuv444(), 6 * W * H);
    for (int r = 0; r < 3 * H; ++r)
        for (int half = 0; half < 2; ++half)
            ASSERT_TRUE(std::equal(img444.begin() + r * W, img444.begin() + (r + 1) * W, sbs.begin() + (2 * r + half) * W));
    std::fill(map.begin(), map.end(), 77);
    const auto out = run(desc(kvDSR_FMT_YUV420P, img444.data()), 3 * W * H, 0xEE, kvDSR_ERR_DEPTH_FORMAT);
    for (uint8_t b : out) ASSERT_EQ(b, 0xEE);
}

TEST_F(DepthView, SideBySideHalves) {
    // 4:4:4: the left half is Run's synthesis (not pre-cleared), the right
    // half the input.
    const auto single = run(yuv444(), 3 * W * H);
    const auto cleared = cleared444(W, H);
    std::vector<uint8_t> sbs(6 * W * H);
    for (int r = 0; r < 3 * H; ++r) std::memcpy(&sbs[2 * r * W], &cleared[r * W], W);
    auto image = yuv444();
    auto d = depth8();
    ASSERT_EQ(kvDSR_Run_SideBySide(sbs.data(), 2 * W, 0, &image, W, H, &d, DW, DH), kvDSR_OK);
    for (int r = 0; r < 3 * H; ++r) {
        ASSERT_TRUE(std::equal(single.begin() + r * W, single.begin() + (r + 1) * W, sbs.begin() + 2 * r * W)) << r;
        ASSERT_TRUE(std::equal(img444.begin() + r * W, img444.begin() + (r + 1) * W, sbs.begin() + (2 * r + 1) * W));
    }
    EXPECT_EQ(runSbs(yuv444(), 6 * W * H, 0x55)[0], 0x55);

    // 4:2:0: both halves in the double-width layout; the right half is the
    // input after a round trip, the left half Run's output.
    const auto single420 = run(yuv420(), W * H * 3 / 2);
    const auto sbs420 = runSbs(yuv420(), W * H * 3);
    for (int r = 0; r < H * 3 / 2; ++r) {
        ASSERT_TRUE(std::equal(single420.begin() + r * W, single420.begin() + (r + 1) * W, sbs420.begin() + 2 * r * W));
        ASSERT_TRUE(std::equal(img420.begin() + r * W, img420.begin() + (r + 1) * W, sbs420.begin() + (2 * r + 1) * W));
    }
}

TEST(DepthViewShift, LargeShiftLeavesEverythingBlack) {
    // firstColumn = 64 / 1280 * (1000 * 0.12 + 40) * ... >= width - 1.
    ASSERT_EQ(initEngine(W, H, DW, DH, 60000), kvDSR_OK);
    auto in = pattern(W * H * 3 / 2, 6);
    auto m = disparityMap();
    auto image = desc(kvDSR_FMT_YUV420SP, in.data(), in.data() + W * H);
    auto depth = desc(kvDSR_FMT_DEPTH8, m.data());
    std::vector<uint8_t> out(W * H * 3 / 2, 0xEE);
    ASSERT_EQ(kvDSR_Run(out.data(), &image, W, H, &depth, DW, DH), kvDSR_OK);
    for (size_t i = 0; i < out.size(); ++i) ASSERT_EQ(out[i], i < size_t(W) * H ? 0 : 128) << i;
    kvDSR_Close();
}

// Larger sizes through both resize fast paths and the 16-bit depth format.
class DepthViewSizes : public ::testing::TestWithParam<std::tuple<int, int, int, int, uint32_t>> {};

TEST_P(DepthViewSizes, EndToEnd) {
    const auto [w, h, dw, dh, fmt] = GetParam();
    ASSERT_EQ(initEngine(w, h, dw, dh, 300), kvDSR_OK);
    auto in = pattern(size_t(w) * h * 3 / 2, 7);
    auto m8 = disparityMap(dw, dh);
    std::vector<uint16_t> m16(m8.begin(), m8.end());
    for (auto& v : m16) v = uint16_t(v * 2);
    m16[3] = 1023;
    auto image = desc(kvDSR_FMT_YUV420SP, in.data(), in.data() + w * h);
    auto depth = fmt == kvDSR_FMT_DEPTH8 ? desc(fmt, m8.data()) : desc(fmt, reinterpret_cast<uint8_t*>(m16.data()));
    // Every output byte is written: runs over differently filled buffers agree.
    std::vector<uint8_t> out(size_t(w) * h * 3 / 2, 0xEE), again(out.size(), 0x11);
    ASSERT_EQ(kvDSR_Run(out.data(), &image, uint32_t(w), h, &depth, uint16_t(dw), uint16_t(dh)), kvDSR_OK);
    ASSERT_EQ(kvDSR_Run(again.data(), &image, uint32_t(w), h, &depth, uint16_t(dw), uint16_t(dh)), kvDSR_OK);
    EXPECT_EQ(out, again);
    EXPECT_NE(out, in);
    if (fmt == kvDSR_FMT_DEPTH16) EXPECT_EQ(m16[3], 40);
    kvDSR_Close();
}

INSTANTIATE_TEST_SUITE_P(Paths, DepthViewSizes,
                         ::testing::Values(std::make_tuple(480, 270, 160, 90, kvDSR_FMT_DEPTH8),
                                           std::make_tuple(320, 180, 160, 90, kvDSR_FMT_DEPTH16),
                                           std::make_tuple(36, 64, 9, 16, kvDSR_FMT_DEPTH16)));

}  // namespace

namespace {

TEST_F(DepthView, PseudoPlanarStrideBelowWidthSynthesisesADefinedImage) {
    // The 4:4:4 conversion refuses the stride; the engine then works on an
    // all-zero image instead of leftover memory: zero luma, chroma 0 where a
    // pixel lands and 128 elsewhere.
    auto image = desc(kvDSR_FMT_YUV420SP, img420.data(), img420.data() + W * H, nullptr, W - 2, W - 2);
    const auto a = run(image, W * H * 3 / 2, 0xEE);
    const auto b = run(image, W * H * 3 / 2, 0x11);
    EXPECT_EQ(a, b);
    for (int i = 0; i < W * H; ++i) ASSERT_EQ(a[i], 0);
    for (int i = W * H; i < W * H * 3 / 2; ++i) ASSERT_TRUE(a[i] == 0 || a[i] == 128);
    EXPECT_NE(std::count(a.begin() + W * H, a.end(), 0), 0);
}

}  // namespace

namespace {

TEST_F(DepthView, SixteenBitMapAtAnOddAddress) {
    std::vector<uint16_t> m16(DW * DH);
    for (size_t i = 0; i < m16.size(); ++i) m16[i] = uint16_t(map[i] * 3);
    m16[1 * DW + 1] = 1023;
    std::vector<uint8_t> bytes(2 * m16.size() + 1);
    std::memcpy(bytes.data() + 1, m16.data(), 2 * m16.size());
    auto image = yuv444();
    auto aligned = desc(kvDSR_FMT_DEPTH16, reinterpret_cast<uint8_t*>(m16.data()));
    auto odd = desc(kvDSR_FMT_DEPTH16, bytes.data() + 1);
    std::vector<uint8_t> a(3 * W * H), b(3 * W * H);
    ASSERT_EQ(kvDSR_Run(a.data(), &image, W, H, &aligned, DW, DH), kvDSR_OK);
    ASSERT_EQ(kvDSR_Run(b.data(), &image, W, H, &odd, DW, DH), kvDSR_OK);
    EXPECT_EQ(a, b);
    EXPECT_NE(m16[1 * DW + 1], 1023);
    EXPECT_EQ(std::memcmp(bytes.data() + 1, m16.data(), 2 * m16.size()), 0);  // repaired in place too
}

}  // namespace

namespace {

// The flat-depth shortcut copies each plane from its own rows. Every plane
// here is a separate allocation of exactly the bytes its rows span, so a copy
// that runs past one reads outside it (a fault under AddressSanitizer, other
// bytes than the plane's elsewhere).
struct ExactPlanes {
    std::vector<std::vector<uint8_t>> planes;
    std::vector<uint32_t> strides;
    std::vector<int> rows;
    int width;

    ExactPlanes(int w, std::initializer_list<std::pair<int, uint32_t>> rowsAndStrides, uint32_t seed) : width(w) {
        for (auto [r, stride] : rowsAndStrides) {
            const size_t step = stride ? stride : uint32_t(w);
            planes.push_back(pattern(r ? (size_t(r) - 1) * step + size_t(w) : 0, seed++));
            strides.push_back(stride);
            rows.push_back(r);
        }
    }
    const uint8_t* row(int p, int r) const {
        return planes[p].data() + size_t(r) * (strides[p] ? strides[p] : uint32_t(width));
    }
    kvDSR_ImageDesc desc(uint32_t format) {
        kvDSR_ImageDesc d{};
        d.format = format;
        for (size_t p = 0; p < planes.size(); ++p) {
            d.plane[p] = planes[p].data();
            d.stride[p] = strides[p];
        }
        return d;
    }
};

// Rows of the planes in order, each `outRowBytes` apart in the output (the
// right half too when side by side); everything else keeps the canary.
void expectPlaneRows(const std::vector<uint8_t>& out, const ExactPlanes& planes, bool sideBySide) {
    const size_t w = size_t(planes.width), ow = sideBySide ? 2 * w : w;
    std::vector<uint8_t> want(out.size(), 0xEE);
    size_t outRow = 0;
    for (size_t p = 0; p < planes.planes.size(); ++p)
        for (int r = 0; r < planes.rows[p]; ++r, ++outRow) {
            std::memcpy(&want[outRow * ow], planes.row(int(p), r), w);
            if (sideBySide) std::memcpy(&want[outRow * ow + w], planes.row(int(p), r), w);
        }
    EXPECT_EQ(out, want);
}

TEST_F(DepthView, FlatDepthCopiesEachPlaneFromItsOwnRows) {
    ExactPlanes padded420(W, {{H, W + 24}, {H / 2, W + 8}}, 3);
    ExactPlanes padded444(W, {{H, W + 24}, {H, W + 4}, {H, W + 8}}, 4);
    for (ExactPlanes* planes : {&padded420, &padded444}) {
        const bool is420 = planes->planes.size() == 2;
        const auto image = planes->desc(is420 ? kvDSR_FMT_YUV420SP : kvDSR_FMT_YUV444P);
        const size_t bytes = is420 ? W * H * 3 / 2 : 3 * W * H;
        std::fill(map.begin(), map.end(), 255);
        expectPlaneRows(run(image, bytes), *planes, false);
        std::fill(map.begin(), map.end(), 255);
        expectPlaneRows(runSbs(image, 2 * bytes), *planes, true);
    }
}

TEST(DepthViewFlat, OddHeightPseudoPlanarCopiesOnlyTheFramesRows) {
    // 4:2:0 with an odd height has height / 2 chroma rows: in one buffer of
    // exactly that frame, the output's bytes past them stay as they were.
    constexpr int h = 47;
    ASSERT_EQ(initEngine(W, h), kvDSR_OK);
    const auto frame = pattern(W * h + W * (h / 2), 5);
    auto image = desc(kvDSR_FMT_YUV420SP, const_cast<uint8_t*>(frame.data()),
                      const_cast<uint8_t*>(frame.data()) + W * h);
    std::vector<uint8_t> m(DW * DH, 255);
    auto depth = desc(kvDSR_FMT_DEPTH8, m.data());
    std::vector<uint8_t> out(W * h * 3 / 2, 0xEE), sbs(W * h * 3, 0xEE);
    ASSERT_EQ(kvDSR_Run(out.data(), &image, W, h, &depth, DW, DH), kvDSR_OK);
    EXPECT_TRUE(std::equal(frame.begin(), frame.end(), out.begin()));
    for (size_t i = frame.size(); i < out.size(); ++i) ASSERT_EQ(out[i], 0xEE) << i;
    ASSERT_EQ(kvDSR_Run_SideBySide(sbs.data(), 2 * W, 0, &image, W, h, &depth, DW, DH), kvDSR_OK);
    for (int r = 0; r < h + h / 2; ++r)
        for (int half = 0; half < 2; ++half)
            ASSERT_TRUE(std::equal(&frame[size_t(r) * W], &frame[size_t(r + 1) * W], &sbs[(2 * size_t(r) + half) * W]));
    kvDSR_Close();
}

}  // namespace

namespace {

// A frame big enough for the team: every format, layout and path gives the
// same bytes on any number of threads, and repeated runs agree. The maps
// include a flat one and flat ones but for one value at either end: output
// rows may start before the map rows that decide flatness have finished.
TEST(DepthViewTeam, ThreadCountsGiveTheSameBytes) {
    constexpr int w = 321, h = 181, dw = 107, dh = 61;
    const int saved = omp_get_max_threads();
    ASSERT_EQ(initEngine(w, h, dw, dh, 300), kvDSR_OK);
    auto frame = pattern(3 * size_t(w) * h, 9);
    std::vector<std::vector<uint8_t>> maps(4, std::vector<uint8_t>(size_t(dw) * dh, 77));
    maps[0] = disparityMap(dw, dh);
    for (size_t i = 0; i < maps[0].size(); i += 37) maps[0][i] = 255;
    maps[2].back() = 150;
    maps[3].front() = 20;
    const kvDSR_ImageDesc images[] = {
        desc(kvDSR_FMT_YUV420SP, frame.data(), frame.data() + w * h),
        desc(kvDSR_FMT_YUV420SP, frame.data(), frame.data() + w * h, nullptr, w - 1, w - 1),  // refused strides
        desc(kvDSR_FMT_YUV444P, frame.data()),
        desc(kvDSR_FMT_YUV444P, frame.data(), frame.data() + 8, frame.data() + 16, w + 2, w + 2, w + 2)};
    std::vector<std::vector<uint8_t>> first;
    for (int threads : {1, 2, 3, 5}) {
        omp_set_num_threads(threads);
        size_t k = 0;
        for (const std::vector<uint8_t>& map : maps)
            for (const kvDSR_ImageDesc& image : images)
                for (bool sbs : {false, true}) {
                    std::vector<uint8_t> m = map, out(6 * size_t(w) * h, 0x3D);
                    auto depth = desc(kvDSR_FMT_DEPTH8, m.data());
                    const uint32_t rc = sbs ? kvDSR_Run_SideBySide(out.data(), 2 * w, 0, &image, w, h, &depth, dw, dh)
                                            : kvDSR_Run(out.data(), &image, w, h, &depth, dw, dh);
                    ASSERT_EQ(rc, kvDSR_OK);
                    out.insert(out.end(), m.begin(), m.end());
                    if (threads == 1)
                        first.push_back(out);
                    else
                        ASSERT_EQ(out, first[k]) << "threads " << threads << " case " << k;
                    ++k;
                }
    }
    omp_set_num_threads(saved);
    kvDSR_Close();
}

}  // namespace
