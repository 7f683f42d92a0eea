#include "bench.h"

#include <omp.h>

#include <CLI/CLI.hpp>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>

#include "busy_load.h"
#include "calibpack.h"
#include "commands.h"
#include "engines.h"
#include "samples.h"
#include "status_text.h"

namespace kvdsrtool {
namespace {

using Clock = std::chrono::steady_clock;

struct BenchCase {
    const char* name;
    Engine engine;
    bool sideBySide;
};

constexpr BenchCase kCases[] = {
    {"depthview", Engine::DepthView, false},   {"depthview-sbs", Engine::DepthView, true},
    {"binocular", Engine::Binocular, false},   {"stereoview", Engine::StereoView, false},
    {"stereoview-sbs", Engine::StereoView, true}, {"spr", Engine::Spr, false},
    {"focal-shift", Engine::FocalShift, false}, {"focal-shift-sbs", Engine::FocalShift, true},
};

// Textured frames (a smooth ramp under a pseudo-random pattern, so that the
// colour match and the warps see real variation); the second camera's view
// is the first one slid left by a few columns.
YuvFrame syntheticFrame(int w, int h, int slide) {
    YuvFrame f = makeFrame(Layout::NV21, w, h);
    uint8_t* y = f.data.data();
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c) {
            const int x = c + slide;
            uint32_t v = static_cast<uint32_t>(x) * 2654435761u ^ static_cast<uint32_t>(r) * 40503u;
            v ^= v >> 13;
            y[size_t(r) * w + c] = static_cast<uint8_t>((x * 160 / (w + 1)) + (r * 40 / (h + 1)) + (v & 31));
        }
    uint8_t* uv = y + f.lumaBytes();
    for (int r = 0; r < h / 2; ++r)
        for (int c = 0; c < w; ++c) uv[size_t(r) * w + c] = static_cast<uint8_t>(96 + ((c / 2 + r) & 63));
    return f;
}

// An 8-bit map a quarter of the frame's size: a near disc on a far ramp,
// with a sprinkle of invalid pixels for the repair step. With the Aloe rig
// these values give depth levels of about 250 to 900 at any size (an 8-bit
// map's unit scales with its height), so no flat-map shortcut is taken.
DepthMap syntheticDepth(int w, int h) {
    DepthMap d;
    d.width = std::max(1, w / 4);
    d.height = std::max(1, h / 4);
    d.format = kvDSR_FMT_DEPTH8;
    d.bytes.resize(size_t(d.width) * d.height);
    const double cx = d.width * 0.5, cy = d.height * 0.5, radius = d.height * 0.3;
    for (int r = 0; r < d.height; ++r)
        for (int c = 0; c < d.width; ++c) {
            uint8_t v = static_cast<uint8_t>(100 + 40 * r / d.height + 10 * c / d.width);
            if (std::hypot(c - cx, r - cy) < radius) v = 240;
            if ((r * 131 + c * 71) % 997 == 0) v = 255;
            d.bytes[size_t(r) * d.width + c] = v;
        }
    return d;
}

// Resident and peak resident memory of this process, in MiB (Linux and
// Android: /proc/self/status).
void memoryMiB(double& rss, double& peak) {
    rss = peak = -1;
    std::ifstream in("/proc/self/status");
    std::string line;
    while (std::getline(in, line)) {
        long kb = 0;
        if (std::sscanf(line.c_str(), "VmRSS: %ld kB", &kb) == 1) rss = kb / 1024.0;
        if (std::sscanf(line.c_str(), "VmHWM: %ld kB", &kb) == 1) peak = kb / 1024.0;
    }
}

// Starts a new peak measurement (Linux 4.0+); false where not allowed.
bool resetPeakMemory() {
    std::ofstream f("/proc/self/clear_refs");
    f << "5";
    f.close();
    return static_cast<bool>(f);
}

struct Result {
    std::string engine, size;
    int threads = 0;
    Status status;
    double initMs = 0, medianMs = 0, p90Ms = 0, minMs = 0, maxMs = 0, fps = 0, rssMiB = 0, peakMiB = 0;
    bool peakOwn = false;    // the peak was reset before this case
    bool uniform = false;    // the last output showed nothing
    int loadCount = 0;       // busy processes beside the timed frames
    bool loadEnded = false;  // one of them ended before the frames did
};

// How long a busy process lives at most: beyond any case's frames, in case
// this process is killed in a way its children do not notice.
constexpr unsigned kLoadLifetimeSeconds = 3600;

// Busy processes beside each case's timed frames: --load per CPU.
int busyProcessCount(const BenchOptions& opt) {
    return opt.loadPerCpu * int(std::max(1u, std::thread::hardware_concurrency()));
}

Result runCase(const BenchCase& bc, int w, int h, int threads, const BenchOptions& opt, const Calibration& calib) {
    Result r;
    r.engine = bc.name;
    r.size = std::to_string(w) + "x" + std::to_string(h);
    r.threads = threads;
    omp_set_num_threads(threads);

    EngineSetup s;
    s.engine = bc.engine;
    s.sideBySide = bc.sideBySide;
    s.layout = Layout::NV21;
    s.width = bc.engine == Engine::FocalShift && bc.sideBySide ? 2 * w : w;
    s.height = h;
    s.viewShift = 50;
    s.distance = 1000;
    s.outWidth = w / 2 & ~1;
    s.outHeight = h / 2 & ~1;
    std::vector<YuvFrame> images;
    if (imageCount(s) == 2) {
        images = {syntheticFrame(w, h, 0), syntheticFrame(w, h, 12)};
    } else if (bc.engine == Engine::FocalShift) {
        images = {syntheticFrame(2 * w, h, 0)};
    } else {
        images = {syntheticFrame(w, h, 0)};
    }
    const DepthMap depth = syntheticDepth(w, h);
    s.depthWidth = depth.width;
    s.depthHeight = depth.height;

    r.peakOwn = resetPeakMemory();
    EngineSession session(s);
    const auto t0 = Clock::now();
    r.status = session.init(calib);
    r.initMs = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
    if (!r.status.ok()) return r;

    const int loadCount = r.loadCount = busyProcessCount(opt);
    if (loadCount > 0 && !startBusyLoad(loadCount, kLoadLifetimeSeconds))
        throw std::runtime_error("--load: could not start the busy processes");
    std::vector<double> ms;
    auto start = Clock::now();
    for (int i = 0; i <= opt.frames && r.status.ok(); ++i) {
        std::vector<YuvFrame> in = images;  // the engines write into some inputs
        DepthMap d = depth;
        if (opt.fps > 0) {
            // As a preview pipeline calls: one frame every 1/fps s, asleep between.
            start += std::chrono::microseconds(1000000 / opt.fps);
            std::this_thread::sleep_until(start);
        }
        r.status = session.run(in, needsDepth(s) ? &d : nullptr);
        if (i > 0) ms.push_back(session.lastCallSeconds() * 1000);  // the first frame warms caches and the team
    }
    if (loadCount > 0) {
        r.loadEnded = !busyLoadAlive();
        stopBusyLoad();
    }
    if (!r.status.ok() || ms.empty()) return r;
    std::sort(ms.begin(), ms.end());
    const size_t n = ms.size();
    r.medianMs = n % 2 ? ms[n / 2] : 0.5 * (ms[n / 2 - 1] + ms[n / 2]);
    r.p90Ms = ms[size_t(std::ceil(0.9 * double(n))) - 1];  // nearest rank
    r.minMs = ms.front();
    r.maxMs = ms.back();
    r.fps = r.medianMs > 0 ? 1000 / r.medianMs : 0;
    memoryMiB(r.rssMiB, r.peakMiB);
    for (const YuvFrame& o : session.outputs()) r.uniform = r.uniform || !uniformFrameWarning(o).empty();
    return r;
}

std::string libraryVersion() {
    char v[256] = {};
    kvDSR_VersionInfo_Get(v, sizeof v);
    return v;
}

}  // namespace

void addBenchOptions(CLI::App* app, BenchOptions& o) {
    app->add_option("--sizes", o.sizes, "frame sizes WxH, comma-separated (default 1920x1080,4160x3120)")
        ->delimiter(',');
    app->add_option("--threads", o.threads, "OpenMP thread counts, comma-separated (default: 1 and all)")
        ->delimiter(',');
    app->add_option("--frames", o.frames, "timed frames per engine and size (default 10)");
    app->add_option("--engines", o.engines, "engines to run, comma-separated (default: every engine)")->delimiter(',');
    app->add_option("--fps", o.fps, "start frames at this rate, as a preview does (default 0: back to back)");
    app->add_option("--load", o.loadPerCpu,
                    "busy processes per CPU beside the timed frames, as on a busy phone (default 0)");
    app->add_flag("--json", o.json, "print JSON instead of a table");
}

int runBench(const BenchOptions& optIn) {
    BenchOptions opt = optIn;
    if (opt.sizes.empty()) opt.sizes = {"1920x1080", "4160x3120"};
    const int maxThreads = omp_get_max_threads();
    if (opt.threads.empty()) opt.threads = maxThreads > 1 ? std::vector<int>{1, maxThreads} : std::vector<int>{1};
    for (int t : opt.threads)
        if (t < 1 || t > 1024) throw std::invalid_argument("--threads: " + std::to_string(t) + " is not 1..1024");
    if (opt.frames < 1 || opt.frames > 100000) throw std::invalid_argument("--frames must be 1..100000");
    if (opt.fps < 0 || opt.fps > 1000) throw std::invalid_argument("--fps must be 0..1000");
    if (opt.loadPerCpu < 0 || opt.loadPerCpu > 8) throw std::invalid_argument("--load must be 0..8");
    std::vector<BenchCase> cases;
    for (const BenchCase& c : kCases)
        if (opt.engines.empty() || std::find(opt.engines.begin(), opt.engines.end(), c.name) != opt.engines.end())
            cases.push_back(c);
    for (const std::string& e : opt.engines)
        if (std::none_of(std::begin(kCases), std::end(kCases), [&](const BenchCase& c) { return e == c.name; })) {
            std::string known;
            for (const BenchCase& c : kCases) known += std::string(known.empty() ? "" : ", ") + c.name;
            throw std::invalid_argument("--engines: unknown engine '" + e + "' (use " + known + ")");
        }
    std::vector<std::pair<int, int>> sizes;
    for (const std::string& sz : opt.sizes) {
        int w = 0, h = 0;
        parseSize(sz, w, h);
        if (w < 64 || h < 64 || w % 8 || h % 8 || 2 * w > 65535)
            throw std::invalid_argument("--sizes: " + sz + " must be at least 64x64, multiples of 8, width <= 32767");
        sizes.emplace_back(w, h);
    }

    // The realistic module for the rectifying engines, the Aloe rig (whose
    // baseline suits view synthesis) for the depth engines.
    const auto moduleCalib = kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 1547);
    const Calibration aloeCalib = aloeCalibration();
    const unsigned cpus = std::thread::hardware_concurrency();
    const int loadProcesses = busyProcessCount(opt);
    if (!opt.json) {
        std::printf("kvdsr bench: libkvDSR %s, %u CPUs, %d timed frames a case after one warm-up frame\n",
                    libraryVersion().c_str(), cpus, opt.frames);
        if (opt.fps > 0) std::printf("frames started %d times a second\n", opt.fps);
        if (loadProcesses > 0)
            std::printf("frames timed beside %d busy processes (%d per CPU); Init without them\n", loadProcesses,
                        opt.loadPerCpu);
        std::printf("%-10s %-16s %7s %9s %9s %8s %8s %8s %8s %9s %9s\n", "size", "engine", "threads", "init ms",
                    "median ms", "p90 ms", "min ms", "max ms", "fps", "RSS MiB", "peak MiB");
    }
    nlohmann::ordered_json results = nlohmann::ordered_json::array();
    int failures = 0;
    for (const auto& [w, h] : sizes)
        for (const BenchCase& c : cases)
            for (int t : opt.threads) {
                const bool depthEngine = c.engine == Engine::DepthView || c.engine == Engine::Binocular;
                const Result r = runCase(c, w, h, t, opt, depthEngine ? aloeCalib : moduleCalib);
                if (!r.status.ok()) {
                    ++failures;
                    std::cerr << "kvdsr: bench " << r.engine << " " << r.size << ": "
                              << describeStatus(r.status.call, r.status.code) << "\n";
                }
                if (r.uniform)
                    std::cerr << "kvdsr: warning: bench " << r.engine << " " << r.size << ": the output is uniform\n";
                if (r.loadEnded)
                    std::cerr << "kvdsr: warning: bench " << r.engine << " " << r.size
                              << ": a busy process ended before the frames did\n";
                if (opt.json) {
                    nlohmann::ordered_json j = {{"engine", r.engine}, {"size", r.size}, {"threads", r.threads}};
                    if (!r.status.ok()) {
                        j["error"] = describeStatus(r.status.call, r.status.code);
                    } else {
                        j.update({{"initMs", r.initMs}, {"medianMs", r.medianMs}, {"p90Ms", r.p90Ms}, {"minMs", r.minMs},
                                  {"maxMs", r.maxMs}, {"fps", r.fps}, {"rssMiB", r.rssMiB}, {"peakMiB", r.peakMiB},
                                  {"peakSinceCaseStart", r.peakOwn}, {"busyProcesses", r.loadCount},
                                  {"busyProcessesLasted", !r.loadEnded}});
                    }
                    results.push_back(j);
                    continue;
                }
                if (!r.status.ok()) {
                    std::printf("%-10s %-16s %7d  failed: 0x%X\n", r.size.c_str(), r.engine.c_str(), r.threads,
                                r.status.code);
                    continue;
                }
                std::printf("%-10s %-16s %7d %9.2f %9.2f %8.2f %8.2f %8.2f %8.1f %9.1f %9.1f%s\n", r.size.c_str(),
                            r.engine.c_str(), r.threads, r.initMs, r.medianMs, r.p90Ms, r.minMs, r.maxMs, r.fps,
                            r.rssMiB, r.peakMiB, r.peakOwn ? "" : "*");
                std::fflush(stdout);
            }
    if (opt.json) {
        const nlohmann::ordered_json doc = {{"library", libraryVersion()},
                                            {"cpus", cpus},
                                            {"framesPerCase", opt.frames},
                                            {"pacedFps", opt.fps},
                                            {"loadProcesses", loadProcesses},
                                            {"results", results}};
        std::cout << doc.dump(2) << "\n";
    } else {
        std::printf("median, p90, min, max: the library call alone, per frame. peak: resident peak during the "
                    "case%s\n",
                    resetPeakMemory() ? "" : " (* : since the process started; the peak could not be reset)");
    }
    return failures ? kExitEngine : kExitOk;
}

}  // namespace kvdsrtool
