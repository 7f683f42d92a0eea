// kvDSR_Binocular_Run at 1920x1080 with a 480x270 map, against kvDSR_Run of
// the depth view engine on the same frame, on 1 and 2 threads.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "calibpack.h"
#include "kvDSR.h"

namespace {

constexpr int kW = 1920, kH = 1080, kDW = 480, kDH = 270;
constexpr uint16_t kViewShift = 150;

struct Scene {
    std::vector<uint8_t> calibration = kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 512);
    std::vector<uint8_t> left, right, depth, out;

    Scene() : left(kW * kH * 3 / 2), right(left.size()), depth(kDW * kDH), out(left.size()) {
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x) {
                const int v = (x * 7 + y * 3 + ((x / 16 + y / 16) & 1) * 60) & 0xFF;
                left[y * kW + x] = uint8_t(v);
                right[y * kW + x] = uint8_t((((x + 12) * 7 + y * 3) & 0xFF) * 3 / 4 + 20);
            }
        for (size_t i = size_t(kW) * kH; i < left.size(); ++i) {
            left[i] = uint8_t(110 + i % 37);
            right[i] = uint8_t(100 + i % 29);
        }
        // Background far away, a near block in the middle, a few invalid pixels.
        for (int y = 0; y < kDH; ++y)
            for (int x = 0; x < kDW; ++x) {
                uint8_t d = uint8_t(20 + (x + y) % 7);
                if (x > 160 && x < 320 && y > 60 && y < 210) d = 90;
                if ((x * 31 + y * 17) % 211 == 0) d = 255;
                depth[y * kDW + x] = d;
            }
    }
};

kvDSR_ImageDesc image(std::vector<uint8_t>& data, uint32_t format) {
    kvDSR_ImageDesc d{};
    d.format = format;
    d.plane[0] = data.data();
    if (format == kvDSR_FMT_YUV420SP) d.plane[1] = data.data() + size_t(kW) * kH;
    return d;
}

void BM_BinocularRun(benchmark::State& state) {
    omp_set_num_threads(int(state.range(0)));
    Scene s;
    if (kvDSR_Binocular_Init(s.calibration.data(), uint32_t(s.calibration.size()), nullptr, 0, kW, kH, kDW, kDH,
                             kViewShift) != kvDSR_OK) {
        state.SkipWithError("kvDSR_Binocular_Init failed");
        return;
    }
    const std::vector<uint8_t> depthIn = s.depth, rightIn = s.right;
    kvDSR_ImageDesc left = image(s.left, kvDSR_FMT_YUV420SP), right = image(s.right, kvDSR_FMT_YUV420SP);
    kvDSR_ImageDesc depth = image(s.depth, kvDSR_FMT_DEPTH8);
    for (auto _ : state) {
        state.PauseTiming();  // the run repairs the map and matches the right image in place
        std::memcpy(s.depth.data(), depthIn.data(), depthIn.size());
        std::memcpy(s.right.data(), rightIn.data(), rightIn.size());
        state.ResumeTiming();
        const uint32_t rc = kvDSR_Binocular_Run(s.out.data(), &left, &right, kW, kH, &depth, kDW, kDH);
        if (rc != kvDSR_OK) {
            state.SkipWithError("kvDSR_Binocular_Run failed");
            break;
        }
        benchmark::DoNotOptimize(s.out.data());
    }
    kvDSR_Binocular_Close();
}

void BM_DepthViewRun(benchmark::State& state) {
    omp_set_num_threads(int(state.range(0)));
    Scene s;
    if (kvDSR_Init(s.calibration.data(), uint32_t(s.calibration.size()), nullptr, 0, kW, kH, kDW, kDH,
                   kViewShift) != kvDSR_OK) {
        state.SkipWithError("kvDSR_Init failed (depth view engine not in this build?)");
        return;
    }
    const std::vector<uint8_t> depthIn = s.depth;
    kvDSR_ImageDesc left = image(s.left, kvDSR_FMT_YUV420SP);
    kvDSR_ImageDesc depth = image(s.depth, kvDSR_FMT_DEPTH8);
    for (auto _ : state) {
        state.PauseTiming();
        std::memcpy(s.depth.data(), depthIn.data(), depthIn.size());
        state.ResumeTiming();
        const uint32_t rc = kvDSR_Run(s.out.data(), &left, kW, kH, &depth, kDW, kDH);
        if (rc != kvDSR_OK) {
            state.SkipWithError("kvDSR_Run failed");
            break;
        }
        benchmark::DoNotOptimize(s.out.data());
    }
    kvDSR_Close();
}

BENCHMARK(BM_BinocularRun)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DepthViewRun)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
