#include "depthview/synthesis.h"

#include <omp.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>

#include "common/alloc.h"

namespace kvdsr::depthview {

namespace {

// Defined for every double: NaN and negatives give 0, larger values wrap the
// way a saturating 32-bit conversion followed by 16-bit truncation does.
// Wrapped and clamped targets end up >= width or <= firstColumn either way
// except for the wrap, which is kept.
uint16_t toColumn(double v) {
    if (!(v >= 0.0)) return 0;
    if (v >= 4294967295.0) return 0xFFFF;
    return uint16_t(uint32_t(v));
}

inline void fillGap(uint8_t* row, int prev, int gap, uint8_t a, uint8_t b, double inverseGap) {
    row[prev] = a;
    if (gap > 2) {
        for (int i = 1; i < gap; ++i) row[prev + i] = uint8_t(std::floor((i * b + (gap - i) * a) * inverseGap));
    } else if (gap == 2) {
        row[prev + 1] = uint8_t((a + b) >> 1);
    }
    row[prev + gap] = b;
}

// One row for the first `Planes` planes; the landing columns do not depend
// on the planes, so a row synthesised for luma only has the same luma.
template <int Planes>
void synthesizeRow(uint8_t* const d[], const uint8_t* const s[], const uint16_t* depthRow,
                   const uint16_t* shiftTable, int32_t firstColumn, int width) {
    int prev = firstColumn < 0 ? 0 : firstColumn;
    if (prev >= width - 1) return;  // no target can lie right of prev
    // Source column of the last landing: when it is x - 1, dst(prev) already
    // holds src(x - 1) and need not be stored again.
    int lastSource = -1;
    for (int x = 1; x < width; ++x) {
        const unsigned level = std::min<unsigned>(depthRow[x], kDepthLevels - 1);
        const int t = shiftTable[size_t(level) * width + x];
        // t > prev and t < width in one comparison (prev < width - 1 holds).
        if (unsigned(t - prev - 1) >= unsigned(width - 1 - prev)) continue;
        const int gap = t - prev;
        if (gap == 1) {
            if (lastSource != x - 1)
                for (int p = 0; p < Planes; ++p) d[p][prev] = s[p][x - 1];
            for (int p = 0; p < Planes; ++p) d[p][t] = s[p][x];
        } else {
            const double inverseGap = 1.0 / gap;
            for (int p = 0; p < Planes; ++p) fillGap(d[p], prev, gap, s[p][x - 1], s[p][x], inverseGap);
        }
        prev = t;
        lastSource = x;
    }
}

}  // namespace

void buildViewMatrix(double m[16], const CameraValues& cam, uint16_t viewShift) {
    const double halfFov = std::atan(cam.sensorWidth * cam.pixelSize * 0.5 / cam.focalLength);
    const double fovDegrees = halfFov * 114.59165581759557;
    const double f = 1.0 / std::tan(fovDegrees * 0.008726646259971648);
    // Identity times the projection is the projection.
    for (int i = 0; i < 16; ++i) m[i] = 0.0;
    m[0] = f;
    m[5] = f;
    m[10] = -1.0019569471624266;
    m[11] = -1.0;
    m[14] = -2.0019569471624266;
    // Translation (row-vector convention): row 3 += t * row 0.
    const double t = viewShift * 0.01;
    for (int c = 0; c < 4; ++c) m[12 + c] = m[12 + c] + t * m[c];
}

void buildShiftTable(uint16_t* shiftTable, const double m[16], const CameraValues& cam, int width) {
    double invDepth[kDepthLevels];
    invDepth[0] = 0.0;
    for (int i = 1; i < kDepthLevels; ++i) invDepth[i] = 1.0 / (i * m[11]);
    const double half = width / 2.0;
    const double c = m[12];
    const double lens = cam.sensorWidth * cam.pixelSize / cam.focalLength;  // single precision, kept
    const double* invDepthP = invDepth;

#pragma omp parallel for schedule(dynamic, 1) if (width >= 16)
    for (int d = 0; d < kDepthLevels; ++d) {
        uint16_t* row = shiftTable + size_t(d) * width;
        for (int x = 0; x < width; ++x) {
            const double k = m[0] * 0.5 * lens * ((x - half) / half);
            row[x] = toColumn(std::floor(width * 0.5 * (1.0 + (-c - d * k) * invDepthP[d])));
        }
    }
}

int32_t firstWritableColumn(int width, double referenceWidth, uint16_t viewShift) {
    const double v = (width / referenceWidth) * (viewShift * 0.12 + 40.0);
    // Saturating, so that a zero reference width (no aspect class yet) means
    // that nothing is written rather than an undefined conversion.
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return int32_t(v);
}

void synthesizeView(uint8_t* const dst[3], std::size_t dstStride, const uint8_t* const src[3],
                    std::size_t srcStride, const uint16_t* depthUpscaled, const uint16_t* shiftTable,
                    int32_t firstColumn, int width, int height) {
#pragma omp parallel for schedule(dynamic, 1) if (size_t(width) * height >= (size_t(1) << 14))
    for (int y = 0; y < height; ++y) {
        const uint8_t* s[3];
        uint8_t* d[3];
        for (int p = 0; p < 3; ++p) {
            s[p] = src[p] + size_t(y) * srcStride;
            d[p] = dst[p] + size_t(y) * dstStride;
        }
        synthesizeRow<3>(d, s, depthUpscaled + size_t(y) * width, shiftTable, firstColumn, width);
    }
}

void synthesizeViewSideBySide(uint8_t* dst, const uint8_t* src, const uint16_t* depthUpscaled,
                              const uint16_t* shiftTable, int32_t firstColumn, int width, int height) {
    const size_t plane = size_t(width) * height;
    uint8_t* const d[3] = {dst, dst + 2 * plane, dst + 4 * plane};
    const uint8_t* const s[3] = {src, src + plane, src + 2 * plane};
    synthesizeView(d, 2 * size_t(width), s, width, depthUpscaled, shiftTable, firstColumn, width, height);
}

}  // namespace kvdsr::depthview

namespace kvdsr::depthview {

void synthesizeView420(const View420& v) {
    const int w = v.width, h = v.height;
    const size_t outWidth = v.sideBySide ? 2 * size_t(w) : size_t(w);
    const size_t strideY = v.strideY ? v.strideY : size_t(w);
    const size_t strideUV = v.strideUV ? v.strideUV : size_t(w);
    const int chromaRows = h / 2;
    // Per thread: the source chroma row upsampled (2 x width) and the output
    // chroma rows of one 4:4:4 row (2 x outWidth).
    const size_t perThread = 2 * size_t(w) + 2 * outWidth;
    const int threads = omp_get_max_threads();
    auto scratch = allocArray<uint8_t>(perThread * size_t(threads));
    uint8_t* scratchBase = scratch.get();

#pragma omp parallel for schedule(dynamic, 1) if (size_t(w) * h >= (size_t(1) << 14))
    for (int y = 0; y < h; ++y) {
        const uint8_t* srcY = v.srcY + size_t(y) * strideY;
        uint8_t* outY = v.outY + size_t(y) * outWidth;
        std::memset(outY, 0, size_t(w));
        if (v.sideBySide) std::memcpy(outY + w, srcY, size_t(w));
        const uint16_t* depthRow = v.depthUpscaled + size_t(y) * w;
        if ((y & 1) || y / 2 >= chromaRows) {
            // The 4:2:0 output keeps no chroma of this row.
            uint8_t* const d[1] = {outY};
            const uint8_t* const s[1] = {srcY};
            synthesizeRow<1>(d, s, depthRow, v.shiftTable, v.firstColumn, w);
            continue;
        }
        uint8_t* buf = scratchBase + perThread * size_t(omp_get_thread_num());
        uint8_t* srcCb = buf;
        uint8_t* srcCr = srcCb + w;
        uint8_t* cb = srcCr + w;
        uint8_t* cr = cb + outWidth;
        // Upsampled source chroma, as the 4:4:4 conversion gives it.
        const uint8_t* uv = v.srcUV + size_t(y / 2) * strideUV;
        for (int x = 0; x + 1 < w; x += 2) {
            srcCb[x] = srcCb[x + 1] = uv[x];
            srcCr[x] = srcCr[x + 1] = uv[x + 1];
        }
        if (w & 1) {
            srcCb[w - 1] = uv[w - 1];
            srcCr[w - 1] = 128;
        }
        std::memset(cb, 128, size_t(w));
        std::memset(cr, 128, size_t(w));
        if (v.sideBySide) {
            std::memcpy(cb + w, srcCb, size_t(w));
            std::memcpy(cr + w, srcCr, size_t(w));
        }
        uint8_t* const d[3] = {outY, cb, cr};
        const uint8_t* const s[3] = {srcY, srcCb, srcCr};
        synthesizeRow<3>(d, s, depthRow, v.shiftTable, v.firstColumn, w);
        // Even columns into interleaved pairs, as the 4:2:0 conversion keeps them.
        uint8_t* outUV = v.outUV + size_t(y / 2) * outWidth;
        const size_t pairs = outWidth / 2;
        for (size_t p = 0; p < pairs; ++p) {
            outUV[2 * p] = cb[2 * p];
            outUV[2 * p + 1] = cr[2 * p];
        }
        if (outWidth & 1) outUV[outWidth - 1] = cb[outWidth - 1];
    }
}

}  // namespace kvdsr::depthview
