// kvDSR_StereoView_Run on a 1920x1080 0xF01 pair against the six plane warps
// it is made of (two luma, four chroma, through the same maps), and
// kvDSR_StereoView_Init at 1920x1080.
#include <benchmark/benchmark.h>

#include <chrono>
#include <random>
#include <vector>

#include "calibpack.h"
#include "kvDSR.h"
#include "stereoview/stereo_params.h"
#include "stereoview/stereo_warp.h"

namespace {

using namespace kvdsr;

constexpr uint16_t kW = 1920, kH = 1080;

const calibpack::Bytes& container() {
    static const calibpack::Bytes c = calibpack::packContainer(calibpack::sampleModule(), 1547);
    return c;
}

struct Pair {
    std::vector<uint8_t> in1, in2, out1, out2;
    kvDSR_ImageDesc d1{}, d2{};
    Pair() {
        const size_t n = size_t(kW) * kH * 3 / 2;
        in1.resize(n);
        in2.resize(n);
        out1.resize(n);
        out2.resize(n);
        std::mt19937 rng(1);
        for (auto* v : {&in1, &in2})
            for (auto& b : *v) b = uint8_t(rng());
        d1 = {kvDSR_FMT_YUV420SP, {0, 0, 0}, {in1.data(), in1.data() + size_t(kW) * kH, nullptr}};
        d2 = {kvDSR_FMT_YUV420SP, {0, 0, 0}, {in2.data(), in2.data() + size_t(kW) * kH, nullptr}};
    }
};

// The same maps as the engine's: built from the blocks its Init prepared.
struct PlaneWarps {
    stereoview::MapSet full, half;
    std::vector<uint8_t> chromaIn, chromaOut;
    PlaneWarps() : chromaIn(size_t(kW) * kH / 2), chromaOut(size_t(kW) * kH / 2) {
        const auto& p = stereoview::stereoParams();
        stereoview::buildMapSet(full, p.calibBlock, kW, kH, kW, kH);
        stereoview::buildMapSet(half, p.halfCalibBlock, kW / 2, kH / 2, kW / 2, kH / 2);
    }
    void run(Pair& f) {
        const size_t q = size_t(kW / 2) * (kH / 2);
        stereoview::warpPlane(full, 2, f.out2.data(), f.in2.data());
        stereoview::warpPlane(full, 1, f.out1.data(), f.in1.data());
        for (int camera = 1; camera <= 2; ++camera) {
            stereoview::warpPlane(half, camera, chromaOut.data(), chromaIn.data());
            stereoview::warpPlane(half, camera, chromaOut.data() + q, chromaIn.data() + q);
        }
    }
};

void initOnce() {
    const auto& c = container();
    if (kvDSR_StereoView_Init(c.data(), uint32_t(c.size()), nullptr, 0, kW, kH) != kvDSR_OK) std::abort();
}

void BM_StereoViewRun_F01(benchmark::State& state) {
    initOnce();
    Pair f;
    for (auto _ : state) {
        kvDSR_StereoView_Run(f.out2.data(), f.out1.data(), &f.d2, &f.d1, kW, kH);
        benchmark::ClobberMemory();
    }
}

void BM_StereoViewRunSideBySide_F01(benchmark::State& state) {
    initOnce();
    Pair f;
    std::vector<uint8_t> out(size_t(2) * kW * kH * 3 / 2);
    for (auto _ : state) {
        kvDSR_StereoView_Run_SideBySide(out.data(), 2u * kW, kH, &f.d2, &f.d1, kW, kH);
        benchmark::ClobberMemory();
    }
}

void BM_PlaneWarps_F01(benchmark::State& state) {
    initOnce();
    Pair f;
    PlaneWarps w;
    for (auto _ : state) {
        w.run(f);
        benchmark::ClobberMemory();
    }
}

// Both in one loop, alternating, so that the ratio sees the same machine load.
void BM_RunOverPlaneWarps_F01(benchmark::State& state) {
    initOnce();
    Pair f;
    PlaneWarps w;
    using clock = std::chrono::steady_clock;
    double runSec = 0, warpSec = 0;
    for (auto _ : state) {
        const auto t0 = clock::now();
        kvDSR_StereoView_Run(f.out2.data(), f.out1.data(), &f.d2, &f.d1, kW, kH);
        const auto t1 = clock::now();
        w.run(f);
        const auto t2 = clock::now();
        runSec += std::chrono::duration<double>(t1 - t0).count();
        warpSec += std::chrono::duration<double>(t2 - t1).count();
    }
    state.counters["run_ms"] = 1e3 * runSec / state.iterations();
    state.counters["warps_ms"] = 1e3 * warpSec / state.iterations();
    state.counters["ratio"] = runSec / warpSec;
}

void BM_StereoViewInit(benchmark::State& state) {
    const auto& c = container();
    for (auto _ : state) {
        if (kvDSR_StereoView_Init(c.data(), uint32_t(c.size()), nullptr, 0, kW, kH) != kvDSR_OK)
            state.SkipWithError("Init failed");
    }
}

BENCHMARK(BM_StereoViewRun_F01)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_StereoViewRunSideBySide_F01)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlaneWarps_F01)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RunOverPlaneWarps_F01)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(40);
BENCHMARK(BM_StereoViewInit)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

}  // namespace

BENCHMARK_MAIN();
