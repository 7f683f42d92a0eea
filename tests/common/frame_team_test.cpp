// The call-wide team: every item once, stages in order, an item waiting only
// for what it needs, slots unique among running threads, any team size, and
// a late helper never sees an old call.
#include <gtest/gtest.h>
#include <omp.h>

#if defined(__linux__)
#include <sched.h>
#include <sys/resource.h>
#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "common/frame_team.h"

namespace {

class FrameTeam : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { omp_set_num_threads(GetParam()); }
    void TearDown() override { omp_set_num_threads(saved_); }
    const int saved_ = omp_get_max_threads();
};

// Stage 1 sums stage 0's rows in reverse order, stage 2 reads stage 1's: an
// item that started before its predecessors finished would see zeros.
TEST_P(FrameTeam, StagesSeeEveryEarlierResultAndItemsRunOnce) {
    constexpr uint32_t kRows = 257, kWidth = 64;
    EXPECT_EQ(kvdsr::teamSlots(), GetParam());
    for (bool team : {false, true}) {
        std::vector<uint32_t> a(kRows * kWidth, 0), rowSum(kRows, 0), total(1, 0);
        std::vector<std::atomic<int>> runs(kRows * 2 + 1);
        std::vector<std::atomic<int>> slotBusy(kvdsr::teamSlots());
        std::atomic<int> slotClash{0}, slotRange{0};
        kvdsr::runStages(kvdsr::Stages{kRows, kRows, 1}, team, [&](int stage, uint32_t item, int slot) {
            if (slot < 0 || slot >= int(slotBusy.size())) {
                slotRange++;
                return;
            }
            if (slotBusy[slot].exchange(1)) slotClash++;
            if (stage == 0) {
                for (uint32_t x = 0; x < kWidth; ++x) a[item * kWidth + x] = item + x + 1;
                runs[item]++;
            } else if (stage == 1) {
                const uint32_t src = kRows - 1 - item;
                uint32_t s = 0;
                for (uint32_t x = 0; x < kWidth; ++x) s += a[src * kWidth + x];
                rowSum[src] = s;
                runs[kRows + item]++;
            } else {
                uint32_t s = 0;
                for (uint32_t v : rowSum) s += v;
                total[0] = s;
                runs[2 * kRows]++;
            }
            slotBusy[slot] = 0;
        });
        uint64_t expected = 0;
        for (uint32_t y = 0; y < kRows; ++y)
            for (uint32_t x = 0; x < kWidth; ++x) expected += y + x + 1;
        EXPECT_EQ(total[0], uint32_t(expected)) << "team " << team;
        EXPECT_EQ(slotClash.load(), 0);
        EXPECT_EQ(slotRange.load(), 0);
        for (size_t i = 0; i < runs.size(); ++i) ASSERT_EQ(runs[i].load(), 1) << "item " << i << " team " << team;
    }
}

// Many short calls back to back: helpers arriving late for one call must
// not run items of it after it returned (its data is gone) nor miss the next.
TEST_P(FrameTeam, BackToBackCallsKeepTheirOwnItems) {
    for (int call = 0; call < 300; ++call) {
        std::vector<int> hits(3 + call % 5, 0);
        std::atomic<int> count{0};
        kvdsr::runItems(uint32_t(hits.size()), true, [&](uint32_t item, int) {
            hits[item]++;
            count++;
        });
        ASSERT_EQ(count.load(), int(hits.size())) << "call " << call;
        for (int h : hits) ASSERT_EQ(h, 1) << "call " << call;
    }
}

TEST_P(FrameTeam, EmptyStagesAndSingleItems) {
    std::vector<int> order;
    kvdsr::runStages(kvdsr::Stages{0, 1, 0, 1}, true, [&](int stage, uint32_t item, int) {
        order.push_back(stage * 10 + int(item));  // one item per stage: ordered by the stage wait
    });
    EXPECT_EQ(order, (std::vector<int>{10, 30}));
    int calls = 0;
    kvdsr::runItems(0, true, [&](uint32_t, int) { ++calls; });
    EXPECT_EQ(calls, 0);
}

// Stage 1's item i needs stage 0's item i alone, stage 2's item i stage
// 1's items i-1..i+1. Stage 0's last item holds on until a stage 1 item has
// run: with a wait for the whole stage before it, nothing would. Every item
// must still see what its needs wrote.
TEST_P(FrameTeam, ItemsWaitOnlyForWhatTheyNeed) {
    constexpr uint32_t kItems = 48;
    const bool team = GetParam() > 1;  // one thread runs items in order
    for (int call = 0; call < 20; ++call) {
        std::vector<uint32_t> a(kItems, 0), b(kItems, 0);
        std::atomic<bool> laterRan{false};
        std::atomic<int> stuck{0}, unseen{0}, ran{0};
        kvdsr::runStages(
            kvdsr::Stages{kItems, kItems, kItems}, true,
            [&](int stage, uint32_t item, int) {
                ran++;
                if (stage == 0) {
                    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(2);
                    while (team && item == kItems - 1 && !laterRan.load())
                        if (std::chrono::steady_clock::now() > deadline) {
                            stuck++;
                            break;
                        }
                    a[item] = item + 1;
                } else if (stage == 1) {
                    laterRan = true;
                    if (a[item] != item + 1) unseen++;
                    b[item] = a[item] * 2;
                } else {
                    for (uint32_t j = item ? item - 1 : 0; j <= std::min(item + 1, kItems - 1); ++j)
                        if (b[j] != 2 * (j + 1)) unseen++;
                }
            },
            [](int stage, uint32_t item) {
                return stage == 1 ? kvdsr::Needs{item, item + 1} : kvdsr::Needs{item ? item - 1 : 0, item + 2};
            });
        ASSERT_EQ(stuck.load(), 0) << "call " << call;
        ASSERT_EQ(unseen.load(), 0) << "call " << call;
        ASSERT_EQ(ran.load(), int(3 * kItems));
    }
}

// A table build called from inside an item (or any call that runs items)
// must run on that thread alone: asking the team it is part of would wait
// for itself. Inside an item, teamSlots() is 1 so that scratch sized by it
// fits slot 0.
TEST_P(FrameTeam, CallsFromInsideAnItemRunOnThatThread) {
    constexpr uint32_t kOuter = 16, kInner = 7;
    std::vector<std::atomic<int>> innerRuns(kOuter * kInner);
    std::atomic<int> innerSlotNotZero{0}, slotsInside{0};
    kvdsr::runItems(kOuter, true, [&](uint32_t outer, int) {
        if (kvdsr::teamSlots() != 1) slotsInside++;
        kvdsr::runItems(kInner, true, [&](uint32_t inner, int slot) {
            if (slot != 0) innerSlotNotZero++;
            innerRuns[outer * kInner + inner]++;
        });
    });
    EXPECT_EQ(innerSlotNotZero.load(), 0);
    EXPECT_EQ(slotsInside.load(), 0);
    for (size_t i = 0; i < innerRuns.size(); ++i) ASSERT_EQ(innerRuns[i].load(), 1) << "inner item " << i;
    EXPECT_EQ(kvdsr::teamSlots(), GetParam()) << "the caller's own count is back after the call";
}

// Starting the helpers ahead of the first call changes nothing a call sees.
TEST_P(FrameTeam, PreparedTeamRunsEveryItemOnce) {
    kvdsr::prepareTeam();
    kvdsr::prepareTeam();
    std::vector<std::atomic<int>> runs(100);
    kvdsr::runItems(uint32_t(runs.size()), true, [&](uint32_t item, int) { runs[item]++; });
    for (size_t i = 0; i < runs.size(); ++i) ASSERT_EQ(runs[i].load(), 1) << "item " << i;
}

INSTANTIATE_TEST_SUITE_P(Threads, FrameTeam, ::testing::Values(1, 2, 3, 8));

#if defined(__linux__)
// What the threads that ran a call's items reported of themselves.
struct ItemThreads {
    int byHelpers = 0;
    std::vector<int> helperNice;
    std::vector<cpu_set_t> helperCpus;
};

// A two-thread call of slow items from the calling thread: a helper surely
// takes some of them.
ItemThreads runSlowItems() {
    omp_set_num_threads(2);
    const std::thread::id caller = std::this_thread::get_id();
    std::mutex m;
    ItemThreads seen;
    kvdsr::runItems(64, true, [&](uint32_t, int) {
        std::this_thread::sleep_for(std::chrono::microseconds(500));
        if (std::this_thread::get_id() == caller) return;
        cpu_set_t cpus;
        CPU_ZERO(&cpus);
        sched_getaffinity(0, sizeof cpus, &cpus);
        const int nice = getpriority(PRIO_PROCESS, 0);
        std::lock_guard<std::mutex> lock(m);
        seen.byHelpers++;
        seen.helperNice.push_back(nice);
        seen.helperCpus.push_back(cpus);
    });
    return seen;
}

// Each test calls from a thread of its own, so that what it changes of its
// caller ends with it.
template <class Body>
void onNewThread(Body body) {
    std::thread t(body);
    t.join();
}

// Pinned, unpinned, pinned elsewhere: the helpers' CPUs follow each time,
// whichever thread made them.
TEST(FrameTeamHelpers, RunOnTheCallersCpus) {
    onNewThread([] {
        cpu_set_t all;
        CPU_ZERO(&all);
        ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
        std::vector<cpu_set_t> masks;
        for (int cpu = 0; cpu < CPU_SETSIZE && masks.size() < 2; ++cpu)
            if (CPU_ISSET(cpu, &all)) {
                cpu_set_t one;
                CPU_ZERO(&one);
                CPU_SET(cpu, &one);
                masks.push_back(one);
            }
        if (masks.size() < 2) GTEST_SKIP() << "one CPU: nothing to tell apart";
        masks.insert(masks.begin() + 1, all);
        for (size_t i = 0; i < masks.size(); ++i) {
            ASSERT_EQ(sched_setaffinity(0, sizeof masks[i], &masks[i]), 0);
            const ItemThreads seen = runSlowItems();
            ASSERT_GT(seen.byHelpers, 0) << "mask " << i;
            for (const cpu_set_t& cpus : seen.helperCpus) EXPECT_TRUE(CPU_EQUAL(&cpus, &masks[i])) << "mask " << i;
        }
    });
}

// A caller that raises its priority has its helpers raised too; one that
// then lowers it leaves them where they are.
TEST(FrameTeamHelpers, RunAtLeastAtTheCallersPriority) {
    onNewThread([] {
        const int start = getpriority(PRIO_PROCESS, 0);
        runSlowItems();  // the helpers as they are: at most the start priority, or raised by an earlier caller
        const int raised = start - 3;
        if (setpriority(PRIO_PROCESS, 0, raised) != 0) GTEST_SKIP() << "raising a thread's priority is not allowed";
        ItemThreads seen = runSlowItems();
        ASSERT_GT(seen.byHelpers, 0);
        for (int nice : seen.helperNice) EXPECT_LE(nice, raised);
        ASSERT_EQ(setpriority(PRIO_PROCESS, 0, start + 2), 0);
        seen = runSlowItems();
        ASSERT_GT(seen.byHelpers, 0);
        for (int nice : seen.helperNice) EXPECT_LE(nice, raised) << "a lower-priority caller lowered the helpers";
    });
}
#endif

}  // namespace
