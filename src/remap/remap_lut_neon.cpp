// NEON row kernel of the projective table build (64-bit ARM, two doubles per
// register): two pixels per step where they read consecutive records of one
// row pair, which de-interleaving loads split into X and Y; any other pair
// goes through the plain kernel. Per lane the plain kernel's operations, so
// the tables are identical.
#if defined(__aarch64__)
#include <arm_neon.h>

#include "remap/remap_lut_kernels.h"
#include "remap/simd_neon.h"

namespace kvdsr::remap {

namespace {

void rowNEON(const LutRow& r) {
    using namespace neon;
    const double* h = r.h;
    double su = h[0] * r.first + h[1] * r.y + h[2];
    double sv = h[3] * r.first + h[4] * r.y + h[5];
    double sw = h[6] * r.first + h[7] * r.y + h[8];
    const float64x2_t zero = vdupq_n_f64(0.0), one = vdupq_n_f64(1.0), scale = vdupq_n_f64(1024.0);
    const float64x2_t lastColumn = vdupq_n_f64(double(r.mapWidth - 1)), lastRow = vdupq_n_f64(double(r.mapHeight - 1));
    const float64x2_t highX = vdupq_n_f64(double(r.srcWidth) - 1), highY = vdupq_n_f64(double(r.srcHeight) - 1);
    const double* const* rows = r.rows;
    uint32_t* const offsets = r.offset;
    uint16_t* const columnWeights = r.columnWeight;
    uint16_t* const rowWeights = r.rowWeight;
    const uint32_t srcWidth = r.srcWidth;
    const int last = r.last;
    int x = r.first;
    for (; x + 1 <= last; x += 2) {
        const double su1 = su + h[0], sv1 = sv + h[3], sw1 = sw + h[6];
        const float64x2_t w = pairOf(sw, sw1);
        const float64x2_t uc = vdivq_f64(pairOf(su, su1), w), vc = vdivq_f64(pairOf(sv, sv1), w);
        // Inner points only (second index i0 + 1, never NaN): there the
        // clamped index is the truncation.
        const uint64x2_t inner = vandq_u64(within(uc, zero, lastColumn), within(vc, zero, lastRow));
        const int64x2_t iu = vcvtq_s64_f64(uc), iv = vcvtq_s64_f64(vc);
        const int64_t column = vgetq_lane_s64(iu, 0), row = vgetq_lane_s64(iv, 0);
        if (!both(inner) || vgetq_lane_s64(iu, 1) != column + 1 ||
            vgetq_lane_s64(iv, 1) != row) {
            LutRow group = r;
            group.last = x + 1;
            lutPixels(group, x, su, sv, sw);
            su = su1 + h[0];
            sv = sv1 + h[3];
            sw = sw1 + h[6];
            continue;
        }
        su = su1 + h[0];
        sv = sv1 + h[3];
        sw = sw1 + h[6];
        const float64x2_t fu = vsubq_f64(uc, vcvtq_f64_s64(iu)), fv = vsubq_f64(vc, vcvtq_f64_s64(iv));
        const double* top = rows[row] + size_t(column) * 2;
        const double* bottom = rows[row + 1] + size_t(column) * 2;
        const float64x2x2_t a = vld2q_f64(top), b = vld2q_f64(top + 2);  // X and Y of records c, c+1 and c+1, c+2
        const float64x2x2_t c = vld2q_f64(bottom), d = vld2q_f64(bottom + 2);
        const float64x2_t X = lerp(lerp(a.val[0], b.val[0], fu), lerp(c.val[0], d.val[0], fu), fv);
        const float64x2_t Y = lerp(lerp(a.val[1], b.val[1], fu), lerp(c.val[1], d.val[1], fu), fv);

        // EntryWriter on the two.
        const uint64x2_t inside = vandq_u64(within(X, zero, highX), within(Y, zero, highY));
        const int64x2_t ix = vcvtq_s64_f64(X), iy = vcvtq_s64_f64(Y);
        const int64x2_t wc = vcvtq_s64_f64(vmulq_f64(vsubq_f64(vaddq_f64(vcvtq_f64_s64(ix), one), X), scale));
        const int64x2_t wr = vcvtq_s64_f64(vmulq_f64(vsubq_f64(vaddq_f64(vcvtq_f64_s64(iy), one), Y), scale));
        const bool ok0 = vgetq_lane_u64(inside, 0) != 0, ok1 = vgetq_lane_u64(inside, 1) != 0;
        offsets[x] =
            ok0 ? uint32_t(int32_t(vgetq_lane_s64(ix, 0))) + srcWidth * uint32_t(int32_t(vgetq_lane_s64(iy, 0))) : 0;
        offsets[x + 1] =
            ok1 ? uint32_t(int32_t(vgetq_lane_s64(ix, 1))) + srcWidth * uint32_t(int32_t(vgetq_lane_s64(iy, 1))) : 0;
        columnWeights[x] = ok0 ? uint16_t(int32_t(vgetq_lane_s64(wc, 0))) : 0;
        columnWeights[x + 1] = ok1 ? uint16_t(int32_t(vgetq_lane_s64(wc, 1))) : 0;
        rowWeights[x] = ok0 ? uint16_t(int32_t(vgetq_lane_s64(wr, 0))) : 0;
        rowWeights[x + 1] = ok1 ? uint16_t(int32_t(vgetq_lane_s64(wr, 1))) : 0;
    }
    lutPixels(r, x, su, sv, sw);
}

}  // namespace

void LutRowProjective_NEON(const LutRow& rows) { eachRow(rows, rowNEON); }

}  // namespace kvdsr::remap
#endif
