// Calibration given as the JSON that the calibration tool reads.
#pragma once

#include <string>
#include <vector>

#include "engines.h"

namespace kvdsrtool {

// Packs the JSON's bodies into a container; throws std::runtime_error with
// `where` and the reason for malformed input.
Calibration calibrationFromJson(const std::string& text, const std::string& where);

// One sentence per implausible value in any body of the container ("body 0,
// camera 2: pixel pitch 3.6e+31 ..."); empty when all is plausible or the
// parser refuses the container.
std::vector<std::string> calibrationWarnings(const Calibration& calib);

}  // namespace kvdsrtool
