#include "view_quality.h"

#include <algorithm>
#include <cmath>

namespace kvdsrtool {
namespace {

// Plain forward warp of the left view by its disparity (nearer wins),
// holes filled by linear interpolation along the row. hit marks pixels that
// some left pixel reached.
RgbImage forwardWarp(const RgbImage& left, const std::vector<float>& disparity, std::vector<uint8_t>& hit) {
    const int w = left.width, h = left.height;
    RgbImage out = left;
    hit.assign(size_t(w) * h, 0);
    std::vector<float> zbuf(w);
    std::vector<int> xs;
    for (int y = 0; y < h; ++y) {
        std::fill(zbuf.begin(), zbuf.end(), -1.f);
        uint8_t* row = &out.rgb[size_t(y) * w * 3];
        for (int x = 0; x < w; ++x) {
            const float d = disparity[size_t(y) * w + x];
            if (!(d > 0)) continue;  // unknown
            const int xt = x - static_cast<int>(std::lround(d));
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

int depthViewBorder(int width, uint16_t viewShift) {
    return static_cast<int>((width / 1280.0) * (viewShift * 0.12 + 40.0));
}

ViewTruth makeTruth(const RgbImage& left, const RgbImage& right, const std::vector<float>& disparityPx, int border) {
    ViewTruth t;
    const int w = left.width, h = left.height;
    t.right = right;
    t.border = border;
    t.forwardWarp = forwardWarp(left, disparityPx, t.visible);
    t.inner.assign(size_t(w) * h, 1);
    t.holes.assign(size_t(w) * h, 0);
    for (int y = 0; y < h; ++y) {
        uint8_t* inner = &t.inner[size_t(y) * w];
        for (int x = std::max(0, w - border); x < w; ++x) inner[x] = 0;
        // Unreached pixels right of the last reached one lie outside the
        // left camera's view, not behind a near object.
        int lastReached = -1;
        for (int x = 0; x < w; ++x)
            if (t.visible[size_t(y) * w + x]) lastReached = x;
        for (int x = 0; x < lastReached; ++x)
            t.holes[size_t(y) * w + x] = inner[x] && !t.visible[size_t(y) * w + x];
    }
    return t;
}

ViewScores scoreView(const RgbImage& synth, const ViewTruth& t) {
    return {psnr(synth, t.right, nullptr), psnr(synth, t.right, &t.inner), psnr(synth, t.right, &t.visible),
            psnr(synth, t.right, &t.holes)};
}

double maskedFraction(const std::vector<uint8_t>& mask) {
    size_t n = 0;
    for (uint8_t v : mask) n += v;
    return mask.empty() ? 0 : double(n) / mask.size();
}

Status synthesiseRight(Engine engine, Layout layout, const RgbImage& left, const RgbImage& right,
                       const DepthMap& depth, uint16_t viewShift, const Calibration& calib, RgbImage& out,
                       double* callMs) {
    EngineSetup s;
    s.engine = engine;
    s.layout = layout;
    s.width = left.width;
    s.height = left.height;
    s.depthWidth = depth.width;
    s.depthHeight = depth.height;
    s.viewShift = viewShift;
    s.mirror = true;
    std::vector<YuvFrame> images{rgbToFrame(left, layout)};
    if (engine == Engine::Binocular) images.push_back(rgbToFrame(right, layout));
    DepthMap d = depth;
    EngineSession session(s);
    Status st = session.init(calib);
    if (st.ok()) st = session.run(images, &d);
    if (callMs) *callMs = session.lastCallSeconds() * 1000;
    if (st.ok()) out = frameToRgb(session.outputs()[0]);
    return st;
}

}  // namespace kvdsrtool
