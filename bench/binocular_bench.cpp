// kvDSR_Binocular_Run at 1920x1080 with a 480x270 8-bit map, beside
// kvDSR_Run of the depth view engine on the same frame, map and viewShift,
// on 1 and 2 threads; Init of both engines. With KVDSR_BASELINE_LIB set,
// every case also runs on that library, in the same process. The summary
// gives binocular / Run, the 2-thread scaling and the speed-ups.
#include <string>

#include "depth_engines.h"

namespace {

using namespace depthbench;

constexpr uint16_t kViewShift = 150;

void binocularRun(benchmark::State& state, const Engines& e, int threads) {
    omp_set_num_threads(threads);
    const auto& c = calibration();
    if (e.binocularInit(c.data(), uint32_t(c.size()), nullptr, 0, kW, kH, kDW, kDH, kViewShift) != kvDSR_OK) {
        state.SkipWithError("kvDSR_Binocular_Init failed");
        return;
    }
    Scene& s = scene();
    std::vector<uint8_t> map = s.map8, right = s.right420, out(s.left420.size());
    kvDSR_ImageDesc left = image(kvDSR_FMT_YUV420SP, s.left420.data());
    kvDSR_ImageDesc rightDesc = image(kvDSR_FMT_YUV420SP, right.data());
    kvDSR_ImageDesc depth = image(kvDSR_FMT_DEPTH8, map.data());
    for (auto _ : state) {
        state.PauseTiming();  // the run repairs the map and matches the right image in place
        map = s.map8;
        right = s.right420;
        state.ResumeTiming();
        if (e.binocularRun(out.data(), &left, &rightDesc, kW, kH, &depth, kDW, kDH) != kvDSR_OK) {
            state.SkipWithError("kvDSR_Binocular_Run failed");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    e.binocularClose();
}

void depthViewRun(benchmark::State& state, const Engines& e, int threads) {
    omp_set_num_threads(threads);
    const auto& c = calibration();
    if (e.init(c.data(), uint32_t(c.size()), nullptr, 0, kW, kH, kDW, kDH, kViewShift) != kvDSR_OK) {
        state.SkipWithError("kvDSR_Init failed");
        return;
    }
    Scene& s = scene();
    std::vector<uint8_t> map = s.map8, out(s.left420.size());
    kvDSR_ImageDesc left = image(kvDSR_FMT_YUV420SP, s.left420.data());
    kvDSR_ImageDesc depth = image(kvDSR_FMT_DEPTH8, map.data());
    for (auto _ : state) {
        state.PauseTiming();
        map = s.map8;
        state.ResumeTiming();
        if (e.run(out.data(), &left, kW, kH, &depth, kDW, kDH) != kvDSR_OK) {
            state.SkipWithError("kvDSR_Run failed");
            break;
        }
        benchmark::DoNotOptimize(out.data());
    }
    e.close();
}

// Init builds the two 1023-level tables (OpenMP over levels).
void binocularInit(benchmark::State& state, const Engines& e, int threads) {
    omp_set_num_threads(threads);
    const auto& c = calibration();
    for (auto _ : state)
        if (e.binocularInit(c.data(), uint32_t(c.size()), nullptr, 0, kW, kH, kDW, kDH, kViewShift) != kvDSR_OK) {
            state.SkipWithError("kvDSR_Binocular_Init failed");
            break;
        }
    e.binocularClose();
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    std::vector<Engines> libs{thisBuild()};
    Engines base;
    if (baseline(base)) libs.push_back(base);
    SummaryReporter summary;
    using Fn = void (*)(benchmark::State&, const Engines&, int);
    const std::pair<const char*, Fn> cases[] = {
        {"BinocularRun", binocularRun}, {"DepthViewRun", depthViewRun}, {"BinocularInit", binocularInit}};
    for (auto [name, fn] : cases)
        for (int threads : {1, 2})
            for (const Engines& e : libs) {
                const std::string full = std::string(name) + "/t" + std::to_string(threads) + "/" + e.name;
                benchmark::RegisterBenchmark(full.c_str(), [fn = fn, e, threads](benchmark::State& st) {
                    fn(st, e, threads);
                })->Unit(benchmark::kMillisecond)->UseRealTime();
            }
    for (const Engines& e : libs)
        for (int threads : {1, 2}) {
            const std::string t = "/t" + std::to_string(threads) + "/" + e.name;
            summary.addRatio("BinocularRun / DepthViewRun" + t, "BinocularRun" + t, "DepthViewRun" + t);
        }
    for (const char* name : {"BinocularRun", "DepthViewRun"})
        for (const Engines& e : libs) {
            const std::string n = std::string(name);
            summary.addRatio(n + " t1 / t2 (" + e.name + ")", n + "/t1/" + e.name, n + "/t2/" + e.name);
        }
    if (libs.size() > 1)
        for (const char* name : {"BinocularRun", "DepthViewRun"})
            for (int threads : {1, 2}) {
                const std::string n = std::string(name) + "/t" + std::to_string(threads);
                summary.addRatio(n + ": base / new", n + "/base", n + "/new");
            }
    benchmark::RunSpecifiedBenchmarks(&summary);
    benchmark::Shutdown();
    return 0;
}
