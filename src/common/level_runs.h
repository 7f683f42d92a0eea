// The column loop of both view-synthesis engines' table look-ups. Depth
// levels come in stretches of one level (a surface, upscaled): while four
// pixels share a level no higher than maxLevel, they read four consecutive
// entries of that level's table row.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kvdsr {

// Columns x .. w-1: four(level, x) takes columns x .. x+3 of one level,
// one(x) any other single column.
template <class Four, class One>
inline void forEachLevelRun(const uint16_t* levels, std::size_t x, std::size_t w, uint32_t maxLevel, Four&& four,
                            One&& one) {
    while (x + 4 <= w) {
        const uint32_t level = levels[x];
        const uint64_t same = level * 0x0001000100010001ull;
        uint64_t next;
        std::memcpy(&next, levels + x, sizeof next);
        if (next == same && level <= maxLevel) {
            do {
                four(level, x);
                x += 4;
                if (x + 4 > w) break;
                std::memcpy(&next, levels + x, sizeof next);
            } while (next == same);
            continue;
        }
        one(x++);
    }
    for (; x < w; ++x) one(x);
}

}  // namespace kvdsr
