// Focal alignment shift on 1080p frames: the two-frame call, the full-width
// and the half-width side-by-side call, per format, at 1 and 2 threads; a
// plain copy of the same bytes is the yardstick, and the half-width call with
// the reference row kernels that of the SIMD ones. With
// KVDSR_BASELINE_LIB=path/to/libkvDSR.so (an earlier revision:
// bench/build_baseline.sh) the calls are timed on that library too, in the
// same process ("base" beside "new").
//
// Run with --benchmark_repetitions=5 --benchmark_enable_random_interleaving
// so that both sides of each ratio see the same machine load.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "baseline_lib.h"
#include "bench_threads.h"
#include "calibpack.h"
#include "kvDSR.h"
#include "stereoview/halve_kernels.h"

namespace {

constexpr uint16_t kW = 1920, kH = 1080;

// The entry points timed, from this build or from the baseline library.
struct Engines {
    std::string name;
    decltype(&kvDSR_StereoView_FocalAlignmentShift_Init) init = kvDSR_StereoView_FocalAlignmentShift_Init;
    decltype(&kvDSR_StereoView_FocalAlignmentShift) shift = kvDSR_StereoView_FocalAlignmentShift;
    decltype(&kvDSR_StereoView_FocalAlignmentShiftSideBySide) sideBySide =
        kvDSR_StereoView_FocalAlignmentShiftSideBySide;
};

bool baseline(Engines& e) {
    benchbase::BaselineLib lib;
    if (!lib.open()) return false;
    e.name = "base";
    lib.get(e.init, "kvDSR_StereoView_FocalAlignmentShift_Init");
    lib.get(e.shift, "kvDSR_StereoView_FocalAlignmentShift");
    lib.get(e.sideBySide, "kvDSR_StereoView_FocalAlignmentShiftSideBySide");
    return true;
}

// The sample module at 1000 mm: a shift of a few dozen pixels.
void initShift(const Engines& e, uint16_t width) {
    static const auto container = kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 512);
    e.init(container.data(), static_cast<uint32_t>(container.size()), nullptr, 0, width, kH, 1000);
}

kvDSR_ImageDesc desc(uint32_t format, std::vector<uint8_t>& frame) {
    kvDSR_ImageDesc d{};
    d.format = format;
    d.plane[0] = frame.data();
    return d;
}

using benchbase::Threads;

void BM_CopyPair(benchmark::State& state) {
    std::vector<uint8_t> a(size_t{kW} * kH * 3 / 2, 7), b(a.size(), 9), oa(a.size()), ob(a.size());
    for (auto _ : state) {
        std::memcpy(oa.data(), a.data(), a.size());
        std::memcpy(ob.data(), b.data(), b.size());
        benchmark::DoNotOptimize(oa.data());
        benchmark::DoNotOptimize(ob.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(2 * a.size()));
}

// range(0): threads, range(1): format.
void BM_ShiftPair(benchmark::State& state, const Engines& e) {
    const Threads threads(state);
    const auto format = static_cast<uint32_t>(state.range(1));
    initShift(e, kW);
    std::vector<uint8_t> a(size_t{kW} * kH * 3 / 2, 7), b(a.size(), 9), oa(a.size()), ob(a.size());
    kvDSR_ImageDesc da = desc(format, a), db = desc(format, b);
    for (auto _ : state) {
        if (e.shift(ob.data(), oa.data(), &db, &da, kW, kH) != kvDSR_OK) state.SkipWithError("shift failed");
        benchmark::DoNotOptimize(oa.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(2 * a.size()));
}

// A side-by-side frame of two 1920-wide views. range(0): threads, range(1):
// format, range(2): 1 = halve, 2 = halve with this build's reference row kernels.
void BM_ShiftSideBySide(benchmark::State& state, const Engines& e) {
    const Threads threads(state);
    const auto format = static_cast<uint32_t>(state.range(1));
    const bool half = state.range(2) != 0;
    const bool reference = state.range(2) == 2;
    kvdsr::focalshift::setHalveBytesKernel(reference ? kvdsr::focalshift::HalveBytesGroups_C : nullptr);
    kvdsr::focalshift::setHalvePairsKernel(reference ? kvdsr::focalshift::HalvePairsGroups_C : nullptr);
    const uint16_t W = 2 * kW;
    initShift(e, kW);
    std::vector<uint8_t> in(size_t{W} * kH * 3 / 2, 5), out(in.size());
    kvDSR_ImageDesc d = desc(format, in);
    const uint32_t outWidth = half ? kW : W;
    for (auto _ : state) {
        if (e.sideBySide(out.data(), outWidth, kH, &d, W, kH) != kvDSR_OK) state.SkipWithError("shift failed");
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(in.size()));
    kvdsr::focalshift::setHalveBytesKernel(nullptr);
    kvdsr::focalshift::setHalvePairsKernel(nullptr);
}

void registerAll() {
    static std::vector<Engines> engines(1);
    engines[0].name = "new";
    Engines base;
    if (baseline(base)) engines.push_back(base);
    benchmark::RegisterBenchmark("BM_CopyPair", BM_CopyPair)->Unit(benchmark::kMicrosecond)->UseRealTime();
    for (const Engines& e : engines) {
        auto* pair = benchmark::RegisterBenchmark(("BM_ShiftPair/" + e.name).c_str(), BM_ShiftPair, std::cref(e));
        auto* sideBySide = benchmark::RegisterBenchmark(("BM_ShiftSideBySide/" + e.name).c_str(),
                                                        BM_ShiftSideBySide, std::cref(e));
        for (int threads : {1, 2})
            for (int format : {kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV420P}) {
                pair->Args({threads, format});
                sideBySide->Args({threads, format, 0})->Args({threads, format, 1});
                if (e.name == "new") sideBySide->Args({threads, format, 2});
            }
        pair->Unit(benchmark::kMicrosecond)->UseRealTime();
        sideBySide->Unit(benchmark::kMicrosecond)->UseRealTime();
    }
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
