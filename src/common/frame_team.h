// The parallel shape of one call: one team, one region, work items claimed
// one at a time from one shared counter.
//
// A call's work is a short list of stages (for example: filter the depth
// map, then synthesise rows). Items of a stage run in any order on any
// thread; an item of stage s starts only once every item of the earlier
// stages has finished. There is no barrier per row, plane or stage: a thread
// that the system has descheduled holds at most the one item it claimed, the
// others take every remaining item, and a thread that arrives late finds the
// items exhausted and leaves without touching the call's data. The calling
// thread works too and waits only for items in flight, never for a helper
// that has not started. That is what keeps a frame's time bounded on a phone
// whose cores are busy with other processes: a spinning barrier would make
// every thread wait for the slowest one to be scheduled, once per barrier.
//
// The team is the calling thread plus helper threads started on first use
// (none at load). Its size follows OpenMP's setting for the calling thread
// (omp_get_max_threads: OMP_NUM_THREADS, omp_set_num_threads), which is read
// and never changed. Helpers wait for work briefly spinning, then asleep.
// They run on the calling thread's CPUs and at least at its priority, where
// the system allows it (Linux and Android).
//
// The work function must not throw and must not allocate: it runs per row.
// It gets a slot number below teamSlots(), unique among the threads running
// at the same time, for indexing per-thread scratch sized before the call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <type_traits>

namespace kvdsr {

// Below this much work per call a team costs more than it saves.
constexpr std::size_t kTeamMinPixels = std::size_t(1) << 15;

constexpr int kMaxStages = 8;

// Item counts per stage, in order. Empty stages are allowed.
struct Stages {
    uint32_t count[kMaxStages] = {};
    int size = 0;

    Stages() = default;
    Stages(std::initializer_list<uint32_t> counts) {
        for (uint32_t c : counts)
            if (size < kMaxStages) count[size++] = c;
    }
    void add(uint32_t c) {
        if (size < kMaxStages) count[size++] = c;
    }
};

// Threads a call may use: the calling thread plus helpers. Per-thread
// scratch is sized with this before the call.
int teamSlots();

namespace detail {

struct StagedJob {
    uint64_t begin[kMaxStages + 1] = {};  // first item of each stage; begin[stages] = total
    int stages = 0;
    void (*run)(void* ctx, int stage, uint32_t item, int slot) = nullptr;
    void* ctx = nullptr;
};

void runJob(const StagedJob& job, bool useTeam);

}  // namespace detail

// Runs work(stage, item, slot) for every item of every stage. useTeam false
// (small frames) runs everything on the calling thread, in order; the
// results are the same either way.
template <class Work>
void runStages(const Stages& stages, bool useTeam, Work&& work) {
    using W = std::remove_reference_t<Work>;
    detail::StagedJob job;
    job.stages = stages.size;
    for (int s = 0; s < stages.size; ++s) job.begin[s + 1] = job.begin[s] + stages.count[s];
    if (job.begin[stages.size] == 0) return;
    job.run = [](void* ctx, int stage, uint32_t item, int slot) { (*static_cast<W*>(ctx))(stage, item, slot); };
    job.ctx = const_cast<void*>(static_cast<const void*>(&work));
    detail::runJob(job, useTeam);
}

// One stage: work(item, slot).
template <class Work>
void runItems(uint32_t count, bool useTeam, Work&& work) {
    runStages(Stages{count}, useTeam, [&](int, uint32_t item, int slot) { work(item, slot); });
}

}  // namespace kvdsr
