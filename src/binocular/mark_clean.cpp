#include "binocular/mark_clean.h"

#include <algorithm>
#include <cstring>

namespace kvdsr::binocular {

namespace {
void setRange(uint8_t* mark, int from, int to, uint8_t v) {
    for (int i = from; i <= to; ++i) mark[i] = v;
}

}  // namespace

// Eight columns at a time, since most of a row is unmarked.
int nextMarked(const uint8_t* mark, int from, int limit) {
    int i = from;
    for (; i + 8 <= limit + 1; i += 8) {
        uint64_t word;
        std::memcpy(&word, mark + i, sizeof word);
        if (word != 0) break;
    }
    for (; i <= limit; ++i)
        if (mark[i] != kMarkNone) return i;
    return limit + 1;
}

void cleanMarksReference(uint8_t* mark, int width, int q) {
    if (q < 1) return;
    const int lastStart = width - q;
    for (int c = 0; c <= lastStart; ++c) {
        const bool last = c == lastStart;
        if (mark[c] != kMarkNone) {
            bool anyInterior = false;
            bool allInterior = true;  // an empty interior counts as set throughout
            for (int i = c + 1; i <= c + q - 2; ++i) {
                if (mark[i] != kMarkNone)
                    anyInterior = true;
                else
                    allInterior = false;
            }
            if (anyInterior && mark[c + q - 1] != kMarkNone) {
                setRange(mark, c, c + q - 1, kMarkHole);
            } else if (allInterior) {
                setRange(mark, c, c + q - 2, kMarkHole);
            } else if (!last && mark[c] == kMarkFilled) {
                mark[c] = kMarkNone;
            }
        }
        if (last) {
            for (int i = c; i <= c + q - 2; ++i)
                if (mark[i] != kMarkNone) mark[i] = kMarkHole;
        }
    }
}

void cleanMarks(uint8_t* mark, int width, int q, int first, int last) {
    // Windows without an interior gain nothing from counting.
    if (q < 3) return cleanMarksReference(mark, width, q);
    const int lastStart = width - q;
    if (lastStart < 0) return;
    // Rules only ever mark columns between two marked ones, so every mark
    // stays within [first, last].
    first = std::clamp(first, 0, lastStart);
    const int interior = q - 2;
    auto countInterior = [&](int c) {
        int n = 0;
        for (int i = c + 1; i <= c + interior; ++i) n += mark[i] != kMarkNone;
        return n;
    };
    // Non-zero marks among columns c + 1 .. c + q - 2, kept up to date as the
    // window slides: rules only ever turn a window column non-zero, except
    // the clearing of column c, which the next window no longer holds.
    int count = countInterior(first);
    // Columns up to painted are holes already (holes are never cleared), so
    // overlapping windows only write what is new.
    int painted = -1;
    auto paint = [&](int from, int to) {
        setRange(mark, from > painted ? from : painted + 1, to, kMarkHole);
        if (to > painted) painted = to;
    };
    for (int c = first;;) {
        const bool isLast = c == lastStart;
        if (mark[c] == kMarkNone && !isLast) {
            // A window starting on an empty column does nothing: go straight
            // to the next marked column (or the last window).
            c = c + 1 > last ? lastStart : std::min(nextMarked(mark, c + 1, std::min(lastStart, last)), lastStart);
            count = countInterior(c);
            continue;
        }
        if (mark[c] != kMarkNone) {
            if (count > 0 && mark[c + q - 1] != kMarkNone) {
                paint(c, c + q - 1);
                count = interior;
            } else if (count == interior) {
                paint(c, c + q - 2);
            } else if (!isLast && mark[c] == kMarkFilled) {
                mark[c] = kMarkNone;
            }
        }
        if (isLast) {
            for (int i = c; i <= c + q - 2; ++i)
                if (mark[i] != kMarkNone) mark[i] = kMarkHole;
            return;
        }
        count += (mark[c + q - 1] != kMarkNone) - (mark[c + 1] != kMarkNone);
        ++c;
    }
}

}  // namespace kvdsr::binocular
