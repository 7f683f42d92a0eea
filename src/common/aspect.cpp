#include "common/aspect.h"

#include <cstdlib>

#include "kvDSR.h"

namespace kvdsr {

bool isLandscape43(uint32_t w, uint32_t h) {
    const int64_t a = std::llabs(3 * int64_t(w >> 2) - int64_t(h));
    const int64_t b = std::llabs(9 * int64_t(w >> 4) - int64_t(h));
    return a < b;
}

bool isPortrait43(uint32_t w, uint32_t h) {
    // The quotients are kept to 16 bits, as the original arithmetic did.
    const int64_t a = std::llabs(4 * int64_t((w / 3) & 0xFFFF) - int64_t(h));
    const int64_t b = std::llabs(16 * int64_t((w / 9) & 0xFFFF) - int64_t(h));
    return a < b;
}

uint32_t checkSizeCombination(uint32_t w, uint32_t h, uint32_t dw, uint32_t dh, AspectState& state) {
    if (w > h && dw > dh) {
        const bool c1 = isLandscape43(w, h);
        if (c1 != isLandscape43(dw, dh)) return kvDSR_ERR_SIZE_COMBINATION;
        state.is43 = c1;
        state.referenceWidth = 1280.0;
    } else if (w < h && dw < dh) {
        const bool c1 = isPortrait43(w, h);
        if (c1 != isPortrait43(dw, dh)) return kvDSR_ERR_SIZE_COMBINATION;
        state.is43 = c1;
        state.referenceWidth = c1 ? 960.0 : 720.0;
    }
    // Square or mixed orientation: accepted leniently, state kept.
    return kvDSR_OK;
}

}  // namespace kvdsr
