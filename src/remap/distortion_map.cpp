// Lens distortion table (extension, inversion, lookup) and the per-pixel
// coordinate map.
#include <algorithm>
#include <atomic>
#include <cmath>

#include "common/alloc.h"
#include "common/cpu_dispatch.h"
#include "common/frame_team.h"
#include "remap/distortion_map_kernels.h"
#include "remap/pair_math.h"
#include "remap/remap.h"
#include "remap/remap_internal.h"

namespace kvdsr::remap {

namespace {

// Appends the extrapolated entries: linear in radius and distortion, but the
// distortion is held flat where the distorted radius would otherwise shrink.
void extend(DistortionTable& t) {
    const int n = t.calibrationEntries;
    for (int k = n; k < n + DistortionTable::kExtension; ++k) {
        const double ra = k >= 2 ? t.radius[k - 2] : 0.0, da = k >= 2 ? t.distortion[k - 2] : 0.0;
        const double rb = k >= 1 ? t.radius[k - 1] : 0.0, db = k >= 1 ? t.distortion[k - 1] : 0.0;
        const double r = 2 * rb - ra;
        double d = 2 * db - da;
        if (!((1 + d / 100) / (1 + db / 100) > rb / r)) d = db;
        t.radius[k] = r;
        t.distortion[k] = d;
    }
    t.count = n + DistortionTable::kExtension;
    t.largestRadius = t.radius[0];
    for (int i = 1; i < t.count; ++i) t.largestRadius = std::max(t.largestRadius, t.radius[i]);
}

bool ascending(const DistortionTable& t) {
    for (int i = 1; i < t.count; ++i)
        if (!(t.radius[i - 1] <= t.radius[i])) return false;
    return true;
}

// Affine terms of one axis: displacement u = i*k - o (source pixels) and
// radius term i*a - b (calibration pixels), both scaled by the fill scale.
struct Axis {
    double k, o, a, b;
};

Axis axisTerms(double grid, double src, double calib, double centre, double scale) {
    Axis ax;
    ax.k = scale * (src / grid);
    ax.o = scale * (centre + 0.5 - 0.5 * (src / grid));
    ax.a = scale * (calib / grid);
    ax.b = scale * ((centre + 0.5) * (calib / src) - 0.5 * (calib / grid));
    return ax;
}

// Extreme scale 1/f over the edge pixels of the grid: columns 0 and W-1
// give the horizontal scale, rows 0 and H-1 the vertical one (the smallest,
// so that every edge pixel still lands inside the source).
bool fillScale(const RemapModel& m, const DistortionTable& t, double* scaleX, double* scaleY) {
    const Axis ax = axisTerms(m.gridWidth, m.srcWidth, m.calibWidth, m.cx, 1.0);
    const Axis ay = axisTerms(m.gridHeight, m.srcHeight, m.calibHeight, m.cy, 1.0);
    const int w = m.gridWidth, h = m.gridHeight;
    double sx = HUGE_VAL, sy = HUGE_VAL;
    // Neighbouring edge pixels have neighbouring radii: in an ascending table
    // each search starts from the last one's interval (the same entry).
    const bool sorted = ascending(t);
    int hint = 1;
    auto visit = [&](int x, int y, double& extreme) {
        const double qx = x * ax.a - ax.b, ty = y * ay.a - ay.b;
        const double r = radiusAt(qx * qx, ty, m.pixelPitch);
        if (!(r < t.largestRadius)) return false;
        double f;
        if (sorted ? searchFrom(t, r, &hint, &f) : searchFactor(t, r, &f)) extreme = std::min(extreme, 1.0 / f);
        return true;
    };
    for (int y = 0; y < h; ++y)
        if (!visit(0, y, sx) || !visit(w - 1, y, sx)) return false;
    for (int x = 0; x < w; ++x)
        if (!visit(x, 0, sy) || !visit(x, h - 1, sy)) return false;
    *scaleX = sx == HUGE_VAL ? 1.0 : sx;
    *scaleY = sy == HUGE_VAL ? 1.0 : sy;
    return true;
}

}  // namespace

DistortionTable DistortionTable_Make(const double* radii, const double* distortions, int n, int inverse) {
    DistortionTable t;
    n = std::clamp(n, 0, DistortionTable::kMaxCalibrationEntries);
    if (!radii || !distortions) n = 0;
    t.calibrationEntries = n;
    for (int i = 0; i < n; ++i) {
        t.radius[i] = radii[i];
        t.distortion[i] = distortions[i];
    }
    if (inverse == 1 && n > 0) {
        // Re-expressed on the distorted radius r' = (1 + D/100) r.
        t.radius[0] = 0;
        t.distortion[0] = 0;
        for (int i = 1; i < n; ++i) {
            const double r = t.radius[i];
            const double rd = (1 + t.distortion[i] / 100) * r;
            t.radius[i] = rd;
            t.distortion[i] = (r - rd) / rd * 100;
        }
    }
    extend(t);
    return t;
}

DistortionTable DistortionTable_FromModel(const calib::CameraModel& camera, int inverse) {
    double radii[DistortionTable::kMaxCalibrationEntries] = {};
    double distortions[DistortionTable::kMaxCalibrationEntries] = {};
    const int n = std::min<int>(camera.distortionCount, DistortionTable::kMaxCalibrationEntries);
    for (int i = 0; i < n; ++i) {
        // Single-precision product, as the calibration tool computed it.
        radii[i] = double(float(camera.distortionRadii[i]) * 0.001f);
        distortions[i] = double(float(camera.distortionValues[i]) * 0.001f);
    }
    return DistortionTable_Make(radii, distortions, n, inverse);
}

bool DistortionTable_Factor(const DistortionTable& table, double r, double* factor) {
    if (!(r < table.largestRadius)) return false;
    return searchFactor(table, r, factor);
}

uint32_t mapSetUp(const RemapModel& model, const DistortionTable& table, int inverse, int fitToFrame, double* scale,
                  MapTerms& terms) {
    double s = 1.0;
    if (fitToFrame) {
        double sx, sy;
        if (!fillScale(model, table, &sx, &sy)) return kMapFillScaleFailed;  // edge beyond the table (0xD119)
        s = double(float(std::min(sx, sy)));
    }
    *scale = s;

    const int w = model.gridWidth, h = model.gridHeight;
    const double applied = inverse == 1 ? 1.0 / s : s;
    const Axis ax = axisTerms(w, model.srcWidth, model.calibWidth, model.cx, applied);
    const Axis ay = axisTerms(h, model.srcHeight, model.calibHeight, model.cy, applied);
    terms.storage = allocArray<double>(size_t(2) * w + size_t(2) * h);
    terms.u = terms.storage.get();
    terms.q = terms.u + w;
    terms.v = terms.q + w;
    terms.t = terms.v + h;
    for (int x = 0; x < w; ++x) {
        terms.u[x] = x * ax.k - ax.o;
        const double d = x * ax.a - ax.b;
        terms.q[x] = d * d;
    }
    for (int y = 0; y < h; ++y) {
        terms.v[y] = y * ay.k - ay.o;
        terms.t[y] = y * ay.a - ay.b;
    }
    terms.width = w;
    terms.height = h;
    terms.cx = model.cx;
    terms.cy = model.cy;
    terms.pitch = model.pixelPitch;
    terms.sorted = ascending(table);
    return kMapOk;
}

bool mapHasPointBeyond(const MapTerms& m, const DistortionTable& table) {
    if (m.width == 0 || m.height == 0) return false;
    // radiusAt is monotonic in q and in |t| (every step rounds monotonically),
    // so the extremes are the points nearest and farthest from the centre.
    double qLow = m.q[0], qHigh = m.q[0];
    for (int x = 0; x < m.width; ++x) {
        if (std::isnan(m.q[x])) return true;
        qLow = std::min(qLow, m.q[x]);
        qHigh = std::max(qHigh, m.q[x]);
    }
    double tLow = m.t[0], tHigh = m.t[0];
    for (int y = 0; y < m.height; ++y) {
        if (std::isnan(m.t[y])) return true;
        if (std::fabs(m.t[y]) < std::fabs(tLow)) tLow = m.t[y];
        if (std::fabs(m.t[y]) > std::fabs(tHigh)) tHigh = m.t[y];
    }
    // Both ends: a negative or infinite pitch turns the order around or
    // gives NaN at radius 0.
    return !(radiusAt(qLow, tLow, m.pitch) < table.largestRadius) ||
           !(radiusAt(qHigh, tHigh, m.pitch) < table.largestRadius);
}

void mapRow(const MapTerms& m, const DistortionTable& table, MapRowFn kernel, int y, double* radius, double* out) {
    const MapRow row{&table, m.sorted, radius, m.q, m.t[y], m.pitch, m.u, m.v[y], m.cx, m.cy, m.width, out};
    kernel(row);
}

uint32_t DistortionMap_Build(double* map, const RemapModel& model, const double* radii, const double* distortions,
                             int n, int inverse, double* outScaleX, double* outScaleY, int fitToFrame) {
    const DistortionTable table = DistortionTable_Make(radii, distortions, n, inverse);
    double scale = 1.0;
    MapTerms terms;
    if (mapSetUp(model, table, inverse, fitToFrame, &scale, terms) != kMapOk) return kMapFillScaleFailed;
    if (outScaleX) *outScaleX = scale;
    if (outScaleY) *outScaleY = scale;

    const int w = terms.width, h = terms.height;
    if (!map || w == 0 || h == 0) return kMapOk;
    const MapRowFn kernel = mapRowKernel();
    const bool parallel = uint64_t(w) * uint64_t(h) >= kParallelMinPixels;
    auto radiusRows = allocArray<double>(size_t(parallel ? teamSlots() : 1) * w);  // one row of radii per thread
    std::atomic<bool> beyond{false};
    runItems(uint32_t(h), parallel, [&](uint32_t item, int slot) {
        const int y = int(item);
        double* r = radiusRows.get() + size_t(slot) * w;
        const MapRow row{&table, terms.sorted, r, terms.q, terms.t[y], terms.pitch, terms.u, terms.v[y],
                         terms.cx, terms.cy, w, map + size_t(y) * w * 2};
        if (kernel(row)) beyond.store(true, std::memory_order_relaxed);
    });
    return beyond.load() ? kMapBeyondTable : kMapOk;
}

bool MapRow_C(const MapRow& row) {
    for (int x = 0; x < row.width; ++x) row.radius[x] = radiusAt(row.q[x], row.ty, row.pitch);
    int hint = 1;
    double f = 1.0;  // reused where the table gives nothing
    return mapPixels(row, 0, &hint, &f);
}

namespace {

int fillMapVariants(MapRowVariant* v) {
    int n = 0;
    v[n++] = {"C", MapRow_C};
#if defined(__x86_64__)
    if (cpuHasAvx2()) v[n++] = {"AVX2", MapRow_AVX2};
    if (cpuHasAvx2() && cpuHasAvx512()) v[n++] = {"AVX-512", MapRow_AVX512};
#endif
#if defined(__aarch64__)
    v[n++] = {"NEON", MapRow_NEON};
#endif
    return n;
}

KernelDispatch<MapRowFn, 3> g_mapRow(fillMapVariants);

}  // namespace

int mapRowVariants(const MapRowVariant** out) { return g_mapRow.variants(out); }
MapRowFn mapRowKernel() { return g_mapRow.kernel(); }
void setMapRowKernel(MapRowFn fn) { g_mapRow.set(fn); }

}  // namespace kvdsr::remap
