// Focal alignment shift: process-wide state and the calls the C interface makes.
//
// The two views are slid horizontally against each other by a whole number of
// pixels so that objects at one distance coincide; no warping.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kvDSR.h"

namespace kvdsr::focalshift {

constexpr int kDepthLevels = 1024;

// What Init derives from the calibration and the distance. Kept separate from
// the engine state so that tools can show it without touching that state.
struct ShiftSetup {
    uint16_t imageWidth = 0;   // camera-2 calibration image size
    uint16_t imageHeight = 0;
    float focalLength = 0.f;
    float pixelPitch = 0.f;
    float baseline = 0.f;
    float focalPx = 0.f;       // focal length in pixels of the working width
    float depthTable[kDepthLevels] = {};
    int32_t alignShift = 0;    // 0 or negative
};

// Parses the calibration (first body) and fills setup; returns 0 or the
// parser's code. Touches no engine state.
uint32_t computeSetup(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
                      uint32_t keyMaterialSize, uint16_t width, uint16_t distance, ShiftSetup& setup);

// Entry i is the distance whose disparity is i/8 pixel; entry 1023 stays 0.
void fillDepthTable(float table[kDepthLevels], float baseline, float focalPx);
// Half the index of the first entry pair that brackets distance, negated.
int32_t searchShift(const float table[kDepthLevels], uint16_t distance);

// distance has been checked (<= 10000) by the interface.
uint32_t init(const uint8_t* calibration, uint32_t calibrationSize, const uint32_t* keyMaterial,
              uint32_t keyMaterialSize, uint16_t width, uint16_t height, uint16_t distance);
// Formats checked (equal, 0xF01 or 0xF05) and plane 0 present, by the interface.
uint32_t shiftPair(uint8_t* outSecond, uint8_t* outFirst, const kvDSR_ImageDesc& imageSecond,
                   const kvDSR_ImageDesc& imageFirst, uint16_t width, uint16_t height);
// outWidth checked against width by the interface; format checked here
// (an unknown format in the half-width path also releases the buffer).
uint32_t shiftSideBySide(uint8_t* out, uint32_t outWidth, uint32_t outHeight, const kvDSR_ImageDesc& image,
                         uint16_t width, uint16_t height);
uint32_t close();

int32_t currentShift();
bool hasShiftBuffer();

// ---- Row kernels over explicit buffers (rows are `stride` bytes apart) ----

// Each row: dst[c] = src[c + s] for c < width - s. The last s bytes of dst
// rows are not written.
void shiftRowsLeft(uint8_t* dst, const uint8_t* src, size_t width, size_t stride, size_t rows, size_t s);
// Each row: dst[c + s] = src[c] for c < width - s. The first s bytes of dst
// rows are not written.
void shiftRowsRight(uint8_t* dst, const uint8_t* src, size_t width, size_t stride, size_t rows, size_t s);
// Rows split into `parts` equal parts of width/parts bytes; even-numbered
// parts move left, odd-numbered parts right, by s.
void shiftRowParts(uint8_t* dst, const uint8_t* src, size_t width, size_t rows, size_t parts, size_t s);
// Halves each row: keeps every other unit of unitBytes (2 for interleaved
// chroma and luma pairs, 1 for planar). dst rows are outWidth bytes, src rows
// 2 * outWidth.
void halveRows(uint8_t* dst, const uint8_t* src, size_t outWidth, size_t rows, size_t unitBytes);

}  // namespace kvdsr::focalshift
