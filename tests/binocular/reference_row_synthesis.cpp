// Today's straightforward binocular row synthesis, kept as the reference the
// engine's row loop (table look-ups first, runs of landings as copies, hole
// regions found by skipping unmarked columns) is held to byte for byte.
#include "reference_row_synthesis.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "binocular/colour_match.h"
#include "binocular/mark_clean.h"
#include "binocular/view_tables.h"

namespace kvdsr::binocular {

namespace {

constexpr int kFirstScanColumn = 20;

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
};

}  // namespace

void renderRowReference(const SynthesisFrame& f, int r, const uint16_t* levels, bool withChroma, uint16_t* src,
                        uint8_t* mark) {
    const int w = f.width;
    if (w <= 0) return;
    const std::size_t rowStart = static_cast<std::size_t>(r) * w;
    const uint8_t* aRow = f.a + rowStart;
    const uint8_t* bRow = f.b + rowStart;
    uint8_t* out = f.out + rowStart;
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

    // Locals, so that byte stores to the output need not reload them.
    const uint16_t* const landingTable = f.landingTable;
    const uint16_t* const sourceTable = f.sourceTable;
    const int p = f.p;
    int prev = 0;
    int repeatedFrom = -1;
    uint32_t lastU = 0;
    for (int x = kFirstScanColumn; x < w; ++x) {
        const uint32_t d = std::min<uint32_t>(levels[x], kMaxLevel);
        const std::size_t entry = static_cast<std::size_t>(d) * w + x;
        const int t = landingTable[entry];
        const uint32_t u = sourceTable[entry];
        if (t < w && t <= prev) continue;  // hidden behind what has landed
        if (t >= w) {
            // Off the image: the rest of the row repeats the last landing.
            // Until something lands again a repeat would change nothing.
            if (prev != repeatedFrom) {
                std::memset(out + prev, out[prev], w - prev);
                if (chroma)
                    for (int c = chromaPair(prev, w) + 2; c + 1 < w; c += 2) cr.copyPair(c, cr.out, prev);
                repeatedFrom = prev;
            }
            continue;
        }
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
            if (p >= 2) {
                out[prev + 1] = out[t];
                if (chroma) cr.fromA(prev + 1, x);
            } else {
                out[prev + 1] = static_cast<uint8_t>(bAt(src[prev + 1]));
                if (chroma) cr.fromB(prev + 1, std::min<int>(src[prev + 1], w - 1));
            }
        } else {
            for (int k = 0; k <= g; ++k) {
                src[prev + k] = static_cast<uint16_t>(std::floor((double(g - k) * lastU + double(k) * u) / g));
                if (k > 0 && k < g) mark[prev + k] = kMarkFilled;
            }
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
    }

    cleanMarksReference(mark, w, f.q);

    out[0] = static_cast<uint8_t>(bAt(src[0]));
    if (w >= 2) out[1] = static_cast<uint8_t>(bAt(src[1]));
    if (chroma) cr.fromB(0, std::min<int>(src[0], w - 1));
    if (w >= 5) {
        for (int c = 1; c <= w - 4; ++c) {
            const bool h0 = mark[c] == kMarkHole;
            const bool h1 = mark[c + 1] == kMarkHole;
            const bool h2 = mark[c + 2] == kMarkHole;
            if (h1 && !h0) {
                out[c] = static_cast<uint8_t>((out[c - 1] + bAt(src[c + 1])) >> 1);
                out[c + 1] = static_cast<uint8_t>((out[c] + bAt(src[c + 2])) >> 1);
            } else if (h0 && h1 && !h2) {
                out[c + 1] = static_cast<uint8_t>((out[c + 2] + bAt(src[c])) >> 1);
                out[c + 2] = static_cast<uint8_t>((bAt(src[c + 1]) + out[c + 3]) >> 1);
            } else if (h0 && h1 && h2) {
                out[c + 1] = static_cast<uint8_t>(bAt(src[c + 1]));
            }
        }
    }
    if (chroma)
        for (int c = 0; c < w; ++c)
            if (mark[c] == kMarkHole) cr.fromB(c, std::min<int>(src[c], w - 1));

    std::memset(src, 0, sizeof(uint16_t) * w);
    std::memset(mark, 0, w);
}

void synthesizeViewReference(const SynthesisFrame& f, const uint16_t* levelMap) {
    std::vector<uint16_t> src(std::size_t(std::max(f.width, 1)), 0);
    std::vector<uint8_t> mark(src.size(), 0);
    for (int y = 0; y < f.height; y += 2) {
        renderRowReference(f, y, levelMap + std::size_t(y) * f.width, false, src.data(), mark.data());
        if (y + 1 < f.height)
            renderRowReference(f, y + 1, levelMap + std::size_t(y + 1) * f.width, true, src.data(), mark.data());
    }
}

}  // namespace kvdsr::binocular
