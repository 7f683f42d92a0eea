#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "binocular/mark_clean.h"

using kvdsr::binocular::cleanMarks;
using kvdsr::binocular::cleanMarksReference;

namespace {

// Marks written as digits, e.g. "0011100".
std::vector<uint8_t> row(const std::string& s) {
    std::vector<uint8_t> m;
    for (char ch : s) m.push_back(static_cast<uint8_t>(ch - '0'));
    return m;
}
std::string text(const std::vector<uint8_t>& m) {
    std::string s;
    for (uint8_t v : m) s += static_cast<char>('0' + v);
    return s;
}

struct MarkCase {
    const char* name;
    int q;
    const char* before;
    const char* after;
};

class MarkCleaning : public ::testing::TestWithParam<MarkCase> {};

TEST_P(MarkCleaning, HandMadeRows) {
    const MarkCase& c = GetParam();
    std::vector<uint8_t> m = row(c.before), r = row(c.before);
    cleanMarks(m.data(), static_cast<int>(m.size()), c.q);
    cleanMarksReference(r.data(), static_cast<int>(r.size()), c.q);
    EXPECT_EQ(text(m), c.after);
    EXPECT_EQ(text(r), c.after);
}

// Rows of 30 columns, window 7 unless said otherwise (last window start 23).
INSTANTIATE_TEST_SUITE_P(
    Rows, MarkCleaning,
    ::testing::Values(
        MarkCase{"SingleMarkVanishes", 7, "000001000000000000000000000000", "000000000000000000000000000000"},
        MarkCase{"ShortRunVanishes", 7, "000001111000000000000000000000", "000000000000000000000000000000"},
        MarkCase{"RunOfWindowLessOneBecomesHole", 7, "000001111110000000000000000000",
                 "000002222220000000000000000000"},
        MarkCase{"CloseRunsMerge", 7, "000001100001100000000000000000", "000002222222200000000000000000"},
        MarkCase{"RunsTooFarApartVanish", 7, "000001100000110000000000000000",
                 "000000000000000000000000000000"},
        MarkCase{"HoleKeptAcrossZeroInterior", 7, "000002000000000000000000000000",
                 "000002000000000000000000000000"},
        MarkCase{"FinalRulePromotesLastWindow", 7, "000000000000000000000000100101",
                 "000000000000000000000000200201"},
        MarkCase{"MarkBeforeLastWindowStillClears", 7, "000000000000000000000010000000",
                 "000000000000000000000000000000"},
        MarkCase{"EmptyInteriorWindowOfTwo", 2, "010011000000000000000000000001",
                 "020022000000000000000000000001"},
        MarkCase{"WindowWiderThanRowDoesNothing", 40, "000001000000000000000000000000",
                 "000001000000000000000000000000"}),
    [](const ::testing::TestParamInfo<MarkCase>& i) { return std::string(i.param.name); });

// The counting sweep against the re-scanning one, on random rows of every
// density, window and width around the window size.
TEST(MarkCleaning, CountingSweepMatchesReference) {
    std::mt19937 rng(11);
    for (int q = 1; q <= 14; ++q)
        for (int width : {1, 2, q - 1, q, q + 1, 2 * q + 3, 97, 301})
            for (int density : {1, 5, 30, 60, 90})
                for (int trial = 0; trial < 20; ++trial) {
                    if (width < 1) continue;
                    // Marks only within [first, last], which the sweep is told
                    // (or, every other trial, not told).
                    const int first = int(rng() % width), last = first + int(rng() % (width - first));
                    std::vector<uint8_t> m(size_t(width) + 8, 7);  // canary past the row
                    for (int i = 0; i < width; ++i) {
                        const int roll = int(rng() % 100);
                        m[i] = i >= first && i <= last && roll < density ? (roll % 10 == 0 ? 2 : 1) : 0;
                    }
                    std::vector<uint8_t> r = m;
                    if (trial % 2)
                        cleanMarks(m.data(), width, q, first, last);
                    else
                        cleanMarks(m.data(), width, q);
                    cleanMarksReference(r.data(), width, q);
                    ASSERT_EQ(m, r) << "q " << q << " width " << width << " density " << density;
                }
}

}  // namespace
