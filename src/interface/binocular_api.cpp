// Exported entry points of the binocular engine.
#include "binocular/binocular_engine.h"
#include "common/guard.h"
#include "interface/checks.h"

using namespace kvdsr;

extern "C" {

KVDSR_API uint32_t kvDSR_Binocular_Init(const uint8_t* calibration, uint32_t calibrationSize,
                                        const uint32_t* keyMaterial, uint32_t keyMaterialSize, uint16_t width,
                                        uint16_t height, uint16_t depthWidth, uint16_t depthHeight,
                                        uint16_t viewShift) {
    return guarded([&] {
        return binocular::init(calibration, calibrationSize, keyMaterial, keyMaterialSize, width, height,
                               depthWidth, depthHeight, viewShift);
    });
}

// Image formats and plane pointers are checked by the engine after its depth
// pass, the order the engine has always had.
KVDSR_API uint32_t kvDSR_Binocular_Run(uint8_t* out, const kvDSR_ImageDesc* left, const kvDSR_ImageDesc* right,
                                       uint32_t width, uint16_t height, const kvDSR_ImageDesc* depth,
                                       uint16_t depthWidth, uint16_t depthHeight) {
    if (!left || !out) return kvDSR_ERR_NULL_POINTER;
    if (!depth || !right) return kvDSR_ERR_NULL_POINTER;
    if (!binocular::initialised()) return kvDSR_ERR_NOT_INITIALISED;
    if (!isDepthFormat(depth->format)) return kvDSR_ERR_DEPTH_FORMAT;
    if (!binocular::sizesMatch(width, height, depthWidth, depthHeight)) return kvDSR_ERR_SIZE_COMBINATION;
    if (!depth->plane[0]) return kvDSR_ERR_NULL_POINTER;
    return guarded([&] { return binocular::run(out, *left, *right, width, height, *depth, depthWidth, depthHeight); });
}

KVDSR_API uint32_t kvDSR_Binocular_Close(void) { return guarded([] { return binocular::close(); }); }

}  // extern "C"
