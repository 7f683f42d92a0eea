// Process-wide camera-layout setting, read by every Init that parses calibration.
#pragma once

#include <cstdint>

namespace kvdsr {

uint32_t cameraLayout();
void setCameraLayout(uint32_t layout);  // caller has validated 1..4

// Calibration layout selector: layouts 2, 3, 4 give 1, 2, 3; layout 1 gives 0.
uint32_t layoutSelector();

}  // namespace kvdsr
