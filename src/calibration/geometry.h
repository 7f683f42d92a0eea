// Matrix kit for the camera model: dense row-major doubles.
#pragma once

#include <cstdint>

#include "calibration/camera_model.h"

namespace kvdsr::geom {

// C = A (rows x inner) * B (inner x cols); C must not alias A or B.
void matMul(double* C, const double* A, const double* B, int rows, int inner, int cols);
void matTranspose(double* At, const double* A, int rows, int cols);
// n x n inverse through SVD; false when the decomposition fails.
bool matInverse(double* Ainv, const double* A, int n);

struct Decomposition {
    double K[9];
    double R[9];
    double t[3];
    double scale;
};
// Splits a 3x4 projection P = K [R | t] (P row-major, 12 values).
bool decomposeProjection(const double P[12], Decomposition& out);

// Distance between the two camera centres.
double cameraBaseline(const double P1[12], const double P2[12]);

// Rescales a camera to width x height: projection and homography through the
// pixel-centre-preserving scale, model size, fixed-point principal point. The
// model size must not be 0 (the scale would be infinite). Returns 0xA000.
uint32_t rescaleCamera(calib::CameraModel& camera, uint16_t width, uint16_t height);
// The same on camera section 1 or 2 of the block to width x height; any other
// camera leaves it unchanged. Returns 0xA000.
uint32_t rescaleCameraSection(uint8_t block[512], uint16_t width, uint16_t height, int camera);

}  // namespace kvdsr::geom
