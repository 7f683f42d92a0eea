#include "binocular/view_tables.h"

#include <cmath>
#include <cstddef>

#include "common/frame_team.h"

namespace kvdsr::binocular {

void inverseDepthTable(double inv[kLevels], const double m[16]) {
    for (int j = 0; j < kLevels; ++j) inv[j] = 1.0 / ((j + 1) * m[11]);
}

void columnFactors(double* col, int imageWidth, int depthWidth, const CameraModel& cam, const double m[16]) {
    const double h = imageWidth / 2.0;
    const double scale =
        (0.5 / cam.focalLength) * (cam.calibratedWidth * cam.pixelPitch / depthWidth) * depthWidth / h;
    for (int x = 0; x < imageWidth; ++x) col[x] = scale * (x - h) * m[0];
}

uint16_t viewTableEntry(int imageWidth, double m12, double colX, double invI, int level) {
    const double v = std::floor(imageWidth * 0.5 * (1.0 + (-m12 - level * colX) * invI));
    // Kept to its low 16 bits like an integer conversion would; out-of-range
    // and non-finite values become positions no image has.
    if (!(v >= -2147483648.0 && v < 2147483648.0)) return 0xFFFF;
    return static_cast<uint16_t>(static_cast<int32_t>(v));
}

void fillViewTable(uint16_t* table, int imageWidth, const double m[16], const double inv[kLevels],
                   const double* col) {
    const double m12 = m[12];
    runItems(kLevels, true, [&](uint32_t level, int) {
        const int i = int(level);
        uint16_t* row = table + static_cast<std::size_t>(i) * imageWidth;
        for (int x = 0; x < imageWidth; ++x) row[x] = viewTableEntry(imageWidth, m12, col[x], inv[i], i);
    });
}

}  // namespace kvdsr::binocular
