// Every run function at 1920x1080 NV21, timed call by call through the public
// interface under five conditions, side by side in one run:
//   idle, one thread      (omp_set_num_threads(1) for these calls only)
//   idle, N threads       (the library's default team, as a caller gets it)
//   idle, paced           (N threads, one call per frame interval, no load)
//   loaded, N threads     (two busy processes per core, started and stopped
//                          here, beside the default team), calls back to back
//   loaded, paced         (the same load, one call per frame interval, as a
//                          camera service calls at its preview rate)
// Reports the median and 90th percentile of each, the idle N-thread speed-up
// and the contention ratios: loaded median and loaded 90th percentile over
// the idle one-thread median (bounds 2 and 3), for both loaded conditions,
// and the loaded paced times over the idle paced median. A paced call finds
// its frame's lines gone from the caches, as a camera frame's would be; the
// back-to-back idle baseline has them, which flatters short calls.
//
// The two loaded conditions differ in what the scheduler sees. Back to back,
// the calling thread never sleeps: it is CPU-bound beside two busy loops and
// gets one tick in three, so any call still running when its tick ends
// waits two ticks, whatever the library does. Paced, it sleeps between
// frames and wakes owed time, as a preview pipeline's thread does.
//
// A plain timing loop rather than Google Benchmark: percentiles of single
// calls and load phases are what is measured. The busy processes each live
// at most kLoadLifetime seconds and die with this process (Linux).
//
// After each call comes a yardstick row (bench/ideal_call.h): items with no
// data and no order, as long in all as the call at one thread, on the same
// frame team, under the same conditions. It shows what the scheduler leaves
// of a call of that length, so a ratio over a bound can be read as ours or
// the machine's. --no-ideal leaves it out.
//
// Usage: contention_bench [--calls N] [--warmup N] [--per-core K] [--fps F]
//                         [--nice N] [--only TEXT] [--no-load] [--json]
//                         [--no-ideal]
// --fps 0 leaves out the paced conditions. --nice N gives the calling thread
// that nice value for the loaded conditions only (below 0 needs the
// privilege), after the idle ones have started the library's helpers at 0:
// a camera pipeline's thread of raised priority.
#include <omp.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "busy_load.h"
#include "ideal_call.h"
#include "calibpack.h"
#include "kvDSR.h"

namespace {

constexpr uint16_t kW = 1920, kH = 1080;        // frames
constexpr uint16_t kDw = 480, kDh = 270;        // disparity map
constexpr uint16_t kSprW = 1280, kSprH = 720;   // SPR output
constexpr uint16_t kViewShift = 300;
constexpr uint16_t kBinocularShift = 800;
constexpr uint16_t kDistance = 1000;
constexpr unsigned kLoadLifetime = 120;          // seconds, per busy process
constexpr double kMedianBound = 2.0, kP90Bound = 3.0;

// ---- Frames -----------------------------------------------------------------------

using Bytes = std::vector<uint8_t>;

Bytes picture(size_t w, size_t h420, uint32_t seed) {
    std::mt19937 rng(seed);
    Bytes v(w * h420);
    for (size_t i = 0; i < v.size(); ++i) {
        const size_t x = i % w, y = i / w;
        v[i] = uint8_t((x * 3 + y * 2 + ((x / 7 + y / 5) % 3) * 40 + rng() % 24) & 0xFF);
    }
    return v;
}

Bytes disparity(uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> blocks(size_t(kDw / 12 + 1) * (kDh / 12 + 1));
    for (auto& b : blocks) b = uint8_t(8 + rng() % 120);
    Bytes m(size_t(kDw) * kDh);
    for (size_t y = 0; y < kDh; ++y)
        for (size_t x = 0; x < kDw; ++x) {
            const uint32_t r = rng() % 100;
            m[y * kDw + x] = r < 3 ? 255 : uint8_t(blocks[(y / 12) * (kDw / 12 + 1) + x / 12] + r % 5);
        }
    return m;
}

// An NV21 frame: luma then interleaved chroma in one buffer.
struct Frame {
    Bytes bytes;
    kvDSR_ImageDesc desc{};
    Frame(size_t w, size_t h, uint32_t seed) : bytes(picture(w, h + h / 2, seed)) {
        desc = {kvDSR_FMT_YUV420SP, {0, 0, 0}, {bytes.data(), bytes.data() + w * h, nullptr}};
    }
};

// ---- Cases ------------------------------------------------------------------------

struct Case {
    std::string name;
    std::function<uint32_t()> init;
    std::function<void()> prepare;  // before every call, not timed
    std::function<uint32_t()> call;
};

struct Inputs {
    Bytes calib = kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 1547);
    Frame left{kW, kH, 1}, right{kW, kH, 2}, sideBySide{2u * kW, kH, 3};
    Bytes rightOriginal = right.bytes;
    Bytes map = disparity(4), mapOriginal = map;
    kvDSR_ImageDesc depth{kvDSR_FMT_DEPTH8, {0, 0, 0}, {nullptr, nullptr, nullptr}};
    Bytes out1 = Bytes(size_t(2) * kW * kH * 3 / 2), out2 = Bytes(size_t(kW) * kH * 3 / 2);

    Inputs() { depth.plane[0] = map.data(); }
    uint32_t calibSize() const { return uint32_t(calib.size()); }
};

std::vector<Case> cases(Inputs& in) {
    auto restoreMap = [&in] { in.map = in.mapOriginal; };
    auto depthInit = [&in] {
        return kvDSR_Init(in.calib.data(), in.calibSize(), nullptr, 0, kW, kH, kDw, kDh, kViewShift);
    };
    auto stereoInit = [&in] { return kvDSR_StereoView_Init(in.calib.data(), in.calibSize(), nullptr, 0, kW, kH); };
    auto focalInit = [&in](uint16_t width) {
        return [&in, width] {
            return kvDSR_StereoView_FocalAlignmentShift_Init(in.calib.data(), in.calibSize(), nullptr, 0, width, kH,
                                                             kDistance);
        };
    };
    return {
        {"kvDSR_Run", depthInit, restoreMap,
         [&in] { return kvDSR_Run(in.out1.data(), &in.left.desc, kW, kH, &in.depth, kDw, kDh); }},
        {"kvDSR_Run_SideBySide", depthInit, restoreMap,
         [&in] {
             return kvDSR_Run_SideBySide(in.out1.data(), 2u * kW, 0, &in.left.desc, kW, kH, &in.depth, kDw, kDh);
         }},
        {"kvDSR_Binocular_Run",
         [&in] {
             return kvDSR_Binocular_Init(in.calib.data(), in.calibSize(), nullptr, 0, kW, kH, kDw, kDh,
                                         kBinocularShift);
         },
         [&in] {
             in.map = in.mapOriginal;
             in.right.bytes = in.rightOriginal;  // colour-matched in place
         },
         [&in] {
             return kvDSR_Binocular_Run(in.out1.data(), &in.left.desc, &in.right.desc, kW, kH, &in.depth, kDw, kDh);
         }},
        {"kvDSR_StereoView_Run", stereoInit, [] {},
         [&in] { return kvDSR_StereoView_Run(in.out2.data(), in.out1.data(), &in.right.desc, &in.left.desc, kW, kH); }},
        {"kvDSR_StereoView_Run_SideBySide", stereoInit, [] {},
         [&in] {
             return kvDSR_StereoView_Run_SideBySide(in.out1.data(), 2u * kW, kH, &in.right.desc, &in.left.desc, kW, kH);
         }},
        {"kvDSR_SPR_Run",
         [&in] { return kvDSR_SPR_Init(in.calib.data(), in.calibSize(), nullptr, 0, kW, kH, kSprW, kSprH); }, [] {},
         [&in] {
             return kvDSR_SPR_Run(in.out2.data(), in.out1.data(), &in.right.desc, &in.left.desc, kW, kH, kSprW, kSprH);
         }},
        {"FocalAlignmentShift (two frames)", focalInit(kW), [] {},
         [&in] {
             return kvDSR_StereoView_FocalAlignmentShift(in.out2.data(), in.out1.data(), &in.right.desc, &in.left.desc,
                                                         kW, kH);
         }},
        {"FocalAlignmentShiftSideBySide", focalInit(kW), [] {},
         [&in] {
             return kvDSR_StereoView_FocalAlignmentShiftSideBySide(in.out1.data(), 2u * kW, kH, &in.sideBySide.desc,
                                                                   2 * kW, kH);
         }},
        {"FocalAlignmentShiftSideBySide (half)", focalInit(kW), [] {},
         [&in] {
             return kvDSR_StereoView_FocalAlignmentShiftSideBySide(in.out1.data(), kW, kH, &in.sideBySide.desc,
                                                                   2 * kW, kH);
         }},
    };
}

// ---- Measuring --------------------------------------------------------------------

struct Stats {
    double median = 0, p90 = 0;
};

Stats stats(std::vector<double> ms) {
    std::sort(ms.begin(), ms.end());
    const size_t n = ms.size();
    Stats s;
    s.median = (ms[(n - 1) / 2] + ms[n / 2]) / 2;
    s.p90 = ms[size_t(std::ceil(0.9 * double(n))) - 1];  // nearest rank
    return s;
}

struct Options {
    int calls = 40;
    int warmup = 3;
    int perCore = 2;
    int fps = 30;  // paced condition: calls per second
    int nice = 0;  // the calling thread's, under load
    bool load = true;
    bool json = false;
    bool ideal = true;  // a yardstick row after each call
    std::string only;
};

// Times `calls` calls after `warmup` untimed ones, back to back or (fps > 0)
// starting one every 1/fps seconds; false on a non-zero status.
bool measure(const Case& c, const Options& o, int fps, Stats& out) {
    std::vector<double> ms;
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < o.warmup + o.calls; ++i) {
        if (fps > 0) {
            start += std::chrono::microseconds(1000000 / fps);
            std::this_thread::sleep_until(start);
        }
        c.prepare();
        const auto t0 = std::chrono::steady_clock::now();
        const uint32_t rc = c.call();
        const auto t1 = std::chrono::steady_clock::now();
        if (rc != 0) {
            std::fprintf(stderr, "contention_bench: %s returned 0x%x\n", c.name.c_str(), rc);
            return false;
        }
        if (i >= o.warmup) ms.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count());
    }
    out = stats(ms);
    return true;
}

struct Row {
    std::string name;
    Stats idle1, idleN, idlePaced, loaded, paced;
    bool haveIdlePaced = false, haveLoad = false, havePaced = false;
    bool yardstick = false;  // the no-data call as long as the call `name`

    std::string label() const { return yardstick ? "  no data, same length" : name; }
};

bool parse(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        // The option's number, at least `least`.
        auto number = [&](int& v, int least) {
            if (i + 1 >= argc) return false;
            char* end = nullptr;
            const long n = std::strtol(argv[++i], &end, 10);
            if (*end != '\0' || n < least || n > 1000000) return false;
            v = int(n);
            return true;
        };
        bool ok = true;
        if (a == "--calls") ok = number(o.calls, 1);
        else if (a == "--warmup") ok = number(o.warmup, 0);
        else if (a == "--per-core") ok = number(o.perCore, 1);
        else if (a == "--fps") ok = number(o.fps, 0);
        else if (a == "--nice") ok = number(o.nice, -20) && o.nice <= 19;
        else if (a == "--only" && i + 1 < argc) o.only = argv[++i];
        else if (a == "--no-load") o.load = false;
        else if (a == "--json") o.json = true;
        else if (a == "--no-ideal") o.ideal = false;
        else ok = false;
        if (!ok) return false;
    }
    return true;
}

// A ratio to the idle one-thread median, marked when above its bound.
void printRatio(double value, double bound) { std::printf(" %8.2f%s", value, value <= bound ? " " : "!"); }

void printTable(const std::vector<Row>& rows, int threads, int cores, const Options& o) {
    std::printf("contention_bench: %ux%u NV21 (map %ux%u, SPR to %ux%u), %d calls per condition\n", kW, kH, kDw, kDh,
                kSprW, kSprH, o.calls);
    std::printf("N = %d threads (the default team); load = %d busy processes (%d per core, %d cores); paced = %d "
                "calls per second; calling thread under load at nice %d\n\n",
                threads, o.perCore * cores, o.perCore, cores, o.fps, o.nice);
    std::printf("%-38s %17s %17s %17s %17s %17s\n", "", "idle, 1 thread", "idle, N threads", "idle, paced",
                "loaded, back to back", "loaded, paced");
    std::printf("%-38s", "function (ms)");
    for (int i = 0; i < 5; ++i) std::printf(" %8s %8s", "median", "p90");
    std::printf("\n");
    auto cell = [](const Stats& s, bool have) {
        if (have)
            std::printf(" %8.2f %8.2f", s.median, s.p90);
        else
            std::printf(" %8s %8s", "-", "-");
    };
    for (const Row& r : rows) {
        std::printf("%-38s", r.label().c_str());
        cell(r.idle1, true);
        cell(r.idleN, true);
        cell(r.idlePaced, r.haveIdlePaced);
        cell(r.loaded, r.haveLoad);
        cell(r.paced, r.havePaced);
        std::printf("\n");
    }

    std::printf("\n%-38s %8s %19s %19s %19s\n", "", "speed-up", "back to back / idle1", "paced / idle1",
                "paced / idle paced");
    std::printf("%-38s %8s %9s %9s %9s %9s %9s %9s\n", "function", "idle N", "median", "p90", "median", "p90", "median",
                "p90");
    for (const Row& r : rows) {
        std::printf("%-38s %7.2fx", r.label().c_str(), r.idle1.median / r.idleN.median);
        for (const auto& [s, have] : {std::pair{r.loaded, r.haveLoad}, std::pair{r.paced, r.havePaced}}) {
            if (!have) {
                std::printf(" %9s %9s", "-", "-");
                continue;
            }
            printRatio(s.median / r.idle1.median, kMedianBound);
            printRatio(s.p90 / r.idle1.median, kP90Bound);
        }
        if (r.havePaced && r.haveIdlePaced)
            std::printf(" %9.2f %9.2f", r.paced.median / r.idlePaced.median, r.paced.p90 / r.idlePaced.median);
        std::printf("\n");
    }
    if (o.load)
        std::printf("\n!: above the bound (loaded median <= %.0fx, loaded p90 <= %.0fx the idle 1-thread median)%s\n",
                    kMedianBound, kP90Bound, o.fps > 0 ? "; the last pair is over the idle paced median, unmarked" : "");
}

void printJson(const std::vector<Row>& rows, int threads, int cores, const Options& o) {
    auto st = [](const Stats& s) {
        char b[96];
        std::snprintf(b, sizeof b, "{\"median_ms\": %.4f, \"p90_ms\": %.4f}", s.median, s.p90);
        return std::string(b);
    };
    std::printf("{\n  \"width\": %u, \"height\": %u, \"format\": \"NV21\", \"calls\": %d,\n", kW, kH, o.calls);
    std::printf("  \"threads\": %d, \"cores\": %d, \"load_processes\": %d, \"paced_fps\": %d, "
                "\"loaded_caller_nice\": %d,\n  \"functions\": [\n",
                threads, cores, o.load ? o.perCore * cores : 0, o.fps, o.nice);
    for (size_t i = 0; i < rows.size(); ++i) {
        const Row& r = rows[i];
        std::printf("    {\"name\": \"%s\", \"yardstick\": %s, \"idle_1_thread\": %s, \"idle_n_threads\": %s",
                    r.name.c_str(), r.yardstick ? "true" : "false", st(r.idle1).c_str(), st(r.idleN).c_str());
        std::printf(", \"speedup_n_threads\": %.4f", r.idle1.median / r.idleN.median);
        if (r.haveIdlePaced) std::printf(", \"idle_paced\": %s", st(r.idlePaced).c_str());
        if (r.haveIdlePaced && r.havePaced)
            std::printf(", \"loaded_paced_median_over_idle_paced\": %.4f, \"loaded_paced_p90_over_idle_paced\": %.4f",
                        r.paced.median / r.idlePaced.median, r.paced.p90 / r.idlePaced.median);
        for (const auto& [key, s, have] : {std::tuple{"loaded_n_threads", r.loaded, r.haveLoad},
                                           std::tuple{"loaded_paced", r.paced, r.havePaced}}) {
            if (!have) continue;
            std::printf(", \"%s\": %s, \"%s_median_over_idle_1\": %.4f, \"%s_p90_over_idle_1\": %.4f", key,
                        st(s).c_str(), key, s.median / r.idle1.median, key, s.p90 / r.idle1.median);
        }
        std::printf("}%s\n", i + 1 < rows.size() ? "," : "");
    }
    std::printf("  ]\n}\n");
}

// Measures one case under every condition the options ask for.
bool measureRow(const Case& c, const Options& o, int threads, int cores, Row& r) {
    r = Row{};
    r.name = c.name;
    omp_set_num_threads(1);
    const bool ok1 = measure(c, o, 0, r.idle1);
    omp_set_num_threads(threads);
    if (!ok1 || !measure(c, o, 0, r.idleN)) return false;
    // Paced without load: what sleeping between frames costs by itself
    // (the frame's lines leave the caches meanwhile, as a new camera
    // frame's are not in them), the baseline of the loaded paced calls.
    if (o.fps > 0) {
        if (!measure(c, o, o.fps, r.idlePaced)) return false;
        r.haveIdlePaced = true;
    }
    if (!o.load) return true;
    if (!kvdsrtool::startBusyLoad(o.perCore * cores, kLoadLifetime)) return false;
    const int niceBefore = getpriority(PRIO_PROCESS, 0);  // Linux: this thread's
    if (o.nice != niceBefore && setpriority(PRIO_PROCESS, 0, o.nice) != 0) {
        std::perror("contention_bench: --nice");
        kvdsrtool::stopBusyLoad();
        return false;
    }
    bool ok = measure(c, o, 0, r.loaded);
    if (ok && o.fps > 0) ok = r.havePaced = measure(c, o, o.fps, r.paced);
    setpriority(PRIO_PROCESS, 0, niceBefore);
    const bool alive = kvdsrtool::busyLoadAlive();
    kvdsrtool::stopBusyLoad();
    if (!ok) return false;
    if (!alive) {
        std::fprintf(stderr, "contention_bench: a busy process ended early during %s\n", c.name.c_str());
        return false;
    }
    r.haveLoad = true;
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!parse(argc, argv, o)) {
        std::fprintf(stderr,
                     "usage: %s [--calls N] [--warmup N] [--per-core K] [--fps F] [--nice N] [--only TEXT] [--no-load] "
                     "[--json] [--no-ideal]\n",
                     argv[0]);
        return 2;
    }
    kvdsrtool::stopBusyLoadOnSignals();

    // The default team, as any caller of the library gets it; only the
    // one-thread phase changes it, and puts it back.
    const int threads = omp_get_max_threads();
    const int cores = int(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));

    Inputs in;
    std::vector<Row> rows;
    benchideal::IdealCall ideal;
    for (const Case& c : cases(in)) {
        if (!o.only.empty() && c.name.find(o.only) == std::string::npos) continue;
        if (const uint32_t rc = c.init()) {
            std::fprintf(stderr, "contention_bench: Init for %s returned 0x%x\n", c.name.c_str(), rc);
            return 1;
        }
        Row r;
        if (!measureRow(c, o, threads, cores, r)) return 1;
        rows.push_back(r);
        if (!o.json) std::fprintf(stderr, "%s done\n", c.name.c_str());
        if (o.ideal) {
            ideal.calibrate(r.idle1.median);
            const Case same{c.name, [] { return 0u; }, [] {},
                            [&ideal] {
                                ideal.run();
                                return 0u;
                            }};
            if (!measureRow(same, o, threads, cores, r)) return 1;
            r.yardstick = true;
            rows.push_back(r);
        }
    }
    kvDSR_Close();
    kvDSR_Binocular_Close();
    kvDSR_StereoView_Close();
    kvDSR_SPR_Close();
    kvDSR_StereoView_FocalAlignmentShift_Close();

    if (o.json)
        printJson(rows, threads, cores, o);
    else
        printTable(rows, threads, cores, o);
    return 0;
}
