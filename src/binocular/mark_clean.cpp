#include "binocular/mark_clean.h"

namespace kvdsr::binocular {

namespace {
void setRange(uint8_t* mark, int from, int to, uint8_t v) {
    for (int i = from; i <= to; ++i) mark[i] = v;
}
}  // namespace

void cleanMarks(uint8_t* mark, int width, int q) {
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

}  // namespace kvdsr::binocular
