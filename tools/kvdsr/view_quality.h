// How close a synthesised right view comes to the real one: masks from the
// left view's disparity and PSNR over each, shared by quality-aloe and the
// demo.
#pragma once

#include <cstdint>
#include <vector>

#include "engines.h"
#include "image_io.h"

namespace kvdsrtool {

struct ViewTruth {
    RgbImage right;                // the real right view
    RgbImage forwardWarp;          // the left view warped by its disparity, holes interpolated
    std::vector<uint8_t> inner;    // without the depth view's unwritten border (right edge)
    std::vector<uint8_t> visible;  // reached by some left pixel: seen by both cameras
    std::vector<uint8_t> holes;    // disoccluded: inner, unreached, with a reached pixel further right
    int border = 0;
};

// disparityPx: the left view's disparity in pixels, one per pixel; 0 or less
// is unknown.
ViewTruth makeTruth(const RgbImage& left, const RgbImage& right, const std::vector<float>& disparityPx, int border);

struct ViewScores {
    double whole = 0, inner = 0, visible = 0, holes = 0;  // dB over RGB
};
ViewScores scoreView(const RgbImage& synth, const ViewTruth& truth);
double maskedFraction(const std::vector<uint8_t>& mask);

// The depth view's first written column, which is where its unwritten
// border ends: width / 1280 * (viewShift * 0.12 + 40) for landscape frames.
int depthViewBorder(int width, uint16_t viewShift);

// The Aloe right view synthesised by each engine from the left image (its
// disparity as 8-bit map in `depth`), fed in the geometry the engines take
// (mirrored). Returns the engine's status; `out` is RGB.
Status synthesiseRight(Engine engine, Layout layout, const RgbImage& left, const RgbImage& right,
                       const DepthMap& depth, uint16_t viewShift, const Calibration& calib, RgbImage& out,
                       double* callMs = nullptr);

}  // namespace kvdsrtool
