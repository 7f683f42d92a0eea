// kvdsr: runs the library's engines on image files.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <functional>
#include <iostream>
#include <stdexcept>
#include <string>

#include "bench.h"
#include "calib_json.h"
#include "commands.h"
#include "engines.h"
#include "image_io.h"
#include "inputs.h"
#include "kvDSR.h"
#include "status_text.h"
#include "stream.h"
#include "stereoview/focal_shift.h"
#include "yuv_frame.h"

using namespace kvdsrtool;

namespace {

struct Common {
    std::string calib;
    int64_t cameraLayout = 0;
    CLI::Option* cameraLayoutOption = nullptr;
    std::string out = "kvdsr-out";
    std::string raw;
    ImageOptions image;
    int64_t frames = 0;
    CLI::Option* framesOption = nullptr;
};

void addCommon(CLI::App* app, Common& c) {
    app->add_option("--calib", c.calib, "calibration: container file, or JSON of the calibration tool")->required();
    c.cameraLayoutOption =
        app->add_option("--camera-layout", c.cameraLayout, "camera layout 1..4 (default: the library's, 4)");
    app->add_option("--out", c.out, "output prefix for PNG files (default kvdsr-out)");
    app->add_option("--raw", c.raw, "also write the raw YUV output to this prefix (- : standard output)");
    app->add_option("--format", c.image.format,
                    "nv21|nv12|i420|i444: layout of raw input, or the conversion target for PNG/JPEG input");
    app->add_option("--size", c.image.size, "WxH of raw YUV input");
    c.framesOption = app->add_option(
        "--frames", c.frames,
        "stream mode: the inputs are raw YUV files of many frames (--format, --size); run N of them "
        "(0: every frame) through one Init and write raw streams to --raw; a disparity map may be one map for "
        "every frame or a raw file of one map per frame");
}

void applyLayout(const Common& c) {
    if (!c.cameraLayoutOption || c.cameraLayoutOption->count() == 0) return;
    const uint32_t rc = kvDSR_CameraLayout_Set(static_cast<uint32_t>(c.cameraLayout));
    if (rc != kvDSR_OK) throw std::invalid_argument(describeStatus("kvDSR_CameraLayout_Set", rc));
}

bool streaming(const Common& c) { return c.framesOption && c.framesOption->count() > 0; }

// Raw frames go to a file, or to standard output for "-" (pairs: first
// view, then second), so that they can be piped; messages go to stderr.
void writeRaw(const std::string& path, const YuvFrame& f) {
    if (path == "-") {
        std::cout.write(reinterpret_cast<const char*>(f.data.data()), static_cast<std::streamsize>(f.data.size()));
        std::cout.flush();
        if (!std::cout) throw std::runtime_error("writing to standard output failed");
        return;
    }
    writeFile(path, f.data.data(), f.data.size());
    std::cerr << "wrote " << path << "\n";
}

void writeSingle(const std::string& prefix, const std::string& raw, const YuvFrame& f) {
    writeRgbPng(prefix + ".png", frameToRgb(f));
    std::cerr << "wrote " << prefix << ".png (" << f.width << "x" << f.height << ")\n";
    if (!raw.empty()) writeRaw(rawOutputPath(raw, "", f.layout, true), f);
}

// A stereo pair, left view first: each view, the two side by side and a
// red-cyan anaglyph (red from the left view).
void writePair(const std::string& prefix, const std::string& raw, const YuvFrame& a, const YuvFrame& b,
               const char* nameA, const char* nameB) {
    const RgbImage ra = frameToRgb(a), rb = frameToRgb(b);
    writeRgbPng(prefix + "-" + nameA + ".png", ra);
    writeRgbPng(prefix + "-" + nameB + ".png", rb);
    std::cerr << "wrote " << prefix << "-" << nameA << ".png, " << prefix << "-" << nameB << ".png\n";
    if (ra.width == rb.width && ra.height == rb.height) {
        writeRgbPng(prefix + "-sbs.png", sideBySide(ra, rb));
        writeRgbPng(prefix + "-anaglyph.png", anaglyph(ra, rb));
        std::cerr << "wrote " << prefix << "-sbs.png, " << prefix << "-anaglyph.png\n";
    }
    if (raw.empty()) return;
    writeRaw(rawOutputPath(raw, nameA, a.layout, false), a);
    writeRaw(rawOutputPath(raw, nameB, b.layout, false), b);
}

int report(const Status& s) {
    if (s.ok()) return kExitOk;
    std::cerr << "kvdsr: " << describeStatus(s.call, s.code) << "\n";
    return kExitEngine;
}

void requireSameSize(const YuvFrame& a, const YuvFrame& b, const char* what) {
    if (a.width != b.width || a.height != b.height)
        throw std::invalid_argument(std::string(what) + ": the two images differ in size (" + std::to_string(a.width) +
                                    "x" + std::to_string(a.height) + " and " + std::to_string(b.width) + "x" +
                                    std::to_string(b.height) + ")");
}

uint16_t toU16(int v, const char* what) {
    if (v < 0 || v > 65535) throw std::invalid_argument(std::string(what) + " must be 0..65535");
    return static_cast<uint16_t>(v);
}

// The calibration, with a warning on stderr for every implausible value
// (the engines take it anyway: the exit status does not change).
Calibration loadCheckedCalibration(const std::string& path) {
    Calibration calib = loadCalibration(path);
    for (const std::string& w : calibrationWarnings(calib)) std::cerr << "kvdsr: warning: " << path << ", " << w << "\n";
    return calib;
}

void warnUniform(const EngineSession& session) {
    const auto names = outputNames(session.setup());
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string w = uniformFrameWarning(session.outputs()[i]);
        if (!w.empty()) std::cerr << "kvdsr: warning: output " << names[i] << ": " << w << "\n";
    }
}

// An engine subcommand: its set-up, its input files and how its outputs are
// written. The same path serves a single frame and --frames streams.
struct EngineCommand {
    EngineSetup setup;
    std::vector<std::string> images;
    std::string depth;
    DepthOptions depthOptions;
    // Single frame: writes the outputs (inputs as the tool read them).
    std::function<void(const std::vector<YuvFrame>& inputs, const std::vector<YuvFrame>& outputs)> write;
};

int runEngineCommand(const Common& c, EngineCommand cmd, std::vector<YuvFrame> preloaded = {}) {
    applyLayout(c);
    const Calibration calib = loadCheckedCalibration(c.calib);
    if (streaming(c)) {
        if (!preloaded.empty())
            throw std::invalid_argument("--frames takes raw streams given as files, not a composed frame");
        return runStream(calib, cmd.setup, {cmd.images, c.image, cmd.depth, cmd.depthOptions, c.frames, c.raw});
    }
    std::vector<YuvFrame> images = std::move(preloaded);
    for (const std::string& p : cmd.images) images.push_back(loadFrame(p, c.image, Layout::NV21));
    for (size_t i = 1; i < images.size(); ++i) requireSameSize(images[0], images[i], engineName(cmd.setup.engine));
    EngineSetup& s = cmd.setup;
    s.layout = images[0].layout;
    s.width = images[0].width;
    s.height = images[0].height;
    DepthMap depth;
    if (needsDepth(s)) {
        depth = loadDepth(cmd.depth, cmd.depthOptions);
        s.depthWidth = depth.width;
        s.depthHeight = depth.height;
    }
    EngineSession session(s);
    Status st = session.init(calib);
    if (st.ok()) {
        std::vector<YuvFrame> work = images;  // the engines write into some inputs
        st = session.run(work, needsDepth(s) ? &depth : nullptr);
    }
    if (!st.ok()) return report(st);
    warnUniform(session);
    cmd.write(images, session.outputs());
    return kExitOk;
}

int printShiftTable(const Calibration& calib, int width, int distance) {
    kvdsr::focalshift::ShiftSetup setup;
    const uint32_t rc = kvdsr::focalshift::computeSetup(calib.data(), static_cast<uint32_t>(calib.size()), nullptr,
                                                        0, toU16(width, "width"), toU16(distance, "--distance"), setup);
    if (rc != 0) return report({rc, "calibration parser"});
    std::printf("camera 2: %ux%u, focal length %g, pixel pitch %g, baseline %g\n", setup.imageWidth,
                setup.imageHeight, setup.focalLength, setup.pixelPitch, setup.baseline);
    std::printf("working width %d: focal length %g px\n", width, setup.focalPx);
    std::printf("distance %d: shift %d px\n", distance, setup.alignShift);
    std::printf("# index disparity_px distance\n");
    for (int i = 0; i < kvdsr::focalshift::kDepthLevels; ++i)
        std::printf("%d %.3f %.3f\n", i, i * 0.125, setup.depthTable[i]);
    return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"kvdsr: run the libkvDSR engines on image files (PNG, JPEG or raw YUV)"};
    app.require_subcommand(1);
    app.set_version_flag("--version", [] {
        char v[256] = {};
        kvDSR_VersionInfo_Get(v, sizeof v);
        return std::string("libkvDSR ") + v;
    });

    // depthview
    Common dv;
    std::string dvImage, dvDepth, dvDirection = "left";
    DepthOptions dvDepthOpt;
    int dvShift = 50;
    bool dvSbs = false;
    auto* cDepth = app.add_subcommand(
        "depthview",
        "synthesise a sideways-moved view from an image and its disparity map. The engine's virtual camera moves "
        "left of the image's camera (pixels move right, near ones more); --direction right mirrors image and map "
        "for the engine and the result back: the view of a camera to the right, as for a left image and its "
        "disparity");
    addCommon(cDepth, dv);
    cDepth->add_option("--image", dvImage, "input image")->required();
    cDepth->add_option("--depth", dvDepth, "disparity map of --image: 8-bit PNG (255 invalid), 16-bit PNG (1/8 px), or raw")
        ->required();
    cDepth->add_option("--depth-format", dvDepthOpt.format, "depth8|depth16 for a raw map");
    cDepth->add_option("--depth-size", dvDepthOpt.size, "WxH of a raw map");
    cDepth->add_option("--view-shift", dvShift, "strength of the effect, 0..65535 (default 50)");
    cDepth->add_option("--direction", dvDirection, "left (default, the engine's own) or right: where the new camera is")
        ->check(CLI::IsMember({"left", "right"}));
    cDepth->add_flag("--side-by-side", dvSbs, "one frame twice as wide: left view left, right view right");

    // binocular
    Common bi;
    std::string biLeft, biRight, biDepth, biDepthOf = "left";
    DepthOptions biDepthOpt;
    int biShift = 50;
    auto* cBin = app.add_subcommand(
        "binocular",
        "synthesise a new view from one camera's image and disparity, filling the gaps from the other camera's "
        "colour-matched image. The engine looks for the other camera on the side its virtual camera moves to (the "
        "left, as the depth view's); with the left image's disparity (--depth-of left, the default) the tool "
        "mirrors both images and the map, so the new camera moves from the left camera toward the right one; with "
        "the right image's disparity the engine is fed as it is and the new camera moves from the right camera "
        "toward the left one");
    addCommon(cBin, bi);
    cBin->add_option("--left", biLeft, "left camera's image")->required();
    cBin->add_option("--right", biRight, "right camera's image")->required();
    cBin->add_option("--depth", biDepth, "disparity map (as for depthview) of the image --depth-of names")->required();
    cBin->add_option("--depth-of", biDepthOf, "left (default) or right: which image --depth belongs to")
        ->check(CLI::IsMember({"left", "right"}));
    cBin->add_option("--depth-format", biDepthOpt.format, "depth8|depth16 for a raw map");
    cBin->add_option("--depth-size", biDepthOpt.size, "WxH of a raw map");
    cBin->add_option("--view-shift", biShift, "baseline of the synthesised view in 1/100 calibration units");

    // stereoview
    Common sv;
    std::string svFirst, svSecond;
    bool svSbs = false;
    auto* cSv = app.add_subcommand("stereoview", "rectify a frame pair with the calibration's maps");
    addCommon(cSv, sv);
    cSv->add_option("--first", svFirst, "camera-1 image")->required();
    cSv->add_option("--second", svSecond, "camera-2 image")->required();
    cSv->add_flag("--side-by-side", svSbs, "one output frame: camera 1 left, camera 2 right");

    // spr
    Common sp;
    std::string spFirst, spSecond, spOutSize;
    auto* cSpr = app.add_subcommand("spr", "rectify and rescale a frame pair (nv21/nv12 only)");
    addCommon(cSpr, sp);
    cSpr->add_option("--first", spFirst, "camera-1 image")->required();
    cSpr->add_option("--second", spSecond, "camera-2 image")->required();
    cSpr->add_option("--out-size", spOutSize, "WxH of the outputs")->required();

    // focal-shift
    Common fs;
    std::string fsFirst, fsSecond, fsImage;
    int fsTableWidth = 0;
    int fsDistance = 1000;
    bool fsSbs = false, fsHalf = false, fsTable = false;
    auto* cFs = app.add_subcommand(
        "focal-shift",
        "slide camera 1's view left and camera 2's right by one shift s from --distance. s is half the index of the "
        "1/8-pixel disparity step at that distance, so the views move 8x the disparity of objects at --distance "
        "relative to each other: objects at distance Z line up at --distance 8*Z (see --print-table)");
    addCommon(cFs, fs);
    cFs->add_option("--first", fsFirst, "camera-1 image (with --second), or the left view of --side-by-side");
    cFs->add_option("--second", fsSecond, "camera-2 image");
    cFs->add_option("--image", fsImage, "one side-by-side frame (with --side-by-side)");
    cFs->add_option("--distance", fsDistance, "table distance 0..10000 (calibration units; see above)");
    cFs->add_flag("--side-by-side", fsSbs, "shift the halves of one side-by-side frame (--image, or --first/--second)");
    cFs->add_flag("--half", fsHalf, "with --side-by-side: halve the output width");
    cFs->add_flag("--print-table", fsTable, "print the depth table and the shift for --distance, then stop");
    cFs->add_option("--width", fsTableWidth, "with --print-table: working width (default: camera 2's width)");

    // demo
    std::string demoOut = "kvdsr-demo", demoData;
    bool demoStrict = false;
    auto* cDemo = app.add_subcommand("demo", "run every engine on the bundled samples; writes DIR/index.html");
    cDemo->add_option("--out", demoOut, "output folder (default kvdsr-demo)");
    cDemo->add_option("--data", demoData, "sample data folder (default: the repository's data/)");
    cDemo->add_flag("--strict", demoStrict, "exit non-zero when any engine fails");

    // quality-aloe
    std::string qaData, qaOut;
    auto* cQa = app.add_subcommand("quality-aloe",
                                   "PSNR of the depth view and binocular engines on the Middlebury Aloe pair");
    cQa->add_option("--data", qaData, "folder with aloeL.jpg, aloeR.jpg, aloeGT.png (default: opencv-doc's)");
    cQa->add_option("--out", qaOut, "also write the synthesised views as PNGs into this folder");

    // bench
    BenchOptions bo;
    auto* cBench = app.add_subcommand(
        "bench", "time every engine on synthetic frames (no files needed): Init, ms a frame, fps, memory");
    addBenchOptions(cBench, bo);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int rc = app.exit(e);
        return rc == 0 ? kExitOk : kExitBadInput;
    }

    try {
        if (cDepth->parsed()) {
            EngineCommand cmd;
            cmd.setup.engine = Engine::DepthView;
            cmd.setup.viewShift = toU16(dvShift, "--view-shift");
            cmd.setup.sideBySide = dvSbs;
            cmd.setup.mirror = dvDirection == "right";
            cmd.images = {dvImage};
            cmd.depth = dvDepth;
            cmd.depthOptions = dvDepthOpt;
            const bool right = cmd.setup.mirror;
            cmd.write = [&](const std::vector<YuvFrame>& in, const std::vector<YuvFrame>& out) {
                if (dvSbs) writeSingle(dv.out, dv.raw, out[0]);
                else if (right) writePair(dv.out, dv.raw, in[0], out[0], "input", "synth");
                else writePair(dv.out, dv.raw, out[0], in[0], "synth", "input");
            };
            return runEngineCommand(dv, cmd);
        }
        if (cBin->parsed()) {
            EngineCommand cmd;
            cmd.setup.engine = Engine::Binocular;
            cmd.setup.viewShift = toU16(biShift, "--view-shift");
            const bool ofLeft = biDepthOf == "left";
            cmd.setup.mirror = ofLeft;
            // The engine's first image is the one the map belongs to.
            cmd.images = ofLeft ? std::vector<std::string>{biLeft, biRight} : std::vector<std::string>{biRight, biLeft};
            cmd.depth = biDepth;
            cmd.depthOptions = biDepthOpt;
            cmd.write = [&](const std::vector<YuvFrame>& in, const std::vector<YuvFrame>& out) {
                if (ofLeft) writePair(bi.out, bi.raw, in[0], out[0], "left", "synth");
                else writePair(bi.out, bi.raw, out[0], in[0], "synth", "right");
            };
            return runEngineCommand(bi, cmd);
        }
        if (cSv->parsed()) {
            EngineCommand cmd;
            cmd.setup.engine = Engine::StereoView;
            cmd.setup.sideBySide = svSbs;
            cmd.images = {svFirst, svSecond};
            cmd.write = [&](const std::vector<YuvFrame>&, const std::vector<YuvFrame>& out) {
                if (svSbs) writeSingle(sv.out, sv.raw, out[0]);
                else writePair(sv.out, sv.raw, out[0], out[1], "first", "second");
            };
            return runEngineCommand(sv, cmd);
        }
        if (cSpr->parsed()) {
            // The engine ignores any other format and still returns 0.
            if (!sp.image.format.empty() && sp.image.format != "nv21" && sp.image.format != "nv12")
                throw std::invalid_argument("spr takes nv21 or nv12 frames only");
            EngineCommand cmd;
            cmd.setup.engine = Engine::Spr;
            parseSize(spOutSize, cmd.setup.outWidth, cmd.setup.outHeight);
            if (cmd.setup.outWidth % 2 || cmd.setup.outHeight % 2)
                throw std::invalid_argument("--out-size must be even in both directions");
            cmd.images = {spFirst, spSecond};
            cmd.write = [&](const std::vector<YuvFrame>&, const std::vector<YuvFrame>& out) {
                writePair(sp.out, sp.raw, out[0], out[1], "first", "second");
            };
            return runEngineCommand(sp, cmd);
        }
        if (cFs->parsed()) {
            if (fsTable) {
                applyLayout(fs);
                const Calibration calib = loadCheckedCalibration(fs.calib);
                int width = fsTableWidth;
                if (width == 0) {
                    kvdsr::focalshift::ShiftSetup probe;
                    const uint32_t rc = kvdsr::focalshift::computeSetup(
                        calib.data(), static_cast<uint32_t>(calib.size()), nullptr, 0, 1, 0, probe);
                    if (rc != 0) return report({rc, "calibration parser"});
                    width = probe.imageWidth;
                }
                return printShiftTable(calib, width, fsDistance);
            }
            EngineCommand cmd;
            cmd.setup.engine = Engine::FocalShift;
            cmd.setup.distance = toU16(fsDistance, "--distance");
            cmd.setup.sideBySide = fsSbs;
            cmd.setup.half = fsHalf;
            cmd.write = [&](const std::vector<YuvFrame>&, const std::vector<YuvFrame>& out) {
                if (fsSbs) writeSingle(fs.out, fs.raw, out[0]);
                else writePair(fs.out, fs.raw, out[0], out[1], "first", "second");
            };
            if (!fsSbs) {
                if (fsFirst.empty() || fsSecond.empty())
                    throw std::invalid_argument(
                        "focal-shift needs --first and --second (or --side-by-side, --print-table)");
                cmd.images = {fsFirst, fsSecond};
                return runEngineCommand(fs, cmd);
            }
            if (!fsImage.empty()) {
                cmd.images = {fsImage};
                if (fsHalf && !streaming(fs)) {
                    const YuvFrame probe = loadFrame(fsImage, fs.image, Layout::NV21);
                    if (probe.width % 4) throw std::invalid_argument("--half needs a width divisible by 4");
                }
                return runEngineCommand(fs, cmd);
            }
            if (fsFirst.empty() || fsSecond.empty())
                throw std::invalid_argument("focal-shift --side-by-side needs --image or --first and --second");
            // Compose the side-by-side frame from the two views.
            YuvFrame a = loadFrame(fsFirst, {"i444", ""}, Layout::I444);
            YuvFrame b = loadFrame(fsSecond, {"i444", ""}, Layout::I444);
            requireSameSize(a, b, "focal-shift");
            const Layout l = fs.image.format.empty() ? Layout::NV21 : parseLayout(fs.image.format);
            YuvFrame frame = rgbToFrame(sideBySide(frameToRgb(a), frameToRgb(b)), l);
            if (fsHalf && frame.width % 4) throw std::invalid_argument("--half needs a width divisible by 4");
            std::vector<YuvFrame> composed;
            composed.push_back(std::move(frame));
            return runEngineCommand(fs, cmd, std::move(composed));
        }
        if (cDemo->parsed()) return runDemo(demoOut, demoData.empty() ? defaultDataDir() : demoData, demoStrict);
        if (cQa->parsed()) return runQualityAloe(qaData.empty() ? opencvSampleDir() : qaData, qaOut);
        if (cBench->parsed()) return runBench(bo);
    } catch (const std::exception& e) {
        std::cerr << "kvdsr: " << e.what() << "\n";
        return kExitBadInput;
    }
    return kExitBadInput;
}
