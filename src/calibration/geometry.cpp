#include "calibration/geometry.h"

#include <Eigen/Core>
#include <Eigen/SVD>

#include <cmath>
#include <cstring>

#include "calibration/camera_model.h"

namespace kvdsr::geom {

namespace {
using RowMatrix = Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

// S(sx, sy): the pixel-centre-preserving scale.
void scaleMatrix(double S[9], double sx, double sy) {
    const double v[9] = {sx, 0, 0.5 * sx - 0.5, 0, sy, 0.5 * sy - 0.5, 0, 0, 1};
    std::memcpy(S, v, sizeof v);
}

// Fixed-point (1/16 pixel) coordinate through the scale; 0 means "unset".
// Out-of-range results wrap as a 32-bit integer narrowed to 16 bits would,
// instead of being undefined.
uint16_t rescaleFixed(uint16_t v, double s) {
    if (v == 0) return 0;
    const double r = std::trunc(((v / 16.0 + 0.5) * s - 0.5) * 16.0);
    if (!(r == r)) return 0;
    const double clamped = r < -2147483648.0 ? -2147483648.0 : (r > 2147483647.0 ? 2147483647.0 : r);
    return static_cast<uint16_t>(static_cast<uint32_t>(static_cast<int32_t>(clamped)));
}

void widen(double* dst, const float* src, int n) {
    for (int i = 0; i < n; ++i) dst[i] = src[i];
}
void narrow(float* dst, const double* src, int n) {
    for (int i = 0; i < n; ++i) dst[i] = static_cast<float>(src[i]);
}
}  // namespace

void matMul(double* C, const double* A, const double* B, int rows, int inner, int cols) {
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) {
            double sum = 0;
            for (int k = 0; k < inner; ++k) sum += A[r * inner + k] * B[k * cols + c];
            C[r * cols + c] = sum;
        }
}

void matTranspose(double* At, const double* A, int rows, int cols) {
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) At[c * rows + r] = A[r * cols + c];
}

bool matInverse(double* Ainv, const double* A, int n) {
    if (n <= 0) return false;
    Eigen::Map<const RowMatrix> a(A, n, n);
    if (!a.allFinite()) return false;
    Eigen::JacobiSVD<RowMatrix> svd(a, Eigen::ComputeFullU | Eigen::ComputeFullV);
    const Eigen::VectorXd& w = svd.singularValues();
    for (int i = 0; i < n; ++i)
        if (!(w[i] > 0.0)) return false;
    RowMatrix inv = svd.matrixV() * w.cwiseInverse().asDiagonal() * svd.matrixU().transpose();
    if (!inv.allFinite()) return false;
    Eigen::Map<RowMatrix>(Ainv, n, n) = inv;
    return true;
}

bool decomposeProjection(const double P[12], Decomposition& out) {
    double M[9], Mt[9], A[9];
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) M[r * 3 + c] = P[r * 4 + c];
    matTranspose(Mt, M, 3, 3);
    matMul(A, M, Mt, 3, 3, 3);
    const double scale = 1.0 / std::sqrt(A[8]);
    for (double& a : A) a *= scale * scale;

    double* K = out.K;
    std::memset(K, 0, sizeof out.K);
    K[8] = std::sqrt(A[8]);
    K[5] = A[5] / K[8];
    K[4] = std::sqrt(A[4] - K[5] * K[5]);
    K[2] = A[2] / K[8];
    K[1] = (A[1] - K[2] * K[5]) / K[4];
    K[0] = std::sqrt(A[0] - K[1] * K[1] - K[2] * K[2]);
    out.scale = scale;

    double Kinv[9];
    if (!matInverse(Kinv, K, 3)) return false;
    double sM[9], sp[3];
    for (int i = 0; i < 9; ++i) sM[i] = scale * M[i];
    for (int r = 0; r < 3; ++r) sp[r] = scale * P[r * 4 + 3];
    matMul(out.R, Kinv, sM, 3, 3, 3);
    matMul(out.t, Kinv, sp, 3, 3, 1);
    return std::isfinite(out.R[0] + out.R[4] + out.R[8] + out.t[0] + out.t[1] + out.t[2]);
}

double cameraBaseline(const double P1[12], const double P2[12]) {
    double centre[2][3];
    const double* P[2] = {P1, P2};
    for (int k = 0; k < 2; ++k) {
        Decomposition d;
        double Rinv[9], Rt[3];
        if (!decomposeProjection(P[k], d) || !matInverse(Rinv, d.R, 3)) return std::nan("");
        matMul(Rt, Rinv, d.t, 3, 3, 1);
        for (int i = 0; i < 3; ++i) centre[k][i] = -Rt[i];
    }
    const double dx = centre[1][0] - centre[0][0], dy = centre[1][1] - centre[0][1],
                 dz = centre[1][2] - centre[0][2];
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

uint32_t rescaleCamera(calib::CameraModel& cam, uint16_t width, uint16_t height) {
    constexpr uint32_t kDone = 0xA000;
    const double sx = static_cast<float>(static_cast<double>(width) / cam.modelWidth);
    const double sy = static_cast<float>(static_cast<double>(height) / cam.modelHeight);

    double S[9], Sinv[9];
    scaleMatrix(S, sx, sy);
    scaleMatrix(Sinv, 1.0 / sx, 1.0 / sy);

    double P[12], SP[12];
    widen(P, cam.projection, 12);
    matMul(SP, S, P, 3, 3, 4);
    double norm = 0;
    for (double v : SP) norm += v * v;
    norm = std::sqrt(norm);
    for (double& v : SP) v /= norm;
    narrow(cam.projection, SP, 12);

    // H' = S H S^-1, formed as (S H^-1 S^-1)^-1; a singular H is kept as it is.
    double H[9], Hinv[9], T[9], SHinvSinv[9], Hnew[9];
    widen(H, cam.homography, 9);
    if (matInverse(Hinv, H, 3)) {
        matMul(T, S, Hinv, 3, 3, 3);
        matMul(SHinvSinv, T, Sinv, 3, 3, 3);
        if (matInverse(Hnew, SHinvSinv, 3)) narrow(cam.homography, Hnew, 9);
    }

    cam.modelWidth = width;
    cam.modelHeight = height;
    cam.principalX = rescaleFixed(cam.principalX, sx);
    cam.principalY = rescaleFixed(cam.principalY, sy);
    return kDone;
}

uint32_t rescaleCameraSection(uint8_t block[512], uint16_t width, uint16_t height, int camera) {
    constexpr uint32_t kDone = 0xA000;
    if (camera != 1 && camera != 2) return kDone;
    calib::CameraModel cam = calib::readCamera(block, camera);
    rescaleCamera(cam, width, height);
    calib::writeCamera(block, camera, cam);
    return kDone;
}

}  // namespace kvdsr::geom
