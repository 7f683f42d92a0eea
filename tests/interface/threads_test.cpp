// The threads the library starts: every engine's Init and run, on a team of
// four, may add the team's three helpers to the process and nothing else.
// An OpenMP region anywhere in them would add the runtime's own workers,
// which keep spinning after the region and take the cores the next frames'
// helpers need. Its own executable, so that no earlier test has started
// threads of either kind.
#include <dirent.h>
#include <gtest/gtest.h>
#include <omp.h>

#include <cstdint>
#include <vector>

#include "calibpack.h"
#include "kvDSR.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint16_t kW = 320, kH = 240, kDW = 160, kDH = 120;
constexpr int kTeam = 4;

// Threads of this process, or -1 where the system does not list them.
int threadCount() {
    DIR* d = opendir("/proc/self/task");
    if (!d) return -1;
    int n = 0;
    while (const dirent* e = readdir(d))
        if (e->d_name[0] != '.') ++n;
    closedir(d);
    return n;
}

Bytes frame(uint32_t seed) {
    Bytes b(size_t(kW) * kH * 3 / 2);
    for (size_t i = 0; i < b.size(); ++i) b[i] = uint8_t((i * 7 + seed * 13 + i / kW) & 0xFF);
    return b;
}

TEST(Threads, InitAndRunsStartOnlyTheTeamsHelpers) {
    const int before = threadCount();
    if (before < 0) GTEST_SKIP() << "no /proc/self/task";
    const int saved = omp_get_max_threads();
    omp_set_num_threads(kTeam);

    const Bytes calib = kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 1547);
    const uint32_t size = uint32_t(calib.size());
    Bytes left = frame(1), right = frame(2), out(2 * left.size()), out2(left.size());
    Bytes map(size_t(kDW) * kDH);
    for (size_t i = 0; i < map.size(); ++i) map[i] = uint8_t(40 + (i * 5 + i / kDW) % 80);
    const kvDSR_ImageDesc a{kvDSR_FMT_YUV420SP, {0, 0, 0}, {left.data(), left.data() + size_t(kW) * kH, nullptr}};
    const kvDSR_ImageDesc b{kvDSR_FMT_YUV420SP, {0, 0, 0}, {right.data(), right.data() + size_t(kW) * kH, nullptr}};
    const kvDSR_ImageDesc depth{kvDSR_FMT_DEPTH8, {0, 0, 0}, {map.data(), nullptr, nullptr}};

    ASSERT_EQ(kvDSR_Init(calib.data(), size, nullptr, 0, kW, kH, kDW, kDH, 300), kvDSR_OK);
    EXPECT_EQ(kvDSR_Run(out.data(), &a, kW, kH, &depth, kDW, kDH), kvDSR_OK);
    ASSERT_EQ(kvDSR_Binocular_Init(calib.data(), size, nullptr, 0, kW, kH, kDW, kDH, 300), kvDSR_OK);
    EXPECT_EQ(kvDSR_Binocular_Run(out.data(), &a, &b, kW, kH, &depth, kDW, kDH), kvDSR_OK);
    ASSERT_EQ(kvDSR_StereoView_Init(calib.data(), size, nullptr, 0, kW, kH), kvDSR_OK);
    EXPECT_EQ(kvDSR_StereoView_Run(out2.data(), out.data(), &b, &a, kW, kH), kvDSR_OK);
    ASSERT_EQ(kvDSR_SPR_Init(calib.data(), size, nullptr, 0, kW, kH, kW / 2, kH / 2), kvDSR_OK);
    EXPECT_EQ(kvDSR_SPR_Run(out2.data(), out.data(), &b, &a, kW, kH, kW / 2, kH / 2), kvDSR_OK);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShift_Init(calib.data(), size, nullptr, 0, kW, kH, 1000), kvDSR_OK);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift(out2.data(), out.data(), &b, &a, kW, kH), kvDSR_OK);

    EXPECT_LE(threadCount() - before, kTeam - 1) << "threads beyond the team's helpers";
    kvDSR_Close();
    kvDSR_Binocular_Close();
    kvDSR_StereoView_Close();
    kvDSR_SPR_Close();
    kvDSR_StereoView_FocalAlignmentShift_Close();
    omp_set_num_threads(saved);
}

}  // namespace
