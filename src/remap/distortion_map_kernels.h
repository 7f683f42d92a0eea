// Row kernels of the coordinate map and their run-time selection. The AVX2
// kernel handles four pixels at once where they share one table interval,
// with the scalar kernel's operations per lane, so both give the same map.
#pragma once

#include <cmath>
#include <cstdint>

#include "common/cpu_dispatch.h"
#include "remap/pair_math.h"
#include "remap/remap.h"

namespace kvdsr::remap {

inline double interpolate(const DistortionTable& t, int i, double r) {
    const double d = t.distortion[i - 1] +
                     (r - t.radius[i - 1]) * (t.distortion[i] - t.distortion[i - 1]) / (t.radius[i] - t.radius[i - 1]);
    return 1 + d * 0.01;
}

// In an ascending table the first i >= 1 with r < R_i is the one boundary
// index, so it can be found by walking from the previous pixel's.
inline bool searchFrom(const DistortionTable& t, double r, int* hint, double* factor) {
    int i = *hint;
    while (i > 1 && r < t.radius[i - 1]) --i;
    while (i < t.count && !(r < t.radius[i])) ++i;
    if (i == t.count) return false;
    *hint = i;
    *factor = interpolate(t, i, r);
    return true;
}

// First entry i >= 1 with r < R_i, interpolated from i-1; false if none.
inline bool searchFactor(const DistortionTable& t, double r, double* factor) {
    for (int i = 1; i < t.count; ++i) {
        if (r < t.radius[i]) {
            *factor = interpolate(t, i, r);
            return true;
        }
    }
    return false;
}

// Differences between neighbouring entries, as the plain kernel forms them
// (the vector kernels gather them per lane).
struct TableSteps {
    double distortion[DistortionTable::kCapacity];
    double radius[DistortionTable::kCapacity];

    explicit TableSteps(const DistortionTable& t) {
        distortion[0] = radius[0] = 0;
        for (int k = 1; k < t.count; ++k) {
            distortion[k] = t.distortion[k] - t.distortion[k - 1];
            radius[k] = t.radius[k] - t.radius[k - 1];
        }
    }
};

// Table radius of a grid pixel from its squared column term and row term.
inline double radiusAt(double qx, double ty, double pitch) { return std::sqrt(qx + ty * ty) * pitch * 0.001; }

// One map row: radius and displacement terms in, (X, Y) records out. The
// kernel fills radius[x] = radiusAt(q[x], ty, pitch) before it uses it.
struct MapRow {
    const DistortionTable* table;
    bool sorted;             // radii ascending: searches may start from a hint
    double* radius;          // per column (scratch of width values)
    const double* q;         // per column squared radius term
    double ty, pitch;
    const double* u;         // per column displacement
    double v, cx, cy;
    int width;
    double* out;             // 2 * width values
};

// Pixels from..width-1; f is the factor carried from the previous pixel.
// Returns whether some pixel was beyond the table.
inline bool mapPixels(const MapRow& m, int from, int* hint, double* f) {
    const DistortionTable& t = *m.table;
    const pair::Pair centre = pair::make(m.cx, m.cy);
    bool beyond = false;
    for (int x = from; x < m.width; ++x) {
        const double r = m.radius[x];
        if (r < t.largestRadius) {
            if (m.sorted)
                searchFrom(t, r, hint, f);
            else
                searchFactor(t, r, f);
        } else {
            beyond = true;
        }
        pair::store(m.out + 2 * x, pair::add(centre, pair::mul(pair::splat(*f), pair::make(m.u[x], m.v))));
    }
    return beyond;
}

using MapRowFn = bool (*)(const MapRow& row);
bool MapRow_C(const MapRow& row);
#if defined(__x86_64__)
bool MapRow_AVX2(const MapRow& row);
bool MapRow_AVX512(const MapRow& row);  // F, DQ, VL, BW
#endif
#if defined(__aarch64__)
bool MapRow_NEON(const MapRow& row);
#endif

using MapRowVariant = KernelVariant<MapRowFn>;
int mapRowVariants(const MapRowVariant** out);
MapRowFn mapRowKernel();
void setMapRowKernel(MapRowFn fn);  // nullptr: automatic

}  // namespace kvdsr::remap
