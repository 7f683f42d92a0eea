// The call-wide team: helper threads, the claim counter and the waits.
#include "common/frame_team.h"

#include <unistd.h>
#if defined(__linux__)
#include <sched.h>
#include <sys/resource.h>

#include <cerrno>
#endif

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#if defined(_OPENMP)
#include <omp.h>
#endif

namespace kvdsr {

namespace {

// The claim word packs the job's epoch with its next and total item counts,
// so that one compare-and-swap both checks that a job is still the current
// one and takes an item of it: a helper never reads a job it did not claim.
constexpr int kItemBits = 20;
constexpr uint64_t kItemMask = (uint64_t(1) << kItemBits) - 1;
constexpr uint32_t kEpochMask = 0xFFFFFF;
constexpr int kMaxSlots = 64;

uint64_t claimWord(uint32_t epoch, uint64_t next, uint64_t total) {
    return (uint64_t(epoch & kEpochMask) << (2 * kItemBits)) | (next << kItemBits) | total;
}

// What a thread holds: its job's epoch and item, or nothing. A thread shows
// the item it is about to claim before claiming it, and moves on (showing
// its next item, or nothing) only after finishing it, so an item that has
// been claimed is finished exactly when no thread shows it.
constexpr int kTagEpochShift = 40;
constexpr uint64_t kHoldsNothing = ~uint64_t(0);

uint64_t holdTag(uint32_t epoch, uint64_t item) { return (uint64_t(epoch & kEpochMask) << kTagEpochShift) | item; }

struct alignas(64) Holding {
    std::atomic<uint64_t> tag{kHoldsNothing};
};

// Spins are short: a helper that spins long between frames loses the
// scheduler's credit for having slept, and a waiter that spins burns the
// time slice the thread it waits for may need.
constexpr int kHelperSpins = 2000;
constexpr int kWaitSpins = 1000;

// What helpers take from the thread that calls. A camera pipeline raises
// its threads' priority and may pin them to the fast cores; a frame's work
// should run that way too, whichever thread made the helpers. Helpers take
// the caller's CPUs on every call, and its scheduling (policy, priority,
// nice value) whenever that is above their own: never below, because a
// process without the privilege to raise a thread's priority could not bring
// them back up for its next caller. Where the system refuses a change, the
// helper keeps what it has; results never depend on it.
struct ThreadTraits {
#if defined(__linux__)
    int policy = SCHED_OTHER;  // as sched_getscheduler, without SCHED_RESET_ON_FORK
    int priority = 0;          // real-time priority
    int nice = 0;
    bool haveCpus = false;
    cpu_set_t cpus{};

    // The calling thread's.
    static ThreadTraits current() {
        ThreadTraits t;
        const int policy = sched_getscheduler(0);
        if (policy >= 0) t.policy = policy & ~SCHED_RESET_ON_FORK;
        sched_param param{};
        if ((t.policy == SCHED_FIFO || t.policy == SCHED_RR) && sched_getparam(0, &param) == 0)
            t.priority = param.sched_priority;  // the others' is 0
        errno = 0;
        const int nice = getpriority(PRIO_PROCESS, 0);  // Linux: this thread's
        if (errno == 0) t.nice = nice;
        t.haveCpus = sched_getaffinity(0, sizeof t.cpus, &t.cpus) == 0;
        return t;
    }

    // Orders schedules by what they get from the kernel: real-time policies
    // by priority above the others by nice value, batch and idle below.
    // Policies it does not know (deadline) are never taken.
    long rank() const {
        switch (policy) {
            case SCHED_FIFO:
            case SCHED_RR: return 1000 + priority;
            case SCHED_OTHER: return 100 - nice;
            case SCHED_BATCH: return 50 - nice;
            case SCHED_IDLE: return 0;
            default: return -1;
        }
    }
    bool sameCpus(const ThreadTraits& o) const {
        return haveCpus == o.haveCpus && (!haveCpus || CPU_EQUAL(&cpus, &o.cpus));
    }
    bool operator==(const ThreadTraits& o) const {
        return policy == o.policy && priority == o.priority && nice == o.nice && sameCpus(o);
    }

    // Moves the calling thread, whose traits these are, towards `want`.
    void adopt(const ThreadTraits& want) {
        if (want.rank() > rank()) {
            sched_param param{};
            param.sched_priority = want.priority;
            if ((want.policy == policy && want.priority == priority) ||
                sched_setscheduler(0, want.policy, &param) == 0) {
                policy = want.policy;
                priority = want.priority;
            }
            if (want.nice < nice && setpriority(PRIO_PROCESS, 0, want.nice) == 0) nice = want.nice;
        }
        if (want.haveCpus && !sameCpus(want) && sched_setaffinity(0, sizeof want.cpus, &want.cpus) == 0) {
            cpus = want.cpus;
            haveCpus = true;
        }
    }
#else
    static ThreadTraits current() { return {}; }
    bool operator==(const ThreadTraits&) const { return true; }
    void adopt(const ThreadTraits&) {}
#endif
};

// True on a thread while it runs a team's items (helpers always). A call
// made from inside an item runs on that thread alone: waiting for the team
// it is part of would never end.
thread_local bool tl_inTeam = false;

struct InTeam {
    InTeam() { tl_inTeam = true; }
    ~InTeam() { tl_inTeam = false; }
};

inline void cpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || (defined(__arm__) && defined(__ARM_ARCH) && __ARM_ARCH >= 7)
    __asm__ __volatile__("yield");
#endif
}

class Team {
public:
    Team() = default;
    Team(const Team&) = delete;
    Team& operator=(const Team&) = delete;

    ~Team() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
            epoch_.fetch_add(1);
        }
        wake_.notify_all();
        for (std::thread& t : helpers_)
            if (t.joinable()) t.join();
    }

    // Starts the helpers a call of `threads` would use, ahead of it.
    void prepare(int threads) {
        std::lock_guard<std::mutex> serial(runMutex_);
        ensureHelpers(threads - 1);
    }

    void run(const detail::StagedJob& job, int threads) {
        std::lock_guard<std::mutex> serial(runMutex_);
        const InTeam inTeam;
        ensureHelpers(threads - 1);
        publishTraits();
        const uint64_t total = job.begin[job.stages];
        jobThreads_.store(threads, std::memory_order_relaxed);
        job_.store(&job, std::memory_order_relaxed);
        // The calling thread takes the first item itself, often the one the
        // rest need: it is running now, while a helper woken for the call is
        // often preempted soon after it wakes on a busy core.
        const uint32_t epoch = epoch_.load(std::memory_order_relaxed) + 1;
        holding_[0].tag.store(holdTag(epoch, 0));
        claim_.store(claimWord(epoch, 1, total));
        epoch_.store(epoch);
        if (sleepers_.load() > 0) {
            std::lock_guard<std::mutex> lock(mutex_);
            wake_.notify_all();
        }
        uint64_t item = 0;
        do {
            execute(epoch, item, 0);
        } while (claim(epoch, 0, &item));
        waitFinished(epoch, 0, total);
    }

private:
    void ensureHelpers(int count) {
        while (int(helpers_.size()) < count) {
            const int slot = int(helpers_.size()) + 1;
            const uint32_t seen = epoch_.load();
            try {
                helpers_.emplace_back([this, slot, seen] { helperLoop(slot, seen); });
            } catch (const std::system_error&) {
                return;  // no more threads to be had: the others do the work
            } catch (const std::bad_alloc&) {
                return;
            }
        }
    }

    // Only run() writes traits_, under runMutex_; helpers copy it under
    // traitsMutex_ when its version moves.
    void publishTraits() {
        const ThreadTraits caller = ThreadTraits::current();
        if (traitsVersion_.load(std::memory_order_relaxed) != 0 && caller == traits_) return;
        std::lock_guard<std::mutex> lock(traitsMutex_);
        traits_ = caller;
        traitsVersion_.fetch_add(1, std::memory_order_release);
    }

    void followCaller(ThreadTraits& mine, uint32_t& version) {
        const uint32_t v = traitsVersion_.load(std::memory_order_acquire);
        if (v == version) return;
        ThreadTraits want;
        {
            std::lock_guard<std::mutex> lock(traitsMutex_);
            want = traits_;
            version = traitsVersion_.load(std::memory_order_relaxed);
        }
        mine.adopt(want);
    }

    void helperLoop(int slot, uint32_t seen) {
        tl_inTeam = true;
        ThreadTraits mine = ThreadTraits::current();
        uint32_t traitsSeen = 0;
        for (;;) {
            uint32_t epoch = epoch_.load(std::memory_order_acquire);
            for (int i = 0; epoch == seen && i < kHelperSpins; ++i) {
                cpuRelax();
                epoch = epoch_.load(std::memory_order_acquire);
            }
            if (epoch == seen) {
                std::unique_lock<std::mutex> lock(mutex_);
                sleepers_.fetch_add(1);
                wake_.wait(lock, [&] { return stop_ || epoch_.load() != seen; });
                sleepers_.fetch_sub(1);
                if (stop_) return;
                epoch = epoch_.load();
            }
            seen = epoch;
            if (slot >= jobThreads_.load(std::memory_order_relaxed)) continue;
            followCaller(mine, traitsSeen);
            uint64_t item;
            while (claim(epoch, slot, &item)) execute(epoch, item, slot);
        }
    }

    // Sequentially consistent throughout: a waiter that has seen an item
    // claimed must then see the claiming thread show it (or show a later
    // item, which it takes only after finishing this one).
    bool claim(uint32_t epoch, int slot, uint64_t* item) {
        std::atomic<uint64_t>& holds = holding_[slot].tag;
        uint64_t word = claim_.load();
        for (;;) {
            const uint64_t next = (word >> kItemBits) & kItemMask, total = word & kItemMask;
            if (uint32_t(word >> (2 * kItemBits)) != (epoch & kEpochMask) || next >= total) break;
            // Whatever this thread showed before is gone: the item it
            // finished, or one that another thread claimed first, which a
            // waiter may have taken for unfinished.
            holds.store(holdTag(epoch, next));
            notifyWaiters();
            if (claim_.compare_exchange_weak(word, word + (uint64_t(1) << kItemBits))) {
                *item = next;
                return true;
            }
        }
        holds.store(kHoldsNothing);
        notifyWaiters();
        return false;
    }

    // The job stays alive while an item of it is claimed and not finished.
    void execute(uint32_t epoch, uint64_t item, int slot) {
        const detail::StagedJob& job = *job_.load(std::memory_order_relaxed);
        int stage = 0;
        while (item >= job.begin[stage + 1]) ++stage;
        const uint32_t local = uint32_t(item - job.begin[stage]);
        if (stage > 0) {
            uint64_t first = 0, end = job.begin[stage];
            const uint64_t before = job.begin[stage] - job.begin[stage - 1];
            if (job.needs && before > 0) {
                const Needs n = job.needs(job.needsCtx, stage, local);
                end = job.begin[stage - 1] + std::min<uint64_t>(n.end, before);
                first = job.begin[stage - 1] + std::min<uint64_t>(n.first, before);
            }
            if (first < end) waitFinished(epoch, first, end);
        }
        job.run(job.ctx, stage, local, slot);
    }

    void notifyWaiters() {
        if (waiters_.load() > 0) {
            std::lock_guard<std::mutex> lock(mutex_);
            finished_.notify_all();
        }
    }

    // Whether items [first, end) of the job, every one of them claimed, have
    // all finished: no thread shows one.
    bool finished(uint32_t epoch, uint64_t first, uint64_t end) const {
        const uint64_t lo = holdTag(epoch, first), hi = holdTag(epoch, end);
        const int threads = jobThreads_.load(std::memory_order_relaxed);
        for (int t = 0; t < threads; ++t) {
            const uint64_t tag = holding_[t].tag.load();
            if (tag >= lo && tag < hi) return false;
        }
        return true;
    }

    void waitFinished(uint32_t epoch, uint64_t first, uint64_t end) {
        for (int i = 0; i < kWaitSpins; ++i) {
            if (finished(epoch, first, end)) return;
            cpuRelax();
        }
        std::unique_lock<std::mutex> lock(mutex_);
        waiters_.fetch_add(1);
        finished_.wait(lock, [&] { return finished(epoch, first, end); });
        waiters_.fetch_sub(1);
    }

    std::mutex runMutex_;  // one job at a time, even for callers that do not serialise
    std::mutex mutex_;
    std::condition_variable wake_, finished_;
    std::atomic<uint64_t> claim_{0};
    Holding holding_[kMaxSlots];
    std::atomic<uint32_t> epoch_{0};
    std::atomic<int> sleepers_{0}, waiters_{0};
    std::atomic<int> jobThreads_{0};
    std::atomic<const detail::StagedJob*> job_{nullptr};
    std::vector<std::thread> helpers_;
    bool stop_ = false;
    std::mutex traitsMutex_;
    ThreadTraits traits_;
    std::atomic<uint32_t> traitsVersion_{0};
};

// Made on first use, stopped and joined when the library is unloaded or the
// process exits. A forked child has none of its parent's helper threads: it
// leaves the parent's team alone (never destroyed there) and makes its own.
// Callers must serialise their calls, but two engines' first calls from two
// threads should still not make two teams.
struct TeamHolder {
    std::mutex mutex;
    Team* team = nullptr;
    pid_t owner = 0;
    ~TeamHolder() {
        if (team && owner == getpid()) delete team;
    }
    Team& get() {
        std::lock_guard<std::mutex> lock(mutex);
        const pid_t pid = getpid();
        if (!team || owner != pid) {
            team = new Team;
            owner = pid;
        }
        return *team;
    }
};

TeamHolder& holder() {
    static TeamHolder h;
    return h;
}

void runOnCaller(const detail::StagedJob& job) {
    for (int s = 0; s < job.stages; ++s)
        for (uint64_t i = job.begin[s]; i < job.begin[s + 1]; ++i)
            job.run(job.ctx, s, uint32_t(i - job.begin[s]), 0);
}

}  // namespace

int teamSlots() {
    int n = 1;
#if defined(_OPENMP)
    if (!omp_in_parallel() && !tl_inTeam) n = omp_get_max_threads();
#endif
    return std::clamp(n, 1, kMaxSlots);
}

void prepareTeam() {
    const int threads = teamSlots();
    if (threads <= 1) return;
    try {
        holder().get().prepare(threads);
    } catch (const std::exception&) {
        // The first call that can make the team will.
    }
}

namespace detail {

void runJob(const StagedJob& job, bool useTeam) {
    const int threads = useTeam ? teamSlots() : 1;
    const uint64_t total = job.begin[job.stages];
    if (threads <= 1 || total <= 1 || total > kItemMask) {
        runOnCaller(job);
        return;
    }
    Team* team = nullptr;
    try {
        team = &holder().get();
    } catch (const std::exception&) {  // no memory, or a mutex the system refused
        runOnCaller(job);
        return;
    }
    team->run(job, threads);
}

}  // namespace detail

}  // namespace kvdsr
