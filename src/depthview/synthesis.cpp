#include "depthview/synthesis.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

#include "common/frame_team.h"
#include "common/level_runs.h"
#include "common/virtual_camera.h"

namespace kvdsr::depthview {

namespace {

// The table's double-to-16-bit conversion, defined for every value: NaN and
// negatives give 0 (never written: not right of firstColumn), and values past
// 65535 (near levels at large view shifts) wrap as a saturating 32-bit
// conversion followed by 16-bit truncation does on the device.
uint16_t toColumn(double v) {
    if (!(v >= 0.0)) return 0;
    if (v >= 4294967295.0) return 0xFFFF;
    return uint16_t(uint32_t(v));
}

// Walks one row's targets: land(prev, t, x) for a pixel that lands after a
// gap (or after pixels that vanished), run(t, x, n) for the n pixels after
// it that each land one column right of the last. In a run the gap is one
// column and its left end already holds the left neighbour, so a run is a
// straight copy.
template <class Land, class Run>
inline void scanRow(const uint16_t* targets, int32_t firstColumn, int width, Land&& land, Run&& run) {
    int prev = firstColumn < 0 ? 0 : firstColumn;
    if (prev >= width - 1) return;  // no target can lie right of prev
    int x = 1;
    while (x < width) {
        const int t = targets[x];
        // prev < t < width in one comparison (prev < width - 1 holds).
        if (unsigned(t - prev - 1) >= unsigned(width - 1 - prev)) {
            ++x;
            continue;
        }
        land(prev, t, x);
        const int limit = std::min(width, x + (width - t));  // the run's targets stay below width
        const int n = runEnd(targets, x + 1, limit, uint16_t(t + 1)) - x - 1;
        if (n) run(t + 1, x + 1, n);
        prev = t + n;
        x += n + 1;
    }
}

// floor((i * b + (gap - i) * a) * (1.0 / gap)); never negative, so the
// truncating conversion is the floor.
inline uint8_t lerp(int i, int gap, uint8_t a, uint8_t b, double inverseGap) {
    return uint8_t(int32_t((i * b + (gap - i) * a) * inverseGap));
}

// Columns prev .. prev + gap from a (at prev) to b (at prev + gap).
inline void fillGap(uint8_t* row, int prev, int gap, uint8_t a, uint8_t b) {
    row[prev] = a;
    if (gap > 2) {
        const double inverseGap = 1.0 / gap;
        for (int i = 1; i < gap; ++i) row[prev + i] = lerp(i, gap, a, b, inverseGap);
    } else if (gap == 2) {
        row[prev + 1] = uint8_t((a + b) >> 1);
    }
    row[prev + gap] = b;
}

}  // namespace

void virtualCamera(double m[16], const CameraValues& cam, uint16_t viewShift) {
    kvdsr::buildViewMatrix(m, fieldOfViewDegrees(cam.sensorWidth, cam.pixelSize, cam.focalLength),
                           viewShift * 0.01);
}

void buildShiftTable(uint16_t* shiftTable, const double m[16], const CameraValues& cam, int width) {
    double invDepth[kDepthLevels];
    invDepth[0] = 0.0;
    for (int i = 1; i < kDepthLevels; ++i) invDepth[i] = 1.0 / (i * m[11]);
    const double half = width / 2.0;
    const double c = m[12];
    const double lens = cam.sensorWidth * cam.pixelSize / cam.focalLength;  // single precision, kept
    const double* invDepthP = invDepth;

    runItems(kDepthLevels, width >= 16, [&](uint32_t level, int) {
        const int d = int(level);
        uint16_t* row = shiftTable + size_t(d) * width;
        for (int x = 0; x < width; ++x) {
            const double k = m[0] * 0.5 * lens * ((x - half) / half);
            row[x] = toColumn(std::floor(width * 0.5 * (1.0 + (-c - d * k) * invDepthP[d])));
        }
    });
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

int runEnd(const uint16_t* targets, int from, int limit, uint16_t first) {
    int e = from;
    uint32_t expect = first;
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    // Four targets per 64-bit word against the four expected ones: runs are
    // long (a surface at one depth), mismatches rare.
    constexpr uint64_t kLanes = 0x0001000100010001ull, kSteps = 0x0003000200010000ull;
    for (; e + 8 <= limit; e += 8, expect += 8) {
        uint64_t a, b;
        std::memcpy(&a, targets + e, 8);
        std::memcpy(&b, targets + e + 4, 8);
        const uint64_t want = expect * kLanes + kSteps;  // no lane carries: expect + 7 < 65536
        if (a != want || b != want + 4 * kLanes) break;
    }
#endif
    for (; e < limit && targets[e] == uint16_t(expect); ++e, ++expect) {
    }
    return e;
}

void rowTargets(uint16_t* targets, const uint16_t* levels, const uint16_t* shiftTable, int width) {
    const size_t w = size_t(std::max(width, 0));
    auto one = [&](size_t x) {
        const unsigned level = std::min<unsigned>(levels[x], kDepthLevels - 1);
        targets[x] = shiftTable[level * w + x];
    };
    forEachLevelRun(
        levels, 0, w, kDepthLevels - 1,
        [&](size_t level, size_t x) { std::memcpy(targets + x, shiftTable + level * w + x, 4 * sizeof(uint16_t)); },
        one);
}

void synthesizeRow444(uint8_t* const dst[3], const uint8_t* const src[3], const uint16_t* targets,
                      int32_t firstColumn, int width) {
    uint8_t* const d0 = dst[0];
    uint8_t* const d1 = dst[1];
    uint8_t* const d2 = dst[2];
    const uint8_t* const s0 = src[0];
    const uint8_t* const s1 = src[1];
    const uint8_t* const s2 = src[2];
    scanRow(
        targets, firstColumn, width,
        [&](int prev, int t, int x) {
            const int gap = t - prev;
            fillGap(d0, prev, gap, s0[x - 1], s0[x]);
            fillGap(d1, prev, gap, s1[x - 1], s1[x]);
            fillGap(d2, prev, gap, s2[x - 1], s2[x]);
        },
        [&](int t, int x, int n) {
            std::memcpy(d0 + t, s0 + x, size_t(n));
            std::memcpy(d1 + t, s1 + x, size_t(n));
            std::memcpy(d2 + t, s2 + x, size_t(n));
        });
}

void synthesizeRow420(const Row420& r, const uint16_t* targets, int32_t firstColumn, int width) {
    uint8_t* const dY = r.y;
    uint8_t* const uv = r.uv;
    const uint8_t* const sY = r.srcY;
    const uint8_t* const sUV = r.srcUV;
    const uint8_t lastCr = r.lastCr;
    // Source chroma of column x: the pair covering it.
    auto cb = [&](int x) { return sUV[x & ~1]; };
    auto cr = [&](int x) { return (x | 1) < width ? sUV[x | 1] : lastCr; };
    auto put = [&](int col, int x) {
        dY[col] = sY[x];
        if (uv && !(col & 1)) {
            uv[col] = cb(x);
            uv[col + 1] = cr(x);
        }
    };
    scanRow(
        targets, firstColumn, width,
        [&](int prev, int t, int x) {
            const int gap = t - prev;
            put(prev, x - 1);
            if (gap == 2) {
                const int c = prev + 1;
                dY[c] = uint8_t((sY[x - 1] + sY[x]) >> 1);
                if (uv && !(c & 1)) {
                    uv[c] = uint8_t((cb(x - 1) + cb(x)) >> 1);
                    uv[c + 1] = uint8_t((cr(x - 1) + cr(x)) >> 1);
                }
            } else if (gap > 2) {
                const double inverseGap = 1.0 / gap;
                for (int i = 1; i < gap; ++i) {
                    const int c = prev + i;
                    dY[c] = lerp(i, gap, sY[x - 1], sY[x], inverseGap);
                    if (uv && !(c & 1)) {
                        uv[c] = lerp(i, gap, cb(x - 1), cb(x), inverseGap);
                        uv[c + 1] = lerp(i, gap, cr(x - 1), cr(x), inverseGap);
                    }
                }
            }
            put(t, x);
        },
        [&](int t, int x, int n) {
            std::memcpy(dY + t, sY + x, size_t(n));
            if (!uv) return;
            // Even columns c of the run take the pair covering c - shift: for
            // an even shift the pair at c - shift, for an odd one the pair
            // one column further left. Consecutive pairs: one copy.
            const int c0 = t + (t & 1), c1 = (t + n - 1) & ~1;
            if (c0 > c1) return;
            const int shift = t - x, back = shift + (shift & 1);
            size_t bytes = size_t(c1 - c0 + 2);
            const bool lastHasNoCr = c1 - back + 1 >= width;
            if (lastHasNoCr) bytes -= 2;
            std::memcpy(uv + c0, sUV + (c0 - back), bytes);
            if (lastHasNoCr) {
                uv[c1] = sUV[c1 - back];
                uv[c1 + 1] = lastCr;
            }
        });
}

size_t row420ScratchBytes(int width, bool sideBySide) {
    const size_t w = size_t(width), outWidth = sideBySide ? 2 * w : w;
    return 2 * w + outWidth + 2;
}

void renderRow420(const Frame420& f, int y, const uint16_t* levels, uint8_t* scratch) {
    const int w = f.width;
    const size_t outWidth = f.sideBySide ? 2 * size_t(w) : size_t(w);
    uint16_t* targets = reinterpret_cast<uint16_t*>(scratch);
    uint8_t* uvRow = scratch + 2 * size_t(w);
    const uint8_t* srcY = f.srcY + size_t(y) * f.strideY;
    uint8_t* outY = f.outY + size_t(y) * outWidth;
    std::memset(outY, 0, size_t(w));
    if (f.sideBySide) std::memcpy(outY + w, srcY, size_t(w));
    rowTargets(targets, levels, f.shiftTable, w);
    if ((y & 1) || y / 2 >= f.height / 2) {
        // The 4:2:0 output keeps no chroma of this row.
        synthesizeRow420({outY, nullptr, srcY, nullptr, 0}, targets, f.firstColumn, w);
        return;
    }
    const uint8_t* srcUV = f.srcUV + size_t(y / 2) * f.strideUV;
    // The output chroma row as the 4:2:0 conversion packs it: the pair of
    // each even column; cleared on the left, the input on the right (whose
    // even columns are odd input columns when the width is odd).
    std::memset(uvRow, 128, outWidth + 1);
    if (f.sideBySide && w >= 1) {
        if (w & 1)
            std::memcpy(uvRow + w + 1, srcUV, size_t(w) - 1);
        else
            std::memcpy(uvRow + w, srcUV, size_t(w));
    }
    synthesizeRow420({outY, uvRow, srcY, srcUV, f.lastCr}, targets, f.firstColumn, w);
    std::memcpy(f.outUV + size_t(y / 2) * outWidth, uvRow, outWidth);
}

void renderRow444(const Frame444& f, int y, const uint16_t* levels, uint16_t* targets) {
    const size_t w = size_t(f.width);
    uint8_t* d[3];
    const uint8_t* s[3];
    for (int p = 0; p < 3; ++p) {
        d[p] = f.out + p * f.outPlane + size_t(y) * f.outStride;
        s[p] = f.src[p] + size_t(y) * f.srcStride[p];
    }
    if (f.clear) {
        std::memset(d[0], 0, w);
        std::memset(d[1], 128, w);
        std::memset(d[2], 128, w);
    }
    rowTargets(targets, levels, f.shiftTable, f.width);
    synthesizeRow444(d, s, targets, f.firstColumn, f.width);
    if (f.sideBySide)
        for (int p = 0; p < 3; ++p) std::memcpy(d[p] + w, s[p], w);
}

void synthesizeView(uint8_t* const dst[3], std::size_t dstStride, const uint8_t* const src[3],
                    std::size_t srcStride, const uint16_t* depthUpscaled, const uint16_t* shiftTable,
                    int32_t firstColumn, int width, int height) {
    std::vector<uint16_t> targets(size_t(std::max(width, 1)));
    for (int y = 0; y < height; ++y) {
        const uint8_t* s[3];
        uint8_t* d[3];
        for (int p = 0; p < 3; ++p) {
            s[p] = src[p] + size_t(y) * srcStride;
            d[p] = dst[p] + size_t(y) * dstStride;
        }
        rowTargets(targets.data(), depthUpscaled + size_t(y) * width, shiftTable, width);
        synthesizeRow444(d, s, targets.data(), firstColumn, width);
    }
}

void synthesizeViewReference(uint8_t* const dst[3], std::size_t dstStride, const uint8_t* const src[3],
                             std::size_t srcStride, const uint16_t* depthUpscaled, const uint16_t* shiftTable,
                             int32_t firstColumn, int width, int height) {
    for (int y = 0; y < height; ++y) {
        int prev = firstColumn < 0 ? 0 : firstColumn;
        for (int x = 1; x < width; ++x) {
            const unsigned d = std::min<unsigned>(depthUpscaled[size_t(y) * width + x], kDepthLevels - 1);
            const int t = shiftTable[size_t(d) * width + x];
            if (!(t < width && t > prev)) continue;
            const int gap = t - prev;
            for (int p = 0; p < 3; ++p) {
                uint8_t* row = dst[p] + size_t(y) * dstStride;
                const uint8_t a = src[p][size_t(y) * srcStride + x - 1], b = src[p][size_t(y) * srcStride + x];
                if (gap > 2) {
                    row[prev] = a;
                    for (int i = 1; i <= gap - 1; ++i)
                        row[prev + i] = uint8_t(std::floor((i * b + (gap - i) * a) * (1.0 / gap)));
                    row[t] = b;
                } else if (gap == 2) {
                    row[prev] = a;
                    row[prev + 1] = uint8_t((a + b) >> 1);
                    row[prev + 2] = b;
                } else {
                    row[prev] = a;
                    row[prev + 1] = b;
                }
            }
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

void synthesizeView420(const Frame420& f, const uint16_t* depthUpscaled) {
    std::vector<uint8_t> scratch(row420ScratchBytes(f.width, f.sideBySide) + 1);
    for (int y = 0; y < f.height; ++y)
        renderRow420(f, y, depthUpscaled + size_t(y) * f.width, scratch.data());
}

}  // namespace kvdsr::depthview
