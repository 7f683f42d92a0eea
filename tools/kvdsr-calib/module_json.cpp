#include "module_json.h"

#include <charconv>
#include <limits>
#include <type_traits>
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

// Readers that name the key they read: "bodies[1].camera2.pixelPitch:
// expected a number, found a string".
[[noreturn]] void bad(const std::string& path, const std::string& why) { throw std::runtime_error(path + ": " + why); }

std::string key(const std::string& path, const char* name) { return path.empty() ? name : path + "." + name; }

const json& member(const json& j, const std::string& path, const char* name) {
    if (!j.is_object()) bad(path.empty() ? "document" : path, std::string("expected an object, found ") + j.type_name());
    if (!j.contains(name)) bad(key(path, name), "missing");
    return j.at(name);
}

template <class T>
T numberAt(const json& v, const std::string& path) {
    if (!v.is_number()) bad(path, std::string("expected a number, found ") + v.type_name());
    if constexpr (std::is_integral_v<T>) {
        if (!v.is_number_integer()) bad(path, "expected a whole number, found " + v.dump());
        const auto x = v.get<int64_t>();
        if (x < std::numeric_limits<T>::min() || x > std::numeric_limits<T>::max())
            bad(path, v.dump() + " is out of range " + std::to_string(std::numeric_limits<T>::min()) + ".." +
                          std::to_string(std::numeric_limits<T>::max()));
        return static_cast<T>(x);
    } else {
        return v.get<T>();
    }
}

template <size_t N>
std::array<float, N> realsFrom(const json& j, const std::string& path, const char* name) {
    const json& a = member(j, path, name);
    const std::string here = path + "." + name;
    if (!a.is_array() || a.size() != N) bad(here, "expected " + std::to_string(N) + " numbers");
    std::array<float, N> v{};
    for (size_t i = 0; i < N; ++i) v[i] = numberAt<float>(a[i], here + "[" + std::to_string(i) + "]");
    return v;
}

template <class T>
T get(const json& j, const std::string& path, const char* name, T fallback) {
    return j.contains(name) ? numberAt<T>(j.at(name), path + "." + name) : fallback;
}

std::array<uint16_t, 2> pairFrom(const json& j, const std::string& path, const char* name) {
    if (!j.contains(name)) return {0, 0};
    const json& a = j.at(name);
    const std::string here = path + "." + name;
    if (!a.is_array() || a.size() != 2) bad(here, "expected two numbers");
    return {numberAt<uint16_t>(a[0], here + "[0]"), numberAt<uint16_t>(a[1], here + "[1]")};
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

CameraSection sectionFromJson(const json& j, const std::string& path) {
    if (!j.is_object()) bad(path, std::string("expected an object, found ") + j.type_name());
    CameraSection c;
    c.number = get<int32_t>(j, path, "number", 1);
    if (j.contains("homography")) c.homography = realsFrom<9>(j, path, "homography");
    c.projection = realsFrom<12>(j, path, "projection");
    c.mapValues = pairFrom(j, path, "mapValues");
    const auto calib = pairFrom(j, path, "calibSize");
    c.calibWidth = calib[0];
    c.calibHeight = calib[1];
    const auto model = j.contains("modelSize") ? pairFrom(j, path, "modelSize") : calib;
    c.modelWidth = model[0];
    c.modelHeight = model[1];
    c.pixelPitch = numberAt<float>(member(j, path, "pixelPitch"), path + ".pixelPitch");
    c.focusSlope = get<float>(j, path, "focusSlope", 0.f);
    c.focusInfinity = get<float>(j, path, "focusInfinity", 0.f);
    c.focalLength = numberAt<float>(member(j, path, "focalLength"), path + ".focalLength");
    c.objectDistance = get<float>(j, path, "objectDistance", 0.f);
    const auto pp = pairFrom(j, path, "principalPoint16");
    c.principalX = pp[0];
    c.principalY = pp[1];
    if (j.contains("distortion")) {
        const json& d = j.at("distortion");
        const std::string here = path + ".distortion";
        if (!d.is_array()) bad(here, std::string("expected an array, found ") + d.type_name());
        for (size_t i = 0; i < d.size(); ++i) {
            const json& e = d[i];
            const std::string at = here + "[" + std::to_string(i) + "]";
            if (!e.is_array() || e.size() != 2) bad(at, "expected a [radius, distortion] pair");
            c.distortion.push_back({numberAt<int16_t>(e[0], at + "[0]"), numberAt<int16_t>(e[1], at + "[1]")});
        }
        if (c.distortion.size() > 22) bad(here, "at most 22 entries");
    }
    return c;
}

Body bodyFromJson(const json& j, const std::string& path) {
    if (!j.is_object()) bad(path, std::string("expected an object, found ") + j.type_name());
    Body b;
    b.camera1 = sectionFromJson(member(j, path, "camera1"), path + ".camera1");
    b.camera2 = sectionFromJson(member(j, path, "camera2"), path + ".camera2");
    b.revision = get<uint16_t>(j, path, "revision", 2);
    b.referenceWidth = get<uint16_t>(j, path, "referenceWidth", b.camera2.calibWidth);
    return b;
}

json moduleToJson(const std::vector<Body>& bodies) {
    json list = json::array();
    for (const Body& b : bodies) list.push_back(toJson(b));
    return {{"units", "mm"}, {"bodies", list}};
}

std::vector<Body> moduleFromJson(const json& j) {
    const json& list = member(j, "", "bodies");
    if (!list.is_array()) bad("bodies", std::string("expected an array, found ") + list.type_name());
    std::vector<Body> bodies;
    for (size_t i = 0; i < list.size(); ++i) bodies.push_back(bodyFromJson(list[i], "bodies[" + std::to_string(i) + "]"));
    if (bodies.empty()) bad("bodies", "none given");
    if (j.contains("container")) numberAt<uint32_t>(j.at("container"), "container");
    return bodies;
}

json parseDocument(const std::string& text, const std::string& file) {
    try {
        return json::parse(text);
    } catch (const json::parse_error& e) {
        // The library's text starts with its own error id; the position and
        // reason follow it.
        std::string why = e.what();
        const auto cut = why.find("] ");
        if (cut != std::string::npos) why = why.substr(cut + 2);
        throw std::runtime_error(file + ": not JSON: " + why);
    }
}

}  // namespace kvdsr::calibtool
