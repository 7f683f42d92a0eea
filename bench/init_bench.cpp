// Init of the stereo view (16:9 crop branch at 1920x1080, 4:3 model branch at
// 1440x1080) and of SPR (1920x1080 -> 1280x720) beside what OpenCV does for
// the same job: initUndistortRectifyMap + convertMaps for two cameras at the
// full and the half output size. Counter resident_B_px: bytes per output
// pixel that stay resident after Init (both cameras, both resolutions).
#include <benchmark/benchmark.h>
#include <omp.h>
#include <unistd.h>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include <cstdio>
#include <string>
#include <vector>

#include "calibpack.h"
#include "kvDSR.h"

#if KVDSR_WITH_OPENCV
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace kvdsr;

const calibpack::Bytes& container() {
    static const calibpack::Bytes c = calibpack::packContainer(calibpack::sampleModule(), 1547);
    return c;
}

long residentBytes() {
    long pages = 0, resident = 0;
    if (FILE* f = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
        std::fclose(f);
    }
    return resident * sysconf(_SC_PAGESIZE);
}

void setThreads(int n) {
    omp_set_num_threads(n);
#if KVDSR_WITH_OPENCV
    cv::setNumThreads(n);
#endif
}

// Init in a loop; the resident growth of one Init (after a Close) is reported.
template <class InitFn>
void runInit(benchmark::State& state, InitFn init, void (*close)(), double outPixels) {
    setThreads(int(state.range(0)));
    close();
    const long before = residentBytes();
    if (init() != kvDSR_OK) state.SkipWithError("Init failed");
    const long after = residentBytes();
    for (auto _ : state)
        if (init() != kvDSR_OK) state.SkipWithError("Init failed");
    close();
    state.counters["resident_B_px"] = double(after - before) / outPixels;
}

void BM_StereoViewInit(benchmark::State& state, uint16_t w, uint16_t h) {
    const auto& c = container();
    runInit(
        state, [&] { return kvDSR_StereoView_Init(c.data(), uint32_t(c.size()), nullptr, 0, w, h); },
        [] { kvDSR_StereoView_Close(); }, double(w) * h);
}

void BM_SprInit(benchmark::State& state, uint16_t iw, uint16_t ih, uint16_t ow, uint16_t oh) {
    const auto& c = container();
    runInit(
        state, [&] { return kvDSR_SPR_Init(c.data(), uint32_t(c.size()), nullptr, 0, iw, ih, ow, oh); },
        [] { kvDSR_SPR_Close(); }, double(ow) * oh);
}

#if KVDSR_WITH_OPENCV
// One camera's maps at w x h: the module's lens as a radial k1 (its tables are
// about -0.36 r^2 and -0.82 r^2 percent), its intrinsics at that size and a
// slight rotation, converted to the fixed-point form a remap reads.
struct CvCamera {
    double focalMm, pitchMm, calibWidth, k1Percent;
};

void cvMaps(const CvCamera& cam, int w, int h, cv::Mat& mapX, cv::Mat& mapY, cv::Mat& map1, cv::Mat& map2) {
    const double f = cam.focalMm / cam.pitchMm * w / cam.calibWidth;
    const cv::Matx33d K(f, 0, w / 2.0, 0, f, h / 2.0, 0, 0, 1);
    const double k1 = cam.k1Percent / 100.0 * cam.focalMm * cam.focalMm;
    const cv::Vec<double, 5> dist(k1, 0, 0, 0, 0);
    const cv::Matx33d R(0.9997, 0.0006, 0, -0.0005, 1.0002, 0, 0, 0, 1);
    cv::initUndistortRectifyMap(K, dist, R, K, cv::Size(w, h), CV_32FC1, mapX, mapY);
    cv::convertMaps(mapX, mapY, map1, map2, CV_16SC2, false);
}

void BM_CvInit(benchmark::State& state, int w, int h) {
    setThreads(int(state.range(0)));
    const CvCamera cams[2] = {{2.2, 0.00175, 1600, -0.82}, {3.83, 0.00112, 4160, -0.36}};
    // Each map kept apart, as an engine would keep them: after the first
    // round no call allocates.
    cv::Mat mapX[4], mapY[4], map1[4], map2[4];
    for (auto _ : state) {
        int k = 0;
        for (int div : {1, 2})
            for (const CvCamera& cam : cams) {
                cvMaps(cam, w / div, h / div, mapX[k], mapY[k], map1[k], map2[k]);
                ++k;
            }
        benchmark::DoNotOptimize(map1[3].data);
    }
}
#endif

}  // namespace

int main(int argc, char** argv) {
#if defined(__GLIBC__)
    // Large blocks straight from the system and back on free, so that the
    // resident growth of each Init is its own and not a reused heap's.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
#endif
    struct Case {
        const char* name;
        uint16_t iw, ih, ow, oh;
        bool spr;
    };
    const Case cases[] = {{"StereoView/1920x1080", 1920, 1080, 1920, 1080, false},
                          {"StereoView/1440x1080", 1440, 1080, 1440, 1080, false},
                          {"SPR/1920x1080-1280x720", 1920, 1080, 1280, 720, true}};
    for (int threads : {1, 2}) {
        for (const Case& c : cases) {
            const std::string name = std::string("Init/") + c.name;
            if (c.spr)
                benchmark::RegisterBenchmark(name.c_str(), BM_SprInit, c.iw, c.ih, c.ow, c.oh)
                    ->Arg(threads)->UseRealTime()->Unit(benchmark::kMillisecond);
            else
                benchmark::RegisterBenchmark(name.c_str(), BM_StereoViewInit, c.ow, c.oh)
                    ->Arg(threads)->UseRealTime()->Unit(benchmark::kMillisecond);
#if KVDSR_WITH_OPENCV
            const std::string cvName = "CvInit/" + std::to_string(c.ow) + "x" + std::to_string(c.oh);
            benchmark::RegisterBenchmark(cvName.c_str(), BM_CvInit, c.ow, c.oh)
                ->Arg(threads)->UseRealTime()->Unit(benchmark::kMillisecond);
#endif
        }
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
