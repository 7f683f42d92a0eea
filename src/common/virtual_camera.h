// The virtual camera of the depth engines: a perspective projection of the
// calibrated field of view, moved sideways. Both the depth view's shift
// table and the binocular engine's landing and source tables are made from it.
#pragma once

#include <cstdint>

namespace kvdsr {

// Field of view in degrees of a sensor sensorWidth pixels of pixelSize wide
// behind a lens of focalLength (same unit as pixelSize), with the five-digit
// pi (360 / 3.14159) the engines' tables have always been made with.
double fieldOfViewDegrees(uint16_t sensorWidth, float pixelSize, float focalLength);

// Perspective projection of the field of view (aspect 1, near plane 1, far
// plane 1023) followed by a translation of shiftX along x, as 16 doubles.
// Read row-major it is the row-vector form (the translation in the last
// row); read column-major, the column-vector form: the same 16 numbers.
// m[0] = m[5] = the focal term, m[10] and m[14] the depth terms, m[11] = -1,
// m[12] = shiftX * m[0].
void buildViewMatrix(double m[16], double fovDegrees, double shiftX);

}  // namespace kvdsr
