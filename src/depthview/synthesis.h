// Shift table of the virtual camera and the per-row view synthesis.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvdsr::depthview {

constexpr int kDepthLevels = 1024;

// Calibration values the virtual camera is built from.
struct CameraValues {
    uint16_t sensorWidth = 0;
    float focalLength = 0.f;
    float pixelSize = 0.f;
};

// viewMatrix (row-major 4 x 4): perspective projection of the calibrated
// field of view, then moved by viewShift * 0.01 along x.
void buildViewMatrix(double viewMatrix[16], const CameraValues& cam, uint16_t viewShift);

// shiftTable[d * width + x]: target column of column x at depth level d, for
// the 1024 levels; built on the OpenMP team, one level at a time.
void buildShiftTable(uint16_t* shiftTable, const double viewMatrix[16], const CameraValues& cam, int width);

// First output column the synthesis may write.
int32_t firstWritableColumn(int width, double referenceWidth, uint16_t viewShift);

// Moves every pixel of rows 0..height-1 to its target column and fills the
// opened gaps by linear interpolation, for the three planes. Rows of src and
// dst are srcStride / dstStride bytes apart; positions no pixel reaches are
// left as they are. Depth levels above 1023 count as 1023 and a negative
// firstColumn as 0, so no write leaves [0, width) of a row.
void synthesizeView(uint8_t* const dst[3], std::size_t dstStride, const uint8_t* const src[3],
                    std::size_t srcStride, const uint16_t* depthUpscaled, const uint16_t* shiftTable,
                    int32_t firstColumn, int width, int height);

// Packed width x height 4:4:4 source into the left half of a side-by-side
// 4:4:4 image: rows 2 * width apart, planes 2 * width * height apart.
void synthesizeViewSideBySide(uint8_t* dst, const uint8_t* src, const uint16_t* depthUpscaled,
                              const uint16_t* shiftTable, int32_t firstColumn, int width, int height);

// 4:2:0 pseudo-planar in and out, byte for byte what converting the input to
// 4:4:4, synthesising into a cleared 4:4:4 image (side by side: next to the
// input) and converting back gives, without the 4:4:4 images: chroma is only
// synthesised on the rows the 4:2:0 output keeps. The input strides must be
// 0 or at least the width; the output is packed (outY rows width, or
// 2 * width side by side, apart; outUV likewise).
struct View420 {
    uint8_t* outY;
    uint8_t* outUV;
    bool sideBySide;
    const uint8_t* srcY;
    uint32_t strideY;
    const uint8_t* srcUV;
    uint32_t strideUV;
    const uint16_t* depthUpscaled;
    const uint16_t* shiftTable;
    int32_t firstColumn;
    int width, height;
};
void synthesizeView420(const View420& v);

}  // namespace kvdsr::depthview
