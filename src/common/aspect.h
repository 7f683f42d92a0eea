// Aspect-class check shared by the depth view, binocular and stereo view Inits.
#pragma once

#include <cstdint>

namespace kvdsr {

// Written only when both sizes are landscape or both portrait.
struct AspectState {
    uint8_t is43 = 0;
    double referenceWidth = 0.0;
};

// Classes image (w, h) and map (dw, dh). Both landscape or both portrait:
// returns kvDSR_ERR_SIZE_COMBINATION when the classes differ, else stores the
// class and reference width (1280 landscape; 960 / 720 portrait 4:3 / 16:9).
// Any other combination passes and leaves state untouched.
uint32_t checkSizeCombination(uint32_t w, uint32_t h, uint32_t dw, uint32_t dh, AspectState& state);

// True when a landscape size is nearer 4:3 than 16:9 (portrait: with the
// roles of width and height taken as the check above does).
bool isLandscape43(uint32_t w, uint32_t h);
bool isPortrait43(uint32_t w, uint32_t h);

}  // namespace kvdsr
