// Reading the tool's inputs: images (PNG, JPEG, raw YUV), disparity maps
// (PNG, raw) and calibration (container file or JSON).
#pragma once

#include <string>

#include "engines.h"
#include "yuv_frame.h"

namespace kvdsrtool {

struct ImageOptions {
    std::string format;  // nv21|nv12|i420|i444; for raw files required, for PNG/JPEG the conversion target
    std::string size;    // WxH, raw files only
};

// PNG/JPEG are converted to `format` (or defaultLayout); anything else is
// read as raw YUV and needs both options.
YuvFrame loadFrame(const std::string& path, const ImageOptions& opt, Layout defaultLayout);

struct DepthOptions {
    std::string format;  // depth8|depth16, raw files only
    std::string size;    // WxH, raw files only
};

// 8-bit grey PNG -> 0xF03, 16-bit grey PNG -> 0xF04; raw files need both options.
DepthMap loadDepth(const std::string& path, const DepthOptions& opt);
// A zeroed raw map of the options' format and size.
DepthMap emptyDepth(const DepthOptions& opt);

// A container file as it is, or JSON that the calibration tool reads,
// packed into a container.
Calibration loadCalibration(const std::string& path);

}  // namespace kvdsrtool
