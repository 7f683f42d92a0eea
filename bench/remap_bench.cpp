// Warp of one 1920x1080 plane through the sample module's camera-2 table,
// beside cv::remap on the same map and a 10-bytes-per-pixel copy floor; and
// one camera's tables (Remap_BuildCamera, with each table row kernel), the
// whole coordinate map (with each map row kernel) and the table from it,
// beside cv::initUndistortRectifyMap + convertMaps.
// Counter per_px: wall time per output pixel (seconds, SI-prefixed).
#include <benchmark/benchmark.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "calibration/camera_model.h"
#include "calibration/geometry.h"
#include "remap/remap.h"
#include "remap/distortion_map_kernels.h"
#include "remap/remap_lut_kernels.h"
#include "remap/warp_kernels.h"

#if KVDSR_WITH_CALIBPACK
#include "calibpack.h"
#endif
#if KVDSR_WITH_OPENCV
#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace kvdsr;
using namespace kvdsr::remap;

constexpr int kWidth = 1920, kHeight = 1080;
constexpr double kPixels = double(kWidth) * kHeight;

// Without the packer: a camera like the module's main camera (4160x3120,
// 1.12 um pixels, barrel table to 3.2 mm, slight perspective).
calib::CameraModel handMadeCamera() {
    calib::CameraModel c;
    const float h[9] = {0.9997f, 0.0006f, -0.4f, -0.0005f, 1.0002f, 0.9f, -1.0e-7f, 0.5e-7f, 1.0f};
    c.number = 2;
    std::copy(h, h + 9, c.homography);
    c.modelWidth = c.calibWidth = 4160;
    c.modelHeight = c.calibHeight = 3120;
    c.pixelPitch = 0.00112f;
    c.principalX = uint16_t(2086.25 * 16);
    c.principalY = uint16_t(1556.5 * 16);
    c.distortionCount = 21;
    for (int i = 0; i < 21; ++i) {
        const double r = 0.16 * i;
        c.distortionRadii[i] = int16_t(std::lround(r * 1000));
        c.distortionValues[i] = int16_t(std::lround(-0.36 * r * r * 1000));
    }
    return c;
}

calib::CameraModel sampleCamera() {
#if KVDSR_WITH_CALIBPACK
    const auto bytes = calibpack::packKind3(calibpack::sampleModule()[1]);
    calib::CameraModel c = calib::readCamera(bytes.data(), 2);
#else
    calib::CameraModel c = handMadeCamera();
#endif
    geom::rescaleCamera(c, kWidth, kHeight);
    return c;
}

const RemapLayout kLayout{kWidth, kHeight, kWidth, kHeight};

struct Fixture {
    calib::CameraModel camera;
    RemapModel model;
    DistortionTable table;
    std::vector<uint8_t> storage, src;
    std::vector<double> map;  // the whole coordinate map, for the table-only build
    RemapTables tables;
    uint32_t buildResult = 0;
#if KVDSR_WITH_OPENCV
    cv::Mat map1, map2, cvSrc;
#endif

    Fixture() {
        camera = sampleCamera();
        model = Remap_BuildModel(camera, kLayout);
        table = DistortionTable_FromModel(camera, 0);
        storage.assign(Remap_TableBytes(kLayout), 0);
        tables = Remap_TablesIn(storage.data(), kLayout);
        buildResult = Remap_BuildCamera(tables, camera, kLayout);
        map.assign(2 * size_t(kWidth) * kHeight, 0.0);
        double sx, sy;
        DistortionMap_Build(map.data(), model, table.radius, table.distortion, table.calibrationEntries, 0, &sx, &sy,
                            1);
        // A textured plane: gradients plus noise.
        src.resize(size_t(kWidth) * kHeight);
        std::mt19937 rng(1);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) src[size_t(y) * kWidth + x] = uint8_t((x ^ y) + (rng() & 15));
#if KVDSR_WITH_OPENCV
        // The same sampling positions as float maps, converted the usual way.
        cv::Mat mapX(kHeight, kWidth, CV_32FC1), mapY(kHeight, kWidth, CV_32FC1);
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                const size_t i = size_t(y) * kWidth + x;
                const uint32_t o = tables.offset[i];
                const bool invalid = o == 0 && tables.columnWeight[i] == 0 && tables.rowWeight[i] == 0;
                mapX.at<float>(y, x) = invalid ? -10.f : float(o % kWidth) + (1024 - tables.columnWeight[i]) / 1024.f;
                mapY.at<float>(y, x) = invalid ? -10.f : float(o / kWidth) + (1024 - tables.rowWeight[i]) / 1024.f;
            }
        cv::convertMaps(mapX, mapY, map1, map2, CV_16SC2, false);
        cvSrc = cv::Mat(kHeight, kWidth, CV_8UC1, src.data());
#endif
    }
};

Fixture& fixture() {
    static Fixture f;
    return f;
}

void setThreads(int n) {
    omp_set_num_threads(n);
#if KVDSR_WITH_OPENCV
    cv::setNumThreads(n);
#endif
}

void perPixel(benchmark::State& state) {
    state.counters["per_px"] =
        benchmark::Counter(kPixels, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_Warp(benchmark::State& state, WarpGroupsFn kernel) {
    Fixture& f = fixture();
    setThreads(int(state.range(0)));
    setWarpKernel(kernel);
    std::vector<uint8_t> dst(size_t(kWidth) * kHeight);
    const uint16_t rect[4] = {0, 0, kWidth - 1, kHeight - 1};
    for (auto _ : state) {
        Remap_ApplyPlane(dst.data(), f.src.data(), f.tables.offset, f.tables.columnWeight, f.tables.rowWeight, kWidth,
                         f.tables.stride, rect);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    setWarpKernel(nullptr);
    perPixel(state);
}

// 10 bytes per pixel: the 8 table bytes, the source and the destination.
void BM_CopyFloor(benchmark::State& state) {
    const int threads = int(state.range(0));
    setThreads(threads);
    const size_t bytes = size_t(kPixels) * 10;
    std::vector<uint8_t> a(bytes, 1), b(bytes, 0);
    for (auto _ : state) {
#pragma omp parallel for schedule(static) num_threads(threads)
        for (int part = 0; part < threads; ++part) {
            const size_t begin = bytes * part / threads, end = bytes * (part + 1) / threads;
            std::memcpy(b.data() + begin, a.data() + begin, end - begin);
        }
        benchmark::DoNotOptimize(b.data());
        benchmark::ClobberMemory();
    }
    perPixel(state);
}

enum class Build { Tables, MapOnly, TableFromMap };

// The tables as Init builds them, or the two steps they replace: the whole
// coordinate map, and the table from it; optionally with one given table
// row kernel.
void BM_Build(benchmark::State& state, Build what, LutRowFn rows, MapRowFn mapRows) {
    Fixture& f = fixture();
    setThreads(int(state.range(0)));
    setLutRowKernel(rows);
    setMapRowKernel(mapRows);
    const uint16_t rect[4] = {0, 0, kWidth - 1, kHeight - 1};
    for (auto _ : state) {
        uint32_t r = 0;
        double sx, sy;
        switch (what) {
            case Build::Tables: r = Remap_BuildCamera(f.tables, f.camera, kLayout); break;
            case Build::MapOnly:
                r = DistortionMap_Build(f.map.data(), f.model, f.table.radius, f.table.distortion,
                                        f.table.calibrationEntries, 0, &sx, &sy, 1);
                break;
            case Build::TableFromMap:
                RemapLut_Build(f.tables, kLayout, f.model.homography, f.map.data(), kWidth, kHeight, rect);
                break;
        }
        benchmark::DoNotOptimize(r);
        benchmark::ClobberMemory();
    }
    setLutRowKernel(nullptr);
    setMapRowKernel(nullptr);
    perPixel(state);
}

#if KVDSR_WITH_OPENCV
void BM_CvRemap(benchmark::State& state) {
    Fixture& f = fixture();
    setThreads(int(state.range(0)));
    cv::Mat dst(kHeight, kWidth, CV_8UC1);
    for (auto _ : state) {
        cv::remap(f.cvSrc, dst, f.map1, f.map2, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
        benchmark::DoNotOptimize(dst.data);
    }
    perPixel(state);
}

// Same size and a comparable lens: intrinsics of the rescaled camera 2,
// radial k1 matching the module's -0.36 r^2 percent, a small rotation.
void BM_CvBuild(benchmark::State& state) {
    setThreads(int(state.range(0)));
    const double fx = 3.83 / 0.00112 * kWidth / 4160.0, fy = 3.83 / 0.00112 * kHeight / 3120.0;
    const cv::Matx33d K(fx, 0, kWidth / 2.0, 0, fy, kHeight / 2.0, 0, 0, 1);
    const double k1 = -0.0036 * 3.83 * 3.83;
    const cv::Vec<double, 5> dist(k1, 0, 0, 0, 0);
    const cv::Matx33d R(0.9997, 0.0006, 0, -0.0005, 1.0002, 0, 0, 0, 1);
    cv::Mat mapX, mapY, map1, map2;
    for (auto _ : state) {
        cv::initUndistortRectifyMap(K, dist, R, K, cv::Size(kWidth, kHeight), CV_32FC1, mapX, mapY);
        cv::convertMaps(mapX, mapY, map1, map2, CV_16SC2, false);
        benchmark::DoNotOptimize(map1.data);
    }
    perPixel(state);
}
#endif

}  // namespace

int main(int argc, char** argv) {
    std::printf("sample table build result 0x%X\n", fixture().buildResult);
    const WarpVariant* variants;
    const int count = warpVariants(&variants);
    for (int threads : {1, 2}) {
        for (int i = 0; i < count; ++i)
            benchmark::RegisterBenchmark((std::string("Warp/") + variants[i].name).c_str(), BM_Warp, variants[i].fn)
                ->Arg(threads)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark("Warp/auto", BM_Warp, nullptr)->Arg(threads)->UseRealTime()->Unit(benchmark::kMillisecond);
#if KVDSR_WITH_OPENCV
        benchmark::RegisterBenchmark("CvRemap", BM_CvRemap)->Arg(threads)->UseRealTime()->Unit(benchmark::kMillisecond);
#endif
        benchmark::RegisterBenchmark("CopyFloor10", BM_CopyFloor)->Arg(threads)->UseRealTime()->Unit(benchmark::kMillisecond);
        for (const auto& [name, what] : {std::pair<const char*, Build>{"Build", Build::Tables},
                                         {"Build/map", Build::MapOnly},
                                         {"Build/table", Build::TableFromMap}})
            benchmark::RegisterBenchmark(name, BM_Build, what, nullptr, nullptr)
                ->Arg(threads)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        // The tables with every table row kernel this CPU runs, in detection order.
        const LutRowVariant* rowKernels;
        const int rowCount = lutRowVariants(&rowKernels);
        for (int i = 0; i < rowCount; ++i)
            benchmark::RegisterBenchmark((std::string("Build/") + rowKernels[i].name).c_str(), BM_Build,
                                         Build::Tables, rowKernels[i].fn, nullptr)
                ->Arg(threads)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        // The whole map with every map row kernel this CPU runs.
        const MapRowVariant* mapKernels;
        const int mapCount = mapRowVariants(&mapKernels);
        for (int i = 0; i < mapCount; ++i)
            benchmark::RegisterBenchmark((std::string("Build/map/") + mapKernels[i].name).c_str(), BM_Build,
                                         Build::MapOnly, nullptr, mapKernels[i].fn)
                ->Arg(threads)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
#if KVDSR_WITH_OPENCV
        benchmark::RegisterBenchmark("CvBuild", BM_CvBuild)->Arg(threads)->UseRealTime()->Unit(benchmark::kMillisecond);
#endif
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
