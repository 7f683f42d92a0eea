// kvdsr bench: every engine on synthetic frames, so that it runs on any
// device as it is (over adb, say) with no data files.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace kvdsrtool {

struct BenchOptions {
    std::vector<std::string> sizes;    // WxH; default 1920x1080 and 4160x3120
    std::vector<int> threads;          // OpenMP team sizes; default 1 and all
    int frames = 10;                   // timed frames per case
    std::vector<std::string> engines;  // case names; default all
    int fps = 0;                       // frames started per second; 0: back to back
    int loadPerCpu = 0;                // busy processes per CPU during the timed frames
    bool json = false;
};

// The options of `kvdsr bench` (and of the standalone kvdsr-bench).
void addBenchOptions(CLI::App* app, BenchOptions& opt);

// Prints one line (or JSON object) per engine, size and thread count: Init
// time, median / 90th percentile / min / max ms a frame, fps, resident and
// peak memory.
int runBench(const BenchOptions& opt);

}  // namespace kvdsrtool
