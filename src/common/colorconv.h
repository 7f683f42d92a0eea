// The two colour conversions the depth engines need: 4:2:0 pseudo-planar
// (Y plane, interleaved chroma pairs of half height) to 4:4:4 planar and back.
// Chroma pairs keep their byte order: the first byte of a pair is plane 1.
#pragma once

#include <cstdint>

namespace kvdsr {

// A stride of 0 means packed (equal to the width). Both return false, writing
// nothing, for a null plane, a zero size or a non-zero stride below the width.
//
// Upsampling repeats each chroma sample over the 2 x 2 block it covers.
// Odd sizes: the half-height chroma plane has height / 2 rows of width bytes,
// so a last odd row reuses the chroma row above it and a last odd column,
// having no second byte in its pair, gets 128 for plane 2 (1 x 1 images have
// no chroma at all and get 128 in both).
bool ycbcr420spTo444p(const uint8_t* srcY, uint32_t strideY, const uint8_t* srcUV, uint32_t strideUV,
                      uint8_t* dstY, uint8_t* dstCb, uint8_t* dstCr, uint32_t dstStride, uint32_t width,
                      uint32_t height);

// Downsampling keeps the sample of the even column and the even row of each
// 2 x 2 block, so 4:2:0 -> 4:4:4 -> 4:2:0 returns the input unchanged. Writes
// height / 2 chroma rows of width bytes (a last odd column writes plane 1's
// byte only).
bool ycbcr444pTo420sp(const uint8_t* srcY, const uint8_t* srcCb, const uint8_t* srcCr, uint32_t srcStride,
                      uint8_t* dstY, uint32_t strideY, uint8_t* dstUV, uint32_t strideUV, uint32_t width,
                      uint32_t height);

}  // namespace kvdsr
