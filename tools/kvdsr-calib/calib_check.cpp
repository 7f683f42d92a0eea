#include "calib_check.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>

#include "calibration/calib_parser.h"
#include "calibration/geometry.h"

namespace kvdsr::calibtool {
namespace {

using calibpack::Body;
using calibpack::CameraSection;

// Bounds of what a camera module can be. Generous: they catch random or
// wrongly scaled data, not unusual lenses.
constexpr double kMinFieldOfViewDeg = 0.05;
constexpr double kMaxFieldOfViewDeg = 175.0;
constexpr int kMaxImageSide = 20000;
constexpr double kMaxPitchToFocal = 1.0;  // a pixel wider than the focal length
constexpr double kDegenerate = 1e-9;      // |det| against the scale of the matrix

std::string number(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.6g", v);
    return buf;
}

template <size_t N>
bool allFinite(const std::array<float, N>& v) {
    for (float x : v)
        if (!std::isfinite(x)) return false;
    return true;
}

// |det| of a 3x3 block against the cube of its Frobenius norm: scale-free.
double relativeDet3(const double m[9]) {
    const double det = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
                       m[2] * (m[3] * m[7] - m[4] * m[6]);
    double norm = 0;
    for (int i = 0; i < 9; ++i) norm += m[i] * m[i];
    norm = std::sqrt(norm);
    return norm > 0 ? std::fabs(det) / (norm * norm * norm) : 0.0;
}

void checkSection(const CameraSection& c, const std::string& who, std::vector<std::string>& out) {
    auto warn = [&](const std::string& s) { out.push_back(who + ": " + s); };
    const double pitch = c.pixelPitch, focal = c.focalLength;
    if (!std::isfinite(pitch) || pitch <= 0)
        warn("pixel pitch " + number(pitch) + " is not a positive number");
    if (!std::isfinite(focal) || focal <= 0)
        warn("focal length " + number(focal) + " is not a positive number");
    if (std::isfinite(pitch) && std::isfinite(focal) && pitch > 0 && focal > 0) {
        if (pitch > kMaxPitchToFocal * focal)
            warn("pixel pitch " + number(pitch) + " exceeds the focal length " + number(focal) +
                 " (are the two in one unit?)");
        if (c.calibWidth > 0) {
            const double fov = 2 * std::atan(c.calibWidth * pitch * 0.5 / focal) * 180 / M_PI;
            if (fov < kMinFieldOfViewDeg || fov > kMaxFieldOfViewDeg)
                warn("field of view " + number(fov) + " degrees from width " + std::to_string(c.calibWidth) +
                     ", pitch " + number(pitch) + " and focal length " + number(focal));
        }
    }
    auto checkSize = [&](const char* what, unsigned w, unsigned h) {
        if (w == 0 || h == 0 || w > kMaxImageSide || h > kMaxImageSide)
            warn(std::string(what) + " " + std::to_string(w) + "x" + std::to_string(h) + " is not an image size");
    };
    checkSize("calibrated size", c.calibWidth, c.calibHeight);
    checkSize("model size", c.modelWidth, c.modelHeight);
    if (!allFinite(c.homography)) {
        warn("the rectifying homography holds a value that is not finite");
    } else {
        double h[9];
        for (int i = 0; i < 9; ++i) h[i] = c.homography[i];
        if (relativeDet3(h) < kDegenerate) warn("the rectifying homography is singular");
    }
    if (!allFinite(c.projection)) {
        warn("the projection matrix holds a value that is not finite");
    } else {
        double m[9];
        for (int r = 0; r < 3; ++r)
            for (int k = 0; k < 3; ++k) m[r * 3 + k] = c.projection[r * 4 + k];
        if (relativeDet3(m) < kDegenerate) warn("the projection matrix's left 3x3 block is singular");
    }
    for (size_t i = 1; i < c.distortion.size(); ++i)
        if (c.distortion[i].radius <= c.distortion[i - 1].radius) {
            warn("distortion table: radius " + std::to_string(c.distortion[i].radius) + " at entry " +
                 std::to_string(i) + " does not exceed the one before it (" +
                 std::to_string(c.distortion[i - 1].radius) + ")");
            break;
        }
    for (const float v : {c.focusSlope, c.focusInfinity, c.objectDistance})
        if (!std::isfinite(v)) {
            warn("a focus value (slope, infinity position or object distance) is not finite");
            break;
        }
}

}  // namespace

uint32_t readContainerBodies(const calibpack::Bytes& data, const calibpack::Bytes& keyBlob, int32_t focusPosition,
                             std::vector<ContainerBody>& bodies) {
    std::vector<uint32_t> words((keyBlob.size() + 3) / 4);
    if (!keyBlob.empty()) std::memcpy(words.data(), keyBlob.data(), keyBlob.size());
    calib::ContainerInfo info{};
    const bool known = calib::describeContainer(static_cast<uint32_t>(data.size()), info);
    // Kind 4 keeps two sub-records; odd layout selectors pick the second.
    const uint32_t selectors = known && info.kind == 4 ? 2 : 1;
    const uint32_t count = known ? std::max<uint32_t>(info.bodies, 1) : 1;
    std::vector<ContainerBody> out;
    for (uint32_t sel = 0; sel < selectors; ++sel)
        for (uint32_t i = 0; i < count; ++i) {
            uint8_t block[512] = {};
            uint32_t size = 0, type = 0, index = 0;
            const uint32_t rc = calib::parseCalibration(
                block, &size, &type, &index, data.empty() ? nullptr : data.data(), static_cast<uint32_t>(data.size()),
                keyBlob.empty() ? nullptr : words.data(), static_cast<uint32_t>(keyBlob.size()), 0, sel,
                focusPosition, i);
            if (rc != 0) return rc;
            ContainerBody b;
            b.label = (selectors > 1 ? "sub-record " + std::to_string(sel) + ", " : std::string()) + "body " +
                      std::to_string(i);
            b.body = type == 1 ? calibpack::unpackKind1(block) : calibpack::unpackKind3(block);
            out.push_back(b);
        }
    bodies = std::move(out);
    return 0;
}

std::vector<std::string> plausibilityWarnings(const Body& body) {
    std::vector<std::string> out;
    checkSection(body.camera1, "camera 1", out);
    checkSection(body.camera2, "camera 2", out);
    if (allFinite(body.camera1.projection) && allFinite(body.camera2.projection)) {
        double p1[12], p2[12];
        for (int k = 0; k < 12; ++k) {
            p1[k] = body.camera1.projection[k];
            p2[k] = body.camera2.projection[k];
        }
        const double b = geom::cameraBaseline(p1, p2);
        if (!std::isfinite(b) || b <= 0)
            out.push_back("baseline " + number(b) + " between the two cameras' centres: the depth engines need two "
                          "cameras apart");
    }
    return out;
}

}  // namespace kvdsr::calibtool
