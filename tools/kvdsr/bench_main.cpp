// kvdsr-bench: `kvdsr bench` on its own, built from the library, the
// calibration packer and header-only libraries, so that it builds wherever
// the library does and runs on a device as it is (adb push, adb shell).
#include <CLI/CLI.hpp>

#include <iostream>

#include "bench.h"
#include "commands.h"

int main(int argc, char** argv) {
    CLI::App app{"kvdsr-bench: time every libkvDSR engine on synthetic frames (no files needed)"};
    kvdsrtool::BenchOptions options;
    kvdsrtool::addBenchOptions(&app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int rc = app.exit(e);
        return rc == 0 ? kvdsrtool::kExitOk : kvdsrtool::kExitBadInput;
    }
    try {
        return kvdsrtool::runBench(options);
    } catch (const std::exception& e) {
        std::cerr << "kvdsr-bench: " << e.what() << "\n";
        return kvdsrtool::kExitBadInput;
    }
}
