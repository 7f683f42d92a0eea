// Warp kernels: every SIMD variant this CPU runs against the reference,
// bit-exactly, and the reference against a plain bilinear interpolation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "remap/remap.h"
#include "remap/warp_kernels.h"

namespace {

using namespace kvdsr::remap;

constexpr uint8_t kCanary = 0xA5;
constexpr uint32_t kSrcWidth = 97, kSrcHeight = 23;
constexpr uint32_t kPad = 11;  // canary columns left and right of each row

struct Plane {
    std::vector<uint8_t> src;  // exactly kSrcWidth * kSrcHeight: over-reads fault under ASan
    std::vector<uint32_t> offset;
    std::vector<uint16_t> columnWeight, rowWeight;
    uint32_t stride = 0, rows = 0;
};

// Random offsets of valid top-left neighbours, with the four extreme ones
// (plane corners) and the border value (offset 0, weights 0) mixed in.
Plane randomPlane(std::mt19937& rng, uint32_t width, uint32_t rows, bool wildWeights) {
    Plane p;
    p.stride = width + 2 * kPad;
    p.rows = rows;
    p.src.resize(kSrcWidth * kSrcHeight);
    for (auto& b : p.src) b = uint8_t(rng());
    const size_t n = size_t(p.stride) * rows;
    p.offset.assign(n, 0);
    p.columnWeight.assign(n, 0);
    p.rowWeight.assign(n, 0);
    const uint32_t lastValid = (kSrcHeight - 2) * kSrcWidth + kSrcWidth - 2;
    const uint32_t edges[] = {0, kSrcWidth - 2, (kSrcHeight - 2) * kSrcWidth, lastValid};
    for (size_t i = 0; i < n; ++i) {
        const uint32_t kind = rng() % 8;
        if (kind < 4) {
            p.offset[i] = edges[kind];
        } else {
            p.offset[i] = (rng() % (kSrcHeight - 1)) * kSrcWidth + rng() % (kSrcWidth - 1);
        }
        const uint16_t special[] = {0, 1, 1024, 1023};
        auto weight = [&]() -> uint16_t {
            if (wildWeights) return uint16_t(rng());
            return rng() % 3 == 0 ? special[rng() % 4] : uint16_t(rng() % 1025);
        };
        p.columnWeight[i] = weight();
        p.rowWeight[i] = weight();
        if (kind == 0 && rng() % 2) p.columnWeight[i] = p.rowWeight[i] = 0;  // border value
    }
    return p;
}

std::vector<uint8_t> warpWith(WarpGroupsFn kernel, const Plane& p, const uint16_t rect[4]) {
    std::vector<uint8_t> dst(size_t(p.stride) * p.rows, kCanary);
    setWarpKernel(kernel);
    Remap_ApplyPlane(dst.data(), p.src.data(), p.offset.data(), p.columnWeight.data(), p.rowWeight.data(),
                     kSrcWidth, p.stride, rect);
    setWarpKernel(nullptr);
    return dst;
}

void expectCanaryOutside(const std::vector<uint8_t>& dst, const Plane& p, const uint16_t rect[4]) {
    for (uint32_t y = 0; y < p.rows; ++y)
        for (uint32_t x = 0; x < p.stride; ++x) {
            const bool inside = x >= rect[0] && x <= rect[2] && y >= rect[1] && y <= rect[3];
            if (!inside) ASSERT_EQ(dst[size_t(y) * p.stride + x], kCanary) << "x " << x << " y " << y;
        }
}

class WarpVariants : public ::testing::TestWithParam<int> {};

TEST_P(WarpVariants, MatchReferenceForEveryTailAndWidth) {
    const WarpVariant* variants;
    const int count = warpVariants(&variants);
    const int index = GetParam();
    if (index >= count) GTEST_SKIP() << "variant not supported here";
    const WarpVariant v = variants[index];
    std::mt19937 rng(1234 + index);
    for (bool wild : {false, true}) {
        for (uint32_t groups : {0u, 1u, 2u, 5u, 11u, 17u, 40u}) {
            for (uint32_t tail = 0; tail < 8; ++tail) {
                const uint32_t width = groups * 8 + tail;
                if (width == 0) continue;
                const Plane p = randomPlane(rng, width, 5, wild);
                const uint16_t rect[4] = {uint16_t(kPad), 1, uint16_t(kPad + width - 1), 3};
                const auto expected = warpWith(WarpGroups_C, p, rect);
                const auto actual = warpWith(v.fn, p, rect);
                ASSERT_EQ(actual, expected) << v.name << " width " << width << " wild " << wild;
                expectCanaryOutside(actual, p, rect);
            }
        }
    }
}

// Row 0's entries [kPad, kPad + count) of p in vectors of exactly count: the
// kernels look ahead in the table to prefetch, and an over-read faults under ASan.
struct ExactEntries {
    std::vector<uint32_t> offset;
    std::vector<uint16_t> columnWeight, rowWeight;
};

ExactEntries exactEntries(const Plane& p, uint32_t count) {
    return {{p.offset.begin() + kPad, p.offset.begin() + kPad + count},
            {p.columnWeight.begin() + kPad, p.columnWeight.begin() + kPad + count},
            {p.rowWeight.begin() + kPad, p.rowWeight.begin() + kPad + count}};
}

// Runs shorter and longer than the prefetch distance.
constexpr uint32_t kKernelRuns[] = {3, kTapPrefetchGroups, kTapPrefetchGroups + 1, 40};

TEST_P(WarpVariants, KernelAloneReadsAndWritesOnlyItsGroups) {
    const WarpVariant* variants;
    const int count = warpVariants(&variants);
    if (GetParam() >= count) GTEST_SKIP();
    std::mt19937 rng(99);
    for (const uint32_t groups : kKernelRuns) {
        const uint32_t n = 8 * groups;
        const Plane p = randomPlane(rng, n, 1, false);
        const ExactEntries e = exactEntries(p, n);
        std::vector<uint8_t> ref(n + 2 * kPad, kCanary), out(ref);
        WarpRow_C(ref.data() + kPad, p.src.data(), e.offset.data(), e.columnWeight.data(), e.rowWeight.data(),
                  kSrcWidth, n);
        variants[GetParam()].fn(out.data() + kPad, p.src.data(), e.offset.data(), e.columnWeight.data(),
                                e.rowWeight.data(), kSrcWidth, groups);
        EXPECT_EQ(out, ref) << variants[GetParam()].name << " groups " << groups;
    }
}

INSTANTIATE_TEST_SUITE_P(All, WarpVariants, ::testing::Range(1, 6));

TEST(WarpDispatch, ReferenceFirstAndOverrideRestores) {
    const WarpVariant* variants;
    const int count = warpVariants(&variants);
    ASSERT_GE(count, 1);
    EXPECT_EQ(std::string(variants[0].name), "C");
    const WarpGroupsFn automatic = warpKernel();
    EXPECT_EQ(automatic, variants[count - 1].fn);
    setWarpKernel(WarpGroups_C);
    EXPECT_EQ(warpKernel(), WarpGroups_C);
    setWarpKernel(nullptr);
    EXPECT_EQ(warpKernel(), automatic);
#if defined(__aarch64__) || defined(__ARM_NEON)
    EXPECT_EQ(std::string(variants[count - 1].name), "NEON");
#endif
}

// The fixed-point result stays within one level of exact bilinear
// interpolation with the same weights, and full weights pick single taps.
TEST(WarpReference, AgreesWithBilinearInterpolation) {
    std::mt19937 rng(7);
    const Plane p = randomPlane(rng, 40, 4, false);
    const uint16_t rect[4] = {0, 0, uint16_t(p.stride - 1), 3};
    const auto out = warpWith(WarpGroups_C, p, rect);
    for (size_t i = 0; i < out.size(); ++i) {
        const uint32_t o = p.offset[i];
        const double a = p.columnWeight[i] / 1024.0, b = p.rowWeight[i] / 1024.0;
        const double top = a * p.src[o] + (1 - a) * p.src[o + 1];
        const double bottom = a * p.src[o + kSrcWidth] + (1 - a) * p.src[o + kSrcWidth + 1];
        const double exact = b * top + (1 - b) * bottom;
        ASSERT_LE(std::fabs(out[i] - exact), 0.5 + 1e-9) << i;
        if (p.columnWeight[i] == 1024 && p.rowWeight[i] == 1024) ASSERT_EQ(out[i], p.src[o]);
        if (p.columnWeight[i] == 0 && p.rowWeight[i] == 0) ASSERT_EQ(out[i], p.src[o + kSrcWidth + 1]);
    }
}

TEST(WarpReference, EmptyOrInvertedRectWritesNothing) {
    std::mt19937 rng(3);
    const Plane p = randomPlane(rng, 16, 3, false);
    for (const auto& r : {std::vector<uint16_t>{5, 0, 4, 2}, std::vector<uint16_t>{0, 2, 10, 1}}) {
        const auto out = warpWith(warpKernel(), p, r.data());
        EXPECT_EQ(out, std::vector<uint8_t>(out.size(), kCanary));
    }
}

// ---- Pair planes ---------------------------------------------------------------

// Two random kSrcWidth x kSrcHeight planes and their interleaved copy with
// rows pairStride bytes apart, exact-sized (an over-read faults under ASan).
struct PairSource {
    std::vector<uint8_t> first, second, pairs;
    uint32_t pairStride = 0;
};

PairSource randomPairs(std::mt19937& rng, uint32_t pairStride) {
    PairSource s;
    s.pairStride = pairStride;
    s.first.resize(kSrcWidth * kSrcHeight);
    s.second.resize(kSrcWidth * kSrcHeight);
    for (auto& b : s.first) b = uint8_t(rng());
    for (auto& b : s.second) b = uint8_t(rng());
    s.pairs.assign(size_t(kSrcHeight - 1) * pairStride + 2 * kSrcWidth, 0);
    for (uint32_t y = 0; y < kSrcHeight; ++y)
        for (uint32_t x = 0; x < kSrcWidth; ++x) {
            s.pairs[size_t(y) * pairStride + 2 * x] = s.first[y * kSrcWidth + x];
            s.pairs[size_t(y) * pairStride + 2 * x + 1] = s.second[y * kSrcWidth + x];
        }
    return s;
}

// Every table row of p warped into pair rows of 2 * (width + 2 * kPad)
// canary bytes, over the entries of [kPad, kPad + width).
std::vector<uint8_t> warpPairsWith(WarpPairGroupsFn kernel, const Plane& p, const PairSource& s, uint32_t width) {
    std::vector<uint8_t> dst(2 * size_t(p.stride) * p.rows, kCanary);
    setWarpPairKernel(kernel);
    for (uint32_t y = 0; y < p.rows; ++y) {
        const size_t at = size_t(y) * p.stride + kPad;
        warpPairRow(dst.data() + 2 * at, s.pairs.data(), p.offset.data() + at, p.columnWeight.data() + at,
                    p.rowWeight.data() + at, kSrcWidth, s.pairStride, width);
    }
    setWarpPairKernel(nullptr);
    return dst;
}

// What the run paths did before pair planes: split, warp each plane, interleave.
std::vector<uint8_t> splitWarpInterleave(const Plane& p, const PairSource& s, uint32_t width) {
    std::vector<uint8_t> dst(2 * size_t(p.stride) * p.rows, kCanary), a(width), b(width);
    for (uint32_t y = 0; y < p.rows; ++y) {
        const size_t at = size_t(y) * p.stride + kPad;
        WarpRow_C(a.data(), s.first.data(), p.offset.data() + at, p.columnWeight.data() + at, p.rowWeight.data() + at,
                  kSrcWidth, width);
        WarpRow_C(b.data(), s.second.data(), p.offset.data() + at, p.columnWeight.data() + at,
                  p.rowWeight.data() + at, kSrcWidth, width);
        for (uint32_t x = 0; x < width; ++x) {
            dst[2 * (at + x)] = a[x];
            dst[2 * (at + x) + 1] = b[x];
        }
    }
    return dst;
}

class WarpPairVariants : public ::testing::TestWithParam<int> {};

TEST_P(WarpPairVariants, MatchReferenceForEveryTailAndWidth) {
    const WarpPairVariant* variants;
    const int count = warpPairVariants(&variants);
    const int index = GetParam();
    if (index >= count) GTEST_SKIP() << "variant not supported here";
    const WarpPairVariant v = variants[index];
    std::mt19937 rng(4321 + index);
    const PairSource s = randomPairs(rng, 2 * kSrcWidth);
    for (bool wild : {false, true}) {
        for (uint32_t groups : {0u, 1u, 2u, 5u, 11u, 17u, 40u}) {
            for (uint32_t tail = 0; tail < 8; ++tail) {
                const uint32_t width = groups * 8 + tail;
                if (width == 0) continue;
                const Plane p = randomPlane(rng, width, 3, wild);
                const auto expected = warpPairsWith(WarpPairGroups_C, p, s, width);
                ASSERT_EQ(warpPairsWith(v.fn, p, s, width), expected) << v.name << " width " << width;
                for (uint32_t y = 0; y < p.rows; ++y)
                    for (uint32_t x = 0; x < 2 * p.stride; ++x) {
                        const bool inside = x >= 2 * kPad && x < 2 * (kPad + width);
                        if (!inside) ASSERT_EQ(expected[2 * size_t(y) * p.stride + x], kCanary) << x;
                    }
            }
        }
    }
}

TEST_P(WarpPairVariants, KernelAloneReadsAndWritesOnlyItsGroups) {
    const WarpPairVariant* variants;
    const int count = warpPairVariants(&variants);
    if (GetParam() >= count) GTEST_SKIP();
    std::mt19937 rng(98);
    const PairSource s = randomPairs(rng, 2 * kSrcWidth);
    for (const uint32_t groups : kKernelRuns) {
        const uint32_t n = 8 * groups;
        const Plane p = randomPlane(rng, n, 1, false);
        const ExactEntries e = exactEntries(p, n);
        std::vector<uint8_t> ref(2 * (n + 2 * kPad), kCanary), out(ref);
        WarpPairRow_C(ref.data() + 2 * kPad, s.pairs.data(), e.offset.data(), e.columnWeight.data(),
                      e.rowWeight.data(), kSrcWidth, n);
        variants[GetParam()].fn(out.data() + 2 * kPad, s.pairs.data(), e.offset.data(), e.columnWeight.data(),
                                e.rowWeight.data(), kSrcWidth, groups);
        EXPECT_EQ(out, ref) << variants[GetParam()].name << " groups " << groups;
    }
}

INSTANTIATE_TEST_SUITE_P(All, WarpPairVariants, ::testing::Range(1, 4));

class WarpPairLayout : public ::testing::TestWithParam<uint32_t> {};

// Pair rows 2 * width apart (even frame widths) and padded ones (odd frame
// widths leave a spare byte, or more): the same bytes as the planar warps,
// also for taps that run from the end of one plane row into the next.
TEST_P(WarpPairLayout, EqualsSplitWarpAndInterleave) {
    const uint32_t pad = GetParam();
    std::mt19937 rng(55 + pad);
    const PairSource s = randomPairs(rng, 2 * kSrcWidth + pad);
    for (uint32_t width : {1u, 7u, 8u, 29u, 64u}) {
        Plane p = randomPlane(rng, width, 4, false);
        for (size_t i = 0; i < p.offset.size(); i += 5)
            p.offset[i] = (rng() % (kSrcHeight - 2)) * kSrcWidth + kSrcWidth - 1;  // last column of a row
        const auto expected = splitWarpInterleave(p, s, width);
        EXPECT_EQ(warpPairsWith(nullptr, p, s, width), expected) << "width " << width;
        EXPECT_EQ(warpPairsWith(WarpPairGroups_C, p, s, width), expected) << "width " << width;
    }
}

INSTANTIATE_TEST_SUITE_P(Pads, WarpPairLayout, ::testing::Values(0u, 1u, 6u));

TEST(WarpPairDispatch, ReferenceFirstAndOverrideRestores) {
    const WarpPairVariant* variants;
    const int count = warpPairVariants(&variants);
    ASSERT_GE(count, 1);
    EXPECT_EQ(std::string(variants[0].name), "C");
    const WarpPairGroupsFn automatic = warpPairKernel();
    EXPECT_EQ(automatic, variants[count - 1].fn);
    setWarpPairKernel(WarpPairGroups_C);
    EXPECT_EQ(warpPairKernel(), WarpPairGroups_C);
    setWarpPairKernel(nullptr);
    EXPECT_EQ(warpPairKernel(), automatic);
}

}  // namespace
