// kvdsr quality-aloe: how close the depth view engine's synthesised view
// comes to a real second camera, on the Middlebury Aloe pair.
//
// The engine moves pixels to the right (its virtual camera moves left), so
// the right view is synthesised in mirrored images: mirror the left image
// and the left view's disparity, synthesise, mirror back.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "commands.h"
#include "engines.h"
#include "image_io.h"
#include "samples.h"
#include "status_text.h"
#include "yuv_frame.h"

namespace fs = std::filesystem;

namespace kvdsrtool {
namespace {

RgbImage mirror(const RgbImage& in) {
    RgbImage out = in;
    for (int y = 0; y < in.height; ++y)
        for (int x = 0; x < in.width; ++x)
            for (int c = 0; c < 3; ++c)
                out.rgb[(size_t(y) * in.width + x) * 3 + c] = in.rgb[(size_t(y) * in.width + in.width - 1 - x) * 3 + c];
    return out;
}

// Plain forward warp of the left view by its disparity (nearer wins),
// holes filled by linear interpolation along the row. hit marks pixels that
// some left pixel reached: those visible in both views.
RgbImage forwardWarp(const RgbImage& left, const GrayImage& disparity, std::vector<uint8_t>& hit) {
    const int w = left.width, h = left.height;
    RgbImage out = left;
    hit.assign(size_t(w) * h, 0);
    std::vector<int> zbuf(w);
    std::vector<int> xs;
    for (int y = 0; y < h; ++y) {
        std::fill(zbuf.begin(), zbuf.end(), -1);
        uint8_t* row = &out.rgb[size_t(y) * w * 3];
        for (int x = 0; x < w; ++x) {
            const int d = disparity.values[size_t(y) * w + x];
            if (d == 0) continue;  // unknown in the ground truth
            const int xt = x - d;
            if (xt < 0 || d <= zbuf[xt]) continue;
            zbuf[xt] = d;
            for (int c = 0; c < 3; ++c) row[xt * 3 + c] = left.rgb[(size_t(y) * w + x) * 3 + c];
        }
        xs.clear();
        for (int x = 0; x < w; ++x)
            if (zbuf[x] >= 0) {
                xs.push_back(x);
                hit[size_t(y) * w + x] = 1;
            }
        if (xs.empty()) continue;
        for (int x = 0; x < w; ++x) {
            if (zbuf[x] >= 0) continue;
            auto it = std::lower_bound(xs.begin(), xs.end(), x);
            const int b = it == xs.end() ? xs.back() : *it;
            const int a = it == xs.begin() ? xs.front() : *(it - 1);
            for (int c = 0; c < 3; ++c) {
                const double t = b == a ? 0.0 : double(x - a) / (b - a);
                row[x * 3 + c] = static_cast<uint8_t>(std::lround(row[a * 3 + c] * (1 - t) + row[b * 3 + c] * t));
            }
        }
    }
    return out;
}

double psnr(const RgbImage& a, const RgbImage& b, const std::vector<uint8_t>* mask) {
    double sum = 0;
    size_t n = 0;
    for (size_t i = 0; i < size_t(a.width) * a.height; ++i) {
        if (mask && !(*mask)[i]) continue;
        for (int c = 0; c < 3; ++c) {
            const double e = double(a.rgb[3 * i + c]) - b.rgb[3 * i + c];
            sum += e * e;
        }
        n += 3;
    }
    if (n == 0) return 0;
    return sum == 0 ? 99.0 : 10 * std::log10(255.0 * 255.0 / (sum / n));
}

}  // namespace

int runQualityAloe(const std::string& dataDir, const std::string& outDir) {
    const fs::path dir(dataDir);
    const RgbImage left = readRgb((dir / "aloeL.jpg").string());
    const RgbImage right = readRgb((dir / "aloeR.jpg").string());
    const GrayImage gt = readGrayPng((dir / "aloeGT.png").string());
    if (left.width != right.width || left.height != right.height || gt.width != left.width ||
        gt.height != left.height || gt.bitDepth != 8)
        throw std::runtime_error(dataDir + ": the Aloe images and their 8-bit disparity must share one size");
    const int w = left.width, h = left.height;

    std::vector<uint8_t> visible;
    const RgbImage reference = forwardWarp(left, gt, visible);

    // Engine input: mirrored left as 4:4:4 (no chroma subsampling in the
    // comparison) and the mirrored disparity with 255 marking unknown pixels.
    const YuvFrame image = rgbToFrame(mirror(left), Layout::I444);
    DepthMap depth;
    depth.width = w;
    depth.height = h;
    depth.format = kvDSR_FMT_DEPTH8;
    depth.bytes.resize(size_t(w) * h);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const uint16_t v = gt.values[size_t(y) * w + (w - 1 - x)];
            depth.bytes[size_t(y) * w + x] = v == 0 ? 255 : static_cast<uint8_t>(std::min<int>(v, 254));
        }
    YuvFrame synth;
    const Status s = runDepthview(aloeCalibration(), image, depth, kAloeViewShift, false, synth);

    // The engine never writes the first firstColumn columns of its output
    // (the right edge here, after mirroring back); "inner" leaves them out.
    const int border = static_cast<int>((w / 1280.0) * (kAloeViewShift * 0.12 + 40.0));
    std::vector<uint8_t> inner(size_t(w) * h, 1);
    for (int y = 0; y < h; ++y)
        for (int x = std::max(0, w - border); x < w; ++x) inner[size_t(y) * w + x] = 0;

    size_t visibleCount = 0;
    for (uint8_t v : visible) visibleCount += v;
    std::printf("Aloe %dx%d, right view synthesised from the left image and its ground-truth disparity\n", w, h);
    std::printf("PSNR in dB over RGB. whole: every pixel; inner: without the %d columns at the right edge that the\n"
                "engine leaves unwritten; visible: the %.1f%% of pixels that some left pixel reaches\n",
                border, 100.0 * visibleCount / visible.size());
    auto row = [&](const char* name, const RgbImage& img) {
        const double r[3] = {psnr(img, right, nullptr), psnr(img, right, &inner), psnr(img, right, &visible)};
        std::printf("%-34s %8.2f %8.2f %8.2f\n", name, r[0], r[1], r[2]);
    };
    std::printf("%-34s %8s %8s %8s\n", "", "whole", "inner", "visible");
    row("unwarped left image", left);
    row("forward warp, linear hole filling", reference);
    if (!s.ok()) {
        std::printf("%-34s %8s %8s %8s\n", "depth view engine", "-", "-", "-");
        std::cerr << "kvdsr: " << describeStatus(s.call, s.code) << "\n";
        return kExitEngine;
    }
    const RgbImage engine = mirror(frameToRgb(synth));
    row("depth view engine", engine);

    if (!outDir.empty()) {
        fs::create_directories(outDir);
        writeRgbPng((fs::path(outDir) / "aloe-engine.png").string(), engine);
        writeRgbPng((fs::path(outDir) / "aloe-forward-warp.png").string(), reference);
        std::cout << "wrote " << outDir << "/aloe-engine.png and aloe-forward-warp.png\n";
    }
    return kExitOk;
}

}  // namespace kvdsrtool
