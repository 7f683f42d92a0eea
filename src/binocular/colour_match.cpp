#include "binocular/colour_match.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#include "binocular/match_kernels.h"
#include "binocular/view_tables.h"

namespace kvdsr::binocular {

BandParams bandParams(int height) {
    if (height == 720) return {30, 6, 7};
    const float r = height * 0.0013888889f;
    BandParams bp;
    bp.step = static_cast<int>(r * 30);
    bp.p = static_cast<int>(std::floor(6 * r));
    bp.q = static_cast<int>(std::ceil(7 * r));
    // Small images would give a zero step (an endless grid) or an empty window.
    bp.step = std::max(bp.step, 1);
    bp.q = std::max(bp.q, 1);
    return bp;
}

int matchOffset(const uint16_t* columnLevels, const uint16_t* sourceTable, int width, int height) {
    if (width <= 0 || height <= 0) return 0;
    const int column = offsetColumn(width);
    uint64_t sum = 0;
    for (int y = 0; y < height; ++y) {
        const uint32_t d = std::min<uint32_t>(columnLevels[y], kMaxLevel);
        sum += sourceTable[static_cast<std::size_t>(d) * width + column];
    }
    const uint64_t o = sum / static_cast<uint64_t>(height);
    return static_cast<int>(std::min<uint64_t>(o, static_cast<uint64_t>(width - 1)));
}

namespace {

// Sample of channel c at (x, y): luma, or one byte of the chroma pair.
inline uint8_t sample(const uint8_t* img, int width, int height, int x, int y, int c) {
    if (c == 0) return img[static_cast<std::size_t>(y) * width + x];
    const int chromaRows = height / 2;
    const int row = std::min(y / 2, chromaRows - 1);
    return img[static_cast<std::size_t>(width) * (height + row) + chromaPair(x, width) + c - 1];
}

}  // namespace

ChannelStats matchStatistics(const uint8_t* a, const uint8_t* b, int width, int height, int step, int offset) {
    ChannelStats s{};
    const int span = width - offset;  // grid columns x < span
    if (span <= 0 || height <= 0 || step <= 0) return s;
    const double n = static_cast<double>((height - 1) / step + 1) * ((span - 1) / step + 1);
    // Chroma exists only from two rows on, and its second byte only from two
    // columns on (a one-column row has no pair; that table is never applied).
    const int channels = height < 2 ? 1 : width < 2 ? 2 : 3;
    for (int c = 0; c < channels; ++c) {
        double sumA = 0, sumB = 0;
        for (int y = 0; y < height; y += step)
            for (int x = 0; x < span; x += step) {
                sumA += sample(a, width, height, x, y, c);
                sumB += sample(b, width, height, x + offset, y, c);
            }
        s.meanA[c] = sumA / n;
        s.meanB[c] = sumB / n;
        double sqA = 0, sqB = 0;
        for (int y = 0; y < height; y += step)
            for (int x = 0; x < span; x += step) {
                const double da = sample(a, width, height, x, y, c) - s.meanA[c];
                const double db = sample(b, width, height, x + offset, y, c) - s.meanB[c];
                sqA += da * da;
                sqB += db * db;
            }
        s.devA[c] = std::sqrt(sqA / n);
        s.devB[c] = std::sqrt(sqB / n);
    }
    return s;
}

void buildMatchTables(uint8_t table[3][256], const ChannelStats& s) {
    for (int c = 0; c < 3; ++c)
        for (int v = 0; v < 256; ++v) {
            const double m = s.meanA[c] + (v - s.meanB[c]) * s.devA[c] / s.devB[c];
            // A flat B gives an infinite or undefined ratio: infinities clamp,
            // an undefined value converts to 0 as the hardware conversion does.
            if (std::isnan(m)) {
                table[c][v] = 0;
                continue;
            }
            table[c][v] = static_cast<uint8_t>(std::trunc(std::clamp(m, 0.0, 255.0)));
        }
}

void applyMatchLuma(uint8_t* row, int width, const uint8_t table[256]) {
    if (width > 0) matchRow(row, uint32_t(width), table, table);
}

void applyMatchChroma(uint8_t* row, int width, const uint8_t table[3][256]) {
    if (width > 0) matchRow(row, uint32_t(width), table[1], table[2]);
}

void applyMatchTables(uint8_t* b, int width, int height, const uint8_t table[3][256]) {
    for (int y = 0; y < height; ++y) applyMatchLuma(b + static_cast<std::size_t>(y) * width, width, table[0]);
    for (int y = 0; y < height / 2; ++y)
        applyMatchChroma(b + static_cast<std::size_t>(height + y) * width, width, table);
}

}  // namespace kvdsr::binocular
