// kvDSR_Run on a 1920x1080 frame with a 480x270 map, per image and depth
// format, on 1 and 2 threads; a memcpy of the same input and output bytes in
// the same run is the floor the engine is compared with.
#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "calibration/calib_block.h"
#include "depthview/depth_steps.h"
#include "depthview/synthesis.h"
#include "kvDSR.h"

namespace {

constexpr int W = 1920, H = 1080, DW = 480, DH = 270;

std::vector<uint8_t> calibration() {
    using kvdsr::calib::store;
    std::vector<uint8_t> c(512, 0);
    for (int i = 1; i <= 2; ++i) {
        const uint32_t base = kvdsr::calib::kSectionOffset[i];
        store<int32_t>(c.data(), base, 1);
        store<uint16_t>(c.data(), base + 96, 4000);
        store<uint16_t>(c.data(), base + 98, 3000);
        store<float>(c.data(), base + 100, 0.0014f);
        store<float>(c.data(), base + 112, 4.0f);
        const float f = 3000.f, tx = i == 2 ? -20.f * f : 0.f;
        const float P[12] = {f, 0, 2000, tx, 0, f, 1500, 0, 0, 0, 1, 0};
        for (int k = 0; k < 12; ++k) store<float>(c.data(), base + 40 + 4 * k, P[k]);
    }
    return c;
}

struct Frame {
    std::vector<uint8_t> image420, image444, out, map8;
    std::vector<uint16_t> map16;
    Frame() : image420(W * H * 3 / 2), image444(3 * W * H), out(3 * W * H), map8(DW * DH), map16(DW * DH) {
        for (size_t i = 0; i < image444.size(); ++i) image444[i] = uint8_t((i * 7 + (i / W) * 3) ^ (i >> 11));
        std::memcpy(image420.data(), image444.data(), image420.size());
        // A receding floor with a few near objects: disparities 10..200.
        for (int y = 0; y < DH; ++y)
            for (int x = 0; x < DW; ++x) {
                int d = 10 + y / 3;
                const double r1 = std::hypot(x - 150.0, y - 140.0), r2 = std::hypot(x - 340.0, y - 100.0);
                if (r1 < 60) d = 180;
                if (r2 < 40) d = 120 + int(r2);
                map8[y * DW + x] = uint8_t(d);
                map16[y * DW + x] = uint16_t(d * 4);
            }
    }
};

Frame& frame() {
    static Frame f;
    return f;
}

void initOnce() {
    static bool done = false;
    if (done) return;
    const auto c = calibration();
    if (kvDSR_Init(c.data(), uint32_t(c.size()), nullptr, 0, W, H, DW, DH, 300) != kvDSR_OK) std::abort();
    done = true;
}

void runFrame(benchmark::State& state, uint32_t imageFormat, uint32_t depthFormat) {
    omp_set_num_threads(int(state.range(0)));
    initOnce();
    Frame& f = frame();
    kvDSR_ImageDesc image{};
    image.format = imageFormat;
    if (imageFormat == kvDSR_FMT_YUV420SP) {
        image.plane[0] = f.image420.data();
        image.plane[1] = f.image420.data() + W * H;
    } else {
        for (int p = 0; p < 3; ++p) image.plane[p] = f.image444.data() + size_t(p) * W * H;
    }
    kvDSR_ImageDesc depth{};
    depth.format = depthFormat;
    depth.plane[0] = depthFormat == kvDSR_FMT_DEPTH8 ? f.map8.data() : reinterpret_cast<uint8_t*>(f.map16.data());
    for (auto _ : state) {
        if (kvDSR_Run(f.out.data(), &image, W, H, &depth, DW, DH) != kvDSR_OK) std::abort();
        benchmark::DoNotOptimize(f.out.data());
        benchmark::ClobberMemory();
    }
}

void BM_Run_F01_Depth8(benchmark::State& s) { runFrame(s, kvDSR_FMT_YUV420SP, kvDSR_FMT_DEPTH8); }
void BM_Run_F01_Depth16(benchmark::State& s) { runFrame(s, kvDSR_FMT_YUV420SP, kvDSR_FMT_DEPTH16); }
void BM_Run_F02_Depth8(benchmark::State& s) { runFrame(s, kvDSR_FMT_YUV444P, kvDSR_FMT_DEPTH8); }

// Input image + map read, output written: the bytes a frame must move.
void BM_Memcpy_Floor(benchmark::State& state) {
    const bool is444 = state.range(0) == 444;
    const size_t imageBytes = is444 ? 3 * W * H : W * H * 3 / 2;
    const size_t mapBytes = is444 ? DW * DH : 2 * DW * DH;
    std::vector<uint8_t> src(imageBytes + mapBytes, 1), dst(imageBytes + mapBytes);
    std::vector<uint8_t> out(imageBytes, 2), out2(imageBytes);
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), src.size());
        std::memcpy(out2.data(), out.data(), out.size());
        benchmark::DoNotOptimize(dst.data());
        benchmark::DoNotOptimize(out2.data());
        benchmark::ClobberMemory();
    }
}

// Steps alone, single-threaded: where a frame's time goes.
void BM_Step_Resize(benchmark::State& state) {
    omp_set_num_threads(1);
    std::vector<uint16_t> src(DW * DH), dst(W * H);
    for (size_t i = 0; i < src.size(); ++i) src[i] = uint16_t((i * 13) % 1024);
    std::vector<uint32_t> scratch(kvdsr::depthview::resizeScratchSize(DH, W));
    for (auto _ : state) {
        kvdsr::depthview::resizeDepth(dst.data(), src.data(), DW, DH, W, H, scratch.data());
        benchmark::DoNotOptimize(dst.data());
    }
}

void BM_Step_MinFilter(benchmark::State& state) {
    omp_set_num_threads(1);
    std::vector<uint16_t> src(DW * DH), dst(DW * DH);
    for (size_t i = 0; i < src.size(); ++i) src[i] = uint16_t((i * 13) % 1024);
    for (auto _ : state) {
        kvdsr::depthview::minFilterDepth(dst.data(), src.data(), DW, DH, int(state.range(0)));
        benchmark::DoNotOptimize(dst.data());
    }
}

void BM_Step_Synth420(benchmark::State& state) {
    omp_set_num_threads(1);
    using namespace kvdsr::depthview;
    const CameraValues cam{4000, 4.0f, 0.0014f};
    double m[16];
    buildViewMatrix(m, cam, 300);
    std::vector<uint16_t> table(size_t(kDepthLevels) * W), depth(W * H);
    buildShiftTable(table.data(), m, cam, W);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) depth[y * W + x] = uint16_t(40 + y / 2 + (x > 800 && x < 1200 ? 0 : 300));
    Frame& f = frame();
    for (auto _ : state) {
        synthesizeView420({f.out.data(), f.out.data() + W * H, false, f.image420.data(), 0, f.image420.data() + W * H, 0,
                           depth.data(), table.data(), 48, W, H});
        benchmark::DoNotOptimize(f.out.data());
    }
}

}  // namespace

BENCHMARK(BM_Step_Synth420)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Step_Resize)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Step_MinFilter)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Memcpy_Floor)->Arg(420)->Arg(444)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Run_F01_Depth8)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Run_F01_Depth16)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Run_F02_Depth8)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
