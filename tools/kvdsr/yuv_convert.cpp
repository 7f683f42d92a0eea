// The frame functions that need libyuv or the image files: RGB conversion,
// raw frame files, stereo views for display.
#include <libyuv.h>

#include <cstring>
#include <stdexcept>

#include "yuv_frame.h"

namespace kvdsrtool {

namespace {

bool is420(Layout l) { return l == Layout::NV21 || l == Layout::NV12 || l == Layout::I420; }

std::vector<uint8_t> toArgb(const RgbImage& rgb) {
    std::vector<uint8_t> argb(size_t(rgb.width) * rgb.height * 4);
    libyuv::RAWToARGB(rgb.rgb.data(), rgb.width * 3, argb.data(), rgb.width * 4, rgb.width, rgb.height);
    return argb;
}

RgbImage fromArgb(const std::vector<uint8_t>& argb, int w, int h) {
    RgbImage out;
    out.width = w;
    out.height = h;
    out.rgb.resize(size_t(w) * h * 3);
    libyuv::ARGBToRAW(argb.data(), w * 4, out.rgb.data(), w * 3, w, h);
    return out;
}

}  // namespace

YuvFrame rgbToFrame(const RgbImage& rgb, Layout l) {
    const int w = rgb.width, h = rgb.height;
    if (is420(l) && (w % 2 || h % 2))
        throw std::invalid_argument("a 4:2:0 frame needs even width and height, got " + std::to_string(w) + "x" +
                                    std::to_string(h));
    YuvFrame f = makeFrame(l, w, h);
    const std::vector<uint8_t> argb = toArgb(rgb);
    uint8_t* y = f.data.data();
    const size_t luma = f.lumaBytes();
    if (l == Layout::Gray) {
        libyuv::ARGBToJ400(argb.data(), w * 4, y, w, w, h);
        return f;
    }
    if (l == Layout::I444) {
        // No direct full-range 4:4:4 converter: doubling every pixel
        // horizontally makes the 4:2:2 converter's chroma per-pixel exact.
        std::vector<uint8_t> wide(size_t(w) * 2 * h * 4), wideY(size_t(w) * 2 * h);
        libyuv::ARGBScale(argb.data(), w * 4, w, h, wide.data(), w * 8, 2 * w, h, libyuv::kFilterNone);
        libyuv::ARGBToJ400(argb.data(), w * 4, y, w, w, h);
        libyuv::ARGBToJ422(wide.data(), w * 8, wideY.data(), 2 * w, y + luma, w, y + 2 * luma, w, 2 * w, h);
        return f;
    }
    std::vector<uint8_t> u(luma / 4), v(luma / 4);
    libyuv::ARGBToJ420(argb.data(), w * 4, y, w, u.data(), w / 2, v.data(), w / 2, w, h);
    if (l == Layout::I420) {
        std::memcpy(y + luma, u.data(), u.size());
        std::memcpy(y + luma + luma / 4, v.data(), v.size());
    } else if (l == Layout::NV21) {
        libyuv::MergeUVPlane(v.data(), w / 2, u.data(), w / 2, y + luma, w, w / 2, h / 2);
    } else {
        libyuv::MergeUVPlane(u.data(), w / 2, v.data(), w / 2, y + luma, w, w / 2, h / 2);
    }
    return f;
}

RgbImage frameToRgb(const YuvFrame& f) {
    const int w = f.width, h = f.height;
    std::vector<uint8_t> argb(size_t(w) * h * 4);
    const uint8_t* y = f.data.data();
    const size_t luma = f.lumaBytes();
    switch (f.layout) {
        case Layout::Gray: libyuv::J400ToARGB(y, w, argb.data(), w * 4, w, h); break;
        case Layout::I444:
            libyuv::J444ToARGB(y, w, y + luma, w, y + 2 * luma, w, argb.data(), w * 4, w, h);
            break;
        case Layout::I420:
            libyuv::J420ToARGB(y, w, y + luma, w / 2, y + luma + luma / 4, w / 2, argb.data(), w * 4, w, h);
            break;
        case Layout::NV21:
        case Layout::NV12: {
            std::vector<uint8_t> a(luma / 4), b(luma / 4);
            libyuv::SplitUVPlane(y + luma, w, a.data(), w / 2, b.data(), w / 2, w / 2, h / 2);
            const uint8_t* u = f.layout == Layout::NV12 ? a.data() : b.data();
            const uint8_t* v = f.layout == Layout::NV12 ? b.data() : a.data();
            libyuv::J420ToARGB(y, w, u, w / 2, v, w / 2, argb.data(), w * 4, w, h);
            break;
        }
    }
    return fromArgb(argb, w, h);
}

YuvFrame readRawFrame(const std::string& path, Layout l, int w, int h) {
    if (is420(l) && (w % 2 || h % 2))
        throw std::invalid_argument(path + ": a 4:2:0 frame needs even width and height");
    std::vector<uint8_t> bytes = readFile(path);
    const size_t want = YuvFrame::bytesFor(l, w, h);
    if (bytes.size() != want)
        throw std::runtime_error(path + ": " + std::to_string(bytes.size()) + " bytes, but a " + layoutName(l) +
                                 " frame of " + std::to_string(w) + "x" + std::to_string(h) + " has " +
                                 std::to_string(want));
    YuvFrame f;
    f.layout = l;
    f.width = w;
    f.height = h;
    f.data = std::move(bytes);
    return f;
}

RgbImage sideBySide(const RgbImage& a, const RgbImage& b) {
    if (a.width != b.width || a.height != b.height) throw std::invalid_argument("views of different sizes");
    RgbImage out;
    out.width = 2 * a.width;
    out.height = a.height;
    out.rgb.resize(size_t(out.width) * out.height * 3);
    const size_t row = size_t(a.width) * 3;
    for (int y = 0; y < a.height; ++y) {
        std::memcpy(&out.rgb[y * 2 * row], &a.rgb[y * row], row);
        std::memcpy(&out.rgb[y * 2 * row + row], &b.rgb[y * row], row);
    }
    return out;
}

RgbImage anaglyph(const RgbImage& a, const RgbImage& b) {
    if (a.width != b.width || a.height != b.height) throw std::invalid_argument("views of different sizes");
    RgbImage out = b;
    for (size_t i = 0; i < out.rgb.size(); i += 3) {
        // Red from the left view's luminance keeps colour rivalry low.
        const int lum = (77 * a.rgb[i] + 150 * a.rgb[i + 1] + 29 * a.rgb[i + 2] + 128) >> 8;
        out.rgb[i] = static_cast<uint8_t>(lum);
    }
    return out;
}

}  // namespace kvdsrtool
