// kvdsr demo: every engine on the bundled samples as one pipeline, with
// timings and a figure of merit per section, on one HTML page whose paths
// are all relative to its folder.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "chess_corners.h"
#include "commands.h"
#include "engines.h"
#include "image_io.h"
#include "inputs.h"
#include "samples.h"
#include "status_text.h"
#include "view_quality.h"
#include "yuv_frame.h"

#ifndef KVDSR_TOOL_DATA_DIR
#define KVDSR_TOOL_DATA_DIR "data"
#endif

namespace fs = std::filesystem;

namespace kvdsrtool {

std::string defaultDataDir() { return KVDSR_TOOL_DATA_DIR; }
std::string opencvSampleDir() { return "/usr/share/doc/opencv-doc/examples/data"; }

namespace {

using Clock = std::chrono::steady_clock;
using Figure = std::pair<std::string, std::string>;  // caption, file (relative to the page)

struct Section {
    std::string title;
    std::string about;    // what the engine does here, and where its black borders come from
    std::string command;  // the kvdsr command that reproduces it, run in the page's folder
    Status status;
    double initMs = 0, runMs = 0;
    std::vector<std::string> merits;  // figures of merit, one sentence each
    std::vector<Figure> inputs, outputs;
};

std::string escape(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '<') out += "&lt;";
        else if (c == '>') out += "&gt;";
        else if (c == '&') out += "&amp;";
        else if (c == '"') out += "&quot;";
        else out += c;
    }
    return out;
}

std::string fixed(double v, int digits) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.*f", digits, v);
    return buf;
}

void writeIndex(const fs::path& dir, const std::vector<Section>& sections) {
    std::ofstream html(dir / "index.html");
    html << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>libkvDSR demo</title>\n"
            "<style>body{font-family:sans-serif;margin:2em;max-width:1400px}img{max-width:320px;border:1px solid #ccc}"
            "figure{display:inline-block;margin:0 1em 1em 0;vertical-align:top}"
            ".ok{color:#070}.fail{color:#a00}code{background:#f4f4f4;padding:2px 4px}"
            "td{vertical-align:top;padding-right:2em}.merit li{margin:.2em 0}</style></head><body>\n"
            "<h1>libkvDSR demo</h1>\n<p>Every engine on the bundled samples: the Middlebury Aloe pair (640x554) for "
            "view synthesis, a real stereo rig's chessboard pair (640x480) for rectification and the focal shift, "
            "which runs on the rectified pair as a camera pipeline would. Inputs on the left, outputs on the right. "
            "Each section gives the kvdsr command that reproduces it; run it in this folder (the inputs and "
            "calibrations are copied here). Times are one call on this machine, Init and run apart.</p>\n";
    for (const auto& s : sections) {
        html << "<h2>" << escape(s.title) << "</h2>\n<p>" << escape(s.about) << "</p>\n<p><code>"
             << escape(s.command) << "</code></p>\n";
        if (s.status.ok())
            html << "<p class=\"ok\">OK &middot; Init " << fixed(s.initMs, 1) << " ms &middot; run "
                 << fixed(s.runMs, 1) << " ms</p>\n";
        else
            html << "<p class=\"fail\">" << escape(describeStatus(s.status.call, s.status.code)) << "</p>\n";
        if (!s.merits.empty()) {
            html << "<ul class=\"merit\">";
            for (const auto& m : s.merits) html << "<li>" << escape(m) << "</li>";
            html << "</ul>\n";
        }
        html << "<table><tr><td>";
        for (const auto& [caption, file] : s.inputs)
            html << "<figure><img src=\"" << escape(file) << "\" alt=\"" << escape(caption) << "\"><figcaption>"
                 << escape(caption) << "</figcaption></figure>";
        html << "</td><td>";
        for (const auto& [caption, file] : s.outputs)
            html << "<figure><img src=\"" << escape(file) << "\" alt=\"" << escape(caption) << "\"><figcaption>"
                 << escape(caption) << "</figcaption></figure>";
        html << "</td></tr></table>\n";
    }
    // Counts the pictures the browser could decode, for a headless check.
    html << "<script>window.addEventListener('load',function(){var n=0;for(var i of document.images)"
            "if(i.complete&&i.naturalWidth>0)n++;document.body.setAttribute('data-images-shown',n);});</script>\n"
            "</body></html>\n";
    if (!html) throw std::runtime_error((dir / "index.html").string() + ": write failed");
}

// Writes an 8-bit disparity map for viewing: invalid (255) black, near bright.
void writeDisparityView(const fs::path& path, const DepthMap& d) {
    GrayImage g;
    g.width = d.width;
    g.height = d.height;
    g.values.resize(d.bytes.size());
    int maxV = 1;
    for (uint8_t v : d.bytes)
        if (v != 255 && v > maxV) maxV = v;
    for (size_t i = 0; i < d.bytes.size(); ++i)
        g.values[i] = d.bytes[i] == 255 ? 0 : static_cast<uint16_t>(d.bytes[i] * 255 / maxV);
    writeGrayPng(path.string(), g);
}

void png(const fs::path& dir, const std::string& name, const YuvFrame& f) {
    writeRgbPng((dir / name).string(), frameToRgb(f));
}

// One engine session: Init and one run, timed.
struct Outcome {
    Status status;
    double initMs = 0, runMs = 0;
    std::vector<YuvFrame> outputs;
};

Outcome runOnce(const EngineSetup& setup, const Calibration& calib, std::vector<YuvFrame> images,
                DepthMap depth = {}) {
    Outcome o;
    EngineSession session(setup);
    const auto t0 = Clock::now();
    o.status = session.init(calib);
    o.initMs = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
    if (!o.status.ok()) return o;
    o.status = session.run(images, needsDepth(setup) ? &depth : nullptr);
    o.runMs = session.lastCallSeconds() * 1000;
    o.outputs = session.outputs();
    return o;
}

EngineSetup setupFor(Engine e, const YuvFrame& f) {
    EngineSetup s;
    s.engine = e;
    s.layout = f.layout;
    s.width = f.width;
    s.height = f.height;
    return s;
}

std::string boardMerit(const char* what, const CornerDisparity& c) {
    if (!c.found) return std::string(what) + ": the board was not found in both views";
    return std::string(what) + ": vertical disparity of the " + std::to_string(c.corners) + " board corners mean " +
           fixed(c.meanAbsDy, 2) + " px, max " + fixed(c.maxAbsDy, 2) + " px; horizontal disparity mean " +
           fixed(c.meanDx, 1) + " px";
}

std::string psnrMerit(const ViewScores& s) {
    return "PSNR against the real right view: whole " + fixed(s.whole, 2) + " dB, inner " + fixed(s.inner, 2) +
           " dB, visible in both " + fixed(s.visible, 2) + " dB, disoccluded holes " + fixed(s.holes, 2) + " dB";
}

// Largest byte difference between two frames' data (their sizes must match).
int maxDifference(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
    if (a.size() != b.size()) return 256;
    int m = 0;
    for (size_t i = 0; i < a.size(); ++i) m = std::max(m, std::abs(int(a[i]) - int(b[i])));
    return m;
}

// Columns [x0, x0 + w) of a frame as a frame of their own (NV21 or I444).
YuvFrame columns(const YuvFrame& f, int x0, int w) {
    YuvFrame out = makeFrame(f.layout, w, f.height);
    const size_t luma = f.lumaBytes(), outLuma = out.lumaBytes();
    for (int y = 0; y < f.height; ++y)
        std::copy_n(&f.data[size_t(y) * f.width + x0], w, &out.data[size_t(y) * w]);
    for (int y = 0; y < f.height / 2; ++y)
        std::copy_n(&f.data[luma + size_t(y) * f.width + x0], w, &out.data[outLuma + size_t(y) * w]);
    return out;
}

// The shift each view gets for a distance, read back through the public
// calls: the camera-1 view of a ramp moves left by exactly that much.
int probeShift(const Calibration& calib, int width, uint16_t distance) {
    EngineSetup s;
    s.engine = Engine::FocalShift;
    s.layout = Layout::NV21;
    s.width = width;
    s.height = 2;
    s.distance = distance;
    YuvFrame ramp = makeFrame(Layout::NV21, width, 2);
    for (int x = 0; x < width; ++x) ramp.data[x] = static_cast<uint8_t>(std::min(x, 255));
    const Outcome o = runOnce(s, calib, {ramp, ramp});
    return o.status.ok() ? o.outputs[0].data[0] : -1;
}

// The smallest table distance whose shift slides the two views by `slide`
// pixels relative to each other (2 s), found by bisection: the shift falls
// as the distance grows.
uint16_t distanceForSlide(const Calibration& calib, int width, double slide) {
    const int want = static_cast<int>(std::lround(slide / 2));
    int lo = 1, hi = 10000;
    while (lo < hi) {
        const int mid = (lo + hi) / 2;
        if (probeShift(calib, width, static_cast<uint16_t>(mid)) <= want) hi = mid;
        else lo = mid + 1;
    }
    return static_cast<uint16_t>(lo);
}

}  // namespace

int runDemo(const std::string& outDir, const std::string& dataDir, bool strict) {
    const fs::path out(outDir), data = fs::path(dataDir) / "samples";
    fs::create_directories(out);
    // Inputs are copied beside the page so that its commands run there.
    for (const char* f : {"aloe-left.jpg", "aloe-right.jpg", "aloe-disparity.png", "chess-left.jpg", "chess-right.jpg",
                          "chess-rig.calib"})
        fs::copy_file(data / f, out / f, fs::copy_options::overwrite_existing);
    // The chessboard rig's calibration was made by OpenCV from opencv-doc's
    // pairs and imported with tools/stereo-import; the Aloe rig is synthetic.
    const Calibration aloeCalib = aloeCalibration(), rigCalib = loadCalibration((data / "chess-rig.calib").string());
    writeFile((out / "aloe.calib").string(), aloeCalib.data(), aloeCalib.size());

    const RgbImage aloeLeftRgb = readRgb((data / "aloe-left.jpg").string());
    const RgbImage aloeRightRgb = readRgb((data / "aloe-right.jpg").string());
    const YuvFrame left = rgbToFrame(aloeLeftRgb, Layout::NV21), right = rgbToFrame(aloeRightRgb, Layout::NV21);
    const DepthMap disparity = loadDepth((data / "aloe-disparity.png").string(), {});
    const YuvFrame chess1 = loadFrame((data / "chess-left.jpg").string(), {}, Layout::NV21);
    const YuvFrame chess2 = loadFrame((data / "chess-right.jpg").string(), {}, Layout::NV21);
    writeDisparityView(out / "in-aloe-disparity.png", disparity);

    // The sample map is in half pixels (the unit of 8-bit maps 481..720
    // rows high), 255 unknown.
    std::vector<float> disparityPx(disparity.bytes.size());
    for (size_t i = 0; i < disparityPx.size(); ++i)
        disparityPx[i] = disparity.bytes[i] == 255 ? 0.f : disparity.bytes[i] * 0.5f;
    const ViewTruth truth = makeTruth(aloeLeftRgb, aloeRightRgb, disparityPx, depthViewBorder(left.width, kAloeViewShift));

    const std::string shift = std::to_string(kAloeViewShift);
    const Figure inAloeL{"left image", "aloe-left.jpg"}, inAloeR{"right image", "aloe-right.jpg"},
        inDisp{"disparity of the left view", "in-aloe-disparity.png"}, inChess1{"camera 1 (left)", "chess-left.jpg"},
        inChess2{"camera 2 (right)", "chess-right.jpg"};
    const std::string borderNote =
        " The " + std::to_string(truth.border) +
        " rightmost columns stay black: the depth view never writes its first width/1280*(viewShift*0.12+40) "
        "columns, which end up on the right once the mirrored result is turned back.";
    std::vector<Section> sections;

    EngineSetup dv = setupFor(Engine::DepthView, left);
    dv.depthWidth = disparity.width;
    dv.depthHeight = disparity.height;
    dv.viewShift = kAloeViewShift;
    dv.mirror = true;
    YuvFrame dvView;
    {
        Section s;
        s.title = "Depth view: the right camera's view from the left image and its disparity";
        s.about = "The engine moves pixels right (its virtual camera moves left); --direction right mirrors image "
                  "and map for it and mirrors the result back, so the new camera sits where the right camera is. "
                  "Gaps that open behind near objects are interpolated along the row." + borderNote;
        s.command = "kvdsr depthview --calib aloe.calib --image aloe-left.jpg --depth aloe-disparity.png "
                    "--direction right --view-shift " + shift + " --out depthview";
        s.inputs = {inAloeL, inDisp};
        const Outcome o = runOnce(dv, aloeCalib, {left}, disparity);
        s.status = o.status;
        s.initMs = o.initMs;
        s.runMs = o.runMs;
        if (o.status.ok()) {
            dvView = o.outputs[0];
            const RgbImage rgb = frameToRgb(dvView);
            writeRgbPng((out / "depthview.png").string(), rgb);
            writeRgbPng((out / "depthview-anaglyph.png").string(), anaglyph(aloeLeftRgb, rgb));
            s.outputs = {{"synthesised right view", "depthview.png"},
                         {"anaglyph: left (red) / synthesised right (cyan)", "depthview-anaglyph.png"},
                         {"real right view, for comparison", "aloe-right.jpg"}};
            s.merits = {psnrMerit(scoreView(rgb, truth)),
                        "The plain forward warp of the same disparity scores " +
                            fixed(scoreView(truth.forwardWarp, truth).holes, 2) + " dB in the holes (see docs/quality.md)."};
        }
        sections.push_back(s);
    }
    {
        Section s;
        s.title = "Depth view, side by side";
        s.about = "One frame twice as wide: with --direction right the input is on the left and the synthesised "
                  "right view on the right, a stereo pair." + borderNote;
        s.command = "kvdsr depthview --side-by-side --calib aloe.calib --image aloe-left.jpg --depth "
                    "aloe-disparity.png --direction right --view-shift " + shift + " --out depthview-sbs";
        s.inputs = {inAloeL, inDisp};
        EngineSetup sbs = dv;
        sbs.sideBySide = true;
        const Outcome o = runOnce(sbs, aloeCalib, {left}, disparity);
        s.status = o.status;
        s.initMs = o.initMs;
        s.runMs = o.runMs;
        if (o.status.ok()) {
            png(out, "depthview-sbs.png", o.outputs[0]);
            s.outputs = {{"input | synthesised right view", "depthview-sbs.png"}};
            if (!dvView.data.empty())
                s.merits = {"Right half against the two-frame run's view: largest byte difference " +
                            std::to_string(maxDifference(columns(o.outputs[0], left.width, left.width).data,
                                                         dvView.data)) +
                            "; left half against the input: " +
                            std::to_string(maxDifference(columns(o.outputs[0], 0, left.width).data, left.data))};
        }
        sections.push_back(s);
    }
    {
        Section s;
        s.title = "Binocular: the right view, with the gaps filled from the real right image";
        s.about = "The engine synthesises from one image and fills disocclusions from the other camera's image after "
                  "matching its colours. It looks for that camera on the side its virtual camera moves to (the left, "
                  "as the depth view), so the tool mirrors left image, right image and map (--depth-of left) and "
                  "mirrors the result back. The first 20 columns of each engine row take no left-image pixel "
                  "directly (the right edge here) and are filled from the right image.";
        s.command = "kvdsr binocular --calib aloe.calib --left aloe-left.jpg --right aloe-right.jpg --depth "
                    "aloe-disparity.png --view-shift " + shift + " --out binocular";
        s.inputs = {inAloeL, inAloeR, inDisp};
        EngineSetup bi = dv;
        bi.engine = Engine::Binocular;
        const Outcome o = runOnce(bi, aloeCalib, {left, right}, disparity);
        s.status = o.status;
        s.initMs = o.initMs;
        s.runMs = o.runMs;
        if (o.status.ok()) {
            const RgbImage rgb = frameToRgb(o.outputs[0]);
            writeRgbPng((out / "binocular.png").string(), rgb);
            writeRgbPng((out / "binocular-anaglyph.png").string(), anaglyph(aloeLeftRgb, rgb));
            s.outputs = {{"synthesised right view", "binocular.png"},
                         {"anaglyph: left (red) / synthesised right (cyan)", "binocular-anaglyph.png"}};
            s.merits = {psnrMerit(scoreView(rgb, truth))};
        }
        sections.push_back(s);
    }

    const CornerDisparity rawBoard = measureBoard(chess1, chess2);
    YuvFrame rect1, rect2;
    {
        Section s;
        s.title = "Stereo view: both frames rectified through the calibration's maps";
        s.about = "Each camera's frame is warped through a per-pixel map (lens distortion and rectifying "
                  "homography) so that matching points lie on the same row. Black borders are positions whose "
                  "source lies outside the camera's frame.";
        s.command = "kvdsr stereoview --calib chess-rig.calib --first chess-left.jpg --second chess-right.jpg "
                    "--out stereoview --raw stereoview";
        s.inputs = {inChess1, inChess2};
        const Outcome o = runOnce(setupFor(Engine::StereoView, chess1), rigCalib, {chess1, chess2});
        s.status = o.status;
        s.initMs = o.initMs;
        s.runMs = o.runMs;
        s.merits = {boardMerit("Before", rawBoard)};
        if (o.status.ok()) {
            rect1 = o.outputs[0];
            rect2 = o.outputs[1];
            png(out, "stereoview-first.png", rect1);
            png(out, "stereoview-second.png", rect2);
            writeFile((out / "stereoview-first.nv21").string(), rect1.data.data(), rect1.data.size());
            writeFile((out / "stereoview-second.nv21").string(), rect2.data.data(), rect2.data.size());
            writeRgbPng((out / "stereoview-anaglyph.png").string(), anaglyph(frameToRgb(rect1), frameToRgb(rect2)));
            s.outputs = {{"camera 1 rectified", "stereoview-first.png"},
                         {"camera 2 rectified", "stereoview-second.png"},
                         {"anaglyph", "stereoview-anaglyph.png"}};
            s.merits.push_back(boardMerit("After", measureBoard(rect1, rect2)));
        }
        sections.push_back(s);
    }
    {
        Section s;
        s.title = "Stereo view, side by side";
        s.about = "The same rectification into one frame: camera 1 left, camera 2 right.";
        s.command = "kvdsr stereoview --side-by-side --calib chess-rig.calib --first chess-left.jpg --second "
                    "chess-right.jpg --out stereoview-sbs";
        s.inputs = {inChess1, inChess2};
        EngineSetup sbs = setupFor(Engine::StereoView, chess1);
        sbs.sideBySide = true;
        const Outcome o = runOnce(sbs, rigCalib, {chess1, chess2});
        s.status = o.status;
        s.initMs = o.initMs;
        s.runMs = o.runMs;
        if (o.status.ok()) {
            png(out, "stereoview-sbs.png", o.outputs[0]);
            s.outputs = {{"camera 1 | camera 2", "stereoview-sbs.png"}};
            const YuvFrame a = columns(o.outputs[0], 0, chess1.width), b = columns(o.outputs[0], chess1.width, chess1.width);
            s.merits = {boardMerit("Halves", measureBoard(a, b))};
            if (!rect1.data.empty())
                s.merits.push_back("Halves against the two-frame run: largest byte difference " +
                                   std::to_string(std::max(maxDifference(a.data, rect1.data),
                                                           maxDifference(b.data, rect2.data))));
        }
        sections.push_back(s);
    }
    {
        Section s;
        s.title = "SPR: rectified and scaled to 320x240 in one warp";
        s.about = "The stereo view's scaling variant. Black borders as for the stereo view.";
        s.command = "kvdsr spr --calib chess-rig.calib --first chess-left.jpg --second chess-right.jpg "
                    "--out-size 320x240 --out spr";
        s.inputs = {inChess1, inChess2};
        EngineSetup spr = setupFor(Engine::Spr, chess1);
        spr.outWidth = 320;
        spr.outHeight = 240;
        const Outcome o = runOnce(spr, rigCalib, {chess1, chess2});
        s.status = o.status;
        s.initMs = o.initMs;
        s.runMs = o.runMs;
        if (o.status.ok()) {
            png(out, "spr-first.png", o.outputs[0]);
            png(out, "spr-second.png", o.outputs[1]);
            s.outputs = {{"camera 1", "spr-first.png"}, {"camera 2", "spr-second.png"}};
            s.merits = {boardMerit("After (320x240 pixels)", measureBoard(o.outputs[0], o.outputs[1]))};
        }
        sections.push_back(s);
    }

    // The focal shift works on the rectified pair, as a preview pipeline
    // would run it.
    const CornerDisparity rectBoard = rect1.data.empty() ? CornerDisparity{} : measureBoard(rect1, rect2);
    const uint16_t distance = rectBoard.found ? distanceForSlide(rigCalib, chess1.width, rectBoard.meanDx) : 1000;
    const std::string dist = std::to_string(distance);
    {
        Section s;
        s.title = "Focal alignment shift on the rectified pair: the chessboard brought to zero disparity";
        s.about = "Camera 1's view slides left and camera 2's right by one shift s taken from --distance. s is half "
                  "the index of the 1/8-pixel disparity step at that distance, so the views slide 8 times the "
                  "disparity of objects at --distance against each other: to line up objects at distance Z, pass 8 Z "
                  "(here in the rig's unit, chessboard squares). The demo measures the board's disparity on the "
                  "rectified pair and finds the --distance whose shift cancels it. The s columns at the end each "
                  "view leaves behind stay black.";
        s.command = "kvdsr focal-shift --calib chess-rig.calib --first stereoview-first.nv21 --second "
                    "stereoview-second.nv21 --format nv21 --size " + std::to_string(chess1.width) + "x" +
                    std::to_string(chess1.height) + " --distance " + dist + " --out focal-shift";
        s.inputs = {{"camera 1 rectified", "stereoview-first.png"}, {"camera 2 rectified", "stereoview-second.png"}};
        if (rect1.data.empty()) {
            s.status = {kvDSR_ERR_NOT_INITIALISED, "kvDSR_StereoView_Run (no rectified pair)"};
        } else {
            EngineSetup fs = setupFor(Engine::FocalShift, rect1);
            fs.distance = distance;
            const Outcome o = runOnce(fs, rigCalib, {rect1, rect2});
            s.status = o.status;
            s.initMs = o.initMs;
            s.runMs = o.runMs;
            s.merits = {boardMerit("Before (rectified)", rectBoard)};
            if (o.status.ok()) {
                png(out, "focal-shift-first.png", o.outputs[0]);
                png(out, "focal-shift-second.png", o.outputs[1]);
                writeRgbPng((out / "focal-shift-anaglyph.png").string(),
                            anaglyph(frameToRgb(o.outputs[0]), frameToRgb(o.outputs[1])));
                s.outputs = {{"camera 1 (moved left)", "focal-shift-first.png"},
                             {"camera 2 (moved right)", "focal-shift-second.png"},
                             {"anaglyph", "focal-shift-anaglyph.png"}};
                s.merits.push_back("--distance " + dist + ": shift " +
                                   std::to_string(probeShift(rigCalib, chess1.width, distance)) + " px a view");
                s.merits.push_back(boardMerit("After", measureBoard(o.outputs[0], o.outputs[1])));
            }
        }
        sections.push_back(s);
    }
    {
        Section s;
        s.title = "Focal alignment shift, side by side and halved";
        s.about = "The rectified pair as one side-by-side frame, each half shifted as above and the frame reduced to "
                  "half width (every other pixel pair), the layout of a side-by-side preview.";
        s.command = "kvdsr focal-shift --side-by-side --half --calib chess-rig.calib --first stereoview-first.png "
                    "--second stereoview-second.png --distance " + dist + " --out focal-shift-sbs";
        s.inputs = {{"camera 1 rectified", "stereoview-first.png"}, {"camera 2 rectified", "stereoview-second.png"}};
        if (rect1.data.empty()) {
            s.status = {kvDSR_ERR_NOT_INITIALISED, "kvDSR_StereoView_Run (no rectified pair)"};
        } else {
            const YuvFrame sbs = rgbToFrame(sideBySide(frameToRgb(rect1), frameToRgb(rect2)), Layout::NV21);
            EngineSetup fs = setupFor(Engine::FocalShift, sbs);
            fs.sideBySide = true;
            fs.half = true;
            fs.distance = distance;
            const Outcome o = runOnce(fs, rigCalib, {sbs});
            s.status = o.status;
            s.initMs = o.initMs;
            s.runMs = o.runMs;
            if (o.status.ok()) {
                png(out, "focal-shift-sbs.png", o.outputs[0]);
                s.outputs = {{"side by side, half width", "focal-shift-sbs.png"}};
                const int half = o.outputs[0].width / 2;
                s.merits = {boardMerit("Halves (half-width pixels)",
                                       measureBoard(columns(o.outputs[0], 0, half), columns(o.outputs[0], half, half)))};
            }
        }
        sections.push_back(s);
    }

    writeIndex(out, sections);
    int failed = 0;
    for (const auto& s : sections) {
        std::cout << (s.status.ok() ? "ok    " : "FAIL  ") << s.title << "\n";
        if (!s.status.ok()) {
            std::cout << "      " << describeStatus(s.status.call, s.status.code) << "\n";
            ++failed;
        }
        for (const auto& m : s.merits) std::cout << "      " << m << "\n";
    }
    std::cout << "open " << (out / "index.html").string() << "\n";
    return strict && failed ? kExitEngine : kExitOk;
}

}  // namespace kvdsrtool
