#include "depthview/synthesis.h"

#include <climits>
#include <cmath>

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
    const int start = firstColumn < 0 ? 0 : firstColumn;
#pragma omp parallel for schedule(dynamic, 1) if (size_t(width) * height >= (size_t(1) << 14))
    for (int y = 0; y < height; ++y) {
        const uint16_t* depthRow = depthUpscaled + size_t(y) * width;
        const uint8_t* s[3];
        uint8_t* d[3];
        for (int p = 0; p < 3; ++p) {
            s[p] = src[p] + size_t(y) * srcStride;
            d[p] = dst[p] + size_t(y) * dstStride;
        }
        int prev = start;
        for (int x = 1; x < width; ++x) {
            unsigned level = depthRow[x];
            if (level >= unsigned(kDepthLevels)) level = kDepthLevels - 1;
            const int t = shiftTable[size_t(level) * width + x];
            if (t >= width || t <= prev) continue;
            const int gap = t - prev;
            const double inverseGap = 1.0 / gap;
            for (int p = 0; p < 3; ++p) fillGap(d[p], prev, gap, s[p][x - 1], s[p][x], inverseGap);
            prev = t;
        }
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
