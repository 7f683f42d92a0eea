// Row kernels of the map and table builds: every SIMD variant this CPU runs
// against the plain kernel, bit for bit, at every width up to a few vector
// widths (so every tail length), with canaries around what they write.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "remap/distortion_map_kernels.h"
#include "remap/remap.h"
#include "remap/remap_lut_kernels.h"

namespace {

using namespace kvdsr::remap;

constexpr int kPad = 9;  // canary values before and after each row
constexpr int kMaxWidth = 3 * 8 + 7;

template <class T>
T canary();
template <>
double canary<double>() {
    double d;
    const uint64_t bits = 0xA5A5A5A5A5A5A5A5ull;
    std::memcpy(&d, &bits, sizeof d);
    return d;
}
template <>
uint32_t canary<uint32_t>() { return 0xA5A5A5A5u; }
template <>
uint16_t canary<uint16_t>() { return 0xA5A5u; }

// A row buffer with canaries either side; equal compares bits.
template <class T>
struct Padded {
    std::vector<T> v;
    explicit Padded(size_t n) : v(n + 2 * kPad, canary<T>()) {}
    T* data() { return v.data() + kPad; }
    bool canariesIntact(size_t n) const {
        for (int i = 0; i < kPad; ++i)
            if (!same(v[i]) || !same(v[kPad + n + i])) return false;
        return true;
    }
    static bool same(T a) {
        const T c = canary<T>();
        return std::memcmp(&a, &c, sizeof a) == 0;
    }
    bool operator==(const Padded& o) const { return std::memcmp(v.data(), o.v.data(), v.size() * sizeof(T)) == 0; }
};

DistortionTable barrel(bool sorted) {
    const double r[] = {0, 0.5, 1.0, 1.5, 2.0, 2.5};
    const double unsortedR[] = {0, 0.5, 1.2, 1.0, 2.0, 2.5};
    const double d[] = {0, -0.8, -2.9, -6.1, -10.4, -15.8};
    return DistortionTable_Make(sorted ? r : unsortedR, d, 6, 0);
}

class MapRowVariants : public ::testing::TestWithParam<int> {};

// Radii sweep the table's intervals (several pixels per interval, so the
// vector path runs) and, with a large pitch, pass its end.
TEST_P(MapRowVariants, MatchPlainKernelAtEveryWidth) {
    const MapRowVariant* variants;
    const int count = mapRowVariants(&variants);
    if (GetParam() >= count) GTEST_SKIP() << "variant not supported here";
    const MapRowVariant v = variants[GetParam()];
    std::mt19937 rng(77);
    std::uniform_real_distribution<double> jitter(-0.3, 0.3);
    for (bool sorted : {true, false}) {
        const DistortionTable table = barrel(sorted);
        // A sweep through the intervals; one past the table's end; and a
        // plateau in one interval whose last pixels are beyond the table
        // (they reuse the factor carried out of the vector path).
        struct Pattern {
            double pitch;
            bool plateau;
        };
        for (const Pattern pattern : {Pattern{60.0, false}, Pattern{400.0, false}, Pattern{200.0, true}}) {
            const double pitch = pattern.pitch;
            for (int width = 1; width <= kMaxWidth; ++width) {
                std::vector<double> q(width), u(width);
                for (int x = 0; x < width; ++x) {
                    const double d = pattern.plateau ? (x < width - 3 ? 20.0 : 100.0) + 0.01 * jitter(rng)
                                                     : 40.0 * x / kMaxWidth + jitter(rng);
                    q[x] = d * d;
                    u[x] = x - 11.5 + jitter(rng);
                }
                Padded<double> outC(2 * width), outV(2 * width), radC(width), radV(width);
                const double ty = 7.25 + jitter(rng);
                const MapRow plain{&table, sorted, radC.data(), q.data(), ty, pitch, u.data(), -3.5, 11.75, 6.5,
                                   width, outC.data()};
                MapRow vector = plain;
                vector.radius = radV.data();
                vector.out = outV.data();
                const bool beyondC = MapRow_C(plain), beyondV = v.fn(vector);
                const std::string what = std::string(v.name) + " width " + std::to_string(width) + " pitch " +
                                         std::to_string(pitch) + (sorted ? " sorted" : " unsorted");
                ASSERT_EQ(beyondV, beyondC) << what;
                ASSERT_TRUE(outV == outC) << what;
                ASSERT_TRUE(outV.canariesIntact(2 * width)) << what;
                ASSERT_TRUE(radV.canariesIntact(width)) << what;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, MapRowVariants, ::testing::Range(1, 3));

class LutRowVariants : public ::testing::TestWithParam<int> {};

// Blocks of one to nine rows, of every length from several first columns,
// through a mild homography (consecutive records: the vector path) and a
// steep one (the plain fallback inside the kernels), with canaries around
// and between the rows.
TEST_P(LutRowVariants, MatchPlainKernelAtEveryWidth) {
    const LutRowVariant* variants;
    const int count = lutRowVariants(&variants);
    if (GetParam() >= count) GTEST_SKIP() << "variant not supported here";
    const LutRowVariant v = variants[GetParam()];
    const int mw = 48, mh = 24;
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> jitter(-0.4, 0.4);
    std::vector<double> map(2 * mw * mh);
    for (int y = 0; y < mh; ++y)
        for (int x = 0; x < mw; ++x) {
            map[2 * (y * mw + x)] = 1.02 * x - 1.5 + jitter(rng);  // some points outside the source
            map[2 * (y * mw + x) + 1] = 0.98 * y + 0.3 + jitter(rng);
        }
    std::vector<const double*> rows(mh);
    for (int y = 0; y < mh; ++y) rows[y] = map.data() + 2 * y * mw;
    const double mild[9] = {1.003, 0.001, 0.37, -0.002, 0.999, 2.41, 0.00001, 0, 1.0};
    const double steep[9] = {1.4, 0.3, -2, 0.2, 1.1, -1, 0.01, 0.003, 1.0};
    for (const double* h : {mild, steep}) {
        for (int rowCount : {1, 2, 3, 7, 8, 9}) {
            for (int first = 0; first < 4; ++first) {
                for (int n = 1; first + n <= kMaxWidth; ++n) {
                    const int last = first + n - 1;
                    const size_t stride = size_t(last) + 4;  // three canaries between rows
                    const size_t size = stride * rowCount;
                    Padded<uint32_t> oC(size), oV(size);
                    Padded<uint16_t> cC(size), cV(size), rC(size), rV(size);
                    LutRow plain{rows.data(), mw, mh, 40, 20, h, 3, first, last, oC.data(), cC.data(), rC.data()};
                    plain.count = rowCount;
                    plain.stride = stride;
                    LutRow vector = plain;
                    vector.offset = oV.data();
                    vector.columnWeight = cV.data();
                    vector.rowWeight = rV.data();
                    LutRowProjective_C(plain);
                    v.fn(vector);
                    const std::string what = std::string(v.name) + " rows " + std::to_string(rowCount) +
                                             " first " + std::to_string(first) + " count " + std::to_string(n) +
                                             (h == mild ? " mild" : " steep");
                    ASSERT_TRUE(oV == oC && cV == cC && rV == rC) << what;
                    ASSERT_TRUE(oV.canariesIntact(size) && cV.canariesIntact(size) && rV.canariesIntact(size))
                        << what;
                    // Only first..last of each row is written.
                    for (int k = 0; k < rowCount; ++k)
                        for (size_t x = 0; x < stride; ++x)
                            if (int(x) < first || int(x) > last)
                                ASSERT_EQ(oV.data()[k * stride + x], canary<uint32_t>()) << what;
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, LutRowVariants, ::testing::Range(1, 3));

}  // namespace
