#include "calib_json.h"

#include <stdexcept>

#include "calibpack.h"
#include "module_json.h"

namespace kvdsrtool {

// The calibration tool's document: {"units", "container": length, "bodies": [...]}.
// Packing follows `kvdsr-calib pack`: the container length from the
// document (1547, three kind-3 bodies, when absent), enciphered lengths with
// the built-in key.
Calibration calibrationFromJson(const std::string& text, const std::string& where) {
    try {
        const auto doc = kvdsr::calibtool::json::parse(text);
        const auto bodies = kvdsr::calibtool::moduleFromJson(doc);
        const uint32_t length = doc.value("container", 1547u);
        return kvdsr::calibpack::packContainer(bodies, length);
    } catch (const std::exception& e) {
        throw std::runtime_error(where + ": not a calibration document the calibration tool reads (" + e.what() +
                                 ")");
    }
}

}  // namespace kvdsrtool
