// kvdsr: runs the library's engines on image files.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <string>

#include "calibration/calib_block.h"
#include "commands.h"
#include "engines.h"
#include "image_io.h"
#include "inputs.h"
#include "kvDSR.h"
#include "status_text.h"
#include "stereoview/focal_shift.h"
#include "yuv_frame.h"

using namespace kvdsrtool;

namespace {

struct Common {
    std::string calib;
    int cameraLayout = 0;  // 0: leave the library's default
    std::string out = "kvdsr-out";
    std::string raw;
    ImageOptions image;
};

void addCommon(CLI::App* app, Common& c, bool needsCalib = true) {
    auto* opt = app->add_option("--calib", c.calib, "calibration: container file, or JSON of the calibration tool");
    if (needsCalib) opt->required();
    app->add_option("--camera-layout", c.cameraLayout, "camera layout 1..4 (default: the library's, 4)");
    app->add_option("--out", c.out, "output prefix for PNG files (default kvdsr-out)");
    app->add_option("--raw", c.raw, "also write the raw YUV output to this prefix");
    app->add_option("--format", c.image.format,
                    "nv21|nv12|i420|i444: layout of raw input, or the conversion target for PNG/JPEG input");
    app->add_option("--size", c.image.size, "WxH of raw YUV input");
}

void applyLayout(const Common& c) {
    if (c.cameraLayout == 0) return;
    const uint32_t rc = kvDSR_CameraLayout_Set(static_cast<uint32_t>(c.cameraLayout));
    if (rc != kvDSR_OK) throw std::invalid_argument(describeStatus("kvDSR_CameraLayout_Set", rc));
}

void writeSingle(const std::string& prefix, const std::string& raw, const YuvFrame& f) {
    writeRgbPng(prefix + ".png", frameToRgb(f));
    std::cout << "wrote " << prefix << ".png (" << f.width << "x" << f.height << ")\n";
    if (!raw.empty()) {
        const std::string path = raw + "." + layoutName(f.layout);
        writeFile(path, f.data.data(), f.data.size());
        std::cout << "wrote " << path << "\n";
    }
}

// A stereo pair: each view, the two side by side (a left) and a red-cyan anaglyph.
void writePair(const std::string& prefix, const std::string& raw, const YuvFrame& a, const YuvFrame& b,
               const char* nameA, const char* nameB) {
    const RgbImage ra = frameToRgb(a), rb = frameToRgb(b);
    writeRgbPng(prefix + "-" + nameA + ".png", ra);
    writeRgbPng(prefix + "-" + nameB + ".png", rb);
    std::cout << "wrote " << prefix << "-" << nameA << ".png, " << prefix << "-" << nameB << ".png\n";
    if (ra.width == rb.width && ra.height == rb.height) {
        writeRgbPng(prefix + "-sbs.png", sideBySide(ra, rb));
        writeRgbPng(prefix + "-anaglyph.png", anaglyph(ra, rb));
        std::cout << "wrote " << prefix << "-sbs.png, " << prefix << "-anaglyph.png\n";
    }
    if (!raw.empty()) {
        writeFile(raw + "-" + nameA + "." + layoutName(a.layout), a.data.data(), a.data.size());
        writeFile(raw + "-" + nameB + "." + layoutName(b.layout), b.data.data(), b.data.size());
        std::cout << "wrote " << raw << "-" << nameA << "." << layoutName(a.layout) << " and -" << nameB << "\n";
    }
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
    std::string dvImage, dvDepth;
    DepthOptions dvDepthOpt;
    int dvShift = 50;
    bool dvSbs = false;
    auto* cDepth = app.add_subcommand("depthview", "synthesise a sideways-moved view from an image and its disparity map");
    addCommon(cDepth, dv);
    cDepth->add_option("--image", dvImage, "input image")->required();
    cDepth->add_option("--depth", dvDepth, "disparity map: 8-bit PNG (255 invalid), 16-bit PNG (1/8 px), or raw")
        ->required();
    cDepth->add_option("--depth-format", dvDepthOpt.format, "depth8|depth16 for a raw map");
    cDepth->add_option("--depth-size", dvDepthOpt.size, "WxH of a raw map");
    cDepth->add_option("--view-shift", dvShift, "strength of the effect, 0..65535 (default 50)");
    cDepth->add_flag("--side-by-side", dvSbs, "one frame twice as wide: synthesised view left, input right");

    // binocular
    Common bi;
    std::string biLeft, biRight, biDepth;
    DepthOptions biDepthOpt;
    int biShift = 50;
    auto* cBin = app.add_subcommand("binocular", "synthesise from the left image, filling gaps from the right one");
    addCommon(cBin, bi);
    cBin->add_option("--left", biLeft, "left (camera-1) image")->required();
    cBin->add_option("--right", biRight, "right (camera-2) image")->required();
    cBin->add_option("--depth", biDepth, "disparity map (as for depthview)")->required();
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
    auto* cFs = app.add_subcommand("focal-shift", "slide two views so that objects at --distance coincide");
    addCommon(cFs, fs);
    cFs->add_option("--first", fsFirst, "camera-1 image (with --second), or the left view of --side-by-side");
    cFs->add_option("--second", fsSecond, "camera-2 image");
    cFs->add_option("--image", fsImage, "one side-by-side frame (with --side-by-side)");
    cFs->add_option("--distance", fsDistance, "object distance to align, 0..10000 (calibration units)");
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
    auto* cQa = app.add_subcommand("quality-aloe", "PSNR of the depth view engine on the Middlebury Aloe pair");
    cQa->add_option("--data", qaData, "folder with aloeL.jpg, aloeR.jpg, aloeGT.png (default: opencv-doc's)");
    cQa->add_option("--out", qaOut, "also write the synthesised views as PNGs into this folder");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int rc = app.exit(e);
        return rc == 0 ? kExitOk : kExitBadInput;
    }

    try {
        if (cDepth->parsed()) {
            applyLayout(dv);
            const Calibration calib = loadCalibration(dv.calib);
            YuvFrame image = loadFrame(dvImage, dv.image, Layout::NV21);
            DepthMap depth = loadDepth(dvDepth, dvDepthOpt);
            YuvFrame out;
            const Status s = runDepthview(calib, image, depth, toU16(dvShift, "--view-shift"), dvSbs, out);
            if (!s.ok()) return report(s);
            if (dvSbs) {
                writeSingle(dv.out, dv.raw, out);
            } else {
                writePair(dv.out, dv.raw, out, image, "synth", "input");
            }
            return kExitOk;
        }
        if (cBin->parsed()) {
            applyLayout(bi);
            const Calibration calib = loadCalibration(bi.calib);
            YuvFrame left = loadFrame(biLeft, bi.image, Layout::NV21);
            YuvFrame right = loadFrame(biRight, bi.image, Layout::NV21);
            requireSameSize(left, right, "binocular");
            DepthMap depth = loadDepth(biDepth, biDepthOpt);
            YuvFrame out;
            const Status s = runBinocular(calib, left, right, depth, toU16(biShift, "--view-shift"), out);
            if (!s.ok()) return report(s);
            writePair(bi.out, bi.raw, out, left, "synth", "left");
            return kExitOk;
        }
        if (cSv->parsed()) {
            applyLayout(sv);
            const Calibration calib = loadCalibration(sv.calib);
            YuvFrame first = loadFrame(svFirst, sv.image, Layout::NV21);
            YuvFrame second = loadFrame(svSecond, sv.image, Layout::NV21);
            requireSameSize(first, second, "stereoview");
            if (svSbs) {
                YuvFrame out;
                const Status s = runStereoviewSideBySide(calib, first, second, out);
                if (!s.ok()) return report(s);
                writeSingle(sv.out, sv.raw, out);
            } else {
                YuvFrame o1, o2;
                const Status s = runStereoview(calib, first, second, o1, o2);
                if (!s.ok()) return report(s);
                writePair(sv.out, sv.raw, o1, o2, "first", "second");
            }
            return kExitOk;
        }
        if (cSpr->parsed()) {
            applyLayout(sp);
            const Calibration calib = loadCalibration(sp.calib);
            YuvFrame first = loadFrame(spFirst, sp.image, Layout::NV21);
            YuvFrame second = loadFrame(spSecond, sp.image, Layout::NV21);
            requireSameSize(first, second, "spr");
            int ow = 0, oh = 0;
            parseSize(spOutSize, ow, oh);
            if (ow % 2 || oh % 2) throw std::invalid_argument("--out-size must be even in both directions");
            YuvFrame o1, o2;
            const Status s = runSpr(calib, first, second, ow, oh, o1, o2);
            if (!s.ok()) return report(s);
            writePair(sp.out, sp.raw, o1, o2, "first", "second");
            return kExitOk;
        }
        if (cFs->parsed()) {
            applyLayout(fs);
            const Calibration calib = loadCalibration(fs.calib);
            if (fsTable) {
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
            const uint16_t distance = toU16(fsDistance, "--distance");
            if (fsSbs) {
                YuvFrame frame;
                if (!fsImage.empty()) {
                    frame = loadFrame(fsImage, fs.image, Layout::NV21);
                } else {
                    if (fsFirst.empty() || fsSecond.empty())
                        throw std::invalid_argument("focal-shift --side-by-side needs --image or --first and --second");
                    // Compose the side-by-side frame from the two views.
                    YuvFrame a = loadFrame(fsFirst, {"i444", ""}, Layout::I444);
                    YuvFrame b = loadFrame(fsSecond, {"i444", ""}, Layout::I444);
                    requireSameSize(a, b, "focal-shift");
                    const Layout l = fs.image.format.empty() ? Layout::NV21 : parseLayout(fs.image.format);
                    frame = rgbToFrame(sideBySide(frameToRgb(a), frameToRgb(b)), l);
                }
                if (fsHalf && frame.width % 4) throw std::invalid_argument("--half needs a width divisible by 4");
                YuvFrame out;
                const Status s = runFocalShiftSideBySide(calib, distance, frame, fsHalf, out);
                if (!s.ok()) return report(s);
                writeSingle(fs.out, fs.raw, out);
                return kExitOk;
            }
            if (fsFirst.empty() || fsSecond.empty())
                throw std::invalid_argument("focal-shift needs --first and --second (or --side-by-side, --print-table)");
            YuvFrame first = loadFrame(fsFirst, fs.image, Layout::NV21);
            YuvFrame second = loadFrame(fsSecond, fs.image, Layout::NV21);
            requireSameSize(first, second, "focal-shift");
            YuvFrame o1, o2;
            const Status s = runFocalShift(calib, distance, first, second, o1, o2);
            if (!s.ok()) return report(s);
            writePair(fs.out, fs.raw, o1, o2, "first", "second");
            return kExitOk;
        }
        if (cDemo->parsed()) return runDemo(demoOut, demoData.empty() ? defaultDataDir() : demoData, demoStrict);
        if (cQa->parsed()) return runQualityAloe(qaData.empty() ? opencvSampleDir() : qaData, qaOut);
    } catch (const std::exception& e) {
        std::cerr << "kvdsr: " << e.what() << "\n";
        return kExitBadInput;
    }
    return kExitBadInput;
}
