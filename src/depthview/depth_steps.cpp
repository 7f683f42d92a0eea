#include "depthview/depth_steps.h"

#include <omp.h>

#include <algorithm>
#include <cstring>

#include "common/alloc.h"

namespace kvdsr::depthview {

namespace {

// Small maps are not worth waking the team for; the result is the same.
inline bool worthATeam(size_t elements) { return elements >= (size_t(1) << 14); }

// ---- Hole filling -------------------------------------------------------

template <class T>
bool neighbourMean(const T* map, int w, int h, uint32_t idx, T invalid, T& mean) {
    const int x = int(idx % uint32_t(w));
    const int y = int(idx / uint32_t(w));
    uint32_t sum = 0, count = 0;
    for (int yy = std::max(y - 1, 0); yy <= std::min(y + 1, h - 1); ++yy) {
        const T* row = map + size_t(yy) * w;
        for (int xx = std::max(x - 1, 0); xx <= std::min(x + 1, w - 1); ++xx) {
            if (row[xx] < invalid) {
                sum += row[xx];
                ++count;
            }
        }
    }
    if (!count) return false;
    mean = T(sum / count);
    return true;
}

template <class T>
void fillInvalid(T* map, int w, int h, T invalid) {
    if (!map || w <= 0 || h <= 0) return;
    const uint32_t n = uint32_t(w) * uint32_t(h);
    uint32_t count = 0;
    for (uint32_t i = 0; i < n; ++i) count += map[i] == invalid;
    if (!count) return;

    auto list = allocArray<uint32_t>(count);
    uint32_t k = 0;
    for (uint32_t i = 0; i < n; ++i)
        if (map[i] == invalid) list[k++] = i;

    // Forward pass sees its own repairs; pixels without a valid neighbour yet
    // are compacted into the front of the same list for the backward pass.
    uint32_t left = 0;
    for (uint32_t i = 0; i < count; ++i) {
        T mean;
        if (neighbourMean(map, w, h, list[i], invalid, mean))
            map[list[i]] = mean;
        else
            list[left++] = list[i];
    }
    for (uint32_t i = left; i-- > 0;) {
        const uint32_t p = list[i];
        if (map[p] != invalid) continue;
        T mean;
        if (neighbourMean(map, w, h, p, invalid, mean)) map[p] = mean;
    }
}

// ---- Disparity to depth -------------------------------------------------

uint16_t depthEntry(uint32_t v, uint32_t invalid, float inverseScale, float focalPx, double baseline,
                    uint16_t maxDepth) {
    if (v == invalid) return 0;
    const float disparity = float(v) * inverseScale;
    // A zero scale gives an infinite disparity (depth 0), or NaN for v = 0,
    // which must fall through every comparison to the far plane.
    double depth = disparity <= 1.1920929e-7f ? 65535.0 : focalPx * baseline / disparity;
    if (depth > 65535.0) depth = 65535.0;
    return depth + 0.5 < maxDepth ? uint16_t(depth + 0.5) : maxDepth;
}

// ---- Resampling ---------------------------------------------------------

// Source taps of one output position along one axis.
struct Axis {
    std::unique_ptr<int32_t[]> first;    // first source index
    std::unique_ptr<uint32_t[]> offset;  // taps of position i: [offset[i], offset[i+1])
    std::unique_ptr<uint16_t[]> weight;  // in 1/256, summing to 256
};

int64_t floorDiv(int64_t a, int64_t b) {
    int64_t q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
    return q;
}

// Bilinear when enlarging (or equal): the source position in 1/256 pixel
// advances by an integer step plus an exactly carried remainder, so the
// position of the last output equals the directly computed one.
Axis bilinearAxis(int src, int dst) {
    Axis a;
    a.first = allocArray<int32_t>(size_t(dst));
    a.offset = allocArray<uint32_t>(size_t(dst) + 1);
    a.weight = allocArray<uint16_t>(2 * size_t(dst));
    const int64_t step = (int64_t(src) << 8) / dst, stepRem = (int64_t(src) << 8) % dst;
    const int64_t start = (int64_t(src) - dst) * 128;  // half a pixel of each, in 1/256
    int64_t pos = floorDiv(start, dst), rem = start - pos * dst;
    uint32_t n = 0;
    for (int x = 0; x < dst; ++x) {
        a.offset[x] = n;
        const int64_t i0 = floorDiv(pos, 256);
        const int frac = int(pos - i0 * 256);
        if (i0 < 0 || i0 >= src - 1) {
            a.first[x] = i0 < 0 ? 0 : src - 1;
            a.weight[n++] = 256;
        } else {
            a.first[x] = int32_t(i0);
            a.weight[n++] = uint16_t(256 - frac);
            a.weight[n++] = uint16_t(frac);
        }
        pos += step;
        rem += stepRem;
        if (rem >= dst) {
            rem -= dst;
            ++pos;
        }
    }
    a.offset[dst] = n;
    return a;
}

// Area averaging when shrinking: a source pixel fully inside an output pixel
// weighs about (dst << 8) / src; weights come from the cumulative coverage so
// that each output's weights add up to exactly 256.
Axis areaAxis(int src, int dst) {
    Axis a;
    const size_t maxTaps = size_t(src) + size_t(dst);
    a.first = allocArray<int32_t>(size_t(dst));
    a.offset = allocArray<uint32_t>(size_t(dst) + 1);
    a.weight = allocArray<uint16_t>(maxTaps);
    uint32_t n = 0;
    for (int x = 0; x < dst; ++x) {
        a.offset[x] = n;
        // Output x spans [x * src, (x + 1) * src) in units of 1/dst source pixel.
        const int64_t lo = int64_t(x) * src, hi = lo + src;
        const int64_t j0 = lo / dst, j1 = (hi - 1) / dst;
        a.first[x] = int32_t(j0);
        int64_t covered = 0;
        uint32_t given = 0;
        for (int64_t j = j0; j <= j1; ++j) {
            covered += std::min(hi, (j + 1) * dst) - std::max(lo, j * dst);
            const uint32_t upTo = uint32_t((covered << 8) / src);
            a.weight[n++] = uint16_t(upTo - given);
            given = upTo;
        }
    }
    a.offset[dst] = n;
    return a;
}

Axis makeAxis(int src, int dst) { return dst < src ? areaAxis(src, dst) : bilinearAxis(src, dst); }

// Factor 2: (3 * near + far + 2) / 4, the far sample clamped at the borders.
inline uint32_t half2(uint32_t nearV, uint32_t farV) { return (3 * nearV + farV + 2) >> 2; }

template <class Get>
inline uint32_t factor2At(int o, int srcN, Get get) {
    const int i = o >> 1;
    const int f = (o & 1) ? std::min(i + 1, srcN - 1) : std::max(i - 1, 0);
    return half2(get(i), get(f));
}

// Factor 3: outputs 3i+1 copy source i; 3i+2 and 3i+3 sit a third and two
// thirds of the way to the next sample. `w23` is the weight of the farther
// sample at two thirds: 171 rounds 2/3, 170 is the floored position the
// general resampler uses.
template <class Get>
inline uint32_t factor3At(int o, int srcN, uint32_t w23, Get get) {
    const int i = o / 3;
    switch (o - 3 * i) {
        case 1: return get(i);
        case 2: return (171 * get(i) + 85 * get(std::min(i + 1, srcN - 1))) >> 8;
        default: return ((256 - w23) * get(std::max(i - 1, 0)) + w23 * get(i)) >> 8;
    }
}

void resizeFast(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH, int factor,
                uint32_t* scratch) {
    // Horizontal pass: source rows to dstW samples, whole levels.
#pragma omp parallel for schedule(dynamic, 1) if (worthATeam(size_t(srcH) * dstW))
    for (int y = 0; y < srcH; ++y) {
        const uint16_t* s = src + size_t(y) * srcW;
        uint32_t* h = scratch + size_t(y) * dstW;
        auto get = [s](int i) { return uint32_t(s[i]); };
        if (factor == 2)
            for (int x = 0; x < dstW; ++x) h[x] = factor2At(x, srcW, get);
        else
            for (int x = 0; x < dstW; ++x) h[x] = factor3At(x, srcW, 171, get);
    }
#pragma omp parallel for schedule(dynamic, 1) if (worthATeam(size_t(dstH) * dstW))
    for (int y = 0; y < dstH; ++y) {
        uint16_t* d = dst + size_t(y) * dstW;
        for (int x = 0; x < dstW; ++x) {
            auto get = [scratch, x, dstW](int i) { return scratch[size_t(i) * dstW + x]; };
            d[x] = uint16_t(factor == 2 ? factor2At(y, srcH, get) : factor3At(y, srcH, 170, get));
        }
    }
}

}  // namespace

void fillInvalidDepth8(uint8_t* map, int w, int h) { fillInvalid<uint8_t>(map, w, h, 255); }
void fillInvalidDepth16(uint16_t* map, int w, int h) { fillInvalid<uint16_t>(map, w, h, 1023); }

void disparity8ToDepth(uint16_t* dst, const uint8_t* src, int w, int h, uint8_t scale, uint16_t maxDepth,
                       uint8_t invalid, float focalPx, double baseline) {
    uint16_t table[256];
    const float inverseScale = 1.0f / float(scale);
    for (uint32_t v = 0; v < 256; ++v) table[v] = depthEntry(v, invalid, inverseScale, focalPx, baseline, maxDepth);
    const size_t n = size_t(std::max(w, 0)) * size_t(std::max(h, 0));
    for (size_t i = 0; i < n; ++i) dst[i] = table[src[i]];
}

void disparity16ToDepth(uint16_t* dst, const uint16_t* src, int w, int h, int fractionDivisor,
                        uint16_t maxDepth, uint16_t invalid, float focalPx, double baseline) {
    uint16_t table[1024];
    const float inverseScale = 1.0f / float(fractionDivisor);
    for (uint32_t v = 0; v < 1024; ++v)
        table[v] = depthEntry(v, invalid, inverseScale, focalPx, baseline, maxDepth);
    const size_t n = size_t(std::max(w, 0)) * size_t(std::max(h, 0));
    for (size_t i = 0; i < n; ++i) dst[i] = src[i] < 1024 ? table[src[i]] : 0;
}

void minFilterDepth(uint16_t* dst, const uint16_t* src, int w, int h, int radius) {
    if (w <= 0 || h <= 0) return;
    const int r = radius;
    const int firstRow = r, lastRow = h - r - 2;
    // Rows outside the filtered range are copied.
    for (int y = 0; y < h; ++y)
        if (y < firstRow || y > lastRow) std::memcpy(dst + size_t(y) * w, src + size_t(y) * w, size_t(w) * 2);
    if (lastRow < firstRow) return;

    // Separable: a column minimum over 2r+1 rows, then a row minimum over it.
    const int threads = omp_get_max_threads();
    auto colMinAll = allocArray<uint16_t>(size_t(threads) * w);
    uint16_t* colMinBase = colMinAll.get();
    auto filterRow = [=](int y) {
        uint16_t* colMin = colMinBase + size_t(omp_get_thread_num()) * w;
        const uint16_t* top = src + size_t(y - r) * w;
        std::memcpy(colMin, top, size_t(w) * 2);
        for (int k = 1; k <= 2 * r; ++k) {
            const uint16_t* row = top + size_t(k) * w;
            for (int x = 0; x < w; ++x) colMin[x] = std::min(colMin[x], row[x]);
        }
        uint16_t* d = dst + size_t(y) * w;
        const uint16_t* s = src + size_t(y) * w;
        for (int x = 0; x < w; ++x) {
            if (x < r || x > w - r - 1) {
                d[x] = s[x];
                continue;
            }
            uint16_t m = colMin[x - r];
            for (int k = x - r + 1; k <= x + r; ++k) m = std::min(m, colMin[k]);
            d[x] = m;
        }
    };
    const bool team = worthATeam(size_t(w) * h);
    if (r >= 2) {
#pragma omp parallel for schedule(dynamic, 1) if (team)
        for (int y = firstRow; y <= lastRow; ++y) filterRow(y);
    } else {
#pragma omp parallel for if (team)
        for (int y = firstRow; y <= lastRow; ++y) filterRow(y);
    }
}

std::size_t resizeScratchSize(int srcH, int dstW) {
    return size_t(std::max(srcH, 0)) * size_t(std::max(dstW, 0));
}

void resizeDepthGeneral(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH,
                        uint32_t* scratch) {
    if (dstW <= 0 || dstH <= 0) return;
    if (srcW <= 0 || srcH <= 0) {
        std::memset(dst, 0, size_t(dstW) * dstH * 2);
        return;
    }
    const Axis ax = makeAxis(srcW, dstW), ay = makeAxis(srcH, dstH);
    // Enlarging axes have at most two taps; they run through fixed two-tap
    // loops (a single tap is the same sum with a zero second weight).
    const bool twoTapX = dstW >= srcW, twoTapY = dstH >= srcH;
    std::unique_ptr<int32_t[]> second;
    std::unique_ptr<uint16_t[]> w0, w1;
    if (twoTapX) {
        second = allocArray<int32_t>(size_t(dstW));
        w0 = allocArray<uint16_t>(size_t(dstW));
        w1 = allocArray<uint16_t>(size_t(dstW));
        for (int x = 0; x < dstW; ++x) {
            const bool two = ax.offset[x + 1] - ax.offset[x] == 2;
            second[x] = ax.first[x] + (two ? 1 : 0);
            w0[x] = ax.weight[ax.offset[x]];
            w1[x] = two ? ax.weight[ax.offset[x] + 1] : 0;
        }
    }
    // Horizontal pass keeps 1/256 fractions; the vertical pass drops both.
#pragma omp parallel for schedule(dynamic, 1) if (worthATeam(size_t(srcH) * dstW))
    for (int y = 0; y < srcH; ++y) {
        const uint16_t* s = src + size_t(y) * srcW;
        uint32_t* h = scratch + size_t(y) * dstW;
        if (twoTapX) {
            for (int x = 0; x < dstW; ++x) h[x] = w0[x] * uint32_t(s[ax.first[x]]) + w1[x] * uint32_t(s[second[x]]);
            continue;
        }
        for (int x = 0; x < dstW; ++x) {
            const uint16_t* tap = s + ax.first[x];
            uint32_t acc = 0;
            for (uint32_t t = ax.offset[x], k = 0; t < ax.offset[x + 1]; ++t, ++k) acc += ax.weight[t] * uint32_t(tap[k]);
            h[x] = acc;
        }
    }
#pragma omp parallel for schedule(dynamic, 1) if (worthATeam(size_t(dstH) * dstW))
    for (int y = 0; y < dstH; ++y) {
        uint16_t* d = dst + size_t(y) * dstW;
        const uint32_t t0 = ay.offset[y], t1 = ay.offset[y + 1];
        const uint32_t* rows = scratch + size_t(ay.first[y]) * dstW;
        if (twoTapY) {
            const bool two = t1 - t0 == 2;
            const uint32_t* r1 = two ? rows + dstW : rows;
            const uint32_t a = ay.weight[t0], b = two ? ay.weight[t0 + 1] : 0;
            for (int x = 0; x < dstW; ++x) d[x] = uint16_t((a * rows[x] + b * r1[x]) >> 16);
            continue;
        }
        for (int x = 0; x < dstW; ++x) {
            uint32_t acc = 0;
            for (uint32_t t = t0, k = 0; t < t1; ++t, ++k) acc += ay.weight[t] * rows[size_t(k) * dstW + x];
            d[x] = uint16_t(acc >> 16);
        }
    }
}

void resizeDepth(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH, uint32_t* scratch) {
    if (srcW > 0 && srcH > 0 && dstW == 2 * srcW && dstH == 2 * srcH)
        resizeFast(dst, src, srcW, srcH, dstW, dstH, 2, scratch);
    else if (srcW > 0 && srcH > 0 && dstW == 3 * srcW && dstH == 3 * srcH)
        resizeFast(dst, src, srcW, srcH, dstW, dstH, 3, scratch);
    else
        resizeDepthGeneral(dst, src, srcW, srcH, dstW, dstH, scratch);
}

void resizeDepth(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH) {
    auto scratch = allocArray<uint32_t>(std::max<size_t>(resizeScratchSize(srcH, dstW), 1));
    resizeDepth(dst, src, srcW, srcH, dstW, dstH, scratch.get());
}

}  // namespace kvdsr::depthview
