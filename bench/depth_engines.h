// Shared by the depth view and binocular benchmarks: one 1920x1080 scene,
// the engines' entry points from this build or from another build of the
// library (KVDSR_BASELINE_LIB=path/to/libkvDSR.so, loaded beside this one so
// that both run side by side in one process), and a summary of ratios
// printed after the usual table.
//
// A baseline library of an earlier revision: bench/build_baseline.sh REF DIR.
#pragma once

#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "calibpack.h"
#include "baseline_lib.h"
#include "kvDSR.h"

namespace depthbench {

constexpr int kW = 1920, kH = 1080, kDW = 480, kDH = 270;

// The entry points a benchmark calls, from one library.
struct Engines {
    std::string name;
    decltype(&kvDSR_Init) init = nullptr;
    decltype(&kvDSR_Run) run = nullptr;
    decltype(&kvDSR_Run_SideBySide) runSideBySide = nullptr;
    decltype(&kvDSR_Close) close = nullptr;
    decltype(&kvDSR_Binocular_Init) binocularInit = nullptr;
    decltype(&kvDSR_Binocular_Run) binocularRun = nullptr;
    decltype(&kvDSR_Binocular_Close) binocularClose = nullptr;
};

inline Engines thisBuild() {
    return {"new",          kvDSR_Init,          kvDSR_Run,           kvDSR_Run_SideBySide,
            kvDSR_Close,    kvDSR_Binocular_Init, kvDSR_Binocular_Run, kvDSR_Binocular_Close};
}

// The baseline named by KVDSR_BASELINE_LIB, or none.
inline bool baseline(Engines& e) {
    benchbase::BaselineLib lib;
    if (!lib.open()) return false;
    e.name = "base";
    lib.get(e.init, "kvDSR_Init");
    lib.get(e.run, "kvDSR_Run");
    lib.get(e.runSideBySide, "kvDSR_Run_SideBySide");
    lib.get(e.close, "kvDSR_Close");
    lib.get(e.binocularInit, "kvDSR_Binocular_Init");
    lib.get(e.binocularRun, "kvDSR_Binocular_Run");
    lib.get(e.binocularClose, "kvDSR_Binocular_Close");
    return true;
}

inline const std::vector<uint8_t>& calibration() {
    static const std::vector<uint8_t> c = kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 512);
    return c;
}

// Textured frames and a receding floor with near objects and scattered
// invalid pixels: surfaces at one depth over long stretches, occlusions and
// gaps at the objects' edges.
struct Scene {
    std::vector<uint8_t> left420, left444, right420, map8, map16;
    Scene() : left420(kW * kH * 3 / 2), left444(3 * kW * kH), right420(left420.size()), map8(kDW * kDH),
              map16(2 * kDW * kDH) {
        for (size_t i = 0; i < left444.size(); ++i) left444[i] = uint8_t((i * 7 + (i / kW) * 3) ^ (i >> 11));
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x) {
                left420[y * kW + x] = uint8_t((x * 7 + y * 3 + ((x / 16 + y / 16) & 1) * 60) & 0xFF);
                right420[y * kW + x] = uint8_t((((x + 12) * 7 + y * 3) & 0xFF) * 3 / 4 + 20);
            }
        for (size_t i = size_t(kW) * kH; i < left420.size(); ++i) {
            left420[i] = uint8_t(110 + i % 37);
            right420[i] = uint8_t(100 + i % 29);
        }
        for (int y = 0; y < kDH; ++y)
            for (int x = 0; x < kDW; ++x) {
                int d = 10 + y / 3;
                const double r1 = std::hypot(x - 150.0, y - 140.0), r2 = std::hypot(x - 340.0, y - 100.0);
                if (r1 < 60) d = 180;
                if (r2 < 40) d = 120 + int(r2);
                if ((x * 31 + y * 17) % 211 == 0) d = 255;
                map8[y * kDW + x] = uint8_t(d);
                const uint16_t v = d == 255 ? 1023 : uint16_t(d * 4);
                std::memcpy(&map16[2 * (y * kDW + x)], &v, 2);
            }
    }
};

inline Scene& scene() {
    static Scene s;
    return s;
}

inline kvDSR_ImageDesc image(uint32_t format, uint8_t* data) {
    kvDSR_ImageDesc d{};
    d.format = format;
    d.plane[0] = data;
    if (format == kvDSR_FMT_YUV420SP) d.plane[1] = data + size_t(kW) * kH;
    if (format == kvDSR_FMT_YUV444P) {
        d.plane[1] = data + size_t(kW) * kH;
        d.plane[2] = data + 2 * size_t(kW) * kH;
    }
    return d;
}

// Runs and their times, collected for the summary.
class SummaryReporter : public benchmark::ConsoleReporter {
public:
    struct Ratio {
        std::string label, numerator, denominator;
    };
    void addRatio(const std::string& label, const std::string& numerator, const std::string& denominator) {
        ratios_.push_back({label, numerator, denominator});
    }
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            if (r.error_occurred) continue;
            const bool aggregate = r.run_type == Run::RT_Aggregate;
            if (aggregate && r.aggregate_name != "median") continue;
            std::string name = r.run_name.str();
            const std::string suffix = "/real_time";
            if (name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0)
                name.resize(name.size() - suffix.size());
            // Medians when there are repetitions, else the single run.
            if (!aggregate && median_.count(name)) continue;
            if (aggregate || !times_.count(name)) times_[name] = {r.GetAdjustedRealTime(), r.GetAdjustedCPUTime()};
            if (aggregate) median_[name] = true;
        }
    }
    void Finalize() override {
        ConsoleReporter::Finalize();
        std::printf("\n%-58s %12s %12s\n", "ratio", "wall", "cpu");
        for (const Ratio& q : ratios_) {
            auto a = times_.find(q.numerator), b = times_.find(q.denominator);
            if (a == times_.end() || b == times_.end()) continue;
            std::printf("%-58s %12.2f %12.2f\n", q.label.c_str(), a->second.first / b->second.first,
                        a->second.second / b->second.second);
        }
    }

private:
    std::vector<Ratio> ratios_;
    std::map<std::string, std::pair<double, double>> times_;
    std::map<std::string, bool> median_;
};

}  // namespace depthbench
