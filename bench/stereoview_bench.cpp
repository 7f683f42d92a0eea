// Stereo view and SPR runs on 1920x1080 0xF01 pairs (SPR to 1280x720) beside
// the previous run paths (tests/stereoview/reference_run.h: a whole-plane
// warp per OpenMP region, chroma split and re-interleaved, side by side
// packed from scratch views), at 1 and 2 threads (argument), and
// kvDSR_StereoView_Init. With KVDSR_BASELINE_LIB=path/to/libkvDSR.so (an
// earlier revision: bench/build_baseline.sh) the engines' runs are timed on
// that library too, in the same process ("base" beside "new").
//
// Run with --benchmark_repetitions=5 --benchmark_enable_random_interleaving
// so that both sides of each ratio see the same machine load. Not timed in
// one loop on purpose: OpenMP's team keeps spinning after the reference's
// regions and would take the core the frame team's helper needs.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <random>
#include <functional>
#include <vector>

#include "calibpack.h"
#include "baseline_lib.h"
#include "bench_threads.h"
#include "kvDSR.h"
#include "reference_run.h"
#include "stereoview/stereo_params.h"
#include "stereoview/stereo_warp.h"

namespace {

using namespace kvdsr;

constexpr uint16_t kW = 1920, kH = 1080;
constexpr uint16_t kSprW = 1280, kSprH = 720;

const calibpack::Bytes& container() {
    static const calibpack::Bytes c = calibpack::packContainer(calibpack::sampleModule(), 1547);
    return c;
}

struct Pair {
    std::vector<uint8_t> in1, in2, out1, out2, sideBySide;
    kvDSR_ImageDesc d1{}, d2{};
    Pair(uint16_t w, uint16_t h, uint16_t outW, uint16_t outH) {
        const size_t n = size_t(w) * h * 3 / 2, m = size_t(outW) * outH * 3 / 2;
        in1.resize(n);
        in2.resize(n);
        out1.resize(m);
        out2.resize(m);
        sideBySide.resize(2 * m);
        std::mt19937 rng(1);
        for (auto* v : {&in1, &in2})
            for (auto& b : *v) b = uint8_t(rng());
        d1 = {kvDSR_FMT_YUV420SP, {0, 0, 0}, {in1.data(), in1.data() + size_t(w) * h, nullptr}};
        d2 = {kvDSR_FMT_YUV420SP, {0, 0, 0}, {in2.data(), in2.data() + size_t(w) * h, nullptr}};
    }
};

// The engine's maps, rebuilt from the blocks its Init prepared, and the
// scratch the previous paths needed.
struct ReferenceMaps {
    stereoview::MapSet full, half;
    test::reference::Scratch scratch;
    ReferenceMaps(uint16_t inW, uint16_t inH, uint16_t outW, uint16_t outH) {
        const auto& p = stereoview::stereoParams();
        stereoview::buildMapSet(full, p.calibBlock, inW, inH, outW, outH);
        stereoview::buildMapSet(half, p.halfCalibBlock, inW / 2, inH / 2, outW / 2, outH / 2);
        scratch = test::reference::Scratch(full);
    }
};

// The entry points timed, from this build or from the baseline library.
struct Engines {
    std::string name;
    decltype(&kvDSR_StereoView_Init) init = kvDSR_StereoView_Init;
    decltype(&kvDSR_StereoView_Run) run = kvDSR_StereoView_Run;
    decltype(&kvDSR_StereoView_Run_SideBySide) runSideBySide = kvDSR_StereoView_Run_SideBySide;
    decltype(&kvDSR_SPR_Init) sprInit = kvDSR_SPR_Init;
    decltype(&kvDSR_SPR_Run) sprRun = kvDSR_SPR_Run;
};

// The library named by KVDSR_BASELINE_LIB, loaded beside this build.
bool baseline(Engines& e) {
    benchbase::BaselineLib lib;
    if (!lib.open()) return false;
    e.name = "base";
    lib.get(e.init, "kvDSR_StereoView_Init");
    lib.get(e.run, "kvDSR_StereoView_Run");
    lib.get(e.runSideBySide, "kvDSR_StereoView_Run_SideBySide");
    lib.get(e.sprInit, "kvDSR_SPR_Init");
    lib.get(e.sprRun, "kvDSR_SPR_Run");
    return true;
}

void initStereoView(const Engines& e = Engines{}) {
    const auto& c = container();
    if (e.init(c.data(), uint32_t(c.size()), nullptr, 0, kW, kH) != kvDSR_OK) std::abort();
}

void initSpr(const Engines& e = Engines{}) {
    const auto& c = container();
    if (e.sprInit(c.data(), uint32_t(c.size()), nullptr, 0, kW, kH, kSprW, kSprH) != kvDSR_OK) std::abort();
}

using benchbase::Threads;

void BM_StereoViewRun_F01(benchmark::State& state, const Engines& e) {
    Threads threads(state);
    initStereoView(e);
    Pair f(kW, kH, kW, kH);
    for (auto _ : state) {
        e.run(f.out2.data(), f.out1.data(), &f.d2, &f.d1, kW, kH);
        benchmark::ClobberMemory();
    }
}

void BM_StereoViewRunSideBySide_F01(benchmark::State& state, const Engines& e) {
    Threads threads(state);
    initStereoView(e);
    Pair f(kW, kH, kW, kH);
    for (auto _ : state) {
        e.runSideBySide(f.sideBySide.data(), 2u * kW, kH, &f.d2, &f.d1, kW, kH);
        benchmark::ClobberMemory();
    }
}

void BM_SprRun_F01(benchmark::State& state, const Engines& e) {
    Threads threads(state);
    initSpr(e);
    Pair f(kW, kH, kSprW, kSprH);
    for (auto _ : state) {
        e.sprRun(f.out2.data(), f.out1.data(), &f.d2, &f.d1, kW, kH, kSprW, kSprH);
        benchmark::ClobberMemory();
    }
}

// The previous paths on the same maps, frames and thread counts.
void BM_ReferenceRun_F01(benchmark::State& state) {
    Threads threads(state);
    initStereoView();
    Pair f(kW, kH, kW, kH);
    ReferenceMaps m(kW, kH, kW, kH);
    for (auto _ : state) {
        test::reference::run(m.full, m.half, f.out2.data(), f.out1.data(), f.d2, f.d1, m.scratch);
        benchmark::ClobberMemory();
    }
}

void BM_ReferenceRunSideBySide_F01(benchmark::State& state) {
    Threads threads(state);
    initStereoView();
    Pair f(kW, kH, kW, kH);
    ReferenceMaps m(kW, kH, kW, kH);
    for (auto _ : state) {
        test::reference::runSideBySide(m.full, m.half, f.sideBySide.data(), f.d2, f.d1, m.scratch);
        benchmark::ClobberMemory();
    }
}

void BM_ReferenceSprRun_F01(benchmark::State& state) {
    Threads threads(state);
    initSpr();
    Pair f(kW, kH, kSprW, kSprH);
    ReferenceMaps m(kW, kH, kSprW, kSprH);
    for (auto _ : state) {
        test::reference::run(m.full, m.half, f.out2.data(), f.out1.data(), f.d2, f.d1, m.scratch);
        benchmark::ClobberMemory();
    }
}

void BM_StereoViewInit(benchmark::State& state) {
    const auto& c = container();
    for (auto _ : state) {
        if (kvDSR_StereoView_Init(c.data(), uint32_t(c.size()), nullptr, 0, kW, kH) != kvDSR_OK)
            state.SkipWithError("Init failed");
    }
}

void registerAll() {
    static std::vector<Engines> engines(1);
    engines[0].name = "new";
    Engines base;
    if (baseline(base)) engines.push_back(base);
    auto add = [](const std::string& name, auto fn, auto... args) {
        benchmark::RegisterBenchmark(name.c_str(), fn, args...)
            ->Arg(1)
            ->Arg(2)
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
    };
    for (const Engines& e : engines) {
        add("BM_StereoViewRun_F01/" + e.name, BM_StereoViewRun_F01, std::cref(e));
        add("BM_StereoViewRunSideBySide_F01/" + e.name, BM_StereoViewRunSideBySide_F01, std::cref(e));
        add("BM_SprRun_F01/" + e.name, BM_SprRun_F01, std::cref(e));
    }
    add("BM_ReferenceRun_F01", BM_ReferenceRun_F01);
    add("BM_ReferenceRunSideBySide_F01", BM_ReferenceRunSideBySide_F01);
    add("BM_ReferenceSprRun_F01", BM_ReferenceSprRun_F01);
    benchmark::RegisterBenchmark("BM_StereoViewInit", BM_StereoViewInit)
        ->Unit(benchmark::kMillisecond)
        ->UseRealTime()
        ->Iterations(5);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    registerAll();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
