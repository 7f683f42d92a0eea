// Stream mode: raw multi-frame YUV in, one engine session over every frame,
// raw frames out.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engines.h"
#include "inputs.h"

namespace kvdsrtool {

struct StreamOptions {
    std::vector<std::string> images;  // one raw stream per engine image input
    ImageOptions image;               // --format and --size of every image stream (required)
    std::string depth;                // PNG (one map for every frame) or raw stream of maps
    DepthOptions depthOptions;
    int64_t frames = 0;  // 0: every frame in the files
    std::string raw;     // output prefix, or "-" for standard output
};

// Checks every stream's length before the first frame (no whole frame,
// a truncated last frame, fewer frames than asked, inputs of different
// lengths: a message naming the file and exit code 1), then runs the
// session's engine frame by frame. Progress goes to stderr when it is a
// terminal; the achieved rate is printed at the end. setup's sizes and
// layout are filled from the options.
int runStream(const Calibration& calib, EngineSetup setup, const StreamOptions& opt);

// Where a raw output goes: "-" as it is, else PREFIX.LAYOUT for a single
// output and PREFIX-NAME.LAYOUT for one of several.
std::string rawOutputPath(const std::string& prefix, const std::string& name, Layout l, bool single);

}  // namespace kvdsrtool
