// Lens distortion table (extension, inversion, lookup) and the per-pixel
// coordinate map.
#include <omp.h>

#include <algorithm>
#include <cmath>

#include "calibration/calib_block.h"
#include "common/alloc.h"
#include "remap/distortion_map_kernels.h"
#include "remap/kernel_dispatch.h"
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
    auto visit = [&](int x, int y, double& extreme) {
        const double qx = x * ax.a - ax.b, ty = y * ay.a - ay.b;
        const double r = radiusAt(qx * qx, ty, m.pixelPitch);
        if (!(r < t.largestRadius)) return false;
        double f;
        if (searchFactor(t, r, &f)) extreme = std::min(extreme, 1.0 / f);
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

DistortionTable DistortionTable_FromSection(const uint8_t* calibrationBody, int camera, int inverse) {
    double radii[DistortionTable::kMaxCalibrationEntries] = {};
    double distortions[DistortionTable::kMaxCalibrationEntries] = {};
    int n = 0;
    if (calibrationBody && (camera == 1 || camera == 2)) {
        const uint8_t* s = calibrationBody + calib::kSectionOffset[camera];
        n = std::min<int>(calib::load<uint16_t>(s, calib::sec::kDistortionCount),
                          DistortionTable::kMaxCalibrationEntries);
        for (int i = 0; i < n; ++i) {
            // Single-precision product, as the calibration tool computed it.
            radii[i] = double(float(calib::load<int16_t>(s, calib::sec::kDistortionRadii + 2 * i)) * 0.001f);
            distortions[i] = double(float(calib::load<int16_t>(s, calib::sec::kDistortionValues + 2 * i)) * 0.001f);
        }
    }
    return DistortionTable_Make(radii, distortions, n, inverse);
}

bool DistortionTable_Factor(const DistortionTable& table, double r, double* factor) {
    if (!(r < table.largestRadius)) return false;
    return searchFactor(table, r, factor);
}

uint32_t DistortionMap_Build(double* map, const RemapModel& model, const double* radii, const double* distortions,
                             int n, int inverse, double* outScaleX, double* outScaleY, int fitToFrame) {
    return DistortionMap_BuildInBands(map, model, radii, distortions, n, inverse, outScaleX, outScaleY, fitToFrame,
                                      MapBands{0, nullptr, nullptr});
}

uint32_t DistortionMap_BuildInBands(double* map, const RemapModel& model, const double* radii,
                                    const double* distortions, int n, int inverse, double* outScaleX,
                                    double* outScaleY, int fitToFrame, const MapBands& bands) {
    const DistortionTable table = DistortionTable_Make(radii, distortions, n, inverse);
    double scale = 1.0;
    if (fitToFrame) {
        double sx, sy;
        if (!fillScale(model, table, &sx, &sy)) return kMapFillScaleFailed;  // edge beyond the table (0xD119)
        scale = double(float(std::min(sx, sy)));
    }
    if (outScaleX) *outScaleX = scale;
    if (outScaleY) *outScaleY = scale;
    storeFillScale(model.camera, scale, scale);

    const int w = model.gridWidth, h = model.gridHeight;
    if (!map || w == 0 || h == 0) return kMapOk;
    const double applied = inverse == 1 ? 1.0 / scale : scale;
    const Axis ax = axisTerms(w, model.srcWidth, model.calibWidth, model.cx, applied);
    const Axis ay = axisTerms(h, model.srcHeight, model.calibHeight, model.cy, applied);

    auto terms = allocArray<double>(size_t(2) * w + size_t(2) * h);
    double* u = terms.get();
    double* q = u + w;
    double* v = q + w;
    double* t = v + h;
    for (int x = 0; x < w; ++x) {
        u[x] = x * ax.k - ax.o;
        const double d = x * ax.a - ax.b;
        q[x] = d * d;
    }
    for (int y = 0; y < h; ++y) {
        v[y] = y * ay.k - ay.o;
        t[y] = y * ay.a - ay.b;
    }

    const double pitch = model.pixelPitch;
    const bool sorted = ascending(table);
    const MapRowFn kernel = mapRowKernel();
    const bool parallel = uint64_t(w) * uint64_t(h) >= kParallelMinPixels;
    const int teams = parallel ? std::max(1, omp_get_max_threads()) : 1;
    auto radiusRows = allocArray<double>(size_t(teams) * w);  // one row of radii per thread
    const int band = bands.rows > 0 ? bands.rows : h;
    int beyond = 0;
    for (int y0 = 0; y0 < h; y0 += band) {
        const int y1 = std::min(h, y0 + band);
#pragma omp parallel for schedule(dynamic, 1) reduction(| : beyond) if (parallel)
        for (int y = y0; y < y1; ++y) {
            double* r = radiusRows.get() + size_t(omp_get_thread_num()) * w;
            double* out = map + size_t(y) * w * 2;
            const MapRow row{&table, sorted, r, q, t[y], pitch, u, v[y], model.cx, model.cy, w, out};
            if (kernel(row)) beyond = 1;
        }
        if (bands.rowsDone) bands.rowsDone(bands.context, y1);
    }
    return beyond ? kMapBeyondTable : kMapOk;
}

bool MapRow_C(const MapRow& row) {
    for (int x = 0; x < row.width; ++x) row.radius[x] = radiusAt(row.q[x], row.ty, row.pitch);
    int hint = 1;
    double f = 1.0;  // reused where the table gives nothing
    return mapPixels(row, 0, &hint, &f);
}

namespace {

int fillMapVariants(MapRowFn* v) {
    int n = 0;
    v[n++] = MapRow_C;
#if defined(__x86_64__)
    if (cpuHasAvx2()) v[n++] = MapRow_AVX2;
#endif
#if defined(__aarch64__)
    v[n++] = MapRow_NEON;
#endif
    return n;
}

KernelDispatch<MapRowFn, 2> g_mapRow(fillMapVariants);

}  // namespace

int mapRowVariants(const MapRowFn** out) { return g_mapRow.variants(out); }
MapRowFn mapRowKernel() { return g_mapRow.kernel(); }
void setMapRowKernel(MapRowFn fn) { g_mapRow.set(fn); }

}  // namespace kvdsr::remap
