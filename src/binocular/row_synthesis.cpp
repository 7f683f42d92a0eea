#include "binocular/row_synthesis.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "binocular/colour_match.h"
#include "binocular/mark_clean.h"
#include "binocular/view_tables.h"
#include "common/level_runs.h"
#include "depthview/synthesis.h"

namespace kvdsr::binocular {

namespace {

constexpr int kFirstScanColumn = 20;

// Chroma pair writer/reader of one row; all column arguments are bounded.
struct ChromaRow {
    uint8_t* out;
    const uint8_t* a;
    const uint8_t* b;
    int width;

    void fromA(int outColumn, int aColumn) const { copyPair(outColumn, a, aColumn); }
    void fromB(int outColumn, int bColumn) const { copyPair(outColumn, b, bColumn); }
    void copyPair(int outColumn, const uint8_t* from, int fromColumn) const {
        const int o = chromaPair(outColumn, width);
        const int s = chromaPair(fromColumn, width);
        out[o] = from[s];
        out[o + 1] = from[s + 1];
    }

    // Columns [t, t + n) took A's columns shifted left by `shift`, one after
    // the other: each pair ends up with what its last column brought.
    void runFromA(int t, int n, int shift) const {
        int c = t;
        const int end = t + n;
        if (c & 1) {
            fromA(c, c - shift);
            ++c;
        }
        // Whole pairs take the pair of their odd column's source; those are
        // consecutive pairs of A, except that the last pair of an odd width
        // is clamped.
        const int pairs = (end - c) / 2;
        if (pairs > 0) {
            int straight = pairs;
            if ((width & 1) && c + 2 * pairs - 1 - shift == width - 1) --straight;
            std::memcpy(out + c, a + ((c + 1 - shift) & ~1), 2 * size_t(straight));
            for (int j = straight; j < pairs; ++j) fromA(c + 2 * j + 1, c + 2 * j + 1 - shift);
            c += 2 * pairs;
        }
        if (c < end) fromA(c, c - shift);
    }
};

// Landing and source columns of every pixel from column 20 on: table
// look-ups only. Four pixels of one level (a surface, upscaled) read four
// consecutive entries of each table.
void lookUpColumns(uint16_t* landing, uint16_t* source, const uint16_t* levels, const uint16_t* landingTable,
                   const uint16_t* sourceTable, int width) {
    const std::size_t w = std::size_t(width);
    auto one = [&](std::size_t x) {
        const std::size_t entry = std::size_t(std::min<uint32_t>(levels[x], kMaxLevel)) * w + x;
        landing[x] = landingTable[entry];
        source[x] = sourceTable[entry];
    };
    forEachLevelRun(
        levels, kFirstScanColumn, w, kMaxLevel,
        [&](std::size_t level, std::size_t x) {
            std::memcpy(landing + x, landingTable + level * w + x, 4 * sizeof(uint16_t));
            std::memcpy(source + x, sourceTable + level * w + x, 4 * sizeof(uint16_t));
        },
        one);
}

}  // namespace

std::size_t rowScratchBytes(int width) { return (3 * 2 + 1) * std::size_t(width > 0 ? width : 0); }

RowScratch rowScratchAt(uint8_t* bytes, int width) {
    const std::size_t w = std::size_t(width > 0 ? width : 0);
    uint16_t* words = reinterpret_cast<uint16_t*>(bytes);
    return {words, words + w, words + 2 * w, bytes + 6 * w};
}

void renderRow(const SynthesisFrame& f, int r, const uint16_t* levels, bool withChroma, RowScratch scratch) {
    const int w = f.width;
    if (w <= 0) return;
    const std::size_t rowStart = static_cast<std::size_t>(r) * w;
    const uint8_t* aRow = f.a + rowStart;
    const uint8_t* bRow = f.b + rowStart;
    uint8_t* out = f.out + rowStart;
    uint16_t* const landing = scratch.landing;
    uint16_t* const source = scratch.source;
    uint16_t* const src = scratch.src;
    uint8_t* const mark = scratch.mark;
    // Source columns come from a table and may point past the row.
    auto bAt = [&](uint32_t column) -> int { return bRow[std::min<uint32_t>(column, w - 1)]; };

    const bool chroma = withChroma && w >= 2;
    ChromaRow cr{};
    if (chroma) {
        const std::size_t chromaStart = static_cast<std::size_t>(w) * (f.height + r / 2);
        cr = {f.out + chromaStart, f.a + chromaStart, f.b + chromaStart, w};
        std::memset(cr.out, 128, w);
    }
    std::memset(out, 0, w);

    lookUpColumns(landing, source, levels, f.landingTable, f.sourceTable, w);

    const int p = f.p;
    int markFirst = w, markLast = -1;  // marked columns: gaps of two or more
    int prev = 0;
    int repeatedFrom = -1;
    uint32_t lastU = 0;
    int x = kFirstScanColumn;
    while (x < w) {
        const int t = landing[x];
        if (t < w && t <= prev) {  // hidden behind what has landed
            ++x;
            continue;
        }
        if (t >= w) {
            // Off the image: the rest of the row repeats the last landing.
            // Until something lands again a repeat would change nothing.
            if (prev != repeatedFrom) {
                std::memset(out + prev, out[prev], w - prev);
                if (chroma)
                    for (int c = chromaPair(prev, w) + 2; c + 1 < w; c += 2) cr.copyPair(c, cr.out, prev);
                repeatedFrom = prev;
            }
            ++x;
            continue;
        }
        const uint32_t u = source[x];
        out[t] = aRow[x];
        const int g = t - prev;
        if (g == 1) {
            src[prev] = static_cast<uint16_t>(lastU);
            src[t] = static_cast<uint16_t>(u);
        } else if (g == 2) {
            src[prev] = static_cast<uint16_t>(lastU);
            src[prev + 1] = static_cast<uint16_t>((u + lastU) / 2);
            src[t] = static_cast<uint16_t>(u);
            mark[prev + 1] = kMarkFilled;
            markFirst = std::min(markFirst, prev + 1);
            markLast = prev + 1;
            if (p >= 2) {
                out[prev + 1] = out[t];
                if (chroma) cr.fromA(prev + 1, x);
            } else {
                out[prev + 1] = static_cast<uint8_t>(bAt(src[prev + 1]));
                if (chroma) cr.fromB(prev + 1, std::min<int>(src[prev + 1], w - 1));
            }
        } else {
            // The floor of a non-negative quotient: its truncation.
            for (int k = 0; k <= g; ++k) {
                src[prev + k] = static_cast<uint16_t>(int32_t((double(g - k) * lastU + double(k) * u) / g));
                if (k > 0 && k < g) mark[prev + k] = kMarkFilled;
            }
            markFirst = std::min(markFirst, prev + 1);
            markLast = t - 1;
            if (g <= p) {
                const int left = out[prev];
                const int span = out[t] - left;
                for (int k = 1; k < g; ++k) out[prev + k] = static_cast<uint8_t>(left + (k * span) / (g - 1));
                if (chroma)
                    for (int k = 1; k < g; ++k) cr.fromA(prev + k, x);
            } else {
                for (int k = 1; k < g; ++k) out[prev + k] = static_cast<uint8_t>(bAt(src[prev + k]));
                if (chroma)
                    for (int k = 1; k < g; ++k) cr.fromB(prev + k, std::min<int>(src[prev + k], w - 1));
            }
        }
        // The landing pair is written after the gap so that it keeps A's chroma.
        if (chroma) cr.fromA(t, x);
        lastU = u;
        prev = t;

        // The pixels after it that land one column further each: the gap
        // before each is one column, so they are copies (of A, and of their
        // source columns into src).
        const int limit = std::min(w, x + (w - t));
        const int e = depthview::runEnd(landing, x + 1, limit, static_cast<uint16_t>(t + 1));
        const int n = e - x - 1;
        if (n) {
            std::memcpy(out + t + 1, aRow + x + 1, std::size_t(n));
            std::memcpy(src + t + 1, source + x + 1, 2 * std::size_t(n));
            if (chroma) cr.runFromA(t + 1, n, t - x);
            lastU = source[e - 1];
            prev = t + n;
        }
        x = e;
    }

    if (markLast >= 0) cleanMarks(mark, w, f.q, markFirst, markLast);

    out[0] = static_cast<uint8_t>(bAt(src[0]));
    if (w >= 2) out[1] = static_cast<uint8_t>(bAt(src[1]));
    if (chroma) cr.fromB(0, std::min<int>(src[0], w - 1));
    // Cross-fades at c = 1 .. w - 4 act only where column c + 1 is a hole.
    // Holes lie within the marked columns.
    if (w >= 5 && markLast >= 0) {
        const int end = std::min(w - 3, markLast);
        for (int h = nextMarked(mark, std::max(2, markFirst), end); h <= end; h = nextMarked(mark, h + 1, end)) {
            if (mark[h] != kMarkHole) continue;
            const int c = h - 1;
            const bool h0 = mark[c] == kMarkHole;
            const bool h2 = mark[c + 2] == kMarkHole;
            if (!h0) {
                out[c] = static_cast<uint8_t>((out[c - 1] + bAt(src[c + 1])) >> 1);
                out[c + 1] = static_cast<uint8_t>((out[c] + bAt(src[c + 2])) >> 1);
            } else if (!h2) {
                out[c + 1] = static_cast<uint8_t>((out[c + 2] + bAt(src[c])) >> 1);
                out[c + 2] = static_cast<uint8_t>((bAt(src[c + 1]) + out[c + 3]) >> 1);
            } else {
                out[c + 1] = static_cast<uint8_t>(bAt(src[c + 1]));
            }
        }
    }
    if (chroma && markLast >= 0)
        for (int c = nextMarked(mark, markFirst, markLast); c <= markLast; c = nextMarked(mark, c + 1, markLast))
            if (mark[c] == kMarkHole) cr.fromB(c, std::min<int>(src[c], w - 1));

    // Only columns up to the last landing have a source column.
    std::memset(src, 0, sizeof(uint16_t) * std::size_t(prev + 1));
    if (markLast >= 0) std::memset(mark + markFirst, 0, std::size_t(markLast - markFirst + 1));
}

void synthesizeView(const SynthesisFrame& f, const uint16_t* levelMap) {
    std::vector<uint8_t> bytes(rowScratchBytes(f.width) + 2, 0);
    const RowScratch scratch = rowScratchAt(bytes.data(), f.width);
    for (int y = 0; y < f.height; y += 2) {
        renderRow(f, y, levelMap + std::size_t(y) * f.width, false, scratch);
        if (y + 1 < f.height) renderRow(f, y + 1, levelMap + std::size_t(y + 1) * f.width, true, scratch);
    }
}

}  // namespace kvdsr::binocular
