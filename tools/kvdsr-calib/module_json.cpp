#include "module_json.h"

#include <charconv>
#include <regex>
#include <stdexcept>
#include <string>

namespace kvdsr::calibtool {

using namespace calibpack;

namespace {

// The shortest decimal that reads back as the same float, so that files
// show 0.00112 rather than 0.0011200000299140811.
json real(float v) {
    char buf[32];
    const auto r = std::to_chars(buf, buf + sizeof buf, v);
    return std::stod(std::string(buf, r.ptr));
}

template <size_t N>
json reals(const std::array<float, N>& v) {
    json a = json::array();
    for (float x : v) a.push_back(real(x));
    return a;
}

template <size_t N>
std::array<float, N> realsFrom(const json& j, const char* name) {
    const json& a = j.at(name);
    if (!a.is_array() || a.size() != N) throw std::runtime_error(std::string(name) + ": expected " + std::to_string(N) + " numbers");
    std::array<float, N> v{};
    for (size_t i = 0; i < N; ++i) v[i] = a[i].get<float>();
    return v;
}

template <class T>
T get(const json& j, const char* name, T fallback) {
    return j.contains(name) ? j.at(name).get<T>() : fallback;
}

std::array<uint16_t, 2> pairFrom(const json& j, const char* name) {
    if (!j.contains(name)) return {0, 0};
    const json& a = j.at(name);
    if (!a.is_array() || a.size() != 2) throw std::runtime_error(std::string(name) + ": expected two numbers");
    return {a[0].get<uint16_t>(), a[1].get<uint16_t>()};
}

}  // namespace

std::string dumpCompact(const json& j) {
    static const std::regex numberArray(R"(\[\s*(-?[0-9][-0-9.eE+]*(\s*,\s*-?[0-9][-0-9.eE+]*)*)\s*\])");
    std::string text = j.dump(2);
    std::string out;
    auto begin = text.cbegin();
    std::smatch m;
    while (std::regex_search(begin, text.cend(), m, numberArray)) {
        out.append(begin, m[0].first);
        std::string inner = m[1].str();
        inner = std::regex_replace(inner, std::regex(R"(\s*,\s*)"), ", ");
        out += "[" + inner + "]";
        begin = m[0].second;
    }
    out.append(begin, text.cend());
    return out;
}

json toJson(const CameraSection& c) {
    json d = json::array();
    for (const auto& e : c.distortion) d.push_back({e.radius, e.distortion});
    return {
        {"number", c.number},
        {"homography", reals(c.homography)},
        {"projection", reals(c.projection)},
        {"mapValues", {c.mapValues[0], c.mapValues[1]}},
        {"modelSize", {c.modelWidth, c.modelHeight}},
        {"calibSize", {c.calibWidth, c.calibHeight}},
        {"pixelPitch", real(c.pixelPitch)},
        {"focusSlope", real(c.focusSlope)},
        {"focusInfinity", real(c.focusInfinity)},
        {"focalLength", real(c.focalLength)},
        {"objectDistance", real(c.objectDistance)},
        {"principalPoint16", {c.principalX, c.principalY}},
        {"distortion", d},
    };
}

json toJson(const Body& b) {
    return {{"revision", b.revision},
            {"referenceWidth", b.referenceWidth},
            {"camera1", toJson(b.camera1)},
            {"camera2", toJson(b.camera2)}};
}

CameraSection sectionFromJson(const json& j) {
    CameraSection c;
    c.number = get<int32_t>(j, "number", 1);
    if (j.contains("homography")) c.homography = realsFrom<9>(j, "homography");
    c.projection = realsFrom<12>(j, "projection");
    c.mapValues = pairFrom(j, "mapValues");
    const auto calib = pairFrom(j, "calibSize");
    c.calibWidth = calib[0];
    c.calibHeight = calib[1];
    const auto model = j.contains("modelSize") ? pairFrom(j, "modelSize") : calib;
    c.modelWidth = model[0];
    c.modelHeight = model[1];
    c.pixelPitch = j.at("pixelPitch").get<float>();
    c.focusSlope = get<float>(j, "focusSlope", 0.f);
    c.focusInfinity = get<float>(j, "focusInfinity", 0.f);
    c.focalLength = j.at("focalLength").get<float>();
    c.objectDistance = get<float>(j, "objectDistance", 0.f);
    const auto pp = pairFrom(j, "principalPoint16");
    c.principalX = pp[0];
    c.principalY = pp[1];
    if (j.contains("distortion")) {
        for (const json& e : j.at("distortion")) {
            if (!e.is_array() || e.size() != 2) throw std::runtime_error("distortion: expected [radius, distortion] pairs");
            c.distortion.push_back({e[0].get<int16_t>(), e[1].get<int16_t>()});
        }
        if (c.distortion.size() > 22) throw std::runtime_error("distortion: at most 22 entries");
    }
    return c;
}

Body bodyFromJson(const json& j) {
    Body b;
    b.camera1 = sectionFromJson(j.at("camera1"));
    b.camera2 = sectionFromJson(j.at("camera2"));
    b.revision = get<uint16_t>(j, "revision", 2);
    b.referenceWidth = get<uint16_t>(j, "referenceWidth", b.camera2.calibWidth);
    return b;
}

json moduleToJson(const std::vector<Body>& bodies) {
    json list = json::array();
    for (const Body& b : bodies) list.push_back(toJson(b));
    return {{"units", "mm"}, {"bodies", list}};
}

std::vector<Body> moduleFromJson(const json& j) {
    std::vector<Body> bodies;
    for (const json& b : j.at("bodies")) bodies.push_back(bodyFromJson(b));
    if (bodies.empty()) throw std::runtime_error("bodies: none given");
    return bodies;
}

}  // namespace kvdsr::calibtool
