#include "calib_json.h"

#include <stdexcept>

#include "calib_check.h"
#include "calibpack.h"
#include "module_json.h"

namespace kvdsrtool {

// The calibration tool's document: {"units", "container": length, "bodies": [...]}.
// Packing follows `kvdsr-calib pack`: the container length from the
// document (1547, three kind-3 bodies, when absent), enciphered lengths with
// the built-in key.
Calibration calibrationFromJson(const std::string& text, const std::string& where) {
    const auto doc = kvdsr::calibtool::parseDocument(text, where);
    try {
        const auto bodies = kvdsr::calibtool::moduleFromJson(doc);
        const uint32_t length = doc.value("container", 1547u);
        return kvdsr::calibpack::packContainer(bodies, length);
    } catch (const std::exception& e) {
        throw std::runtime_error(where + ": not a calibration document the calibration tool reads: " + e.what());
    }
}

std::vector<std::string> calibrationWarnings(const Calibration& calib) {
    std::vector<kvdsr::calibtool::ContainerBody> bodies;
    // A container the parser refuses is reported by the engine's Init.
    if (kvdsr::calibtool::readContainerBodies(calib, {}, 0, bodies) != 0) return {};
    std::vector<std::string> out;
    for (const auto& b : bodies)
        for (const std::string& w : kvdsr::calibtool::plausibilityWarnings(b.body)) out.push_back(b.label + ", " + w);
    return out;
}

}  // namespace kvdsrtool
