// Fixtures of the stereo view tests: calibration containers and frames.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "calibpack.h"
#include "kvDSR.h"

namespace kvdsr::test {

// A distortion-free module at the sample module's calibrated sizes whose
// rectifying homographies are pure translations: camera 1 moves the image
// 1/40 of its width left (25 px of 1600), camera 2 moves it 1/24 of its
// height up (130 px of 3120). At 64 pixels across (4:3 or 16:9) that is one
// column for camera 1 and two rows for camera 2; at half size half of that.
inline calibpack::Bytes shiftModule() {
    calibpack::Body b;
    b.referenceWidth = 4160;
    auto section = [](calibpack::CameraSection& c, int32_t number, uint16_t w, uint16_t h, float dx, float dy) {
        c.number = number;
        c.homography = {1, 0, dx, 0, 1, dy, 0, 0, 1};
        c.projection = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};
        c.modelWidth = c.calibWidth = w;
        c.modelHeight = c.calibHeight = h;
        c.pixelPitch = 0.001f;
        c.distortion = {{0, 0}, {10000, 0}};  // flat: no distortion anywhere
    };
    section(b.camera1, 1, 1600, 1200, 25.f, 0.f);
    section(b.camera2, 2, 4160, 3120, 0.f, 130.f);
    return calibpack::packContainer({b}, 512);
}

inline calibpack::Bytes sampleContainer() { return calibpack::packContainer(calibpack::sampleModule(), 1547); }

// One frame of any accepted format, planes back to back in one buffer.
struct Frame {
    uint32_t format;
    uint16_t w, h;
    std::vector<uint8_t> bytes;
    kvDSR_ImageDesc desc{};

    Frame(uint32_t fmt, uint16_t width, uint16_t height, uint32_t seed) : format(fmt), w(width), h(height) {
        const size_t luma = size_t(w) * h, quarter = size_t(w / 2) * (h / 2);
        // 0xF01 chroma: h/2 rows of w bytes (pairs, plus one spare byte at odd widths).
        const size_t size = fmt == kvDSR_FMT_YUV444P   ? 3 * luma
                            : fmt == kvDSR_FMT_YUV420SP ? luma + size_t(w) * (h / 2)
                                                        : luma + 2 * quarter;
        bytes.resize(size);
        std::mt19937 rng(seed);
        for (auto& b : bytes) b = uint8_t(rng());
        desc.format = fmt;
        desc.plane[0] = bytes.data();
        if (fmt == kvDSR_FMT_YUV444P) {
            desc.plane[1] = bytes.data() + luma;
            desc.plane[2] = bytes.data() + 2 * luma;
        } else if (fmt == kvDSR_FMT_YUV420P) {
            desc.plane[1] = bytes.data() + luma;
            desc.plane[2] = bytes.data() + luma + quarter;
        } else {
            desc.plane[1] = bytes.data() + luma;
        }
    }
    uint8_t* plane(int i) { return desc.plane[i]; }
};

// Output size of one view of a format, as the engine writes it.
inline size_t outputBytes(uint32_t fmt, uint16_t w, uint16_t h) {
    const size_t luma = size_t(w) * h;
    if (fmt == kvDSR_FMT_YUV444P) return luma;
    if (fmt == kvDSR_FMT_YUV420SP) return luma + size_t(w) * (h / 2);
    return luma + 2 * size_t(w / 2) * (h / 2);
}

}  // namespace kvdsr::test
