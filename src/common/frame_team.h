// The parallel shape of one call: one team, one region, work items claimed
// one at a time from one shared counter.
//
// A call's work is a short list of stages (for example: filter the depth
// map, then synthesise rows). Items are claimed in order, stage by stage;
// an item of stage s starts only once the items it needs have finished:
// every item of the earlier stages, or, where the call says so, a range of
// stage s - 1 (an output row needs the few map rows under it). There is no
// barrier per row, plane or stage: a thread that the system has descheduled
// holds at most the one item it claimed, the others take every remaining
// item that does not need it, and a thread that arrives late finds the
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

// Starts the helpers a call from this thread would use, so that the first
// call finds them running instead of waiting for new threads to be
// scheduled. The engines' Init calls it; results never depend on it.
void prepareTeam();

// Items [first, end) of the stage before an item's own: all it reads of the
// call's earlier work is what they wrote and, through them, what they needed.
struct Needs {
    uint32_t first = 0, end = 0;
};

namespace detail {

struct StagedJob {
    uint64_t begin[kMaxStages + 1] = {};  // first item of each stage; begin[stages] = total
    int stages = 0;
    void (*run)(void* ctx, int stage, uint32_t item, int slot) = nullptr;
    void* ctx = nullptr;
    Needs (*needs)(void* ctx, int stage, uint32_t item) = nullptr;  // null: every earlier item
    void* needsCtx = nullptr;
};

void runJob(const StagedJob& job, bool useTeam);

template <class Work>
StagedJob stagedJob(const Stages& stages, Work& work) {
    StagedJob job;
    job.stages = stages.size;
    for (int s = 0; s < stages.size; ++s) job.begin[s + 1] = job.begin[s] + stages.count[s];
    job.run = [](void* ctx, int stage, uint32_t item, int slot) { (*static_cast<Work*>(ctx))(stage, item, slot); };
    job.ctx = const_cast<void*>(static_cast<const void*>(&work));
    return job;
}

}  // namespace detail

// Runs work(stage, item, slot) for every item of every stage, each item once
// every earlier item has finished. useTeam false (small frames) runs
// everything on the calling thread, in order; the results are the same
// either way.
template <class Work>
void runStages(const Stages& stages, bool useTeam, Work&& work) {
    const detail::StagedJob job = detail::stagedJob(stages, work);
    if (job.begin[job.stages] > 0) detail::runJob(job, useTeam);
}

// The same, where an item of stage s > 0 waits only for needs(s, item): a
// range of stage s - 1, clipped to that stage (an empty stage s - 1 means
// every earlier item). needs runs on the item's thread just before the
// wait; it may narrow the range on what finished items have recorded
// (atomically), as long as the range covers everything the item reads.
template <class Work, class NeedsOf>
void runStages(const Stages& stages, bool useTeam, Work&& work, NeedsOf&& needs) {
    using N = std::remove_reference_t<NeedsOf>;
    detail::StagedJob job = detail::stagedJob(stages, work);
    job.needs = [](void* ctx, int stage, uint32_t item) -> Needs { return (*static_cast<N*>(ctx))(stage, item); };
    job.needsCtx = const_cast<void*>(static_cast<const void*>(&needs));
    if (job.begin[job.stages] > 0) detail::runJob(job, useTeam);
}

// One stage: work(item, slot).
template <class Work>
void runItems(uint32_t count, bool useTeam, Work&& work) {
    runStages(Stages{count}, useTeam, [&](int, uint32_t item, int slot) { work(item, slot); });
}

}  // namespace kvdsr
