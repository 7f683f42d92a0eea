// Exported entry points of the focal alignment shift.
#include "common/guard.h"
#include "interface/checks.h"
#include "stereoview/focal_shift.h"

using namespace kvdsr;

extern "C" {

KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShift_Init(const uint8_t* calibration, uint32_t calibrationSize,
                                                             const uint32_t* keyMaterial, uint32_t keyMaterialSize,
                                                             uint16_t width, uint16_t height, uint16_t distance) {
    if (distance > 10000) return kvDSR_ERR_DISTANCE_RANGE;
    return guarded([&] {
        return focalshift::init(calibration, calibrationSize, keyMaterial, keyMaterialSize, width, height, distance);
    });
}

KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShift(uint8_t* outSecond, uint8_t* outFirst,
                                                        const kvDSR_ImageDesc* imageSecond,
                                                        const kvDSR_ImageDesc* imageFirst, uint16_t width,
                                                        uint16_t height) {
    if (!outFirst || !outSecond) return kvDSR_ERR_NULL_POINTER;
    if (!imageFirst || !imageSecond) return kvDSR_ERR_NULL_POINTER;
    if (!isShiftFormat(imageFirst->format) || imageFirst->format != imageSecond->format)
        return kvDSR_ERR_IMAGE_FORMAT;
    if (!imageFirst->plane[0] || !imageSecond->plane[0]) return kvDSR_ERR_NULL_POINTER;
    return guarded([&] { return focalshift::shiftPair(outSecond, outFirst, *imageSecond, *imageFirst, width, height); });
}

KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShiftSideBySide(uint8_t* out, uint32_t outWidth,
                                                                  uint32_t outHeight, const kvDSR_ImageDesc* image,
                                                                  uint16_t width, uint16_t height) {
    if (!out) return kvDSR_ERR_NULL_POINTER;
    if (width != outWidth && width != 2u * outWidth) return kvDSR_ERR_SIDE_BY_SIDE_WIDTH;
    if (!image) return kvDSR_ERR_NULL_POINTER;
    return guarded([&] { return focalshift::shiftSideBySide(out, outWidth, outHeight, *image, width, height); });
}

KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShift_Close(void) {
    return guarded([] { return focalshift::close(); });
}

}  // extern "C"
