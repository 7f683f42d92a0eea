// Exported entry points of the depth view engine: checks in their fixed
// order, then one call into the engine.
#include "common/guard.h"
#include "depthview/depthview_engine.h"
#include "interface/checks.h"

using namespace kvdsr;

extern "C" {

KVDSR_API uint32_t kvDSR_Init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
                              uint32_t keyMaterialSize, uint16_t width, uint16_t height, uint16_t depthWidth,
                              uint16_t depthHeight, uint16_t viewShift) {
    return guarded([&] {
        return depthview::init(calibration, calibrationSize, keyMaterial, keyMaterialSize, width, height,
                               depthWidth, depthHeight, viewShift);
    });
}

KVDSR_API uint32_t kvDSR_Run(uint8_t* out, const kvDSR_ImageDesc* image, uint32_t width, int32_t height,
                             const kvDSR_ImageDesc* depth, uint16_t depthWidth, uint16_t depthHeight) {
    if (!out || !depth || !image) return kvDSR_ERR_NULL_POINTER;
    if (!depthview::initialised()) return kvDSR_ERR_NOT_INITIALISED;
    if (!isDepthFormat(depth->format)) return kvDSR_ERR_DEPTH_FORMAT;
    if (height < 0 || !depthview::sizesMatch(width, uint32_t(height), depthWidth, depthHeight))
        return kvDSR_ERR_SIZE_COMBINATION;
    if (!depth->plane[0]) return kvDSR_ERR_NULL_POINTER;
    return guarded([&] { return depthview::run(out, *image, width, uint32_t(height), *depth, depthWidth, depthHeight); });
}

KVDSR_API uint32_t kvDSR_Run_SideBySide(uint8_t* out, uint32_t outWidth, uint32_t /*reserved*/,
                                        const kvDSR_ImageDesc* image, uint16_t width, uint16_t height,
                                        const kvDSR_ImageDesc* depth, uint16_t depthWidth, uint16_t depthHeight) {
    if (!out || !depth || !image) return kvDSR_ERR_NULL_POINTER;
    if (!depthview::initialised()) return kvDSR_ERR_NOT_INITIALISED;
    if (outWidth != 2u * width) return kvDSR_ERR_SIDE_BY_SIDE_WIDTH;
    if (!isDepthFormat(depth->format)) return kvDSR_ERR_DEPTH_FORMAT;
    if (!depthview::sizesMatch(width, height, depthWidth, depthHeight)) return kvDSR_ERR_SIZE_COMBINATION;
    if (!depth->plane[0]) return kvDSR_ERR_NULL_POINTER;
    return guarded([&] { return depthview::runSideBySide(out, *image, width, height, *depth, depthWidth, depthHeight); });
}

KVDSR_API uint32_t kvDSR_Close(void) { return guarded([] { return depthview::close(); }); }

}  // extern "C"
