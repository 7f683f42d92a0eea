// Calibration given as the JSON that the calibration tool reads.
#pragma once

#include <string>

#include "engines.h"

namespace kvdsrtool {

// Packs the JSON's bodies into a container; throws std::runtime_error with
// `where` and the reason for malformed input.
Calibration calibrationFromJson(const std::string& text, const std::string& where);

}  // namespace kvdsrtool
