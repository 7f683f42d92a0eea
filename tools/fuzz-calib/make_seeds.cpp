// Writes the fuzz seed corpus: every container form of the sample module,
// with the default key, a 32-byte key, a derived key and an embedded record.
#include <cstdio>
#include <fstream>
#include <string>

#include "calibpack.h"
#include "fuzz_input.h"

namespace {
using kvdsr::calibpack::Bytes;

void write(const std::string& dir, const std::string& name, const Bytes& bytes) {
    std::ofstream out(dir + "/" + name, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}
}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTDIR\n", argv[0]);
        return 1;
    }
    const std::string dir = argv[1];
    namespace pack = kvdsr::calibpack;
    using kvdsr::fuzz::joinInput;
    const auto bodies = pack::sampleModule();

    pack::PackOptions raw;
    for (size_t i = 0; i < raw.key.size(); ++i) raw.key[i] = static_cast<uint8_t>(0xA5 ^ i);
    const Bytes rawKey(raw.key.begin(), raw.key.end());
    const Bytes material{'s', 'e', 'e', 'd'};
    pack::PackOptions derived;
    derived.key = pack::deriveKey(material);

    for (uint32_t length : pack::containerLengths()) {
        const std::string n = std::to_string(length);
        const Bytes plain = pack::packContainer(bodies, length);
        write(dir, n + "-focus", joinInput(0, 0, 225, 0xFF, {}, plain));
        write(dir, n + "-index", joinInput(0, 1, 0, 1, {}, plain));
        write(dir, n + "-key32", joinInput(1, 0, 333, 0xFF, rawKey, pack::packContainer(bodies, length, raw)));
        const Bytes sealed = pack::packContainer(bodies, length, derived);
        write(dir, n + "-derived", joinInput(1, 3, 195, 2, pack::makeKeyBlob(material), sealed));
        write(dir, n + "-embedded", joinInput(3, 2, 0, 0xFF, pack::makeKeyBlob(material, sealed), {}));
    }
    return 0;
}
