// Calibrations the demo and the quality report run with, packed by the
// calibration packer library.
#pragma once

#include "engines.h"

namespace kvdsrtool {

// A rig for the Aloe pair: identical cameras 1282 px wide with focal length,
// pitch and baseline chosen so that, at view shift kAloeViewShift, the depth
// view engine moves every pixel by its disparity (at any working width whose
// disparity map is scaled with it).
constexpr uint16_t kAloeViewShift = 50;
Calibration aloeCalibration();

// The packer's realistic phone module (three bodies, kind 3), used for the
// rectifying engines and the focal alignment shift.
Calibration moduleCalibration();

}  // namespace kvdsrtool
