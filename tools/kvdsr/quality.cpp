// kvdsr quality-aloe: how close the depth view and binocular engines'
// synthesised views come to a real second camera, on the Middlebury Aloe
// pair.
//
// Both engines move pixels to the right (their virtual camera moves left;
// the binocular engine also looks for its second camera on that side), so
// the right view is synthesised in mirrored images: mirror the inputs and
// the left view's disparity, synthesise, mirror back.
#include <algorithm>
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
#include "view_quality.h"
#include "yuv_frame.h"

namespace fs = std::filesystem;

namespace kvdsrtool {

int runQualityAloe(const std::string& dataDir, const std::string& outDir) {
    const fs::path dir(dataDir);
    const RgbImage left = readRgb((dir / "aloeL.jpg").string());
    const RgbImage right = readRgb((dir / "aloeR.jpg").string());
    const GrayImage gt = readGrayPng((dir / "aloeGT.png").string());
    if (left.width != right.width || left.height != right.height || gt.width != left.width ||
        gt.height != left.height || gt.bitDepth != 8)
        throw std::runtime_error(dataDir + ": the Aloe images and their 8-bit disparity must share one size");
    const int w = left.width, h = left.height;
    if (w % 2 || h % 2) throw std::runtime_error(dataDir + ": the Aloe images must have even sizes");

    std::vector<float> disparity(gt.values.begin(), gt.values.end());
    const ViewTruth truth = makeTruth(left, right, disparity, depthViewBorder(w, kAloeViewShift));

    // Engine map: 8-bit, whole pixels at this height, 255 marking the
    // ground truth's unknown pixels so that the engines fill them.
    DepthMap depth;
    depth.width = w;
    depth.height = h;
    depth.format = kvDSR_FMT_DEPTH8;
    depth.bytes.resize(size_t(w) * h);
    for (size_t i = 0; i < depth.bytes.size(); ++i)
        depth.bytes[i] = gt.values[i] == 0 ? 255 : static_cast<uint8_t>(std::min<int>(gt.values[i], 254));

    std::printf("Aloe %dx%d, right view synthesised from the left image and its ground-truth disparity\n", w, h);
    std::printf("PSNR in dB over RGB against aloeR.jpg. whole: every pixel; inner: without the %d columns at the\n"
                "right edge that the depth view leaves unwritten; visible: the %.1f%% of pixels that some left pixel\n"
                "reaches; holes: the %.1f%% of inner pixels that no left pixel reaches, left of the last reached\n"
                "pixel of their row (disocclusions)\n",
                truth.border, 100 * maskedFraction(truth.visible), 100 * maskedFraction(truth.holes));
    std::printf("%-38s %8s %8s %8s %8s\n", "", "whole", "inner", "visible", "holes");
    auto row = [&](const char* name, const RgbImage& img) {
        const ViewScores s = scoreView(img, truth);
        std::printf("%-38s %8.2f %8.2f %8.2f %8.2f\n", name, s.whole, s.inner, s.visible, s.holes);
    };
    row("unwarped left image", left);
    row("forward warp, linear hole filling", truth.forwardWarp);

    struct Run {
        const char* name;
        const char* file;
        Engine engine;
        Layout layout;
    };
    // The binocular engine takes 4:2:0 only; the depth view runs in both
    // so that chroma subsampling is not mistaken for the engines' difference.
    const Run runs[] = {{"depth view engine (4:4:4)", "aloe-depthview-444.png", Engine::DepthView, Layout::I444},
                        {"depth view engine (4:2:0)", "aloe-depthview-420.png", Engine::DepthView, Layout::NV21},
                        {"binocular engine (4:2:0)", "aloe-binocular.png", Engine::Binocular, Layout::NV21}};
    int rc = kExitOk;
    if (!outDir.empty()) fs::create_directories(outDir);
    for (const Run& r : runs) {
        RgbImage synth;
        const Status s =
            synthesiseRight(r.engine, r.layout, left, right, depth, kAloeViewShift, aloeCalibration(), synth);
        if (!s.ok()) {
            std::printf("%-38s %8s %8s %8s %8s\n", r.name, "-", "-", "-", "-");
            std::cerr << "kvdsr: " << describeStatus(s.call, s.code) << "\n";
            rc = kExitEngine;
            continue;
        }
        row(r.name, synth);
        if (!outDir.empty()) writeRgbPng((fs::path(outDir) / r.file).string(), synth);
    }
    if (!outDir.empty()) {
        writeRgbPng((fs::path(outDir) / "aloe-forward-warp.png").string(), truth.forwardWarp);
        std::cout << "wrote the synthesised views and aloe-forward-warp.png to " << outDir << "\n";
    }
    return rc;
}

}  // namespace kvdsrtool
