#include "depthview/depth_steps.h"

#include <algorithm>
#include <cstring>

#include "common/alloc.h"
#include "depthview/resize_kernels.h"

namespace kvdsr::depthview {

namespace {

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

// Whether any of the 64 / (8 * sizeof(T)) values in `word` equals `invalid`:
// most maps have few invalid pixels, so the listing skips whole words.
template <class T>
inline bool wordHolds(uint64_t word, T invalid) {
    constexpr uint64_t ones = sizeof(T) == 1 ? 0x0101010101010101ull : 0x0001000100010001ull;
    constexpr uint64_t highs = ones << (8 * sizeof(T) - 1);
    const uint64_t v = word ^ (ones * invalid);  // zero lanes where a value is invalid
    return ((v - ones) & ~v & highs) != 0;
}

// Indices of the invalid pixels, in raster order.
template <class T>
uint32_t listInvalid(const T* map, uint32_t n, T invalid, uint32_t* list) {
    constexpr uint32_t perWord = 8 / sizeof(T);
    uint32_t k = 0, i = 0;
    for (; i + perWord <= n; i += perWord) {
        uint64_t word;
        std::memcpy(&word, map + i, sizeof word);
        if (!wordHolds<T>(word, invalid)) continue;
        for (uint32_t j = i; j < i + perWord; ++j)
            if (map[j] == invalid) list[k++] = j;
    }
    for (; i < n; ++i)
        if (map[i] == invalid) list[k++] = i;
    return k;
}

template <class T>
void fillInvalid(T* map, int w, int h, T invalid, uint32_t* list) {
    if (!map || w <= 0 || h <= 0) return;
    const uint32_t count = listInvalid(map, uint32_t(w) * uint32_t(h), invalid, list);
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

template <class T>
void fillInvalidAllocating(T* map, int w, int h, T invalid) {
    if (!map || w <= 0 || h <= 0) return;
    auto list = allocArray<uint32_t>(size_t(w) * size_t(h));
    fillInvalid<T>(map, w, h, invalid, list.get());
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
    const double rounded = depth + 0.5;
    // A negative focal length, pitch or baseline gives negative depths: they
    // saturate to level 0 rather than convert out of range.
    if (!(rounded < maxDepth)) return maxDepth;
    return rounded > 0.0 ? uint16_t(rounded) : 0;
}

// ---- Resampling ---------------------------------------------------------

int64_t floorDiv(int64_t a, int64_t b) {
    int64_t q = a / b;
    if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
    return q;
}

// Bilinear when enlarging (or equal): the source position in 1/256 pixel
// advances by an integer step plus an exactly carried remainder, so the
// position of the last output equals the directly computed one.
ResizeAxis bilinearAxis(int src, int dst) {
    ResizeAxis a;
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
ResizeAxis areaAxis(int src, int dst) {
    ResizeAxis a;
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

ResizeAxis makeAxis(int src, int dst) { return dst < src ? areaAxis(src, dst) : bilinearAxis(src, dst); }

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

}  // namespace

void fillInvalidDepth8(uint8_t* map, int w, int h, uint32_t* list) { fillInvalid<uint8_t>(map, w, h, 255, list); }
void fillInvalidDepth16(uint16_t* map, int w, int h, uint32_t* list) { fillInvalid<uint16_t>(map, w, h, 1023, list); }
void fillInvalidDepth8(uint8_t* map, int w, int h) { fillInvalidAllocating<uint8_t>(map, w, h, 255); }
void fillInvalidDepth16(uint16_t* map, int w, int h) { fillInvalidAllocating<uint16_t>(map, w, h, 1023); }

void repairAndConvert(uint16_t* levels, uint8_t* plane, MapBits bits, int w, int h, uint16_t* aligned,
                      uint32_t* list, const uint16_t table[1024]) {
    const size_t n = size_t(std::max(w, 0)) * size_t(std::max(h, 0));
    if (bits == MapBits::Eight) {
        fillInvalidDepth8(plane, w, h, list);
        applyDepthTable8(levels, plane, n, table);
    } else {
        applyDepthTable16(levels, fillInvalidDepth16Plane(plane, w, h, aligned, list), n, table);
    }
}

const uint16_t* fillInvalidDepth16Plane(uint8_t* plane, int w, int h, uint16_t* aligned, uint32_t* list) {
    if (isAligned16(plane)) {
        auto* map = reinterpret_cast<uint16_t*>(plane);
        fillInvalidDepth16(map, w, h, list);
        return map;
    }
    const size_t bytes = size_t(std::max(w, 0)) * size_t(std::max(h, 0)) * 2;
    std::memcpy(aligned, plane, bytes);
    fillInvalidDepth16(aligned, w, h, list);
    std::memcpy(plane, aligned, bytes);
    return aligned;
}

void depthTable8(uint16_t table[256], uint8_t scale, uint16_t maxDepth, uint8_t invalid, float focalPx,
                 double baseline) {
    const float inverseScale = 1.0f / float(scale);
    for (uint32_t v = 0; v < 256; ++v) table[v] = depthEntry(v, invalid, inverseScale, focalPx, baseline, maxDepth);
}

void depthTable16(uint16_t table[1024], int fractionDivisor, uint16_t maxDepth, uint16_t invalid, float focalPx,
                  double baseline) {
    const float inverseScale = 1.0f / float(fractionDivisor);
    for (uint32_t v = 0; v < 1024; ++v)
        table[v] = depthEntry(v, invalid, inverseScale, focalPx, baseline, maxDepth);
}

void applyDepthTable8(uint16_t* dst, const uint8_t* src, size_t n, const uint16_t table[256]) {
    for (size_t i = 0; i < n; ++i) dst[i] = table[src[i]];
}

void applyDepthTable16(uint16_t* dst, const uint16_t* src, size_t n, const uint16_t table[1024]) {
    for (size_t i = 0; i < n; ++i) dst[i] = src[i] < 1024 ? table[src[i]] : 0;
}

void disparity8ToDepth(uint16_t* dst, const uint8_t* src, int w, int h, uint8_t scale, uint16_t maxDepth,
                       uint8_t invalid, float focalPx, double baseline) {
    uint16_t table[256];
    depthTable8(table, scale, maxDepth, invalid, focalPx, baseline);
    applyDepthTable8(dst, src, size_t(std::max(w, 0)) * size_t(std::max(h, 0)), table);
}

void disparity16ToDepth(uint16_t* dst, const uint16_t* src, int w, int h, int fractionDivisor,
                        uint16_t maxDepth, uint16_t invalid, float focalPx, double baseline) {
    uint16_t table[1024];
    depthTable16(table, fractionDivisor, maxDepth, invalid, focalPx, baseline);
    applyDepthTable16(dst, src, size_t(std::max(w, 0)) * size_t(std::max(h, 0)), table);
}

void minFilterDepthRow(uint16_t* dst, const uint16_t* src, int w, int h, int radius, int y, uint16_t* colMin) {
    const int r = radius;
    uint16_t* d = dst + size_t(y) * w;
    const uint16_t* s = src + size_t(y) * w;
    const int inner = w - 2 * r;
    // Rows outside the filtered range, and rows too narrow for the window,
    // are copied.
    if (y < r || y > h - r - 2 || inner <= 0) {
        std::memcpy(d, s, size_t(w) * 2);
        return;
    }
    // Separable: a column minimum over 2r+1 rows, then a row minimum over it,
    // one pass per window offset so that each is a plain element-wise minimum.
    const uint16_t* top = src + size_t(y - r) * w;
    std::memcpy(colMin, top, size_t(w) * 2);
    for (int k = 1; k <= 2 * r; ++k) {
        const uint16_t* row = top + size_t(k) * w;
        for (int x = 0; x < w; ++x) colMin[x] = std::min(colMin[x], row[x]);
    }
    for (int x = 0; x < r; ++x) {
        d[x] = s[x];
        d[w - 1 - x] = s[w - 1 - x];
    }
    uint16_t* di = d + r;
    std::memcpy(di, colMin, size_t(inner) * 2);
    for (int k = 1; k <= 2 * r; ++k) {
        const uint16_t* c = colMin + k;
        for (int x = 0; x < inner; ++x) di[x] = std::min(di[x], c[x]);
    }
}

void minFilterDepth(uint16_t* dst, const uint16_t* src, int w, int h, int radius) {
    if (w <= 0 || h <= 0) return;
    auto colMin = allocArray<uint16_t>(size_t(w));
    for (int y = 0; y < h; ++y) minFilterDepthRow(dst, src, w, h, radius, y, colMin.get());
}

void DepthResizer::configure(int srcW, int srcH, int dstW, int dstH, bool generalOnly) {
    configured_ = false;
    path_ = Path::None;
    phases_ = Phases{};
    srcW_ = srcW;
    srcH_ = srcH;
    dstW_ = dstW;
    dstH_ = dstH;
    generalOnly_ = generalOnly;
    if (dstW > 0 && dstH > 0) {
        if (srcW <= 0 || srcH <= 0)
            path_ = Path::Zero;
        else if (!generalOnly && dstW == 2 * srcW && dstH == 2 * srcH)
            path_ = Path::Factor2;
        else if (!generalOnly && dstW == 3 * srcW && dstH == 3 * srcH)
            path_ = Path::Factor3;
        else
            path_ = Path::General;
    }
    if (path_ == Path::General) {
        ax_ = makeAxis(srcW, dstW);
        ay_ = makeAxis(srcH, dstH);
        twoTapY_ = dstH >= srcH;
        // Enlarging axes have at most two taps; they run through fixed
        // two-tap loops (a single tap is the same sum with a zero second weight).
        twoTapX_ = dstW >= srcW;
        if (twoTapX_) {
            second_ = allocArray<int32_t>(size_t(dstW));
            w0_ = allocArray<uint16_t>(size_t(dstW));
            w1_ = allocArray<uint16_t>(size_t(dstW));
            for (int x = 0; x < dstW; ++x) {
                const bool two = ax_.offset[x + 1] - ax_.offset[x] == 2;
                second_[x] = ax_.first[x] + (two ? 1 : 0);
                w0_[x] = ax_.weight[ax_.offset[x]];
                w1_[x] = two ? ax_.weight[ax_.offset[x] + 1] : 0;
            }
            if (!generalOnly) findPhases();
        }
    }
    configured_ = true;
}

// Takes the phases of the middle source sample and keeps the longest run of
// samples around it whose k columns all match them: the columns are checked,
// not derived, so the phase loop computes exactly the two-tap sums.
void DepthResizer::findPhases() {
    phases_ = Phases{};
    const int srcW = srcW_, dstW = dstW_;
    if (srcW < 3 || dstW % srcW != 0) return;
    const int k = dstW / srcW;
    if (k < 2 || k > Phases::kMaxFactor) return;
    Phases ph;
    ph.factor = k;
    const int mid = srcW / 2;
    for (int p = 0; p < k; ++p) {
        const int x = k * mid + p;
        ph.d0[p] = ax_.first[x] - mid;
        ph.d1[p] = second_[x] - mid;
        ph.w0[p] = w0_[x];
        ph.w1[p] = w1_[x];
    }
    auto matches = [&](int i) {
        for (int p = 0; p < k; ++p) {
            const int x = k * i + p;
            if (ax_.first[x] != i + ph.d0[p] || second_[x] != i + ph.d1[p] || w0_[x] != ph.w0[p] ||
                w1_[x] != ph.w1[p])
                return false;
        }
        return true;
    };
    if (!matches(mid)) return;
    int first = mid, last = mid + 1;
    while (first > 0 && matches(first - 1)) --first;
    while (last < srcW && matches(last)) ++last;
    ph.first = first;
    ph.last = last;
    phases_ = ph;
}

namespace {

// Samples [first, last) of a row through K phases: with K fixed the taps
// and weights stay in registers and each source sample is loaded once.
template <int K>
void phaseColumns(const uint16_t* s, uint32_t* h, int first, int last, const int* d0In, const int* d1In,
                  const uint32_t* w0In, const uint32_t* w1In) {
    int d0[K], d1[K];
    uint32_t w0[K], w1[K];
    for (int p = 0; p < K; ++p) {
        d0[p] = d0In[p];
        d1[p] = d1In[p];
        w0[p] = w0In[p];
        w1[p] = w1In[p];
    }
    for (int i = first; i < last; ++i) {
        uint32_t* o = h + std::size_t(K) * i;
        for (int p = 0; p < K; ++p) o[p] = w0[p] * uint32_t(s[i + d0[p]]) + w1[p] * uint32_t(s[i + d1[p]]);
    }
}

}  // namespace

void DepthResizer::twoTapColumns(const uint16_t* s, uint32_t* h, int from, int to) const {
    const int32_t* first = ax_.first.get();
    const int32_t* second = second_.get();
    const uint16_t* w0 = w0_.get();
    const uint16_t* w1 = w1_.get();
    for (int x = from; x < to; ++x) h[x] = w0[x] * uint32_t(s[first[x]]) + w1[x] * uint32_t(s[second[x]]);
}

void DepthResizer::horizontalRow(const uint16_t* s, int y, uint32_t* scratch) const {
    const int dstW = dstW_;
    uint32_t* h = scratch + size_t(y) * dstW;
    auto get = [s](int i) { return uint32_t(s[i]); };
    switch (path_) {
        case Path::None:
        case Path::Zero: return;
        case Path::Factor2:
            for (int x = 0; x < dstW; ++x) h[x] = factor2At(x, srcW_, get);
            return;
        case Path::Factor3:
            for (int x = 0; x < dstW; ++x) h[x] = factor3At(x, srcW_, 171, get);
            return;
        case Path::General: break;
    }
    // The horizontal pass keeps 1/256 fractions; the rows drop both.
    if (twoTapX_) {
        const Phases& ph = phases_;
        if (ph.factor == 0) {
            twoTapColumns(s, h, 0, dstW);
            return;
        }
        twoTapColumns(s, h, 0, ph.factor * ph.first);
        static_assert(Phases::kMaxFactor == 8, "a case below for every factor");
        switch (ph.factor) {
#define KVDSR_PHASE_CASE(k) \
    case k: phaseColumns<k>(s, h, ph.first, ph.last, ph.d0, ph.d1, ph.w0, ph.w1); break;
            KVDSR_PHASE_CASE(2)
            KVDSR_PHASE_CASE(3)
            KVDSR_PHASE_CASE(4)
            KVDSR_PHASE_CASE(5)
            KVDSR_PHASE_CASE(6)
            KVDSR_PHASE_CASE(7)
            KVDSR_PHASE_CASE(8)
#undef KVDSR_PHASE_CASE
        }
        twoTapColumns(s, h, ph.factor * ph.last, dstW);
        return;
    }
    for (int x = 0; x < dstW; ++x) {
        const uint16_t* tap = s + ax_.first[x];
        uint32_t acc = 0;
        for (uint32_t t = ax_.offset[x], k = 0; t < ax_.offset[x + 1]; ++t, ++k) acc += ax_.weight[t] * uint32_t(tap[k]);
        h[x] = acc;
    }
}

void DepthResizer::row(int y, const uint32_t* scratch, uint16_t* d) const {
    const int dstW = dstW_;
    switch (path_) {
        case Path::None: return;
        case Path::Zero: std::memset(d, 0, size_t(dstW) * 2); return;
        case Path::Factor2: {
            const int nearRow = y >> 1;
            const int farRow = (y & 1) ? std::min(nearRow + 1, srcH_ - 1) : std::max(nearRow - 1, 0);
            const uint32_t* n = scratch + size_t(nearRow) * dstW;
            const uint32_t* f = scratch + size_t(farRow) * dstW;
            for (int x = 0; x < dstW; ++x) d[x] = uint16_t(half2(n[x], f[x]));
            return;
        }
        case Path::Factor3: {
            // Vertical weights are the general resampler's (86/170 at two thirds).
            const int i = y / 3;
            const uint32_t* r = scratch + size_t(i) * dstW;
            switch (y - 3 * i) {
                case 1:
                    for (int x = 0; x < dstW; ++x) d[x] = uint16_t(r[x]);
                    return;
                case 2: {
                    const uint32_t* b = scratch + size_t(std::min(i + 1, srcH_ - 1)) * dstW;
                    for (int x = 0; x < dstW; ++x) d[x] = uint16_t((171 * r[x] + 85 * b[x]) >> 8);
                    return;
                }
                default: {
                    const uint32_t* a = scratch + size_t(std::max(i - 1, 0)) * dstW;
                    for (int x = 0; x < dstW; ++x) d[x] = uint16_t((86 * a[x] + 170 * r[x]) >> 8);
                    return;
                }
            }
        }
        case Path::General: break;
    }
    const uint32_t t0 = ay_.offset[y], t1 = ay_.offset[y + 1];
    const uint32_t* rows = scratch + size_t(ay_.first[y]) * dstW;
    if (twoTapY_) {
        const bool two = t1 - t0 == 2;
        const uint32_t* r1 = two ? rows + dstW : rows;
        const uint32_t a = ay_.weight[t0], b = two ? ay_.weight[t0 + 1] : 0;
        blendRows(d, rows, r1, a, b, uint32_t(dstW));
        return;
    }
    for (int x = 0; x < dstW; ++x) {
        uint32_t acc = 0;
        for (uint32_t t = t0, k = 0; t < t1; ++t, ++k) acc += ay_.weight[t] * rows[size_t(k) * dstW + x];
        d[x] = uint16_t(acc >> 16);
    }
}

DepthResizer::Rows DepthResizer::rowsRead(int y) const {
    switch (path_) {
        case Path::None:
        case Path::Zero: return {};
        case Path::Factor2: {
            const int nearRow = y >> 1;
            if (y & 1) return {nearRow, std::min(nearRow + 1, srcH_ - 1) + 1};
            return {std::max(nearRow - 1, 0), nearRow + 1};
        }
        case Path::Factor3: {
            const int i = y / 3;
            switch (y - 3 * i) {
                case 1: return {i, i + 1};
                case 2: return {i, std::min(i + 1, srcH_ - 1) + 1};
                default: return {std::max(i - 1, 0), i + 1};
            }
        }
        case Path::General: break;
    }
    const int first = ay_.first[y];
    return {first, first + int(ay_.offset[y + 1] - ay_.offset[y])};
}

uint16_t DepthResizer::at(int y, int x, const uint32_t* scratch) const {
    // The same arithmetic as row(), for one column of scratch rows.
    const size_t dstW = size_t(dstW_);
    auto h = [&](int r) { return scratch[size_t(r) * dstW + size_t(x)]; };
    switch (path_) {
        case Path::None:
        case Path::Zero: return 0;
        case Path::Factor2: {
            const int nearRow = y >> 1;
            const int farRow = (y & 1) ? std::min(nearRow + 1, srcH_ - 1) : std::max(nearRow - 1, 0);
            return uint16_t(half2(h(nearRow), h(farRow)));
        }
        case Path::Factor3: {
            const int i = y / 3;
            switch (y - 3 * i) {
                case 1: return uint16_t(h(i));
                case 2: return uint16_t((171 * h(i) + 85 * h(std::min(i + 1, srcH_ - 1))) >> 8);
                default: return uint16_t((86 * h(std::max(i - 1, 0)) + 170 * h(i)) >> 8);
            }
        }
        case Path::General: break;
    }
    uint32_t acc = 0;
    for (uint32_t t = ay_.offset[y], k = 0; t < ay_.offset[y + 1]; ++t, ++k)
        acc += ay_.weight[t] * h(ay_.first[y] + int(k));
    return uint16_t(acc >> 16);
}

namespace {
void resizeWhole(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH, bool generalOnly) {
    DepthResizer r;
    r.configure(srcW, srcH, dstW, dstH, generalOnly);
    auto scratch = allocArray<uint32_t>(std::max<size_t>(r.scratchSize(), 1));
    if (srcW > 0)
        for (int y = 0; y < srcH; ++y) r.horizontalRow(src + size_t(y) * srcW, y, scratch.get());
    for (int y = 0; y < dstH; ++y) r.row(y, scratch.get(), dst + size_t(y) * dstW);
}
}  // namespace

void resizeDepth(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH) {
    resizeWhole(dst, src, srcW, srcH, dstW, dstH, false);
}

void resizeDepthGeneral(uint16_t* dst, const uint16_t* src, int srcW, int srcH, int dstW, int dstH) {
    resizeWhole(dst, src, srcW, srcH, dstW, dstH, true);
}

namespace {

int fillBlendVariants(BlendVariant* v) {
    int n = 0;
    v[n++] = {"C", BlendGroups_C};
#if defined(__x86_64__) || defined(__i386__)
    if (cpuHasAvx2()) v[n++] = {"AVX2", BlendGroups_AVX2};
#endif
    return n;
}

KernelDispatch<BlendRowsFn, 2> g_blend(fillBlendVariants);

}  // namespace

// On ARM the compiler vectorises this loop with NEON itself.
void BlendRows_C(uint16_t* dst, const uint32_t* r0, const uint32_t* r1, uint32_t w0, uint32_t w1, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i) dst[i] = uint16_t((w0 * r0[i] + w1 * r1[i]) >> 16);
}

void BlendGroups_C(uint16_t* dst, const uint32_t* r0, const uint32_t* r1, uint32_t w0, uint32_t w1, uint32_t groups) {
    BlendRows_C(dst, r0, r1, w0, w1, groups * 8);
}

int blendVariants(const BlendVariant** out) { return g_blend.variants(out); }
void setBlendKernel(BlendRowsFn fn) { g_blend.set(fn); }

void blendRows(uint16_t* dst, const uint32_t* r0, const uint32_t* r1, uint32_t w0, uint32_t w1, uint32_t count) {
    const uint32_t groups = count / 8;
    g_blend.kernel()(dst, r0, r1, w0, w1, groups);
    BlendRows_C(dst + 8 * groups, r0 + 8 * groups, r1 + 8 * groups, w0, w1, count - 8 * groups);
}

}  // namespace kvdsr::depthview
