#include "yuv_frame.h"

#include <cstring>
#include <stdexcept>

namespace kvdsrtool {

Layout parseLayout(const std::string& name) {
    if (name == "nv21") return Layout::NV21;
    if (name == "nv12") return Layout::NV12;
    if (name == "i420") return Layout::I420;
    if (name == "i444") return Layout::I444;
    throw std::invalid_argument("unknown format '" + name + "' (use nv21, nv12, i420 or i444)");
}

const char* layoutName(Layout l) {
    switch (l) {
        case Layout::NV21: return "nv21";
        case Layout::NV12: return "nv12";
        case Layout::I420: return "i420";
        case Layout::I444: return "i444";
        case Layout::Gray: return "gray";
    }
    return "?";
}

uint32_t formatCode(Layout l) {
    switch (l) {
        case Layout::NV21:
        case Layout::NV12: return kvDSR_FMT_YUV420SP;
        case Layout::I420: return kvDSR_FMT_YUV420P;
        case Layout::I444:
        case Layout::Gray: return kvDSR_FMT_YUV444P;
    }
    return 0;
}

size_t YuvFrame::bytesFor(Layout l, int w, int h) {
    const size_t luma = size_t(w) * h;
    switch (l) {
        case Layout::NV21:
        case Layout::NV12:
        case Layout::I420: return luma * 3 / 2;
        case Layout::I444: return luma * 3;
        case Layout::Gray: return luma;
    }
    return 0;
}

kvDSR_ImageDesc YuvFrame::desc() {
    kvDSR_ImageDesc d{};
    d.format = formatCode(layout);
    uint8_t* base = data.data();
    const size_t luma = lumaBytes();
    d.plane[0] = base;
    switch (layout) {
        case Layout::NV21:
        case Layout::NV12: d.plane[1] = base + luma; break;
        case Layout::I420:
            d.plane[1] = base + luma;
            d.plane[2] = base + luma + luma / 4;
            break;
        case Layout::I444:
            d.plane[1] = base + luma;
            d.plane[2] = base + 2 * luma;
            break;
        case Layout::Gray: break;
    }
    return d;
}

YuvFrame makeFrame(Layout l, int w, int h) {
    YuvFrame f;
    f.layout = l;
    f.width = w;
    f.height = h;
    // Black: positions an engine leaves unwritten show as black, not green.
    f.data.assign(YuvFrame::bytesFor(l, w, h), 128);
    std::memset(f.data.data(), 0, f.lumaBytes());
    return f;
}

void parseSize(const std::string& s, int& w, int& h) {
    const auto x = s.find_first_of("xX");
    try {
        if (x == std::string::npos) throw std::invalid_argument("");
        size_t used = 0;
        const long ww = std::stol(s.substr(0, x), &used);
        if (used != x) throw std::invalid_argument("");
        const std::string rest = s.substr(x + 1);
        const long hh = std::stol(rest, &used);
        if (used != rest.size()) throw std::invalid_argument("");
        if (ww < 1 || hh < 1 || ww > 65535 || hh > 65535) throw std::invalid_argument("");
        w = static_cast<int>(ww);
        h = static_cast<int>(hh);
    } catch (const std::exception&) {
        throw std::invalid_argument("size '" + s + "' is not WxH with each side 1..65535");
    }
}

}  // namespace kvdsrtool
