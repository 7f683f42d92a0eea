// Placeholder until the engine lands: nothing initialises.
#include "stereoview/spr_engine.h"

namespace kvdsr::spr {

bool initialised() { return false; }
bool sizesMatch(uint32_t, uint32_t, uint32_t, uint32_t) { return false; }
uint32_t init(const uint8_t*, uint32_t, const uint32_t*, uint32_t, uint16_t, uint16_t, uint16_t, uint16_t) {
    return kvDSR_ERR_NOT_INITIALISED;
}
uint32_t run(uint8_t*, uint8_t*, const kvDSR_ImageDesc&, const kvDSR_ImageDesc&, uint16_t, uint16_t, uint16_t,
             uint16_t) {
    return kvDSR_ERR_NOT_INITIALISED;
}
uint32_t close() { return kvDSR_OK; }

}  // namespace kvdsr::spr
