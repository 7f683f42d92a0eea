// Depth-map preparation steps as free functions over explicit buffers: hole
// repair, disparity to depth levels, minimum filter and resize. Each comes
// in pieces a frame's work items can run (a row, a range of pixels), beside
// the whole-map form. The binocular engine uses them too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kvdsr::depthview {

// Repair invalid pixels (255 resp. 1023) in place: one forward pass over the
// invalid pixels in raster order, then one backward pass over those left.
// `list` holds w * h entries of scratch; the forms without it allocate.
void fillInvalidDepth8(uint8_t* map, int w, int h, uint32_t* list);
void fillInvalidDepth16(uint16_t* map, int w, int h, uint32_t* list);
void fillInvalidDepth8(uint8_t* map, int w, int h);
void fillInvalidDepth16(uint16_t* map, int w, int h);
// fillInvalidDepth16 on a caller's plane at any address. A plane at an odd
// address is repaired in `aligned` (w * h entries) and copied back, rather
// than read through a misaligned pointer. Returns the repaired map, aligned.
const uint16_t* fillInvalidDepth16Plane(uint8_t* plane, int w, int h, uint16_t* aligned, uint32_t* list);
inline bool isAligned16(const void* p) { return reinterpret_cast<uintptr_t>(p) % alignof(uint16_t) == 0; }

// Per-value tables of the disparity conversion (256 resp. 1024 entries) and
// their look-up over n pixels. 16-bit values above 1023 (outside the table)
// convert like the invalid marker.
void depthTable8(uint16_t table[256], uint8_t scale, uint16_t maxDepth, uint8_t invalid, float focalPx,
                 double baseline);
void depthTable16(uint16_t table[1024], int fractionDivisor, uint16_t maxDepth, uint16_t invalid, float focalPx,
                  double baseline);
void applyDepthTable8(uint16_t* dst, const uint8_t* src, std::size_t n, const uint16_t table[256]);
void applyDepthTable16(uint16_t* dst, const uint16_t* src, std::size_t n, const uint16_t table[1024]);

// A frame's first step, one item: the caller's map repaired in place (a
// 16-bit one at an odd address through `aligned`, as fillInvalidDepth16Plane),
// then converted into `levels` (w * h) through the frame's table.
enum class MapBits { Eight, Sixteen };
void repairAndConvert(uint16_t* levels, uint8_t* plane, MapBits bits, int w, int h, uint16_t* aligned,
                      uint32_t* list, const uint16_t table[1024]);

// Disparity to depth levels 0..maxDepth through a per-value table.
void disparity8ToDepth(uint16_t* dst, const uint8_t* src, int w, int h, uint8_t scale, uint16_t maxDepth,
                       uint8_t invalid, float focalPx, double baseline);
void disparity16ToDepth(uint16_t* dst, const uint16_t* src, int w, int h, int fractionDivisor,
                        uint16_t maxDepth, uint16_t invalid, float focalPx, double baseline);

// (2r+1)^2 minimum over rows r .. h-r-2; other rows and border columns copied.
// The row form writes row y of dst; colMin is w entries of scratch.
void minFilterDepth(uint16_t* dst, const uint16_t* src, int w, int h, int radius);
void minFilterDepthRow(uint16_t* dst, const uint16_t* src, int w, int h, int radius, int y, uint16_t* colMin);

// Source taps of one output position along one resampling axis.
struct ResizeAxis {
    std::unique_ptr<int32_t[]> first;    // first source index
    std::unique_ptr<uint32_t[]> offset;  // taps of position i: [offset[i], offset[i+1])
    std::unique_ptr<uint16_t[]> weight;  // in 1/256, summing to 256
};

// Centre-aligned bilinear resize of a 16-bit map in 1/256 fixed point, with
// factor-2 and factor-3 fast paths and area averaging when shrinking; an
// empty source gives zeros. Configured once for a pair of sizes (allocates),
// it then runs in pieces without allocating: the horizontal pass one source
// row at a time into scratch (scratchSize() words), then any output row from
// the scratch. Rows are independent and may run on several threads.
class DepthResizer {
public:
    DepthResizer() = default;
    // generalOnly: no fast paths (the reference the fast paths are held to).
    void configure(int srcW, int srcH, int dstW, int dstH, bool generalOnly = false);
    bool configuredFor(int srcW, int srcH, int dstW, int dstH) const {
        return configured_ && srcW == srcW_ && srcH == srcH_ && dstW == dstW_ && dstH == dstH_ && !generalOnly_;
    }
    std::size_t scratchSize() const { return std::size_t(srcH_ > 0 ? srcH_ : 0) * std::size_t(dstW_ > 0 ? dstW_ : 0); }

    // Horizontal pass of source row y (srcW values) into its scratch row.
    void horizontalRow(const uint16_t* srcRow, int y, uint32_t* scratch) const;
    // Output row y (dstW values) from the scratch rows it needs.
    void row(int y, const uint32_t* scratch, uint16_t* out) const;
    // The scratch rows [first, end) that row(y) and at(y, ...) read.
    struct Rows {
        int first = 0, end = 0;
    };
    Rows rowsRead(int y) const;
    // One output value.
    uint16_t at(int y, int x, const uint32_t* scratch) const;

private:
    enum class Path { None, Zero, Factor2, Factor3, General };
    Path path_ = Path::None;
    bool configured_ = false, generalOnly_ = false;
    int srcW_ = 0, srcH_ = 0, dstW_ = 0, dstH_ = 0;
    ResizeAxis ax_, ay_;
    bool twoTapX_ = false, twoTapY_ = false;
    std::unique_ptr<int32_t[]> second_;  // two-tap horizontal pass: second tap and both weights
    std::unique_ptr<uint16_t[]> w0_, w1_;

    // An enlargement by a whole factor k repeats the same k taps and weights
    // for every source sample away from the edges. Output k*i + p, for
    // first <= i < last, is w0[p] * s[i + d0[p]] + w1[p] * s[i + d1[p]]:
    // the two-tap sum above with the per-column tables folded into k phases
    // (set only where configure() found that every column agrees).
    struct Phases {
        static constexpr int kMaxFactor = 8;
        int factor = 0;  // 0: none
        int first = 0, last = 0;
        int d0[kMaxFactor] = {}, d1[kMaxFactor] = {};
        uint32_t w0[kMaxFactor] = {}, w1[kMaxFactor] = {};
    };
    Phases phases_;
    void findPhases();
    void twoTapColumns(const uint16_t* s, uint32_t* h, int from, int to) const;
};

// Whole-map forms, on the calling thread.
void resizeDepth(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH);
// The general resampler alone: the reference the fast paths are held to.
void resizeDepthGeneral(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH);

}  // namespace kvdsr::depthview
