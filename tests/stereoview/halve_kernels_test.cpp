// Half-width row kernels: every SIMD variant this CPU runs against the
// reference, bit-exactly, alone on exact-size buffers and through halveRows
// at every tail length, with canaries around each output row.
#include <gtest/gtest.h>

#include <random>
#include <tuple>
#include <string>
#include <vector>

#include "stereoview/focal_shift.h"
#include "stereoview/halve_kernels.h"

namespace {

using namespace kvdsr::focalshift;
using Bytes = std::vector<uint8_t>;

constexpr uint8_t kCanary = 0xA5;
constexpr size_t kPad = 13;

Bytes randomBytes(std::mt19937& rng, size_t n) {
    Bytes b(n);
    for (auto& v : b) v = static_cast<uint8_t>(rng());
    return b;
}

struct Unit {
    const char* name;
    size_t unitBytes;
    int (*variants)(const HalveVariant**);
    void (*set)(HalveGroupsFn);
    void (*reference)(uint8_t*, const uint8_t*, size_t);
};

const Unit kUnits[] = {
    {"bytes", 1, halveBytesVariants, setHalveBytesKernel, HalveBytes_C},
    {"pairs", 2, halvePairsVariants, setHalvePairsKernel, HalvePairs_C},
};

class HalveVariants : public ::testing::TestWithParam<std::tuple<int, int>> {
protected:
    // Skips when this CPU lacks the variant.
    bool pick(Unit& unit, HalveVariant& variant) {
        unit = kUnits[std::get<0>(GetParam())];
        const HalveVariant* list;
        const int count = unit.variants(&list);
        if (std::get<1>(GetParam()) >= count) return false;
        variant = list[std::get<1>(GetParam())];
        return true;
    }
};

// The source is exactly the groups' bytes, so an over-read faults under ASan.
TEST_P(HalveVariants, KernelAloneWritesOnlyItsGroups) {
    Unit unit;
    HalveVariant v;
    if (!pick(unit, v)) GTEST_SKIP() << "variant not supported here";
    std::mt19937 rng(17 + std::get<1>(GetParam()));
    for (size_t groups : {1, 2, 3, 7, 40}) {
        const size_t n = groups * kHalveGroup;
        const Bytes src = randomBytes(rng, 2 * n);
        Bytes ref(n + 2 * kPad, kCanary), out(ref);
        unit.reference(ref.data() + kPad, src.data(), n);
        v.fn(out.data() + kPad, src.data(), groups);
        ASSERT_EQ(out, ref) << unit.name << " " << v.name << " groups " << groups;
    }
}

// Odd widths and every tail; rows of odd length put the kernel on unaligned
// addresses.
TEST_P(HalveVariants, RowsMatchTheReferenceAtEveryTail) {
    Unit unit;
    HalveVariant v;
    if (!pick(unit, v)) GTEST_SKIP() << "variant not supported here";
    std::mt19937 rng(91 + std::get<1>(GetParam()));
    const size_t rows = 3;
    for (size_t groups : {0, 1, 2, 5, 60}) {
        for (size_t tail = 0; tail < kHalveGroup; ++tail) {
            const size_t outWidth = groups * kHalveGroup + tail;
            if (outWidth == 0) continue;
            const Bytes src = randomBytes(rng, 2 * outWidth * rows);
            Bytes want(outWidth * rows + 2 * kPad, kCanary), got(want);
            for (size_t r = 0; r < rows; ++r)
                unit.reference(want.data() + kPad + r * outWidth, src.data() + 2 * r * outWidth, outWidth);
            unit.set(v.fn);
            halveRows(got.data() + kPad, src.data(), outWidth, rows, unit.unitBytes);
            unit.set(nullptr);
            ASSERT_EQ(got, want) << unit.name << " " << v.name << " width " << outWidth;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, HalveVariants, ::testing::Combine(::testing::Range(0, 2), ::testing::Range(0, 2)),
                         [](const auto& info) {
                             return std::string(kUnits[std::get<0>(info.param)].name) + "_variant" +
                                    std::to_string(std::get<1>(info.param));
                         });

TEST(HalveDispatch, ReferenceFirstAndSimdLastWhereTheCpuHasIt) {
    for (const Unit& unit : kUnits) {
        const HalveVariant* list;
        const int count = unit.variants(&list);
        ASSERT_GE(count, 1);
        EXPECT_STREQ(list[0].name, "C") << unit.name;
#if defined(__ARM_NEON) || defined(__ARM_NEON__) || defined(__aarch64__)
        EXPECT_STREQ(list[count - 1].name, "NEON") << unit.name;
#elif defined(__x86_64__)
        if (kvdsr::cpuHasSse41()) EXPECT_STREQ(list[count - 1].name, "SSE4.1") << unit.name;
#endif
    }
    EXPECT_EQ(halvePairsKernel(), [] {
        const HalveVariant* list;
        const int count = halvePairsVariants(&list);
        return list[count - 1].fn;
    }());
}

}  // namespace
