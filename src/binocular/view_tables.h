// Per-level column tables of the virtual camera (common/virtual_camera.h).
//
// Matrices here are 4x4, column-major (element k of column c is entry 4c + k).
#pragma once

#include <cstdint>

namespace kvdsr::binocular {

constexpr int kLevels = 1023;         // table rows: depth levels 0 .. 1022
constexpr uint16_t kMaxLevel = 1022;  // deeper levels are clamped to this row

// Camera values the tables are built from (calibrated camera, after the
// portrait swap).
struct CameraModel {
    uint16_t calibratedWidth = 0;
    float focalLength = 0.f;
    float pixelPitch = 0.f;
};

// inv[j] = 1 / ((j + 1) * m[11]), j = 0 .. 1022. Level i is later paired with
// inv[i] but with i times the column factor; both tables rely on that shift.
void inverseDepthTable(double inv[kLevels], const double m[16]);

// Column factors of an image width (the depth width cancels but is kept in
// the arithmetic so the rounding matches).
void columnFactors(double* col, int imageWidth, int depthWidth, const CameraModel& cam, const double m[16]);

// Fills table[i * imageWidth + x] for every level i (OpenMP over levels).
// Needs imageWidth doubles of scratch per call for the column factors.
void fillViewTable(uint16_t* table, int imageWidth, const double m[16], const double inv[kLevels],
                   const double* col);

// One entry: floor of the landing position, kept to 16 bits.
uint16_t viewTableEntry(int imageWidth, double m12, double colX, double invI, int level);

}  // namespace kvdsr::binocular
