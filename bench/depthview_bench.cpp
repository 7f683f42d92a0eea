// kvDSR_Run and kvDSR_Run_SideBySide on a 1920x1080 frame with a 480x270
// 8-bit map: NV21 (0xF01) and packed 4:4:4 (0xF02), viewShift 50, 300 and
// 500, on 1 and 2 threads. With KVDSR_BASELINE_LIB set, every case runs on
// that library too, in the same process, its output checked against this
// build's; the summary gives the speed-ups over it and the 2-thread scaling.
#include <map>
#include <string>

#include "depth_engines.h"

namespace {

using namespace depthbench;

uint64_t hash(const std::vector<uint8_t>& v) {
    uint64_t h = 1469598103934665603ull;
    for (uint8_t b : v) h = (h ^ b) * 1099511628211ull;
    return h;
}

// Output hashes of each case, to compare the libraries.
std::map<std::string, uint64_t>& outputs() {
    static std::map<std::string, uint64_t> m;
    return m;
}

void runCase(benchmark::State& state, const Engines& e, const std::string& key, uint32_t format, uint16_t shift,
             bool sideBySide, int threads) {
    omp_set_num_threads(threads);
    const auto& c = calibration();
    if (e.init(c.data(), uint32_t(c.size()), nullptr, 0, kW, kH, kDW, kDH, shift) != kvDSR_OK) {
        state.SkipWithError("kvDSR_Init failed");
        return;
    }
    Scene& s = scene();
    std::vector<uint8_t> map = s.map8, out(size_t(kW) * kH * (format == kvDSR_FMT_YUV420SP ? 3 : 6));
    kvDSR_ImageDesc img = image(format, format == kvDSR_FMT_YUV420SP ? s.left420.data() : s.left444.data());
    kvDSR_ImageDesc depth = image(kvDSR_FMT_DEPTH8, map.data());
    for (auto _ : state) {
        state.PauseTiming();  // the run repairs the map in place
        map = s.map8;
        state.ResumeTiming();
        const uint32_t rc = sideBySide ? e.runSideBySide(out.data(), 2 * kW, 0, &img, kW, kH, &depth, kDW, kDH)
                                       : e.run(out.data(), &img, kW, kH, &depth, kDW, kDH);
        if (rc != kvDSR_OK) {
            state.SkipWithError("run failed");
            break;
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    e.close();
    const uint64_t h = hash(out);
    auto [it, fresh] = outputs().emplace(key, h);
    if (!fresh && it->second != h) state.SkipWithError("output differs from the other library's");
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    std::vector<Engines> libs{thisBuild()};
    Engines base;
    if (baseline(base)) libs.push_back(base);
    SummaryReporter summary;
    struct Case {
        const char* name;
        uint32_t format;
        uint16_t shift;
        bool sideBySide;
    };
    std::vector<Case> cases;
    for (uint16_t shift : {50, 300, 500}) {
        cases.push_back({"Run/F01", kvDSR_FMT_YUV420SP, shift, false});
        cases.push_back({"Run/F02", kvDSR_FMT_YUV444P, shift, false});
    }
    cases.push_back({"SideBySide/F01", kvDSR_FMT_YUV420SP, 300, true});
    cases.push_back({"SideBySide/F02", kvDSR_FMT_YUV444P, 300, true});
    for (const Case& c : cases)
        for (int threads : {1, 2}) {
            const std::string key = std::string(c.name) + "/s" + std::to_string(c.shift) + "/t" + std::to_string(threads);
            for (const Engines& e : libs) {
                const std::string name = key + "/" + e.name;
                benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& st) {
                    runCase(st, e, key, c.format, c.shift, c.sideBySide, threads);
                })->Unit(benchmark::kMillisecond)->UseRealTime();
            }
            if (libs.size() > 1) summary.addRatio(key + ": base / new", key + "/base", key + "/new");
            if (threads == 2) {
                const std::string one = std::string(c.name) + "/s" + std::to_string(c.shift) + "/t1";
                for (const Engines& e : libs)
                    summary.addRatio(one + " / t2 (" + e.name + ")", one + "/" + e.name, key + "/" + e.name);
            }
        }
    benchmark::RunSpecifiedBenchmarks(&summary);
    benchmark::Shutdown();
    return 0;
}
