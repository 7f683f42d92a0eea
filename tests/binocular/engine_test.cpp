#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

#include "binocular/binocular_engine.h"
#include "binocular/view_tables.h"
#include "depthview/depth_steps.h"
#include "calibpack.h"
#include "kvDSR.h"

namespace {

// The sample module's first body as a plain 512-byte container.
std::vector<uint8_t> calibrationBody() {
    return kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 512);
}

// 4:2:0 semi-planar frame in one buffer.
struct Frame {
    int w, h;
    std::vector<uint8_t> data;
    kvDSR_ImageDesc desc{};
    Frame(int width, int height, uint32_t format = kvDSR_FMT_YUV420SP)
        : w(width), h(height), data(size_t(width) * height * 3 / 2) {
        desc.format = format;
        desc.plane[0] = data.data();
        desc.plane[1] = data.data() + size_t(width) * height;
    }
    uint8_t& y(int x, int row) { return data[size_t(row) * w + x]; }
};

struct DepthMap {
    std::vector<uint8_t> data;
    kvDSR_ImageDesc desc{};
    DepthMap(int w, int h, uint8_t value, uint32_t format = kvDSR_FMT_DEPTH8)
        : data(size_t(w) * h * (format == kvDSR_FMT_DEPTH16 ? 2 : 1), value) {
        desc.format = format;
        desc.plane[0] = data.data();
    }
};

class BinocularEngine : public ::testing::Test {
protected:
    static constexpr int W = 48, H = 36, DW = 16, DH = 12;
    void SetUp() override { kvDSR_Binocular_Close(); }
    void TearDown() override { kvDSR_Binocular_Close(); }
    uint32_t init(int w = W, int h = H, int dw = DW, int dh = DH, uint16_t shift = 100) {
        const std::vector<uint8_t> body = calibrationBody();
        return kvDSR_Binocular_Init(body.data(), 512, nullptr, 0, uint16_t(w), uint16_t(h), uint16_t(dw),
                                    uint16_t(dh), shift);
    }
    static void texture(Frame& f, int seed) {
        for (size_t i = 0; i < f.data.size(); ++i) f.data[i] = uint8_t((i * 37 + seed * 11) % 200 + 20);
    }
};

TEST_F(BinocularEngine, InitChecksSizesThenCalibration) {
    EXPECT_EQ(init(64, 36, 16, 12), kvDSR_ERR_SIZE_COMBINATION);  // 16:9 image, 4:3 map
    const std::vector<uint8_t> body = calibrationBody();
    EXPECT_EQ(kvDSR_Binocular_Init(body.data(), 100, nullptr, 0, W, H, DW, DH, 100), kvDSR_ERR_CALIB_LENGTH);
    EXPECT_FALSE(kvdsr::binocular::initialised());
    EXPECT_EQ(init(), kvDSR_OK);
    EXPECT_TRUE(kvdsr::binocular::initialised());
    EXPECT_TRUE(kvdsr::binocular::sizesMatch(W, H, DW, DH));
    // A failing second Init keeps the first configuration.
    EXPECT_EQ(init(64, 36, 16, 12), kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_TRUE(kvdsr::binocular::sizesMatch(W, H, DW, DH));
    EXPECT_EQ(kvDSR_Binocular_Close(), kvDSR_OK);
    EXPECT_FALSE(kvdsr::binocular::initialised());
    EXPECT_EQ(kvDSR_Binocular_Close(), kvDSR_OK);
}

TEST_F(BinocularEngine, OutOfMemoryLeavesThePreviousConfiguration) {
    ASSERT_EQ(init(), kvDSR_OK);
    EXPECT_EQ(init(65535, 65534, 65535, 65534), kvDSR_ERR_OUT_OF_MEMORY);
    EXPECT_TRUE(kvdsr::binocular::initialised());
    EXPECT_TRUE(kvdsr::binocular::sizesMatch(W, H, DW, DH));
    Frame a(W, H), b(W, H);
    std::vector<uint8_t> out(W * H * 3 / 2);
    DepthMap d(DW, DH, 100);
    EXPECT_EQ(kvDSR_Binocular_Run(out.data(), &a.desc, &b.desc, W, H, &d.desc, DW, DH), kvDSR_OK);
}

TEST_F(BinocularEngine, RunBeforeInitAndWithAWrongDepthFormatWritesNothing) {
    Frame a(W, H), b(W, H);
    texture(a, 1);
    texture(b, 2);
    DepthMap d(DW, DH, 255);
    std::vector<uint8_t> out(W * H * 3 / 2, 0x5A);
    EXPECT_EQ(kvDSR_Binocular_Run(out.data(), &a.desc, &b.desc, W, H, &d.desc, DW, DH), kvDSR_ERR_NOT_INITIALISED);
    ASSERT_EQ(init(), kvDSR_OK);
    const std::vector<uint8_t> bBefore = b.data, dBefore = d.data;
    d.desc.format = kvDSR_FMT_YUV444P;
    EXPECT_EQ(kvDSR_Binocular_Run(out.data(), &a.desc, &b.desc, W, H, &d.desc, DW, DH), kvDSR_ERR_DEPTH_FORMAT);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint8_t v) { return v == 0x5A; }));
    EXPECT_EQ(b.data, bBefore);
    EXPECT_EQ(d.data, dBefore);
}

TEST_F(BinocularEngine, ImageChecksComeAfterTheDepthPass) {
    ASSERT_EQ(init(), kvDSR_OK);
    Frame a(W, H), b(W, H), wrong(W, H, kvDSR_FMT_YUV444P);
    texture(a, 1);
    texture(b, 2);
    std::vector<uint8_t> out(W * H * 3 / 2, 0x5A);
    DepthMap near(DW, DH, 200), far(DW, DH, 10);
    ASSERT_EQ(kvDSR_Binocular_Run(out.data(), &a.desc, &b.desc, W, H, &near.desc, DW, DH), kvDSR_OK);
    const std::vector<uint16_t> nearLevels(kvdsr::binocular::depthLevels(), kvdsr::binocular::depthLevels() + DW * DH);

    std::fill(out.begin(), out.end(), 0x5A);
    far.data[5] = 255;  // invalid, repaired in place by the depth pass
    const std::vector<uint8_t> bBefore = b.data;
    EXPECT_EQ(kvDSR_Binocular_Run(out.data(), &a.desc, &wrong.desc, W, H, &far.desc, DW, DH),
              kvDSR_ERR_IMAGE_FORMAT);
    EXPECT_NE(far.data[5], 255);
    const std::vector<uint16_t> farLevels(kvdsr::binocular::depthLevels(), kvdsr::binocular::depthLevels() + DW * DH);
    EXPECT_NE(farLevels, nearLevels);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint8_t v) { return v == 0x5A; }));

    // Plane checks: all four null, or only right's first plane null.
    Frame empty(W, H);
    empty.desc.plane[0] = empty.desc.plane[1] = nullptr;
    kvDSR_ImageDesc noLeft = a.desc;
    noLeft.plane[0] = noLeft.plane[1] = nullptr;
    EXPECT_EQ(kvDSR_Binocular_Run(out.data(), &noLeft, &empty.desc, W, H, &far.desc, DW, DH),
              kvDSR_ERR_NULL_POINTER);
    kvDSR_ImageDesc rightWithoutY = b.desc;
    rightWithoutY.plane[0] = nullptr;
    EXPECT_EQ(kvDSR_Binocular_Run(out.data(), &a.desc, &rightWithoutY, W, H, &far.desc, DW, DH),
              kvDSR_ERR_NULL_POINTER);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](uint8_t v) { return v == 0x5A; }));
    EXPECT_EQ(b.data, bBefore);
}

// One frame through the whole chain: the pixels of the first image land where
// the landing table sends them and the second image is matched to the first.
class EndToEnd : public ::testing::TestWithParam<uint32_t> {};

TEST_P(EndToEnd, LandsFirstImageAndMatchesSecond) {
    const int w = 240, h = 180, dw = 80, dh = 60;
    const std::vector<uint8_t> body = calibrationBody();
    ASSERT_EQ(kvDSR_Binocular_Init(body.data(), 512, nullptr, 0, w, h, dw, dh, 150), kvDSR_OK);
    Frame a(w, h), b(w, h);
    for (int row = 0; row < h; ++row)
        for (int x = 0; x < w; ++x) {
            a.y(x, row) = uint8_t(10 + x);  // unique per column
            b.y(x, row) = uint8_t(std::min(255, 40 + (x + 6) / 2));
        }
    for (size_t i = size_t(w) * h; i < a.data.size(); ++i) {
        a.data[i] = uint8_t(100 + i % 40);
        b.data[i] = uint8_t(60 + i % 20);
    }
    const uint32_t format = GetParam();
    DepthMap d(dw, dh, format == kvDSR_FMT_DEPTH8 ? 60 : 0, format);
    if (format == kvDSR_FMT_DEPTH16) {
        auto* v = reinterpret_cast<uint16_t*>(d.data.data());
        std::fill(v, v + dw * dh, uint16_t(20 * 8));
        v[7] = 1023;
    }
    std::vector<uint8_t> out(w * h * 3 / 2, 0);
    ASSERT_EQ(kvDSR_Binocular_Run(out.data(), &a.desc, &b.desc, w, h, &d.desc, dw, dh), kvDSR_OK);

    std::vector<uint16_t> levelMap(size_t(w) * h);
    kvdsr::depthview::resizeDepth(levelMap.data(), kvdsr::binocular::depthLevels(), dw, dh, w, h);
    const uint16_t* levels = levelMap.data();
    const uint16_t* landing = kvdsr::binocular::landingTable();
    int landed = 0, kept = 0;
    for (int row = 0; row < h; ++row) {
        int prev = 0;
        for (int x = 20; x < w; ++x) {
            const int level = std::min<int>(levels[row * w + x], kvdsr::binocular::kMaxLevel);
            const int t = landing[level * w + x];
            if (t >= w || t <= prev) continue;
            prev = t;
            ++landed;
            kept += out[row * w + t] == a.y(x, row);
        }
    }
    EXPECT_GT(landed, w * h / 2);
    EXPECT_GT(kept, landed * 8 / 10);
    // The first image's pixels shifted right: column 20 of the input is not
    // where it was.
    EXPECT_NE(landing[levels[0] * w + 20], 20);

}

INSTANTIATE_TEST_SUITE_P(DepthKinds, EndToEnd, ::testing::Values(kvDSR_FMT_DEPTH8, kvDSR_FMT_DEPTH16));

// Rows of uniform content, the second image an affine copy of the first:
// whatever the offset, matching brings the second image onto the first.
TEST_F(BinocularEngine, SecondImageIsMatchedInPlace) {
    ASSERT_EQ(init(), kvDSR_OK);
    Frame a(W, H), b(W, H);
    for (int row = 0; row < H; ++row)
        for (int x = 0; x < W; ++x) {
            a.y(x, row) = uint8_t(60 + 4 * (row % 25));
            b.y(x, row) = uint8_t(a.y(x, row) / 2 + 30);
        }
    for (int cy = 0; cy < H / 2; ++cy)
        for (int x = 0; x < W; x += 2) {
            uint8_t* ca = &a.data[size_t(W) * (H + cy) + x];
            uint8_t* cb = &b.data[size_t(W) * (H + cy) + x];
            ca[0] = uint8_t(100 + 2 * (cy % 9));
            ca[1] = uint8_t(140 - 4 * (cy % 5));
            cb[0] = uint8_t(ca[0] / 2 + 10);
            cb[1] = uint8_t(ca[1] / 4 + 20);
        }
    DepthMap d(DW, DH, 100);
    std::vector<uint8_t> out(W * H * 3 / 2);
    ASSERT_EQ(kvDSR_Binocular_Run(out.data(), &a.desc, &b.desc, W, H, &d.desc, DW, DH), kvDSR_OK);
    for (size_t i = 0; i < a.data.size(); ++i) ASSERT_NEAR(b.data[i], a.data[i], 1) << i;
}

// A 16-bit map at an odd address is read and repaired like an aligned one
// (misaligned 16-bit access is undefined: UndefinedBehaviorSanitizer faults).
TEST_F(BinocularEngine, SixteenBitMapAtAnOddAddress) {
    ASSERT_EQ(init(), kvDSR_OK);
    std::vector<uint16_t> m16(DW * DH);
    for (size_t i = 0; i < m16.size(); ++i) m16[i] = uint16_t(40 + (i % DW) * 9 + (i / DW) * 3);
    m16[1 * DW + 1] = 1023;
    std::vector<uint8_t> bytes(2 * m16.size() + 1);
    std::memcpy(bytes.data() + 1, m16.data(), 2 * m16.size());
    DepthMap aligned(DW, DH, 0, kvDSR_FMT_DEPTH16), odd(DW, DH, 0, kvDSR_FMT_DEPTH16);
    aligned.desc.plane[0] = reinterpret_cast<uint8_t*>(m16.data());
    odd.desc.plane[0] = bytes.data() + 1;
    std::vector<uint8_t> outs[2];
    for (int k = 0; k < 2; ++k) {
        Frame a(W, H), b(W, H);
        texture(a, 1);
        texture(b, 2);
        outs[k].assign(W * H * 3 / 2, 0x5A);
        ASSERT_EQ(kvDSR_Binocular_Run(outs[k].data(), &a.desc, &b.desc, W, H, k ? &odd.desc : &aligned.desc, DW, DH),
                  kvDSR_OK);
    }
    EXPECT_EQ(outs[0], outs[1]);
    EXPECT_NE(m16[1 * DW + 1], 1023);
    EXPECT_EQ(std::memcmp(bytes.data() + 1, m16.data(), 2 * m16.size()), 0);  // repaired in place too
}

// A frame big enough for the team: the same bytes (output, matched second
// image, repaired map) on any number of threads.
TEST_F(BinocularEngine, ThreadCountsGiveTheSameBytes) {
    const int w = 321, h = 181, dw = 107, dh = 61;
    const int saved = omp_get_max_threads();
    ASSERT_EQ(init(w, h, dw, dh, 300), kvDSR_OK);
    std::vector<uint8_t> first;
    for (int threads : {1, 2, 3, 5}) {
        omp_set_num_threads(threads);
        Frame a(w, h), b(w, h);
        texture(a, 3);
        texture(b, 4);
        DepthMap d(dw, dh, 0);
        for (size_t i = 0; i < d.data.size(); ++i) d.data[i] = uint8_t(i % 97 == 0 ? 255 : 30 + (i / dw) % 60 + (i % dw > 50) * 90);
        std::vector<uint8_t> out(size_t(w) * h * 3 / 2, 0x3D);
        ASSERT_EQ(kvDSR_Binocular_Run(out.data(), &a.desc, &b.desc, w, h, &d.desc, dw, dh), kvDSR_OK);
        out.insert(out.end(), b.data.begin(), b.data.end());
        out.insert(out.end(), d.data.begin(), d.data.end());
        if (threads == 1)
            first = out;
        else
            ASSERT_EQ(out, first) << "threads " << threads;
    }
    omp_set_num_threads(saved);
}

}  // namespace
