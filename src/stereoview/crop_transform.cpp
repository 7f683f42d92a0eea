#include "stereoview/crop_transform.h"

#include <cmath>

#include "calibration/camera_model.h"
#include "calibration/geometry.h"
#include "remap/remap.h"

namespace kvdsr::stereoview {

namespace {

bool allFinite(const double* v, int n) {
    for (int i = 0; i < n; ++i)
        if (!std::isfinite(v[i])) return false;
    return true;
}

bool coversWholeImage(const calib::CameraModel& cam, const CropRect& r) {
    return r.x0 == 0 && r.y0 == 0 && uint32_t(r.x1) + 1 == cam.calibWidth && uint32_t(r.y1) + 1 == cam.calibHeight;
}

void widen(double* m, const float* f, int n) {
    for (int i = 0; i < n; ++i) m[i] = f[i];
}

void narrow(float* f, const double* m, int n) {
    for (int i = 0; i < n; ++i) f[i] = float(m[i]);
}

void applyHomography(const double G[9], double x, double y, double& u, double& v) {
    const double w = G[6] * x + G[7] * y + G[8];
    u = (G[0] * x + G[1] * y + G[2]) / w;
    v = (G[3] * x + G[4] * y + G[5]) / w;
}

// Fill scale the map build will choose for the camera at width x height,
// and the centre it zooms about; 0 when the build would not fit the frame.
double mapFillScale(const calib::CameraModel& cam, uint16_t width, uint16_t height, double& cx, double& cy) {
    const remap::RemapModel model = remap::Remap_BuildModel(cam, remap::RemapLayout{width, height, width, height});
    cx = model.cx;
    cy = model.cy;
    if (!model.gridWidth || !model.gridHeight) return 0.0;
    const remap::DistortionTable t = remap::DistortionTable_FromModel(cam, 0);
    double sx = 0.0, sy = 0.0;
    // Without a map the build only runs the fill-scale search.
    if (remap::DistortionMap_Build(nullptr, model, t.radius, t.distortion, t.calibrationEntries, 0, &sx, &sy, 1) !=
        remap::kMapOk)
        return 0.0;
    return std::isfinite(sx) && sx > 0.0 ? sx : 0.0;
}

bool transformCamera(calib::CameraModel& cam, uint16_t width, uint16_t height, const CropRect& r) {
    const double calibW = cam.calibWidth, calibH = cam.calibHeight;
    const double modelW = cam.modelWidth, modelH = cam.modelHeight;
    if (calibW <= 0 || calibH <= 0 || modelW <= 0 || modelH <= 0) return false;

    // Rectangle edges in the model grid (edges scale, centres shift by 0.5).
    const double gx = modelW / calibW, gy = modelH / calibH;
    const double left = r.x0 * gx - 0.5, right = (r.x1 + 1.0) * gx - 0.5;
    const double top = r.y0 * gy - 0.5, bottom = (r.y1 + 1.0) * gy - 0.5;
    const double frame[8] = {-0.5, -0.5, width - 0.5, -0.5, width - 0.5, height - 0.5, -0.5, height - 0.5};
    const double rect[8] = {left, top, right, top, right, bottom, left, bottom};
    double G[9], Ginv[9];
    if (!homographyFromCorners(frame, rect, G)) return false;
    if (!geom::matInverse(Ginv, G, 3) || !allFinite(Ginv, 9)) return false;

    double H[9], t[9], Hn[9];
    widen(H, cam.homography, 9);
    geom::matMul(t, H, G, 3, 3, 3);
    geom::matMul(Hn, Ginv, t, 3, 3, 3);
    double unusedX, unusedY;
    const double fullScale = mapFillScale(cam, uint16_t(modelW), uint16_t(modelH), unusedX, unusedY);

    double P[12], Pn[12];
    widen(P, cam.projection, 12);
    geom::matMul(Pn, Ginv, P, 3, 3, 4);
    if (Pn[11] != 0.0) {
        const double last = Pn[11];
        for (double& v : Pn) v /= last;
        Pn[11] = 1.0;
    }

    // Principal point: both fields zero means the calibrated image's centre.
    double cx, cy;
    if (cam.principalX == 0 && cam.principalY == 0) {
        cx = 0.5 * calibW * gx - 0.5;
        cy = 0.5 * calibH * gy - 0.5;
    } else {
        cx = cam.principalX / 16.0;
        cy = cam.principalY / 16.0;
    }
    double px, py;
    applyHomography(Ginv, cx, cy, px, py);
    auto fixed = [](double v) {
        const double f = std::floor(v * 16.0 + 0.5);
        return uint16_t(f < 1.0 ? 1.0 : (f > 65535.0 ? 65535.0 : f));  // 0 would mean "centre"
    };

    narrow(cam.projection, Pn, 12);
    cam.principalX = fixed(px);
    cam.principalY = fixed(py);
    cam.calibWidth = uint16_t(uint32_t(r.x1) - r.x0 + 1);
    cam.calibHeight = uint16_t(uint32_t(r.y1) - r.y0 + 1);
    cam.modelWidth = width;
    cam.modelHeight = height;

    // The map zooms the undistorted image about the principal point by a
    // fill scale of its own frame, and the crop's frame gets another scale
    // than the whole image's. Undo the difference, so that the 16:9 output
    // is the matching crop of the whole image's rectification.
    // (The fill scale does not depend on the homography.)
    double zx, zy;
    const double cropScale = mapFillScale(cam, width, height, zx, zy);
    if (fullScale > 0.0 && cropScale > 0.0) {
        const double k = fullScale / cropScale;
        const double Z[9] = {k, 0, zx * (1 - k), 0, k, zy * (1 - k), 0, 0, 1};
        geom::matMul(t, Z, Hn, 3, 3, 3);
        narrow(cam.homography, t, 9);
    } else {
        narrow(cam.homography, Hn, 9);
    }
    return true;
}

}  // namespace

CropRect centredCrop169(uint16_t calibWidth, uint16_t calibHeight) {
    uint32_t h = 9u * (calibWidth / 16u);
    if (h > calibHeight) h = calibHeight;
    const uint32_t y = (calibHeight - h) / 2;
    CropRect r{0, uint16_t(y), uint16_t(calibWidth ? calibWidth - 1 : 0), uint16_t(h ? y + h - 1 : y)};
    return r;
}

bool homographyFromCorners(const double from[8], const double to[8], double G[9]) {
    double A[64], Ainv[64], b[8];
    for (int i = 0; i < 4; ++i) {
        const double x = from[2 * i], y = from[2 * i + 1], u = to[2 * i], v = to[2 * i + 1];
        double* r0 = A + 16 * i;
        double* r1 = r0 + 8;
        const double a0[8] = {x, y, 1, 0, 0, 0, -u * x, -u * y};
        const double a1[8] = {0, 0, 0, x, y, 1, -v * x, -v * y};
        for (int j = 0; j < 8; ++j) {
            r0[j] = a0[j];
            r1[j] = a1[j];
        }
        b[2 * i] = u;
        b[2 * i + 1] = v;
    }
    if (!geom::matInverse(Ainv, A, 8)) return false;
    double h[8];
    geom::matMul(h, Ainv, b, 8, 8, 1);
    if (!allFinite(h, 8)) return false;
    // A singular system can still come back from the pseudo-inverse: check
    // that the solution really carries the four corners.
    for (int i = 0; i < 8; ++i) G[i] = h[i];
    G[8] = 1.0;
    for (int i = 0; i < 4; ++i) {
        double u, v;
        applyHomography(G, from[2 * i], from[2 * i + 1], u, v);
        const double scale = 1.0 + std::fabs(to[2 * i]) + std::fabs(to[2 * i + 1]);
        if (!(std::fabs(u - to[2 * i]) <= 1e-6 * scale && std::fabs(v - to[2 * i + 1]) <= 1e-6 * scale))
            return false;
    }
    return true;
}

uint32_t cropTransform(calib::CameraModel cameras[2], uint16_t width, uint16_t height, const CropRect rects[2]) {
    if (coversWholeImage(cameras[0], rects[0]) && coversWholeImage(cameras[1], rects[1])) return kCropOk;
    bool ok = true;
    for (int k = 0; k < 2; ++k)
        if (!transformCamera(cameras[k], width, height, rects[k])) ok = false;
    return ok ? kCropOk : kCropSolveFailed;
}

uint32_t cropTransform(uint8_t* block, uint16_t width, uint16_t height, const CropRect rects[2]) {
    calib::CameraModel cameras[2] = {calib::readCamera(block, 1), calib::readCamera(block, 2)};
    const uint32_t result = cropTransform(cameras, width, height, rects);
    calib::writeCamera(block, 1, cameras[0]);
    calib::writeCamera(block, 2, cameras[1]);
    return result;
}

}  // namespace kvdsr::stereoview
