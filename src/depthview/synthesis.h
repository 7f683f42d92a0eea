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

// The view matrix of common/virtual_camera.h for these calibration values,
// moved by viewShift * 0.01 along x.
void virtualCamera(double viewMatrix[16], const CameraValues& cam, uint16_t viewShift);

// shiftTable[d * width + x]: target column of column x at depth level d, for
// the 1024 levels; built on the OpenMP team, one level at a time.
void buildShiftTable(uint16_t* shiftTable, const double viewMatrix[16], const CameraValues& cam, int width);

// First output column the synthesis may write.
int32_t firstWritableColumn(int width, double referenceWidth, uint16_t viewShift);

// ---- One row ----------------------------------------------------------------
//
// The synthesis moves every pixel x of a row (from column 1 on) to its target
// column t; a pixel lands when prev < t < width, prev being the last landing
// column (firstColumn at the start, 0 if negative), and the columns from prev
// to t are filled by linear interpolation between the pixel and its left
// neighbour. Pixels landing on or left of prev, or outside the row, vanish;
// positions no pixel reaches are not written.

// First e in [from, limit) where targets[e] != first + (e - from), or limit:
// where a run of pixels landing one column apart ends. first + (limit - 1
// - from) must stay below 65536.
int runEnd(const uint16_t* targets, int from, int limit, uint16_t first);

// targets[x] = shiftTable[min(levels[x], 1023) * width + x], x = 0 .. width-1.
void rowTargets(uint16_t* targets, const uint16_t* levels, const uint16_t* shiftTable, int width);

// Three planes of one row.
void synthesizeRow444(uint8_t* const dst[3], const uint8_t* const src[3], const uint16_t* targets,
                      int32_t firstColumn, int width);

// Luma of one row and, when uv is set, the chroma a 4:2:0 output keeps of
// it: the pair of each even column, interleaved (uv[c] = Cb, uv[c + 1] = Cr),
// with uv one byte longer than the row. The source chroma is a 4:2:0 row
// (each pair covers two columns); the Cr of an odd width's last column,
// which has no pair, is lastCr.
struct Row420 {
    uint8_t* y;
    uint8_t* uv;
    const uint8_t* srcY;
    const uint8_t* srcUV;
    uint8_t lastCr;
};
void synthesizeRow420(const Row420& row, const uint16_t* targets, int32_t firstColumn, int width);

// ---- Frames, row by row ------------------------------------------------------
//
// What one output row y of a frame takes, from that row's depth levels, so
// that rows can be shared among threads. Source rows are stride bytes apart;
// stride 0 reads the same row for every y (an all-zero source).

// 4:2:0 pseudo-planar in and out: byte for byte what converting the input to
// 4:4:4, synthesising into a cleared 4:4:4 image (side by side: beside the
// input) and converting back gives. The output is packed, rows width (side
// by side 2 * width) bytes apart, chroma taken from the even rows.
struct Frame420 {
    uint8_t* outY;
    uint8_t* outUV;
    bool sideBySide;
    const uint8_t* srcY;
    std::size_t strideY;
    const uint8_t* srcUV;
    std::size_t strideUV;
    uint8_t lastCr;
    const uint16_t* shiftTable;
    int32_t firstColumn;
    int width, height;
};
// Per-thread scratch of one 4:2:0 row: width targets, and the output chroma
// row (outWidth + 1 bytes).
std::size_t row420ScratchBytes(int width, bool sideBySide);
void renderRow420(const Frame420& f, int y, const uint16_t* levels, uint8_t* scratch);

// 4:4:4 planar in and out. The output's planes are outPlane bytes apart with
// rows outStride apart; side by side, the input row goes into the right half.
// clear: the row is set to black (0, 128, 128) before the synthesis.
struct Frame444 {
    uint8_t* out;
    std::size_t outStride, outPlane;
    bool sideBySide, clear;
    const uint8_t* src[3];
    std::size_t srcStride[3];
    const uint16_t* shiftTable;
    int32_t firstColumn;
    int width, height;
};
void renderRow444(const Frame444& f, int y, const uint16_t* levels, uint16_t* targets);

// ---- Whole frames on the calling thread, from an upscaled depth map ---------

// Three planes, rows of src and dst srcStride / dstStride bytes apart;
// positions no pixel reaches are left as they are.
void synthesizeView(uint8_t* const dst[3], std::size_t dstStride, const uint8_t* const src[3],
                    std::size_t srcStride, const uint16_t* depthUpscaled, const uint16_t* shiftTable,
                    int32_t firstColumn, int width, int height);

// The same, pixel by pixel as the rules above say it: the reference the row
// functions are held to.
void synthesizeViewReference(uint8_t* const dst[3], std::size_t dstStride, const uint8_t* const src[3],
                             std::size_t srcStride, const uint16_t* depthUpscaled, const uint16_t* shiftTable,
                             int32_t firstColumn, int width, int height);

// Packed width x height 4:4:4 source into the left half of a side-by-side
// 4:4:4 image: rows 2 * width apart, planes 2 * width * height apart.
void synthesizeViewSideBySide(uint8_t* dst, const uint8_t* src, const uint16_t* depthUpscaled,
                              const uint16_t* shiftTable, int32_t firstColumn, int width, int height);

// Every row of a 4:2:0 frame (f.height rows of depthUpscaled).
void synthesizeView420(const Frame420& f, const uint16_t* depthUpscaled);

}  // namespace kvdsr::depthview
