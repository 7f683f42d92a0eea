#include "inputs.h"

#include <cstring>
#include <stdexcept>

#include "calib_json.h"
#include "image_io.h"

namespace kvdsrtool {

YuvFrame loadFrame(const std::string& path, const ImageOptions& opt, Layout defaultLayout) {
    if (isPngOrJpeg(path)) {
        if (!opt.size.empty()) throw std::invalid_argument(path + ": --size applies to raw YUV files only");
        const Layout l = opt.format.empty() ? defaultLayout : parseLayout(opt.format);
        return rgbToFrame(readRgb(path), l);
    }
    readFile(path);  // a missing file says so before the options are blamed
    if (opt.format.empty() || opt.size.empty())
        throw std::invalid_argument(path + ": not PNG or JPEG; a raw YUV file needs --format and --size");
    int w = 0, h = 0;
    parseSize(opt.size, w, h);
    return readRawFrame(path, parseLayout(opt.format), w, h);
}

DepthMap loadDepth(const std::string& path, const DepthOptions& opt) {
    DepthMap d;
    if (isPngOrJpeg(path)) {
        if (!opt.size.empty() || !opt.format.empty())
            throw std::invalid_argument(path + ": --depth-format and --depth-size apply to raw maps only");
        const GrayImage g = readGrayPng(path);
        d.width = g.width;
        d.height = g.height;
        if (g.bitDepth == 16) {
            d.format = kvDSR_FMT_DEPTH16;
            d.bytes.resize(g.values.size() * 2);
            std::memcpy(d.bytes.data(), g.values.data(), d.bytes.size());
        } else {
            d.format = kvDSR_FMT_DEPTH8;
            d.bytes.resize(g.values.size());
            for (size_t i = 0; i < g.values.size(); ++i) d.bytes[i] = static_cast<uint8_t>(g.values[i]);
        }
        return d;
    }
    std::vector<uint8_t> bytes = readFile(path);
    if (opt.format.empty() || opt.size.empty())
        throw std::invalid_argument(path + ": not a PNG; a raw map needs --depth-format and --depth-size");
    d = emptyDepth(opt);
    if (bytes.size() != d.bytes.size())
        throw std::runtime_error(path + ": " + std::to_string(bytes.size()) + " bytes, but a " + opt.format +
                                 " map of " + opt.size + " has " + std::to_string(d.bytes.size()));
    d.bytes = std::move(bytes);
    return d;
}

DepthMap emptyDepth(const DepthOptions& opt) {
    DepthMap d;
    parseSize(opt.size, d.width, d.height);
    if (opt.format == "depth8") {
        d.format = kvDSR_FMT_DEPTH8;
    } else if (opt.format == "depth16") {
        d.format = kvDSR_FMT_DEPTH16;
    } else {
        throw std::invalid_argument("unknown --depth-format '" + opt.format + "' (use depth8 or depth16)");
    }
    d.bytes.assign(d.bytesPerFrame(), 0);
    return d;
}

Calibration loadCalibration(const std::string& path) {
    std::vector<uint8_t> bytes = readFile(path);
    size_t i = 0;
    while (i < bytes.size() && (bytes[i] == ' ' || bytes[i] == '\n' || bytes[i] == '\r' || bytes[i] == '\t')) ++i;
    if (i < bytes.size() && bytes[i] == '{')
        return calibrationFromJson(std::string(bytes.begin(), bytes.end()), path);
    if (bytes.empty()) throw std::runtime_error(path + ": empty calibration file");
    return bytes;
}

}  // namespace kvdsrtool
