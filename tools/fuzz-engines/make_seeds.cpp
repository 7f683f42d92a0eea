// Writes the engine fuzzer's seed corpus (kept in tools/fuzz-engines/corpus):
// every run path with each image format it takes, packed and padded, at a
// few small sizes, with a varied depth map and a constant one.
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "fuzz_input.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTDIR\n", argv[0]);
        return 1;
    }
    using namespace kvdsr::fuzz;
    struct Size {
        uint8_t w, h, dw, dh;
    };
    const Size sizes[] = {{16, 12, 8, 6}, {33, 19, 33, 19}, {2, 2, 2, 2}};
    std::vector<uint8_t> varied(64), flat(1, 255);
    for (size_t i = 0; i < varied.size(); ++i) varied[i] = uint8_t(i % 9 == 0 ? 255 : 20 + (i * 37) % 150);
    int n = 0;
    for (int path = 0; path < kPaths; ++path)
        for (uint8_t format : {0, 1, 2})  // 0xF01, 0xF02, 0xF05
            for (const Size& s : sizes)
                for (uint8_t layout : {0x00, 0x03}) {  // packed; separate planes at odd addresses
                    const bool spr = path == int(Path::Spr);
                    const uint8_t pad = layout ? 0x0A : 0x00;  // stride above the width by 2
                    const uint8_t control[kEngineControlSize] = {
                        uint8_t(path), s.w, s.h, spr ? uint8_t(s.w / 2) : s.dw, spr ? uint8_t(s.h / 2) : s.dh,
                        format, uint8_t(layout ? 1 : 0), layout, pad, pad, pad, 75, 0, 0};
                    const auto& map = (n % 4 == 3) ? flat : varied;
                    const std::vector<uint8_t> bytes = joinEngineInput(control, map);
                    std::ofstream out(std::string(argv[1]) + "/seed-" + std::to_string(n++),
                                      std::ios::binary);
                    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
                }
    return 0;
}
