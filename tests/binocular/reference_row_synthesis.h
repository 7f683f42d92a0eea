// The binocular row synthesis written plainly: every pixel looked up and
// handled in turn, every column checked for hole regions.
#pragma once

#include <cstdint>

#include "binocular/row_synthesis.h"

namespace kvdsr::binocular {

// src and mark: width entries, zero on entry, left zero.
void renderRowReference(const SynthesisFrame& f, int r, const uint16_t* levels, bool withChroma, uint16_t* src,
                        uint8_t* mark);
void synthesizeViewReference(const SynthesisFrame& f, const uint16_t* levelMap);

}  // namespace kvdsr::binocular
