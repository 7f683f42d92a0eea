#include "calib_json.h"

#include <stdexcept>

namespace kvdsrtool {

Calibration calibrationFromJson(const std::string&, const std::string& where) {
    throw std::runtime_error(where + ": JSON calibration is not supported by this build; pass a container file");
}

}  // namespace kvdsrtool
