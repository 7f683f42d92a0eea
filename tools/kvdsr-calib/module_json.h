// JSON form of calibration bodies (the tool's input and inspection output).
#pragma once

#include <nlohmann/json.hpp>

#include "calibpack.h"

namespace kvdsr::calibtool {

// Keys keep the order in which they are written.
using json = nlohmann::ordered_json;

// Pretty-prints with number arrays kept on one line.
std::string dumpCompact(const json& j);

json toJson(const calibpack::CameraSection& c);
json toJson(const calibpack::Body& b);
// Readers throw std::runtime_error naming the key: "bodies[0].camera2.pixelPitch:
// expected a number, found a string".
calibpack::CameraSection sectionFromJson(const json& j, const std::string& path = "camera");
calibpack::Body bodyFromJson(const json& j, const std::string& path = "body");

// {"units": "mm", "bodies": [...]} and back. Throws on a malformed document.
json moduleToJson(const std::vector<calibpack::Body>& bodies);
std::vector<calibpack::Body> moduleFromJson(const json& j);
// Parses a document; a syntax error throws std::runtime_error with the file,
// line and column.
json parseDocument(const std::string& text, const std::string& file);

}  // namespace kvdsr::calibtool
