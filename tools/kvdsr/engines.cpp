#include "engines.h"

#include <cstring>

namespace kvdsrtool {
namespace {

// One Init/run/Close sequence; Close runs whatever happened.
template <class Init, class Run, class Close>
Status sequence(const char* initName, Init init, const char* runName, Run run, Close close) {
    Status s;
    s.code = init();
    s.call = initName;
    if (s.ok()) {
        s.code = run();
        s.call = runName;
    }
    close();
    return s;
}

uint32_t sizeOf(const Calibration& c) { return static_cast<uint32_t>(c.size()); }
const uint8_t* dataOf(const Calibration& c) { return c.empty() ? nullptr : c.data(); }

}  // namespace

kvDSR_ImageDesc DepthMap::desc() {
    kvDSR_ImageDesc d{};
    d.format = format;
    d.plane[0] = bytes.data();
    return d;
}

Status runDepthview(const Calibration& calib, YuvFrame image, DepthMap depth, uint16_t viewShift,
                    bool sideBySide, YuvFrame& out) {
    const auto w = static_cast<uint16_t>(image.width), h = static_cast<uint16_t>(image.height);
    out = makeFrame(image.layout, sideBySide ? 2 * image.width : image.width, image.height);
    kvDSR_ImageDesc img = image.desc(), dep = depth.desc();
    const auto dw = static_cast<uint16_t>(depth.width), dh = static_cast<uint16_t>(depth.height);
    return sequence(
        "kvDSR_Init",
        [&] { return kvDSR_Init(dataOf(calib), sizeOf(calib), nullptr, 0, w, h, dw, dh, viewShift); },
        sideBySide ? "kvDSR_Run_SideBySide" : "kvDSR_Run",
        [&] {
            return sideBySide ? kvDSR_Run_SideBySide(out.data.data(), 2u * w, 0, &img, w, h, &dep, dw, dh)
                              : kvDSR_Run(out.data.data(), &img, w, h, &dep, dw, dh);
        },
        [] { kvDSR_Close(); });
}

Status runBinocular(const Calibration& calib, const YuvFrame& left, YuvFrame right, DepthMap depth,
                    uint16_t viewShift, YuvFrame& out) {
    YuvFrame l = left;
    const auto w = static_cast<uint16_t>(l.width), h = static_cast<uint16_t>(l.height);
    out = makeFrame(l.layout, l.width, l.height);
    kvDSR_ImageDesc dl = l.desc(), dr = right.desc(), dep = depth.desc();
    const auto dw = static_cast<uint16_t>(depth.width), dh = static_cast<uint16_t>(depth.height);
    return sequence(
        "kvDSR_Binocular_Init",
        [&] { return kvDSR_Binocular_Init(dataOf(calib), sizeOf(calib), nullptr, 0, w, h, dw, dh, viewShift); },
        "kvDSR_Binocular_Run",
        [&] { return kvDSR_Binocular_Run(out.data.data(), &dl, &dr, w, h, &dep, dw, dh); },
        [] { kvDSR_Binocular_Close(); });
}

Status runStereoview(const Calibration& calib, YuvFrame first, YuvFrame second, YuvFrame& outFirst,
                     YuvFrame& outSecond) {
    const auto w = static_cast<uint16_t>(first.width), h = static_cast<uint16_t>(first.height);
    outFirst = makeFrame(first.layout, w, h);
    outSecond = makeFrame(second.layout, second.width, second.height);
    kvDSR_ImageDesc d1 = first.desc(), d2 = second.desc();
    return sequence(
        "kvDSR_StereoView_Init",
        [&] { return kvDSR_StereoView_Init(dataOf(calib), sizeOf(calib), nullptr, 0, w, h); },
        "kvDSR_StereoView_Run",
        [&] { return kvDSR_StereoView_Run(outSecond.data.data(), outFirst.data.data(), &d2, &d1, w, h); },
        [] { kvDSR_StereoView_Close(); });
}

Status runStereoviewSideBySide(const Calibration& calib, YuvFrame first, YuvFrame second, YuvFrame& out) {
    const auto w = static_cast<uint16_t>(first.width), h = static_cast<uint16_t>(first.height);
    out = makeFrame(first.layout, 2 * first.width, first.height);
    kvDSR_ImageDesc d1 = first.desc(), d2 = second.desc();
    return sequence(
        "kvDSR_StereoView_Init",
        [&] { return kvDSR_StereoView_Init(dataOf(calib), sizeOf(calib), nullptr, 0, w, h); },
        "kvDSR_StereoView_Run_SideBySide",
        [&] { return kvDSR_StereoView_Run_SideBySide(out.data.data(), 2u * w, h, &d2, &d1, w, h); },
        [] { kvDSR_StereoView_Close(); });
}

Status runSpr(const Calibration& calib, YuvFrame first, YuvFrame second, int outWidth, int outHeight,
              YuvFrame& outFirst, YuvFrame& outSecond) {
    const auto w = static_cast<uint16_t>(first.width), h = static_cast<uint16_t>(first.height);
    const auto ow = static_cast<uint16_t>(outWidth), oh = static_cast<uint16_t>(outHeight);
    outFirst = makeFrame(first.layout, ow, oh);
    outSecond = makeFrame(second.layout, ow, oh);
    kvDSR_ImageDesc d1 = first.desc(), d2 = second.desc();
    return sequence(
        "kvDSR_SPR_Init", [&] { return kvDSR_SPR_Init(dataOf(calib), sizeOf(calib), nullptr, 0, w, h, ow, oh); },
        "kvDSR_SPR_Run",
        [&] { return kvDSR_SPR_Run(outSecond.data.data(), outFirst.data.data(), &d2, &d1, w, h, ow, oh); },
        [] { kvDSR_SPR_Close(); });
}

Status runFocalShift(const Calibration& calib, uint16_t distance, YuvFrame first, YuvFrame second,
                     YuvFrame& outFirst, YuvFrame& outSecond) {
    const auto w = static_cast<uint16_t>(first.width), h = static_cast<uint16_t>(first.height);
    outFirst = makeFrame(first.layout, w, h);
    outSecond = makeFrame(second.layout, w, h);
    kvDSR_ImageDesc d1 = first.desc(), d2 = second.desc();
    return sequence(
        "kvDSR_StereoView_FocalAlignmentShift_Init",
        [&] {
            return kvDSR_StereoView_FocalAlignmentShift_Init(dataOf(calib), sizeOf(calib), nullptr, 0, w, h,
                                                             distance);
        },
        "kvDSR_StereoView_FocalAlignmentShift",
        [&] {
            return kvDSR_StereoView_FocalAlignmentShift(outSecond.data.data(), outFirst.data.data(), &d2, &d1, w, h);
        },
        [] { kvDSR_StereoView_FocalAlignmentShift_Close(); });
}

Status runFocalShiftSideBySide(const Calibration& calib, uint16_t distance, YuvFrame frame, bool half,
                               YuvFrame& out) {
    const auto W = static_cast<uint16_t>(frame.width), h = static_cast<uint16_t>(frame.height);
    const uint32_t outWidth = half ? W / 2u : W;
    out = makeFrame(frame.layout, static_cast<int>(outWidth), h);
    kvDSR_ImageDesc d = frame.desc();
    // Init takes the single-view width: the intermediate buffer holds a
    // frame twice that wide.
    const auto initWidth = static_cast<uint16_t>(W / 2);
    return sequence(
        "kvDSR_StereoView_FocalAlignmentShift_Init",
        [&] {
            return kvDSR_StereoView_FocalAlignmentShift_Init(dataOf(calib), sizeOf(calib), nullptr, 0, initWidth, h,
                                                             distance);
        },
        "kvDSR_StereoView_FocalAlignmentShiftSideBySide",
        [&] { return kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.data.data(), outWidth, h, &d, W, h); },
        [] { kvDSR_StereoView_FocalAlignmentShift_Close(); });
}

}  // namespace kvdsrtool
