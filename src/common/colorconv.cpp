#include "common/colorconv.h"

#include <cstring>

namespace kvdsr {

namespace {

bool strideOk(uint32_t& stride, uint32_t width) {
    if (stride == 0) stride = width;
    return stride >= width;
}

}  // namespace

bool ycbcr420spTo444p(const uint8_t* srcY, uint32_t strideY, const uint8_t* srcUV, uint32_t strideUV,
                      uint8_t* dstY, uint8_t* dstCb, uint8_t* dstCr, uint32_t dstStride, uint32_t width,
                      uint32_t height) {
    if (!srcY || !srcUV || !dstY || !dstCb || !dstCr || width == 0 || height == 0) return false;
    if (!strideOk(strideY, width) || !strideOk(strideUV, width) || !strideOk(dstStride, width)) return false;

    const uint32_t chromaRows = height / 2;
    const uint32_t pairs = width / 2;
    for (uint32_t y = 0; y < height; ++y) {
        const size_t o = size_t(y) * dstStride;
        std::memcpy(dstY + o, srcY + size_t(y) * strideY, width);
        uint8_t* cb = dstCb + o;
        uint8_t* cr = dstCr + o;
        if (chromaRows == 0) {
            std::memset(cb, 128, width);
            std::memset(cr, 128, width);
            continue;
        }
        const uint32_t cy = y / 2 < chromaRows ? y / 2 : chromaRows - 1;
        const uint8_t* uv = srcUV + size_t(cy) * strideUV;
        for (uint32_t p = 0; p < pairs; ++p) {
            cb[2 * p] = cb[2 * p + 1] = uv[2 * p];
            cr[2 * p] = cr[2 * p + 1] = uv[2 * p + 1];
        }
        if (width & 1) {
            cb[width - 1] = uv[width - 1];
            cr[width - 1] = 128;
        }
    }
    return true;
}

bool ycbcr444pTo420sp(const uint8_t* srcY, const uint8_t* srcCb, const uint8_t* srcCr, uint32_t srcStride,
                      uint8_t* dstY, uint32_t strideY, uint8_t* dstUV, uint32_t strideUV, uint32_t width,
                      uint32_t height) {
    if (!srcY || !srcCb || !srcCr || !dstY || !dstUV || width == 0 || height == 0) return false;
    if (!strideOk(srcStride, width) || !strideOk(strideY, width) || !strideOk(strideUV, width)) return false;

    for (uint32_t y = 0; y < height; ++y)
        std::memcpy(dstY + size_t(y) * strideY, srcY + size_t(y) * srcStride, width);
    const uint32_t pairs = width / 2;
    for (uint32_t cy = 0; cy < height / 2; ++cy) {
        const size_t o = size_t(2 * cy) * srcStride;
        const uint8_t* cb = srcCb + o;
        const uint8_t* cr = srcCr + o;
        uint8_t* uv = dstUV + size_t(cy) * strideUV;
        for (uint32_t p = 0; p < pairs; ++p) {
            uv[2 * p] = cb[2 * p];
            uv[2 * p + 1] = cr[2 * p];
        }
        if (width & 1) uv[width - 1] = cb[width - 1];
    }
    return true;
}

}  // namespace kvdsr
