// Reading every body of a calibration container, and a plausibility check
// over a body's values, shared by kvdsr-calib inspect and kvdsr.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "calibpack.h"

namespace kvdsr::calibtool {

struct ContainerBody {
    std::string label;  // "body 0", or "sub-record 1, body 2" for kind 4
    calibpack::Body body;
};

// The bodies as the library's parser reads them (deciphered, selected).
// Returns the parser's status; bodies is filled only on success.
uint32_t readContainerBodies(const calibpack::Bytes& data, const calibpack::Bytes& keyBlob, int32_t focusPosition,
                             std::vector<ContainerBody>& bodies);

// One sentence per implausible value: not finite, non-positive or absurd
// pixel pitch, focal length, field of view or sizes, a distortion table whose
// radii do not grow, degenerate projection or rectifying matrices, a zero
// baseline. Empty for a plausible body.
std::vector<std::string> plausibilityWarnings(const calibpack::Body& body);

}  // namespace kvdsr::calibtool
