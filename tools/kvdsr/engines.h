// The tool's calls into the library: one function per engine, from Init to
// Close, over the tool's frames. Each returns the first non-zero status and
// the name of the call that gave it.
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
};

struct Status {
    uint32_t code = kvDSR_OK;
    std::string call;
    bool ok() const { return code == kvDSR_OK; }
};

using Calibration = std::vector<uint8_t>;

// Depth view: out has the image's layout (twice as wide for side by side).
Status runDepthview(const Calibration& calib, YuvFrame image, DepthMap depth, uint16_t viewShift,
                    bool sideBySide, YuvFrame& out);
// Binocular: out is an NV21/NV12 frame like left. right is colour-matched
// in place by the engine; the caller's copy is untouched.
Status runBinocular(const Calibration& calib, const YuvFrame& left, YuvFrame right, DepthMap depth,
                    uint16_t viewShift, YuvFrame& out);
// Stereo view: camera-1 frame `first`, camera-2 frame `second`.
Status runStereoview(const Calibration& calib, YuvFrame first, YuvFrame second, YuvFrame& outFirst,
                     YuvFrame& outSecond);
Status runStereoviewSideBySide(const Calibration& calib, YuvFrame first, YuvFrame second, YuvFrame& out);
Status runSpr(const Calibration& calib, YuvFrame first, YuvFrame second, int outWidth, int outHeight,
              YuvFrame& outFirst, YuvFrame& outSecond);
Status runFocalShift(const Calibration& calib, uint16_t distance, YuvFrame first, YuvFrame second,
                     YuvFrame& outFirst, YuvFrame& outSecond);
// frame is one side-by-side frame; half halves its width.
Status runFocalShiftSideBySide(const Calibration& calib, uint16_t distance, YuvFrame frame, bool half,
                               YuvFrame& out);

}  // namespace kvdsrtool
