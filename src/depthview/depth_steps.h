// Depth-map preparation steps and the per-row view synthesis, as free
// functions over explicit buffers. The binocular engine reuses the depth steps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kvdsr::depthview {

// Repair invalid pixels (255 resp. 1023) in place: one forward pass over the
// invalid pixels in raster order, then one backward pass over those left.
void fillInvalidDepth8(uint8_t* map, int w, int h);
void fillInvalidDepth16(uint16_t* map, int w, int h);

// Disparity to depth levels 0..maxDepth through a per-value table.
void disparity8ToDepth(uint16_t* dst, const uint8_t* src, int w, int h, uint8_t scale, uint16_t maxDepth,
                       uint8_t invalid, float focalPx, double baseline);
// Values above 1023 (outside the table) convert like the invalid marker.
void disparity16ToDepth(uint16_t* dst, const uint16_t* src, int w, int h, int fractionDivisor,
                        uint16_t maxDepth, uint16_t invalid, float focalPx, double baseline);

// (2r+1)^2 minimum over rows r .. h-r-2; other rows and border columns copied.
void minFilterDepth(uint16_t* dst, const uint16_t* src, int w, int h, int radius);

// Centre-aligned bilinear resize in 1/256 fixed point, with factor-2 and
// factor-3 fast paths and area averaging when shrinking. An empty source
// gives an all-zero map.
void resizeDepth(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH);
// Same, with caller-provided scratch of resizeScratchSize(srcH, dstW) words.
void resizeDepth(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH, uint32_t* scratch);
std::size_t resizeScratchSize(int srcH, int dstW);
// The general resampler alone: the reference the fast paths are held to.
void resizeDepthGeneral(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH,
                        uint32_t* scratch);

// Source taps of one output position along one resampling axis.
struct ResizeAxis {
    std::unique_ptr<int32_t[]> first;    // first source index
    std::unique_ptr<uint32_t[]> offset;  // taps of position i: [offset[i], offset[i+1])
    std::unique_ptr<uint16_t[]> weight;  // in 1/256, summing to 256
};

// resizeDepth in two parts: the constructor runs the horizontal pass over the
// source rows (on the team) into scratch; row(y) then gives output row y, so
// a consumer can take the rows one at a time instead of the whole map.
// Rows are independent and may be asked for from several threads.
class DepthResizer {
public:
    DepthResizer(const uint16_t* src, int srcW, int srcH, int dstW, int dstH, uint32_t* scratch,
                 bool generalOnly = false);
    void row(int y, uint16_t* out) const;
    void all(uint16_t* dst) const;

private:
    enum class Path { None, Zero, Factor2, Factor3, General };
    Path path_ = Path::None;
    const uint32_t* scratch_;
    int srcH_, dstW_, dstH_;
    ResizeAxis ay_;
    bool twoTapY_ = false;
};

}  // namespace kvdsr::depthview
