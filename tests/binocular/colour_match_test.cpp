#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "binocular/colour_match.h"
#include "binocular/match_kernels.h"
#include "binocular/view_tables.h"

using namespace kvdsr::binocular;

namespace {

struct BandCase {
    int height, step, p, q;
};
class Bands : public ::testing::TestWithParam<BandCase> {};

TEST_P(Bands, StepAndBandParameters) {
    const BandCase c = GetParam();
    const BandParams b = bandParams(c.height);
    EXPECT_EQ(b.step, c.step);
    EXPECT_EQ(b.p, c.p);
    EXPECT_EQ(b.q, c.q);
}

// 720 is fixed; 1080 and 1440 give r = 1.5 and 2; tiny heights keep a
// usable step and window.
INSTANTIATE_TEST_SUITE_P(Heights, Bands,
                         ::testing::Values(BandCase{720, 30, 6, 7}, BandCase{1080, 45, 9, 11},
                                           BandCase{1440, 60, 12, 14}, BandCase{8, 1, 0, 1},
                                           BandCase{1, 1, 0, 1}));

TEST(Bands, SmallHeightsNeverGiveAZeroStep) {
    for (int h = 1; h < 800; ++h) {
        const BandParams b = bandParams(h);
        ASSERT_GE(b.step, 1) << h;
        ASSERT_GE(b.q, 1) << h;
        ASSERT_LE(b.p, b.q) << h;
    }
}

// The levels of the offset column, row by row, out of a whole level map.
std::vector<uint16_t> offsetColumnOf(const std::vector<uint16_t>& levels, int w, int h) {
    std::vector<uint16_t> column(h);
    for (int y = 0; y < h; ++y) column[y] = levels[size_t(y) * w + offsetColumn(w)];
    return column;
}

// Second image whose left columns are garbage: the statistics only come out
// right when B is sampled at x + offset.
struct MatchScene {
    static constexpr int W = 64, H = 720, kOffset = 27;
    std::vector<uint8_t> a, b;
    std::vector<uint16_t> levels, source;

    MatchScene() : a(W * H * 3 / 2), b(W * H * 3 / 2), levels(W * H, 0), source(size_t(kLevels) * W, 0) {
        source[20] = kOffset;  // level 0, column 20
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                const bool odd = (y / 30) & 1;  // grid rows alternate
                a[y * W + x] = odd ? 120 : 80;  // mean 100, deviation 20
                b[y * W + x] = x < 26 ? 255 : (odd ? 70 : 50);  // mean 60, deviation 10
            }
        for (int cy = 0; cy < H / 2; ++cy)
            for (int x = 0; x < W; x += 2) {
                const bool odd = (cy / 15) & 1;
                uint8_t* ca = &a[W * (H + cy) + x];
                uint8_t* cb = &b[W * (H + cy) + x];
                ca[0] = odd ? 130 : 110;  // mean 120, deviation 10
                ca[1] = 90;               // flat
                cb[0] = x < 26 ? 0 : (odd ? 180 : 140);  // mean 160, deviation 20
                cb[1] = x < 26 ? 0 : (odd ? 100 : 60);   // mean 80, deviation 20
            }
    }
};

TEST(ColourMatch, OffsetStatisticsAndTables) {
    MatchScene s;
    const int o = matchOffset(offsetColumnOf(s.levels, s.W, s.H).data(), s.source.data(), s.W, s.H);
    ASSERT_EQ(o, MatchScene::kOffset);
    const ChannelStats st = matchStatistics(s.a.data(), s.b.data(), s.W, s.H, 30, o);
    const double meanA[3] = {100, 120, 90}, meanB[3] = {60, 160, 80};
    const double devA[3] = {20, 10, 0}, devB[3] = {10, 20, 20};
    for (int c = 0; c < 3; ++c) {
        EXPECT_DOUBLE_EQ(st.meanA[c], meanA[c]) << c;
        EXPECT_DOUBLE_EQ(st.meanB[c], meanB[c]) << c;
        EXPECT_DOUBLE_EQ(st.devA[c], devA[c]) << c;
        EXPECT_DOUBLE_EQ(st.devB[c], devB[c]) << c;
    }
    uint8_t t[3][256];
    buildMatchTables(t, st);
    // Luma: 100 + 2 (v - 60), clamped.
    EXPECT_EQ(t[0][60], 100);
    EXPECT_EQ(t[0][50], 80);
    EXPECT_EQ(t[0][61], 102);
    EXPECT_EQ(t[0][20], 20);
    EXPECT_EQ(t[0][0], 0);
    EXPECT_EQ(t[0][255], 255);
    EXPECT_EQ(t[0][200], 255);
    // First chroma byte: 120 + (v - 160) / 2, truncated.
    EXPECT_EQ(t[1][160], 120);
    EXPECT_EQ(t[1][161], 120);
    EXPECT_EQ(t[1][163], 121);
    EXPECT_EQ(t[1][0], 40);
    // Second chroma byte: A is flat, everything maps to its mean.
    for (int v = 0; v < 256; ++v) ASSERT_EQ(t[2][v], 90) << v;

    applyMatchTables(s.b.data(), s.W, s.H, t);
    EXPECT_EQ(s.b[0], 255);              // 255 -> 255
    EXPECT_EQ(s.b[40], 80);              // 50 -> 80
    EXPECT_EQ(s.b[30 * s.W + 40], 120);  // 70 -> 120
    const size_t chroma = size_t(s.W) * s.H;
    EXPECT_EQ(s.b[chroma + 40], 110);               // 140 -> 110
    EXPECT_EQ(s.b[chroma + 41], 90);                // 60 -> 90
    EXPECT_EQ(s.b[chroma + 15 * s.W + 40], 130);    // 180 -> 130
    EXPECT_EQ(s.b[chroma + 15 * s.W + 0], 40);      // 0 -> 40
    EXPECT_EQ(s.b[chroma + (s.H / 2 - 1) * s.W + 63], 90);
}

TEST(ColourMatch, OffsetClampsLevelsAndStaysInsideTheRow) {
    const int w = 40, h = 6;
    std::vector<uint16_t> levels(w * h, 3), source(size_t(kLevels) * w, 0);
    for (int y = 0; y < h; y += 2) levels[y * w + 20] = 4000;  // beyond the last table row
    source[3 * w + 20] = 10;
    source[1022 * w + 20] = 30;
    EXPECT_EQ(matchOffset(offsetColumnOf(levels, w, h).data(), source.data(), w, h), 20);
    source[1022 * w + 20] = 60000;
    EXPECT_EQ(matchOffset(offsetColumnOf(levels, w, h).data(), source.data(), w, h), w - 1);
    // Narrow rows read their last column instead of column 20.
    std::vector<uint16_t> narrowLevels(8 * h, 0), narrowSource(size_t(kLevels) * 8, 0);
    narrowSource[7] = 5;
    EXPECT_EQ(matchOffset(offsetColumnOf(narrowLevels, 8, h).data(), narrowSource.data(), 8, h), 5);
}

TEST(ColourMatch, FlatSecondImageGivesDefinedTables) {
    const int w = 32, h = 4;
    std::vector<uint8_t> a(w * h * 3 / 2), b(w * h * 3 / 2, 77);
    for (size_t i = 0; i < a.size(); ++i) a[i] = uint8_t(i * 37);
    const ChannelStats st = matchStatistics(a.data(), b.data(), w, h, 1, 0);
    EXPECT_EQ(st.devB[0], 0.0);
    uint8_t t[3][256];
    buildMatchTables(t, st);
    EXPECT_EQ(t[0][76], 0);
    EXPECT_EQ(t[0][78], 255);
}

TEST(ColourMatch, OddSizesStayInsideTheImage) {
    // 33 x 7: the last luma row has no chroma row and the last column no pair.
    const int w = 33, h = 7;
    std::vector<uint8_t> a(w * h + w * (h / 2)), b(a.size());
    for (size_t i = 0; i < a.size(); ++i) {
        a[i] = uint8_t(i * 7);
        b[i] = uint8_t(i * 11);
    }
    const ChannelStats st = matchStatistics(a.data(), b.data(), w, h, 1, 3);
    for (int c = 0; c < 3; ++c) EXPECT_TRUE(std::isfinite(st.meanB[c]));
    uint8_t t[3][256];
    buildMatchTables(t, st);
    applyMatchTables(b.data(), w, h, t);
    EXPECT_EQ(chromaPair(32, 33), 30);
    EXPECT_EQ(chromaPair(31, 33), 30);
    EXPECT_EQ(chromaPair(31, 32), 30);
}

TEST(ColourMatch, OneColumnHasNoSecondChromaByte) {
    // Width 1: each chroma row holds one byte, and the second byte of a pair
    // does not exist (nothing ever applies its table). The frame is exactly
    // its bytes, so a read past it faults under AddressSanitizer.
    const int w = 1, h = 16;
    std::vector<uint8_t> a(w * h + w * (h / 2)), b(a.size());
    for (size_t i = 0; i < a.size(); ++i) {
        a[i] = uint8_t(40 + i * 5);
        b[i] = uint8_t(200 - i * 3);
    }
    const ChannelStats st = matchStatistics(a.data(), b.data(), w, h, 1, 0);
    double lumaA = 0, chromaB = 0;
    for (int y = 0; y < h; ++y) lumaA += a[y];
    for (int y = 0; y < h; ++y) chromaB += b[h + y / 2];
    EXPECT_DOUBLE_EQ(st.meanA[0], lumaA / h);
    EXPECT_DOUBLE_EQ(st.meanB[1], chromaB / h);
    uint8_t t[3][256];
    buildMatchTables(t, st);
    const std::vector<uint8_t> before = b;
    applyMatchTables(b.data(), w, h, t);
    for (int i = h; i < int(b.size()); ++i) EXPECT_EQ(b[i], t[1][before[i]]) << i;
}

}  // namespace

// Every table kernel this CPU runs against the plain definition (even bytes
// through one table, odd ones through the other): random tables, one table
// for both (luma) and two (chroma), every length up to three groups and a
// tail, rows starting at every offset in a word, canaries on both sides.
TEST(ColourMatch, TableKernelsMatchThePlainLookup) {
    const MatchVariant* variants;
    const int n = matchVariants(&variants);
    std::mt19937 rng(11);
    uint8_t tables[2][256];
    for (int v = 0; v < n; ++v)
        for (bool twoTables : {false, true})
            for (uint32_t count = 0; count <= 3 * kMatchGroup + kMatchGroup - 1; ++count) {
                for (auto& t : tables)
                    for (auto& e : t) e = uint8_t(rng());
                const uint8_t* even = tables[0];
                const uint8_t* odd = twoTables ? tables[1] : tables[0];
                const uint32_t offset = count % 8, pad = 16;
                std::vector<uint8_t> got(offset + count + 2 * pad);
                for (auto& b : got) b = uint8_t(rng());
                std::vector<uint8_t> want = got;
                for (uint32_t x = 0; x < count; ++x) {
                    uint8_t& b = want[pad + offset + x];
                    b = (x % 2 ? odd : even)[b];
                }
                setMatchKernel(variants[v].fn);
                matchRow(got.data() + pad + offset, count, even, odd);
                setMatchKernel(nullptr);
                ASSERT_EQ(got, want) << variants[v].name << " count " << count << (twoTables ? " two tables" : "");
            }
}
