#include <gtest/gtest.h>


#include <algorithm>
#include <random>
#include <vector>

#include "binocular/row_synthesis.h"
#include "binocular/view_tables.h"
#include "common/virtual_camera.h"
#include "reference_row_synthesis.h"

using namespace kvdsr::binocular;

namespace {

// One frame of W x H with hand-made tables; every pixel of a row uses level 1
// unless the test changes the level map.
struct Scene {
    int w, h;
    std::vector<uint16_t> levels, landing, source;
    std::vector<uint8_t> a, b, out;

    Scene(int width, int height)
        : w(width), h(height), levels(size_t(width) * height, 1), landing(size_t(kLevels) * width, 0xFFFF),
          source(size_t(kLevels) * width, 0), a(frameBytes()), b(frameBytes()), out(frameBytes(), 0xEE) {
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                a[y * w + x] = uint8_t(100 + x);
                b[y * w + x] = uint8_t(10 + x);
            }
        for (int cy = 0; cy < h / 2; ++cy)
            for (int x = 0; x + 1 < w; x += 2) {
                chromaA(cy, x)[0] = uint8_t(100 + x / 2);
                chromaA(cy, x)[1] = uint8_t(150 + x / 2);
                chromaB(cy, x)[0] = uint8_t(10 + x / 2);
                chromaB(cy, x)[1] = uint8_t(60 + x / 2);
            }
    }
    size_t frameBytes() const { return size_t(w) * h + size_t(w) * (h / 2); }
    uint8_t* chromaA(int cy, int x) { return &a[size_t(w) * (h + cy) + x]; }
    uint8_t* chromaB(int cy, int x) { return &b[size_t(w) * (h + cy) + x]; }
    const uint8_t* chromaOut(int cy, int x) const { return &out[size_t(w) * (h + cy) + x]; }
    void land(int level, int x, int t, int u) {
        landing[size_t(level) * w + x] = uint16_t(t);
        source[size_t(level) * w + x] = uint16_t(u);
    }
    SynthesisFrame frame(int p = 6, int q = 7) {
        return {landing.data(), source.data(), a.data(), b.data(), out.data(), w, h, p, q};
    }
    void run(int p = 6, int q = 7) { synthesizeView(frame(p, q), levels.data()); }
    std::vector<int> lumaRow(int y) const { return {out.begin() + y * w, out.begin() + (y + 1) * w}; }
    int A(int x) const { return a[x]; }
    int B(int x) const { return b[x]; }
};

TEST(RowSynthesis, LandingHiddenInterpolatedAndBorderColumns) {
    Scene s(64, 2);
    for (int x = 20; x < 64; ++x) {
        int t = x <= 39 ? x : x + 3;
        if (x == 50) t = 45;  // hidden behind what has landed
        s.land(1, x, t, x);
    }
    s.run();

    std::vector<int> want(64);
    // Columns 1..19: the first gap (0 -> 20) is wider than p, so it is taken
    // from B and becomes a hole region; its right border is cross-faded.
    for (int c = 0; c <= 18; ++c) want[c] = s.B(c);
    want[19] = (s.A(20) + s.B(18)) >> 1;
    want[20] = (s.B(19) + s.A(21)) >> 1;
    for (int x = 21; x <= 39; ++x) want[x] = s.A(x);
    // Gap of 4 (39 -> 43) is interpolated, column 42 already equals column 43.
    want[40] = s.A(39) + 1 * (s.A(40) - s.A(39)) / 3;
    want[41] = s.A(39) + 2 * (s.A(40) - s.A(39)) / 3;
    want[42] = s.A(40);
    for (int x = 40; x <= 49; ++x) want[x + 3] = s.A(x);
    // x = 51 lands on 54 after 52: a gap of 2 repeats the landing value.
    want[53] = s.A(51);
    for (int x = 51; x <= 60; ++x) want[x + 3] = s.A(x);

    for (int y = 0; y < 2; ++y) EXPECT_EQ(s.lumaRow(y), want) << "row " << y;
    // The hidden pixel's value appears nowhere.
    for (int v : s.lumaRow(1)) EXPECT_NE(v, s.A(50));

    // Chroma rides with the second row: B's pairs in the hole region, A's
    // pairs where pixels landed.
    for (int c = 0; c <= 18; c += 2) {
        EXPECT_EQ(s.chromaOut(0, c)[0], s.chromaB(0, c)[0]) << c;
        EXPECT_EQ(s.chromaOut(0, c)[1], s.chromaB(0, c)[1]) << c;
    }
    EXPECT_EQ(s.chromaOut(0, 30)[0], s.chromaA(0, 30)[0]);
    EXPECT_EQ(s.chromaOut(0, 30)[1], s.chromaA(0, 30)[1]);
    EXPECT_EQ(s.chromaOut(0, 44)[0], s.chromaA(0, 42)[0]);  // x = 41, 42 land on 44, 45
    EXPECT_EQ(s.chromaOut(0, 62)[1], s.chromaA(0, 60)[1]);
}

TEST(RowSynthesis, WideGapTakenFromBAndCrossFaded) {
    Scene s(64, 2);
    for (int x = 20; x < 64; ++x) s.land(1, x, x <= 29 ? x : std::min(x + 10, 63 + 40), x <= 29 ? x : x - 5);
    s.run();
    const std::vector<int> row = s.lumaRow(0);
    // Gap 29 -> 40 (11 > p): B columns interpolated between 29 and 25.
    auto srcAt = [](int k) { return ((11 - k) * 29 + k * 25) / 11; };
    for (int c = 31; c <= 38; ++c) EXPECT_EQ(row[c], s.B(srcAt(c - 29))) << c;
    const int in29 = (s.A(28) + s.B(srcAt(1))) >> 1;
    EXPECT_EQ(row[29], in29);
    EXPECT_EQ(row[30], (in29 + s.B(srcAt(2))) >> 1);
    EXPECT_EQ(row[39], (s.A(30) + s.B(srcAt(9))) >> 1);  // column 40 holds A(30) before its fade
    EXPECT_EQ(row[40], (s.B(srcAt(10)) + s.A(31)) >> 1);
    EXPECT_EQ(row[41], s.A(31));
}

TEST(RowSynthesis, OffImagePixelsRepeatTheLastLanding) {
    Scene s(64, 2);
    for (int x = 20; x < 64; ++x) s.land(1, x, x <= 29 ? x : 64 + x, x);
    s.run();
    const std::vector<int> row = s.lumaRow(1);
    for (int c = 29; c < 64; ++c) ASSERT_EQ(row[c], s.A(29)) << c;
    for (int c = 30; c + 1 < 64; c += 2) {
        EXPECT_EQ(s.chromaOut(0, c)[0], s.chromaA(0, 28)[0]) << c;
        EXPECT_EQ(s.chromaOut(0, c)[1], s.chromaA(0, 28)[1]) << c;
    }
}

TEST(RowSynthesis, SmallGapFromBWhenBandIsNarrow) {
    Scene s(64, 2);
    for (int x = 20; x < 64; ++x) s.land(1, x, x <= 39 ? x : x + 1, x <= 39 ? x : x + 4);
    s.run(1);
    // Gap 39 -> 41: with p < 2 the hole column reads B at floor((44 + 39) / 2).
    EXPECT_EQ(s.lumaRow(0)[40], s.B(41));
    s.run(6);
    EXPECT_EQ(s.lumaRow(0)[40], s.A(40));
}

TEST(RowSynthesis, LevelsBeyondTheTableAndWildSourceColumnsAreBounded) {
    Scene clamped(48, 4), wild(48, 4);
    for (Scene* s : {&clamped, &wild})
        for (int x = 20; x < 48; ++x) s->land(1022, x, x + (x > 30 ? 8 : 0), 40000 + x);
    std::fill(clamped.levels.begin(), clamped.levels.end(), 1022);
    for (size_t i = 0; i < wild.levels.size(); ++i) wild.levels[i] = uint16_t(1023 + i * 97);
    clamped.run();
    wild.run();
    EXPECT_EQ(clamped.out, wild.out);
    // Source columns past the row read its last column.
    EXPECT_EQ(clamped.lumaRow(0)[35], clamped.B(47));
}

// Out-of-range reads or writes show up under the sanitizers; the canary
// past the frame catches writes in every build.
TEST(RowSynthesis, NarrowAndOddSizesStayInside) {
    for (int w : {1, 2, 5, 20, 21, 33}) {
        Scene s(w, 5);
        s.out.resize(s.out.size() + 16, 0xC3);
        for (int x = 0; x < w; ++x) s.land(1, x, std::min(x + 2, w - 1), w + 3);
        s.run(0, 1);
        s.run(6, 2);
        s.run(1, 3);
        for (size_t i = s.frameBytes(); i < s.out.size(); ++i) ASSERT_EQ(s.out[i], 0xC3) << w;
    }
}

// With tables built from a camera, no pixel of A reaches columns 0..19.
TEST(RowSynthesis, FirstTwentyColumnsNeverTakeAPixelOfTheFirstImage) {
    const int w = 96, h = 12;
    const CameraModel cam{4000, 4.0f, 0.0014f};
    std::mt19937 rng(7);
    for (double shift : {0.0, 0.3, 1.5}) {
        double m1[16], m2[16], inv1[kLevels], inv2[kLevels];
        const double fov = kvdsr::fieldOfViewDegrees(cam.calibratedWidth, cam.pixelPitch, cam.focalLength);
        kvdsr::buildViewMatrix(m1, fov, shift);
        kvdsr::buildViewMatrix(m2, fov, 0.9);
        inverseDepthTable(inv1, m1);
        inverseDepthTable(inv2, m2);
        std::vector<double> col1(w), col2(w);
        columnFactors(col1.data(), w, w / 4, cam, m1);
        columnFactors(col2.data(), w, w / 4, cam, m2);
        Scene s(w, h);
        fillViewTable(s.landing.data(), w, m1, inv1, col1.data());
        fillViewTable(s.source.data(), w, m2, inv2, col2.data());
        std::uniform_int_distribution<int> level(0, 1200);
        for (auto& v : s.levels) v = uint16_t(level(rng));
        std::fill(s.a.begin(), s.a.begin() + w * h, 250);
        std::fill(s.b.begin(), s.b.begin() + w * h, 10);
        s.run(2, 3);
        int fromA = 0;
        for (int y = 0; y < h; ++y) {
            const std::vector<int> row = s.lumaRow(y);
            for (int c = 0; c < 20; ++c) ASSERT_NE(row[c], 250) << shift << " " << y << " " << c;
            fromA += int(std::count(row.begin() + 20, row.end(), 250));
        }
        EXPECT_GT(fromA, w * h / 4) << shift;
    }
}

// The row loop against the plain reference on random tables and levels:
// landings in and out of the row, repeated, hidden, runs of every length,
// gaps either side of p, odd widths (chroma pair clamping), every band.
TEST(RowSynthesis, RandomTablesMatchTheReference) {
    for (int round = 0; round < 60; ++round) {
        std::mt19937 rng(round);
        const int w = 1 + int(rng() % 140), h = 1 + int(rng() % 7);
        Scene s(w, h), ref(w, h);
        for (int level = 0; level < 12; ++level) {
            const int shift = int(rng() % 7) - 1, sourceShift = int(rng() % 9) - 4;
            for (int x = 0; x < w; ++x) {
                const uint32_t r = rng() % 24;
                int t = x + shift + (r == 0 ? int(rng() % 5) - 2 : 0);
                if (r == 1) t = int(rng() % (w + 4));
                if (r == 2) t = w + int(rng() % 3);
                if (r == 3) t = 0xFFFF;
                int u = x + sourceShift;
                if (r == 4) u = int(rng() % 70000);
                s.land(level, x, std::clamp(t, 0, 0xFFFF), std::clamp(u, 0, 0xFFFF));
            }
        }
        ref.landing = s.landing;
        ref.source = s.source;
        for (auto& v : s.levels) v = uint16_t(rng() % 4 == 0 ? rng() % 12 : (rng() % 2 ? 3 : 5));
        for (size_t i = 0; i + 1 < s.levels.size(); i += 1 + rng() % 9) s.levels[i + 1] = s.levels[i];
        if (round % 5 == 0) s.levels[0] = 1100;  // beyond the table: clamped
        ref.levels = s.levels;
        for (size_t i = 0; i < s.a.size(); ++i) {
            s.a[i] = ref.a[i] = uint8_t(rng());
            s.b[i] = ref.b[i] = uint8_t(rng());
        }
        const int p = int(rng() % 9), q = 1 + int(rng() % 9);
        std::fill(s.out.begin(), s.out.end(), uint8_t(0xA5));
        std::fill(ref.out.begin(), ref.out.end(), uint8_t(0xA5));
        s.out.resize(s.out.size() + 8, 0xC3);  // canary past the frame
        ref.out.resize(ref.out.size() + 8, 0xC3);
        s.run(p, q);
        synthesizeViewReference(ref.frame(p, q), ref.levels.data());
        ASSERT_EQ(s.out, ref.out) << "round " << round << " w " << w << " h " << h << " p " << p << " q " << q;
    }
}

}  // namespace
