// What the stereo view and SPR engines keep resident, read from the
// process's resident set (/proc/self/statm) and its peak (VmHWM) around
// Init, the runs and Close. Each case runs in a forked child with a fixed
// malloc mmap threshold, so that earlier allocations neither hide nor add
// pages. Built natively without sanitizers only: under qemu or a sanitizer
// the resident set measures the emulator or the shadow memory.
//
// Bounds per output pixel, both cameras and both resolutions together:
// at most 24 bytes resident after Init and after runs, at most 40 at the
// peak of Init.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "calibpack.h"
#include "kvDSR.h"
#include "stereoview/spr_engine.h"
#include "stereoview/stereoview_engine.h"

namespace {

constexpr double kResidentBound = 24.0;
constexpr double kPeakBound = 40.0;

long pageSize() { return sysconf(_SC_PAGESIZE); }

long residentBytes() {
    long pages = 0, resident = 0;
    FILE* f = std::fopen("/proc/self/statm", "r");
    if (!f) return -1;
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = -1;
    std::fclose(f);
    return resident < 0 ? -1 : resident * pageSize();
}

long peakBytes() {
    FILE* f = std::fopen("/proc/self/status", "r");
    if (!f) return -1;
    char line[256];
    long kb = -1;
    while (std::fgets(line, sizeof line, f))
        if (std::sscanf(line, "VmHWM: %ld kB", &kb) == 1) break;
    std::fclose(f);
    return kb < 0 ? -1 : kb * 1024;
}

// Sets the peak back to the current resident set; false where the kernel
// does not allow it (the fork already started the child's peak afresh, at
// the parent's resident set, which the baseline then includes).
bool resetPeak() {
    FILE* f = std::fopen("/proc/self/clear_refs", "w");
    if (!f) return false;
    const bool ok = std::fputs("5", f) >= 0;
    return std::fclose(f) == 0 && ok;
}

struct Usage {
    long baseline = 0;     // resident before Init, caller buffers included
    long afterInit = 0;    // resident after Init
    long peakInit = 0;     // peak while Init ran
    long afterRuns = 0;    // resident after one run of each kind
    long afterClose = 0;   // resident after Close
    int initStatus = -1;
};

// Runs the engine's life in a child and sends the numbers back.
Usage measure(const std::function<void(Usage&)>& life) {
    int fds[2];
    if (pipe(fds) != 0) return {};
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        // Large blocks straight from the system and back to it on free.
        mallopt(M_MMAP_THRESHOLD, 128 * 1024);
        malloc_trim(0);
        Usage u;
        life(u);
        const ssize_t n = write(fds[1], &u, sizeof u);
        _exit(n == ssize_t(sizeof u) ? 0 : 1);
    }
    close(fds[1]);
    Usage u;
    const ssize_t n = read(fds[0], &u, sizeof u);
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (n != ssize_t(sizeof u) || !WIFEXITED(status) || WEXITSTATUS(status) != 0) u.initStatus = -2;
    return u;
}

// Caller frames (0xF01 pairs and a side-by-side output), touched before
// the baseline so that they count on both sides.
struct Frames {
    std::vector<uint8_t> in1, in2, out1, out2, sbs;
    kvDSR_ImageDesc d1{}, d2{}, p1{}, p2{};
    Frames(uint16_t inW, uint16_t inH, uint16_t outW, uint16_t outH) {
        const size_t in = size_t(inW) * inH, out = size_t(outW) * outH;
        in1.assign(in * 3 / 2 + inW, 1);
        in2.assign(in1.size(), 2);
        out1.assign(out * 3 / 2 + outW, 0);
        out2.assign(out1.size(), 0);
        sbs.assign(out * 3 + 2 * outW, 0);
        d1 = {kvDSR_FMT_YUV420SP, {0, 0, 0}, {in1.data(), in1.data() + in, nullptr}};
        d2 = {kvDSR_FMT_YUV420SP, {0, 0, 0}, {in2.data(), in2.data() + in, nullptr}};
        const size_t q = size_t(inW / 2) * (inH / 2);
        p1 = {kvDSR_FMT_YUV420P, {0, 0, 0}, {in1.data(), in1.data() + in, in1.data() + in + q}};
        p2 = {kvDSR_FMT_YUV420P, {0, 0, 0}, {in2.data(), in2.data() + in, in2.data() + in + q}};
    }
};

const kvdsr::calibpack::Bytes& module() {
    static const kvdsr::calibpack::Bytes c =
        kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 1547);
    return c;
}

void expectWithinBounds(const Usage& u, double outPixels, const std::string& what) {
    ASSERT_EQ(u.initStatus, int(kvDSR_OK)) << what;
    ASSERT_GT(u.baseline, 0) << what << ": no resident-set figures";
    const double resident = double(u.afterInit - u.baseline) / outPixels;
    const double peak = double(u.peakInit - u.baseline) / outPixels;
    const double runs = double(u.afterRuns - u.baseline) / outPixels;
    const double closed = double(u.afterClose - u.baseline) / outPixels;
    std::printf("%s: resident %.2f B/px after Init, peak %.2f, after runs %.2f, after Close %.2f\n",
                what.c_str(), resident, peak, runs, closed);
    EXPECT_LE(resident, kResidentBound) << what;
    EXPECT_LE(peak, kPeakBound) << what;
    // The tables alone are 20 bytes per pixel: a resident set far below
    // them means the figures do not see the engine.
    EXPECT_GE(resident, 19.0) << what;
    EXPECT_LE(runs, kResidentBound) << what;
    EXPECT_LE(closed, 1.0) << what << ": memory kept after Close";
}

struct Size {
    uint16_t w, h;
};
class Memory : public ::testing::TestWithParam<Size> {};

TEST_P(Memory, StereoViewKeepsOnlyItsTables) {
    const Size s = GetParam();
    const Usage u = measure([s](Usage& u) {
        kvDSR_StereoView_Close();
        Frames f(s.w, s.h, s.w, s.h);
        u.baseline = residentBytes();
        resetPeak();
        u.initStatus = int(kvDSR_StereoView_Init(module().data(), uint32_t(module().size()), nullptr, 0, s.w, s.h));
        u.peakInit = peakBytes();
        u.afterInit = residentBytes();
        kvDSR_StereoView_Run(f.out2.data(), f.out1.data(), &f.d2, &f.d1, s.w, s.h);
        kvDSR_StereoView_Run_SideBySide(f.sbs.data(), 2u * s.w, s.h, &f.d2, &f.d1, s.w, s.h);
        kvDSR_StereoView_Run_SideBySide(f.sbs.data(), 2u * s.w, s.h, &f.p2, &f.p1, s.w, s.h);
        u.afterRuns = residentBytes();
        kvDSR_StereoView_Close();
        malloc_trim(0);
        u.afterClose = residentBytes();
    });
    expectWithinBounds(u, double(s.w) * s.h, "stereo view " + std::to_string(s.w) + "x" + std::to_string(s.h));
}

TEST_P(Memory, SprKeepsOnlyItsTables) {
    const Size s = GetParam();
    const Usage u = measure([s](Usage& u) {
        kvDSR_SPR_Close();
        Frames f(s.w, s.h, s.w, s.h);
        u.baseline = residentBytes();
        resetPeak();
        u.initStatus =
            int(kvDSR_SPR_Init(module().data(), uint32_t(module().size()), nullptr, 0, s.w, s.h, s.w, s.h));
        u.peakInit = peakBytes();
        u.afterInit = residentBytes();
        kvDSR_SPR_Run(f.out2.data(), f.out1.data(), &f.d2, &f.d1, s.w, s.h, s.w, s.h);
        u.afterRuns = residentBytes();
        kvDSR_SPR_Close();
        malloc_trim(0);
        u.afterClose = residentBytes();
    });
    expectWithinBounds(u, double(s.w) * s.h, "SPR " + std::to_string(s.w) + "x" + std::to_string(s.h));
}

INSTANTIATE_TEST_SUITE_P(Sizes, Memory, ::testing::Values(Size{1920, 1080}, Size{4160, 3120}),
                         [](const ::testing::TestParamInfo<Size>& i) {
                             return std::to_string(i.param.w) + "x" + std::to_string(i.param.h);
                         });

// A second Init at the same size replaces the tables in place: nothing
// more stays resident than after the first.
TEST(MemoryReInit, SameSizeAddsNothing) {
    const uint16_t w = 1920, h = 1080;
    const Usage u = measure([](Usage& u) {
        kvDSR_StereoView_Close();
        u.initStatus = int(kvDSR_StereoView_Init(module().data(), uint32_t(module().size()), nullptr, 0, w, h));
        u.baseline = residentBytes();
        resetPeak();
        kvDSR_StereoView_Init(module().data(), uint32_t(module().size()), nullptr, 0, w, h);
        u.peakInit = peakBytes();
        u.afterInit = residentBytes();
        kvDSR_StereoView_Close();
    });
    ASSERT_EQ(u.initStatus, int(kvDSR_OK));
    EXPECT_LE(double(u.afterInit - u.baseline) / (double(w) * h), 0.5);
    EXPECT_LE(double(u.peakInit - u.baseline) / (double(w) * h), 1.0);
}

}  // namespace
