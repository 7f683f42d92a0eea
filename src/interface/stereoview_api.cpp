// Exported entry points of the stereo view and SPR engines.
//
// Null outputs and descriptors are refused first (0x74002), since nothing
// else can be looked at without them; then initialisation (0x74008), then
// the engine's own checks, then run sizes against Init's (0x74005) and the
// planes each format reads (0x74002).
#include "common/guard.h"
#include "interface/checks.h"
#include "stereoview/spr_engine.h"
#include "stereoview/stereoview_engine.h"

using namespace kvdsr;

extern "C" {

KVDSR_API uint32_t kvDSR_StereoView_Init(const uint8_t* calibration, uint32_t calibrationSize,
                                         const uint32_t* keyMaterial, uint32_t keyMaterialSize, uint16_t width,
                                         uint16_t height) {
    return guarded([&] {
        return stereoview::init(calibration, calibrationSize, keyMaterial, keyMaterialSize, width, height);
    });
}

KVDSR_API uint32_t kvDSR_StereoView_Run(uint8_t* outSecond, uint8_t* outFirst, const kvDSR_ImageDesc* imageSecond,
                                        const kvDSR_ImageDesc* imageFirst, uint16_t width, uint16_t height) {
    if (!outSecond || !outFirst || !imageSecond || !imageFirst) return kvDSR_ERR_NULL_POINTER;
    if (!stereoview::initialised()) return kvDSR_ERR_NOT_INITIALISED;
    if (imageFirst->format != imageSecond->format || !isStereoViewFormat(imageFirst->format))
        return kvDSR_ERR_IMAGE_FORMAT;
    if (!stereoview::sizesMatch(width, height)) return kvDSR_ERR_SIZE_COMBINATION;
    if (!stereoPlanesPresent(*imageFirst) || !stereoPlanesPresent(*imageSecond)) return kvDSR_ERR_NULL_POINTER;
    return guarded([&] { return stereoview::run(outSecond, outFirst, *imageSecond, *imageFirst, width, height); });
}

KVDSR_API uint32_t kvDSR_StereoView_Run_SideBySide(uint8_t* out, uint32_t outWidth, uint32_t /*outHeight*/,
                                                   const kvDSR_ImageDesc* imageSecond,
                                                   const kvDSR_ImageDesc* imageFirst, uint16_t width,
                                                   uint16_t height) {
    if (!out || !imageSecond || !imageFirst) return kvDSR_ERR_NULL_POINTER;
    if (!stereoview::initialised()) return kvDSR_ERR_NOT_INITIALISED;
    if (outWidth != 2u * width) return kvDSR_ERR_SIDE_BY_SIDE_WIDTH;
    if (imageFirst->format != imageSecond->format || !isStereoViewFormat(imageFirst->format))
        return kvDSR_ERR_IMAGE_FORMAT;
    if (!stereoview::sizesMatch(width, height)) return kvDSR_ERR_SIZE_COMBINATION;
    if (!stereoPlanesPresent(*imageFirst) || !stereoPlanesPresent(*imageSecond)) return kvDSR_ERR_NULL_POINTER;
    return guarded([&] { return stereoview::runSideBySide(out, *imageSecond, *imageFirst, width, height); });
}

KVDSR_API uint32_t kvDSR_StereoView_Close(void) { return guarded([] { return stereoview::close(); }); }

KVDSR_API uint32_t kvDSR_SPR_Init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
                                  uint32_t keyMaterialSize, uint16_t inWidth, uint16_t inHeight, uint16_t outWidth,
                                  uint16_t outHeight) {
    return guarded([&] {
        return spr::init(calibration, calibrationSize, keyMaterial, keyMaterialSize, inWidth, inHeight, outWidth,
                         outHeight);
    });
}

// SPR has no checks of its own: anything but a 0xF01 pair is a silent no-op.
// Null pointers, a missing Init and other sizes would crash, so they are
// refused, but only for pairs the engine would otherwise process.
KVDSR_API uint32_t kvDSR_SPR_Run(uint8_t* outSecond, uint8_t* outFirst, const kvDSR_ImageDesc* imageSecond,
                                 const kvDSR_ImageDesc* imageFirst, uint16_t inWidth, uint16_t inHeight,
                                 uint16_t outWidth, uint16_t outHeight) {
    if (!imageSecond || !imageFirst) return kvDSR_ERR_NULL_POINTER;
    if (imageFirst->format != kvDSR_FMT_YUV420SP || imageSecond->format != imageFirst->format) return kvDSR_OK;
    if (!spr::initialised()) return kvDSR_ERR_NOT_INITIALISED;
    if (!spr::sizesMatch(inWidth, inHeight, outWidth, outHeight)) return kvDSR_ERR_SIZE_COMBINATION;
    if (!outSecond || !outFirst || !stereoPlanesPresent(*imageFirst) || !stereoPlanesPresent(*imageSecond))
        return kvDSR_ERR_NULL_POINTER;
    return guarded([&] {
        return spr::run(outSecond, outFirst, *imageSecond, *imageFirst, inWidth, inHeight, outWidth, outHeight);
    });
}

KVDSR_API uint32_t kvDSR_SPR_Close(void) { return guarded([] { return spr::close(); }); }

}  // extern "C"
