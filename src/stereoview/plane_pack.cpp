#include "stereoview/plane_pack.h"

#include <cstddef>
#include <cstring>

namespace kvdsr::stereoview {

namespace {
// Below this many pairs the team costs more than the copy.
bool worthATeam(uint32_t w, uint32_t h) { return std::size_t(w) * h >= (std::size_t(1) << 15); }
}  // namespace

void splitVU(const uint8_t* vu, uint32_t vuStride, uint8_t* u, uint8_t* v, uint32_t halfWidth,
             uint32_t halfHeight, bool useTeam) {
    const bool team = useTeam && worthATeam(halfWidth, halfHeight);
#pragma omp parallel for schedule(static) if (team)
    for (uint32_t y = 0; y < halfHeight; ++y) {
        const uint8_t* s = vu + std::size_t(y) * vuStride;
        uint8_t* ur = u + std::size_t(y) * halfWidth;
        uint8_t* vr = v + std::size_t(y) * halfWidth;
        for (uint32_t x = 0; x < halfWidth; ++x) {
            vr[x] = s[2 * x];
            ur[x] = s[2 * x + 1];
        }
    }
}

void interleaveVU(const uint8_t* u, const uint8_t* v, uint8_t* vu, uint32_t vuStride, uint32_t halfWidth,
                  uint32_t halfHeight) {
#pragma omp parallel for schedule(static) if (worthATeam(halfWidth, halfHeight))
    for (uint32_t y = 0; y < halfHeight; ++y) {
        uint8_t* d = vu + std::size_t(y) * vuStride;
        const uint8_t* ur = u + std::size_t(y) * halfWidth;
        const uint8_t* vr = v + std::size_t(y) * halfWidth;
        for (uint32_t x = 0; x < halfWidth; ++x) {
            d[2 * x] = vr[x];
            d[2 * x + 1] = ur[x];
        }
    }
}

void packSideBySide(uint8_t* dst, const uint8_t* left, const uint8_t* right, uint32_t rowBytes, uint32_t rows) {
    for (uint32_t y = 0; y < rows; ++y) {
        uint8_t* d = dst + std::size_t(y) * 2 * rowBytes;
        std::memcpy(d, left + std::size_t(y) * rowBytes, rowBytes);
        std::memcpy(d + rowBytes, right + std::size_t(y) * rowBytes, rowBytes);
    }
}

}  // namespace kvdsr::stereoview
