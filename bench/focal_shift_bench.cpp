// Focal alignment shift on 1080p frames: the two-frame call, the full-width
// and the half-width side-by-side call, per format; a plain copy of the same
// bytes is the yardstick.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "calibpack.h"
#include "kvDSR.h"

namespace {

constexpr uint16_t kW = 1920, kH = 1080;

// The sample module at 1000 mm: a shift of a few dozen pixels.
void initShift(uint16_t width) {
    static const auto container = kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 512);
    kvDSR_StereoView_FocalAlignmentShift_Init(container.data(), static_cast<uint32_t>(container.size()), nullptr, 0,
                                              width, kH, 1000);
}

kvDSR_ImageDesc desc(uint32_t format, std::vector<uint8_t>& frame) {
    kvDSR_ImageDesc d{};
    d.format = format;
    d.plane[0] = frame.data();
    return d;
}

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

void BM_ShiftPair(benchmark::State& state) {
    const auto format = static_cast<uint32_t>(state.range(0));
    initShift(kW);
    std::vector<uint8_t> a(size_t{kW} * kH * 3 / 2, 7), b(a.size(), 9), oa(a.size()), ob(a.size());
    kvDSR_ImageDesc da = desc(format, a), db = desc(format, b);
    for (auto _ : state) {
        if (kvDSR_StereoView_FocalAlignmentShift(ob.data(), oa.data(), &db, &da, kW, kH) != kvDSR_OK)
            state.SkipWithError("shift failed");
        benchmark::DoNotOptimize(oa.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(2 * a.size()));
}

// A side-by-side frame of two 1920-wide views; range(1): 1 = halve.
void BM_ShiftSideBySide(benchmark::State& state) {
    const auto format = static_cast<uint32_t>(state.range(0));
    const bool half = state.range(1) != 0;
    const uint16_t W = 2 * kW;
    initShift(kW);
    std::vector<uint8_t> in(size_t{W} * kH * 3 / 2, 5), out(in.size());
    kvDSR_ImageDesc d = desc(format, in);
    const uint32_t outWidth = half ? kW : W;
    for (auto _ : state) {
        if (kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data(), outWidth, kH, &d, W, kH) != kvDSR_OK)
            state.SkipWithError("shift failed");
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(in.size()));
}

}  // namespace

BENCHMARK(BM_CopyPair)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_ShiftPair)->Arg(kvDSR_FMT_YUV420SP)->Arg(kvDSR_FMT_YUV420P)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_ShiftSideBySide)
    ->Args({kvDSR_FMT_YUV420SP, 0})
    ->Args({kvDSR_FMT_YUV420P, 0})
    ->Args({kvDSR_FMT_YUV420SP, 1})
    ->Args({kvDSR_FMT_YUV420P, 1})
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();
BENCHMARK_MAIN();
