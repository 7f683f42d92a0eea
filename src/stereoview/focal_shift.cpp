// Placeholder until the engine lands.
#include "stereoview/focal_shift.h"

namespace kvdsr::focalshift {

uint32_t init(const uint8_t*, uint32_t, const uint32_t*, uint32_t, uint16_t, uint16_t, uint16_t) {
    return kvDSR_ERR_NOT_INITIALISED;
}
uint32_t shiftPair(uint8_t*, uint8_t*, const kvDSR_ImageDesc&, const kvDSR_ImageDesc&, uint16_t, uint16_t) {
    return kvDSR_ERR_NOT_INITIALISED;
}
uint32_t shiftSideBySide(uint8_t*, uint32_t, uint32_t, const kvDSR_ImageDesc&, uint16_t, uint16_t) {
    return kvDSR_ERR_NOT_INITIALISED;
}
uint32_t close() { return kvDSR_OK; }

}  // namespace kvdsr::focalshift
