// Chroma layout conversions and side-by-side packing used by the stereo view
// and SPR run paths. Plain row loops over explicit buffers; callers choose the
// thread they run on.
#pragma once

#include <cstdint>

namespace kvdsr::stereoview {

// Splits halfHeight rows of interleaved V,U pairs (V first, row stride
// vuStride bytes) into planar U and V of halfWidth x halfHeight. useTeam
// shares large planes out over the OpenMP team (not from a worker thread).
void splitVU(const uint8_t* vu, uint32_t vuStride, uint8_t* u, uint8_t* v, uint32_t halfWidth,
             uint32_t halfHeight, bool useTeam = false);

// The inverse of splitVU: writes V,U pairs, V first.
void interleaveVU(const uint8_t* u, const uint8_t* v, uint8_t* vu, uint32_t vuStride, uint32_t halfWidth,
                  uint32_t halfHeight);

// Writes rows of 2 * rowBytes: left half from left, right half from right.
void packSideBySide(uint8_t* dst, const uint8_t* left, const uint8_t* right, uint32_t rowBytes, uint32_t rows);

}  // namespace kvdsr::stereoview
