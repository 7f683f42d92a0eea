// YCbCr frames in the layouts the engines take, and their conversion to and
// from RGB (full-range BT.601, through libyuv).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image_io.h"
#include "kvDSR.h"

namespace kvdsrtool {

enum class Layout { NV21, NV12, I420, I444, Gray };

// Parses nv21|nv12|i420|i444; throws std::invalid_argument otherwise.
Layout parseLayout(const std::string& name);
const char* layoutName(Layout l);
uint32_t formatCode(Layout l);  // 0xF01, 0xF05 or 0xF02 (Gray: 0xF02, plane 0 only)

// One contiguous frame: luma, then chroma (interleaved pairs for NV21/NV12,
// two planes for I420 and I444).
struct YuvFrame {
    Layout layout = Layout::NV21;
    int width = 0;
    int height = 0;
    std::vector<uint8_t> data;

    size_t lumaBytes() const { return size_t(width) * height; }
    static size_t bytesFor(Layout l, int w, int h);
    // Descriptor over this frame's planes (packed strides).
    kvDSR_ImageDesc desc();
};

YuvFrame makeFrame(Layout l, int w, int h);                // black

// Conversions and files (yuv_convert.cpp: libyuv and the image readers).
YuvFrame rgbToFrame(const RgbImage& rgb, Layout l);        // throws on odd sizes for 4:2:0
RgbImage frameToRgb(const YuvFrame& f);
// Reads a raw frame file; its size must be exactly right.
YuvFrame readRawFrame(const std::string& path, Layout l, int w, int h);

// Two views side by side (a left, b right) and the red-cyan anaglyph (red
// from a, green and blue from b). Sizes must match.
RgbImage sideBySide(const RgbImage& a, const RgbImage& b);
RgbImage anaglyph(const RgbImage& a, const RgbImage& b);

// (back in yuv_frame.cpp, which needs the library's header only)
// Parses "WxH" (each 1..65535); throws std::invalid_argument otherwise.
void parseSize(const std::string& s, int& w, int& h);

}  // namespace kvdsrtool
