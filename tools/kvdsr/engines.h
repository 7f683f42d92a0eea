// The tool's calls into the library: one session per engine, from Init
// (once) over any number of frames to Close, so that a single image, a
// recorded stream, the demo and the benchmark all drive an engine the same
// way. Only the public C interface is called.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "kvDSR.h"
#include "yuv_frame.h"

namespace kvdsrtool {

struct DepthMap {
    int width = 0;
    int height = 0;
    uint32_t format = kvDSR_FMT_DEPTH8;  // or kvDSR_FMT_DEPTH16
    std::vector<uint8_t> bytes;          // 8-bit samples, or 16-bit words in host order
    kvDSR_ImageDesc desc();
    size_t bytesPerFrame() const { return size_t(width) * height * (format == kvDSR_FMT_DEPTH16 ? 2 : 1); }
};

struct Status {
    uint32_t code = kvDSR_OK;
    std::string call;
    bool ok() const { return code == kvDSR_OK; }
};

using Calibration = std::vector<uint8_t>;

enum class Engine { DepthView, Binocular, StereoView, Spr, FocalShift };
const char* engineName(Engine e);  // the kvdsr subcommand

// Everything an engine's Init and run calls need besides pixels.
struct EngineSetup {
    Engine engine = Engine::DepthView;
    Layout layout = Layout::NV21;
    int width = 0, height = 0;  // input frames; for the focal shift side by side: the side-by-side frame
    int depthWidth = 0, depthHeight = 0;
    uint16_t viewShift = 0;  // depth view, binocular
    uint16_t distance = 0;   // focal shift
    int outWidth = 0, outHeight = 0;  // SPR
    bool sideBySide = false;  // depth view, stereo view, focal shift
    bool half = false;        // focal shift side by side: halve the width
    // Depth view and binocular: hand the engine mirrored images and map and
    // mirror its output back. The engines' virtual camera moves left (pixels
    // move right); mirrored, it moves right, as a left image's disparity and a
    // camera to its right need.
    bool mirror = false;
};

// Inputs per engine: depth view 1 image + depth; binocular 2 images (the
// image the map belongs to, then the other camera's) + depth; stereo view,
// SPR, focal shift 2 images (camera 1, camera 2), or 1 side-by-side frame.
int imageCount(const EngineSetup& s);
bool needsDepth(const EngineSetup& s);
// Output names, in the order of outputs(): "synth", or "first"/"second", or
// one side-by-side frame "sbs".
std::vector<std::string> outputNames(const EngineSetup& s);

// One engine between its Init and Close. The library keeps one state per
// engine per process: have at most one session per engine at a time.
class EngineSession {
public:
    explicit EngineSession(const EngineSetup& setup);
    ~EngineSession();  // Close, if Init succeeded
    EngineSession(const EngineSession&) = delete;
    EngineSession& operator=(const EngineSession&) = delete;

    Status init(const Calibration& calib);
    // One frame (pair). The engines write into some inputs (the depth map's
    // invalid pixels, the binocular engine's second image): pass copies to
    // keep the originals. Sizes must match the setup.
    Status run(std::vector<YuvFrame>& images, DepthMap* depth);
    const std::vector<YuvFrame>& outputs() const { return outputs_; }
    const EngineSetup& setup() const { return setup_; }
    // Seconds the last run spent in the library call itself (no mirroring,
    // no clearing of the outputs).
    double lastCallSeconds() const { return lastCallSeconds_; }

private:
    Status call(std::vector<YuvFrame>& images, DepthMap* depth);
    Status timedCall(std::vector<YuvFrame>& images, DepthMap* depth);
    EngineSetup setup_;
    bool open_ = false;
    double lastCallSeconds_ = 0;
    std::vector<YuvFrame> outputs_;
};

// Left-right mirror images of a frame (chroma pairs stay pairs) and a map.
YuvFrame mirrored(const YuvFrame& f);
DepthMap mirrored(const DepthMap& d);

// A frame whose luma and chroma each hold one value shows nothing: returns a
// sentence saying so, or "" for a frame with content.
std::string uniformFrameWarning(const YuvFrame& f);

}  // namespace kvdsrtool
