// The OpenMP thread count of the calling thread, set from a benchmark's
// range(0) for its run and restored after.
#pragma once

#include <benchmark/benchmark.h>
#include <omp.h>

namespace benchbase {

class Threads {
public:
    explicit Threads(const benchmark::State& state) { omp_set_num_threads(int(state.range(0))); }
    ~Threads() { omp_set_num_threads(saved_); }

private:
    const int saved_ = omp_get_max_threads();
};

}  // namespace benchbase
