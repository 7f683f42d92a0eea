// kvdsr demo: every engine on the bundled samples, one HTML page.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "engines.h"
#include "image_io.h"
#include "inputs.h"
#include "samples.h"
#include "status_text.h"
#include "yuv_frame.h"

#ifndef KVDSR_TOOL_DATA_DIR
#define KVDSR_TOOL_DATA_DIR "data"
#endif

namespace fs = std::filesystem;

namespace kvdsrtool {

std::string defaultDataDir() { return KVDSR_TOOL_DATA_DIR; }
std::string opencvSampleDir() { return "/usr/share/doc/opencv-doc/examples/data"; }

namespace {

struct Section {
    std::string title;
    std::string command;  // the equivalent kvdsr command line
    Status status;
    std::vector<std::pair<std::string, std::string>> inputs, outputs;  // caption, file
};

std::string escape(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '<') out += "&lt;";
        else if (c == '>') out += "&gt;";
        else if (c == '&') out += "&amp;";
        else out += c;
    }
    return out;
}

void writeIndex(const fs::path& dir, const std::vector<Section>& sections) {
    std::ofstream html(dir / "index.html");
    html << "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>libkvDSR demo</title>\n"
            "<style>body{font-family:sans-serif;margin:2em}img{max-width:420px;border:1px solid #ccc}"
            "figure{display:inline-block;margin:0 1em 1em 0;vertical-align:top}"
            ".ok{color:#070}.fail{color:#a00}code{background:#f4f4f4;padding:2px 4px}"
            "td{vertical-align:top;padding-right:2em}</style></head><body>\n"
            "<h1>libkvDSR demo</h1>\n<p>Inputs on the left, the engine's outputs on the right. "
            "Each section gives the kvdsr command that reproduces it.</p>\n";
    for (const auto& s : sections) {
        html << "<h2>" << escape(s.title) << "</h2>\n<p><code>" << escape(s.command) << "</code></p>\n";
        if (s.status.ok())
            html << "<p class=\"ok\">OK</p>\n";
        else
            html << "<p class=\"fail\">" << escape(describeStatus(s.status.call, s.status.code)) << "</p>\n";
        html << "<table><tr><td>";
        for (const auto& [caption, file] : s.inputs)
            html << "<figure><img src=\"" << file << "\"><figcaption>" << escape(caption) << "</figcaption></figure>";
        html << "</td><td>";
        for (const auto& [caption, file] : s.outputs)
            html << "<figure><img src=\"" << file << "\"><figcaption>" << escape(caption) << "</figcaption></figure>";
        html << "</td></tr></table>\n";
    }
    html << "</body></html>\n";
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

}  // namespace

int runDemo(const std::string& outDir, const std::string& dataDir, bool strict) {
    const fs::path out(outDir), data = fs::path(dataDir) / "samples";
    fs::create_directories(out);
    const std::string aloeL = (data / "aloe-left.jpg").string(), aloeR = (data / "aloe-right.jpg").string(),
                      aloeD = (data / "aloe-disparity.png").string(), chessL = (data / "chess-left.jpg").string(),
                      chessR = (data / "chess-right.jpg").string();

    const Calibration aloeCalib = aloeCalibration(), moduleCalib = moduleCalibration();
    writeFile((out / "aloe.calib").string(), aloeCalib.data(), aloeCalib.size());
    writeFile((out / "module.calib").string(), moduleCalib.data(), moduleCalib.size());

    const YuvFrame left = loadFrame(aloeL, {}, Layout::NV21), right = loadFrame(aloeR, {}, Layout::NV21);
    const DepthMap disparity = loadDepth(aloeD, {});
    const YuvFrame chess1 = loadFrame(chessL, {}, Layout::NV21), chess2 = loadFrame(chessR, {}, Layout::NV21);
    png(out, "in-aloe-left.png", left);
    png(out, "in-aloe-right.png", right);
    writeDisparityView(out / "in-aloe-disparity.png", disparity);
    png(out, "in-chess-first.png", chess1);
    png(out, "in-chess-second.png", chess2);

    const std::string shift = std::to_string(kAloeViewShift);
    std::vector<Section> sections;
    const std::pair<std::string, std::string> inAloeL{"left image", "in-aloe-left.png"},
        inAloeR{"right image", "in-aloe-right.png"}, inDisp{"disparity (left view)", "in-aloe-disparity.png"},
        inChess1{"camera 1", "in-chess-first.png"}, inChess2{"camera 2", "in-chess-second.png"};

    {
        Section s{"Depth view: a new viewpoint from one image and its disparity",
                  "kvdsr depthview --calib aloe.calib --image " + aloeL + " --depth " + aloeD + " --view-shift " +
                      shift + " --out depthview",
                  {}, {inAloeL, inDisp}, {}};
        YuvFrame o;
        s.status = runDepthview(aloeCalib, left, disparity, kAloeViewShift, false, o);
        if (s.status.ok()) {
            png(out, "depthview.png", o);
            writeRgbPng((out / "depthview-anaglyph.png").string(), anaglyph(frameToRgb(o), frameToRgb(left)));
            s.outputs = {{"synthesised view (camera moved left)", "depthview.png"},
                         {"anaglyph: synthesised (red) / input (cyan)", "depthview-anaglyph.png"}};
        }
        sections.push_back(s);
    }
    {
        Section s{"Depth view, side by side",
                  "kvdsr depthview --side-by-side --calib aloe.calib --image " + aloeL + " --depth " + aloeD +
                      " --view-shift " + shift + " --out depthview-sbs",
                  {}, {inAloeL, inDisp}, {}};
        YuvFrame o;
        s.status = runDepthview(aloeCalib, left, disparity, kAloeViewShift, true, o);
        if (s.status.ok()) {
            png(out, "depthview-sbs.png", o);
            s.outputs = {{"synthesised | input", "depthview-sbs.png"}};
        }
        sections.push_back(s);
    }
    {
        Section s{"Binocular: synthesis with gaps filled from the colour-matched right image",
                  "kvdsr binocular --calib aloe.calib --left " + aloeL + " --right " + aloeR + " --depth " + aloeD +
                      " --view-shift " + shift + " --out binocular",
                  {}, {inAloeL, inAloeR, inDisp}, {}};
        YuvFrame o;
        s.status = runBinocular(aloeCalib, left, right, disparity, kAloeViewShift, o);
        if (s.status.ok()) {
            png(out, "binocular.png", o);
            s.outputs = {{"synthesised view", "binocular.png"}};
        }
        sections.push_back(s);
    }
    {
        Section s{"Stereo view: both frames rectified through the calibration's maps",
                  "kvdsr stereoview --calib module.calib --first " + chessL + " --second " + chessR +
                      " --out stereoview",
                  {}, {inChess1, inChess2}, {}};
        YuvFrame o1, o2;
        s.status = runStereoview(moduleCalib, chess1, chess2, o1, o2);
        if (s.status.ok()) {
            png(out, "stereoview-first.png", o1);
            png(out, "stereoview-second.png", o2);
            writeRgbPng((out / "stereoview-anaglyph.png").string(), anaglyph(frameToRgb(o1), frameToRgb(o2)));
            s.outputs = {{"camera 1 rectified", "stereoview-first.png"},
                         {"camera 2 rectified", "stereoview-second.png"},
                         {"anaglyph", "stereoview-anaglyph.png"}};
        }
        sections.push_back(s);
    }
    {
        Section s{"Stereo view, side by side",
                  "kvdsr stereoview --side-by-side --calib module.calib --first " + chessL + " --second " + chessR +
                      " --out stereoview-sbs",
                  {}, {inChess1, inChess2}, {}};
        YuvFrame o;
        s.status = runStereoviewSideBySide(moduleCalib, chess1, chess2, o);
        if (s.status.ok()) {
            png(out, "stereoview-sbs.png", o);
            s.outputs = {{"camera 1 | camera 2", "stereoview-sbs.png"}};
        }
        sections.push_back(s);
    }
    {
        Section s{"SPR: rectified and scaled to 320x240",
                  "kvdsr spr --calib module.calib --first " + chessL + " --second " + chessR +
                      " --out-size 320x240 --out spr",
                  {}, {inChess1, inChess2}, {}};
        YuvFrame o1, o2;
        s.status = runSpr(moduleCalib, chess1, chess2, 320, 240, o1, o2);
        if (s.status.ok()) {
            png(out, "spr-first.png", o1);
            png(out, "spr-second.png", o2);
            s.outputs = {{"camera 1", "spr-first.png"}, {"camera 2", "spr-second.png"}};
        }
        sections.push_back(s);
    }
    {
        Section s{"Focal alignment shift: views slid so that objects at 1000 mm coincide",
                  "kvdsr focal-shift --calib module.calib --first " + chessL + " --second " + chessR +
                      " --distance 1000 --out focal-shift",
                  {}, {inChess1, inChess2}, {}};
        YuvFrame o1, o2;
        s.status = runFocalShift(moduleCalib, 1000, chess1, chess2, o1, o2);
        if (s.status.ok()) {
            png(out, "focal-shift-first.png", o1);
            png(out, "focal-shift-second.png", o2);
            writeRgbPng((out / "focal-shift-anaglyph.png").string(), anaglyph(frameToRgb(o1), frameToRgb(o2)));
            s.outputs = {{"camera 1 (moved left)", "focal-shift-first.png"},
                         {"camera 2 (moved right)", "focal-shift-second.png"},
                         {"anaglyph", "focal-shift-anaglyph.png"}};
        }
        sections.push_back(s);
    }
    {
        Section s{"Focal alignment shift, side by side and halved",
                  "kvdsr focal-shift --side-by-side --half --calib module.calib --first " + chessL + " --second " +
                      chessR + " --distance 1000 --out focal-shift-sbs",
                  {}, {inChess1, inChess2}, {}};
        const YuvFrame sbs = rgbToFrame(sideBySide(frameToRgb(chess1), frameToRgb(chess2)), Layout::NV21);
        YuvFrame o;
        s.status = runFocalShiftSideBySide(moduleCalib, 1000, sbs, true, o);
        if (s.status.ok()) {
            png(out, "focal-shift-sbs.png", o);
            s.outputs = {{"side by side, half width", "focal-shift-sbs.png"}};
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
    }
    std::cout << "open " << fs::absolute(out / "index.html").string() << "\n";
    return strict && failed ? kExitEngine : kExitOk;
}

}  // namespace kvdsrtool
