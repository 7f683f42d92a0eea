#include "engines.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <string>

namespace kvdsrtool {
namespace {

// Engine sizes are 16-bit; a larger frame (two wide views side by side, say)
// is refused rather than wrapped.
uint16_t dim(int v) {
    if (v < 0 || v > 65535) throw std::invalid_argument("frame size " + std::to_string(v) + " exceeds 65535");
    return static_cast<uint16_t>(v);
}

uint32_t sizeOf(const Calibration& c) { return static_cast<uint32_t>(c.size()); }
const uint8_t* dataOf(const Calibration& c) { return c.empty() ? nullptr : c.data(); }

bool twoCameraEngine(Engine e) { return e == Engine::StereoView || e == Engine::Spr || e == Engine::FocalShift; }

void requireFrame(const YuvFrame& f, const EngineSetup& s, const char* what) {
    if (f.width != s.width || f.height != s.height || f.layout != s.layout)
        throw std::invalid_argument(std::string(what) + ": " + std::to_string(f.width) + "x" +
                                    std::to_string(f.height) + " " + layoutName(f.layout) + ", but the engine was set up for " +
                                    std::to_string(s.width) + "x" + std::to_string(s.height) + " " + layoutName(s.layout));
}

}  // namespace

const char* engineName(Engine e) {
    switch (e) {
        case Engine::DepthView: return "depthview";
        case Engine::Binocular: return "binocular";
        case Engine::StereoView: return "stereoview";
        case Engine::Spr: return "spr";
        case Engine::FocalShift: return "focal-shift";
    }
    return "?";
}

kvDSR_ImageDesc DepthMap::desc() {
    kvDSR_ImageDesc d{};
    d.format = format;
    d.plane[0] = bytes.data();
    return d;
}

int imageCount(const EngineSetup& s) {
    if (s.engine == Engine::DepthView) return 1;
    if (s.engine == Engine::FocalShift && s.sideBySide) return 1;
    return 2;
}

bool needsDepth(const EngineSetup& s) { return s.engine == Engine::DepthView || s.engine == Engine::Binocular; }

std::vector<std::string> outputNames(const EngineSetup& s) {
    if (s.sideBySide) return {"sbs"};
    if (twoCameraEngine(s.engine)) return {"first", "second"};
    return {"synth"};
}

EngineSession::EngineSession(const EngineSetup& setup) : setup_(setup) {
    const EngineSetup& s = setup_;
    int ow = s.width, oh = s.height;
    if (s.engine == Engine::Spr) {
        ow = s.outWidth;
        oh = s.outHeight;
    } else if (s.sideBySide && s.engine != Engine::FocalShift) {
        ow = 2 * s.width;
    } else if (s.sideBySide && s.half) {
        ow = s.width / 2;
    }
    for (size_t i = 0; i < outputNames(s).size(); ++i) outputs_.push_back(makeFrame(s.layout, ow, oh));
}

EngineSession::~EngineSession() {
    if (!open_) return;
    switch (setup_.engine) {
        case Engine::DepthView: kvDSR_Close(); break;
        case Engine::Binocular: kvDSR_Binocular_Close(); break;
        case Engine::StereoView: kvDSR_StereoView_Close(); break;
        case Engine::Spr: kvDSR_SPR_Close(); break;
        case Engine::FocalShift: kvDSR_StereoView_FocalAlignmentShift_Close(); break;
    }
}

Status EngineSession::init(const Calibration& calib) {
    const EngineSetup& s = setup_;
    const auto w = dim(s.width), h = dim(s.height), dw = dim(s.depthWidth), dh = dim(s.depthHeight);
    const uint8_t* c = dataOf(calib);
    const uint32_t n = sizeOf(calib);
    Status st;
    switch (s.engine) {
        case Engine::DepthView:
            st = {kvDSR_Init(c, n, nullptr, 0, w, h, dw, dh, s.viewShift), "kvDSR_Init"};
            break;
        case Engine::Binocular:
            st = {kvDSR_Binocular_Init(c, n, nullptr, 0, w, h, dw, dh, s.viewShift), "kvDSR_Binocular_Init"};
            break;
        case Engine::StereoView: st = {kvDSR_StereoView_Init(c, n, nullptr, 0, w, h), "kvDSR_StereoView_Init"}; break;
        case Engine::Spr:
            st = {kvDSR_SPR_Init(c, n, nullptr, 0, w, h, dim(s.outWidth), dim(s.outHeight)), "kvDSR_SPR_Init"};
            break;
        case Engine::FocalShift: {
            // Init takes the single-view width: the side-by-side frame is twice it.
            const uint16_t initWidth = s.sideBySide ? dim(s.width / 2) : w;
            st = {kvDSR_StereoView_FocalAlignmentShift_Init(c, n, nullptr, 0, initWidth, h, s.distance),
                  "kvDSR_StereoView_FocalAlignmentShift_Init"};
            break;
        }
    }
    open_ = st.ok();
    return st;
}

Status EngineSession::run(std::vector<YuvFrame>& images, DepthMap* depth) {
    const EngineSetup& s = setup_;
    if (static_cast<int>(images.size()) != imageCount(s))
        throw std::invalid_argument(std::string(engineName(s.engine)) + " takes " + std::to_string(imageCount(s)) +
                                    " image(s)");
    for (const YuvFrame& f : images) requireFrame(f, s, engineName(s.engine));
    if (needsDepth(s) && (!depth || depth->width != s.depthWidth || depth->height != s.depthHeight))
        throw std::invalid_argument("the disparity map's size differs from the engine's set-up");
    // Positions an engine leaves unwritten must not show the previous frame.
    for (YuvFrame& o : outputs_) o = makeFrame(o.layout, o.width, o.height);
    if (!s.mirror) return timedCall(images, depth);
    for (YuvFrame& f : images) f = mirrored(f);
    if (depth) *depth = mirrored(*depth);
    const Status st = timedCall(images, depth);
    for (YuvFrame& o : outputs_) o = mirrored(o);
    return st;
}

Status EngineSession::timedCall(std::vector<YuvFrame>& images, DepthMap* depth) {
    const auto t0 = std::chrono::steady_clock::now();
    const Status st = call(images, depth);
    lastCallSeconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    return st;
}

Status EngineSession::call(std::vector<YuvFrame>& images, DepthMap* depth) {
    const EngineSetup& s = setup_;
    const auto w = dim(s.width), h = dim(s.height);
    kvDSR_ImageDesc d0 = images[0].desc();
    kvDSR_ImageDesc d1 = images.size() > 1 ? images[1].desc() : kvDSR_ImageDesc{};
    kvDSR_ImageDesc dep = depth ? depth->desc() : kvDSR_ImageDesc{};
    const auto dw = dim(s.depthWidth), dh = dim(s.depthHeight);
    uint8_t* o0 = outputs_[0].data.data();
    uint8_t* o1 = outputs_.size() > 1 ? outputs_[1].data.data() : nullptr;
    switch (s.engine) {
        case Engine::DepthView:
            if (s.sideBySide)
                return {kvDSR_Run_SideBySide(o0, 2u * w, 0, &d0, w, h, &dep, dw, dh), "kvDSR_Run_SideBySide"};
            return {kvDSR_Run(o0, &d0, w, h, &dep, dw, dh), "kvDSR_Run"};
        case Engine::Binocular:
            return {kvDSR_Binocular_Run(o0, &d0, &d1, w, h, &dep, dw, dh), "kvDSR_Binocular_Run"};
        // Two-camera calls take camera 2's output and image first.
        case Engine::StereoView:
            if (s.sideBySide)
                return {kvDSR_StereoView_Run_SideBySide(o0, 2u * w, h, &d1, &d0, w, h),
                        "kvDSR_StereoView_Run_SideBySide"};
            return {kvDSR_StereoView_Run(o1, o0, &d1, &d0, w, h), "kvDSR_StereoView_Run"};
        case Engine::Spr:
            return {kvDSR_SPR_Run(o1, o0, &d1, &d0, w, h, dim(s.outWidth), dim(s.outHeight)), "kvDSR_SPR_Run"};
        case Engine::FocalShift:
            if (s.sideBySide)
                return {kvDSR_StereoView_FocalAlignmentShiftSideBySide(o0, static_cast<uint32_t>(outputs_[0].width), h,
                                                                       &d0, w, h),
                        "kvDSR_StereoView_FocalAlignmentShiftSideBySide"};
            return {kvDSR_StereoView_FocalAlignmentShift(o1, o0, &d1, &d0, w, h),
                    "kvDSR_StereoView_FocalAlignmentShift"};
    }
    return {};
}

YuvFrame mirrored(const YuvFrame& f) {
    YuvFrame m = f;
    const int w = f.width, h = f.height;
    auto flipRows = [](const uint8_t* src, uint8_t* dst, int rows, int rowWidth, int unit) {
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x + unit <= rowWidth; x += unit)
                std::memcpy(dst + size_t(y) * rowWidth + (rowWidth - unit - x), src + size_t(y) * rowWidth + x, unit);
    };
    const uint8_t* s = f.data.data();
    uint8_t* d = m.data.data();
    const size_t luma = f.lumaBytes();
    flipRows(s, d, h, w, 1);
    switch (f.layout) {
        case Layout::NV21:
        case Layout::NV12: flipRows(s + luma, d + luma, h / 2, w, 2); break;
        case Layout::I420:
            flipRows(s + luma, d + luma, h / 2, w / 2, 1);
            flipRows(s + luma + luma / 4, d + luma + luma / 4, h / 2, w / 2, 1);
            break;
        case Layout::I444:
            flipRows(s + luma, d + luma, h, w, 1);
            flipRows(s + 2 * luma, d + 2 * luma, h, w, 1);
            break;
        case Layout::Gray: break;
    }
    return m;
}

DepthMap mirrored(const DepthMap& d) {
    DepthMap m = d;
    const size_t unit = d.format == kvDSR_FMT_DEPTH16 ? 2 : 1, row = size_t(d.width) * unit;
    for (int y = 0; y < d.height; ++y)
        for (int x = 0; x < d.width; ++x)
            std::memcpy(&m.bytes[y * row + (d.width - 1 - x) * unit], &d.bytes[y * row + x * unit], unit);
    return m;
}

std::string uniformFrameWarning(const YuvFrame& f) {
    const size_t luma = f.lumaBytes();
    if (f.data.empty()) return "";
    const auto lumaEnd = f.data.begin() + static_cast<std::ptrdiff_t>(luma);
    if (std::adjacent_find(f.data.begin(), lumaEnd, std::not_equal_to<>()) != lumaEnd) return "";
    if (lumaEnd != f.data.end() &&
        std::adjacent_find(lumaEnd, f.data.end(), std::not_equal_to<>()) != f.data.end())
        return "";
    return "every luma sample is " + std::to_string(f.data[0]) +
           ": the frame shows nothing (check the calibration and the inputs)";
}

}  // namespace kvdsrtool
