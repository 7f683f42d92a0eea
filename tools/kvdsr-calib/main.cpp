// kvdsr-calib: inspect, pack and key-blob tool for calibration containers.
//   kvdsr-calib inspect FILE [--key FILE] [--focus N] [--layout N]
//   kvdsr-calib pack JSON -o FILE [--length N] [--encipher] [--key FILE] [--iv-seed N]
//   kvdsr-calib keyblob -o FILE [--material HEX | --material-file FILE] [--record FILE]
//   kvdsr-calib sample -o FILE
#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>

#include "calib_check.h"
#include "calibpack.h"
#include "calibration/calib_parser.h"
#include "calibration/cipher.h"
#include "calibration/geometry.h"
#include "module_json.h"

namespace {

using kvdsr::calibpack::Bytes;
using kvdsr::calibtool::json;
namespace calib = kvdsr::calib;
namespace pack = kvdsr::calibpack;

Bytes readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("cannot read " + path);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeFile(const std::string& path, const Bytes& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

Bytes fromHex(const std::string& hex) {
    if (hex.size() % 2) throw std::runtime_error("hex string of odd length");
    Bytes out;
    for (size_t i = 0; i < hex.size(); i += 2) out.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return out;
}

std::string hexCode(uint32_t code) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%X", code);
    return buf;
}

struct Parsed {
    uint32_t rc, size, type, index;
    uint8_t block[512];
};

Parsed parse(const Bytes& data, const Bytes& blob, uint32_t index, int32_t focus, uint32_t layout) {
    std::vector<uint32_t> words((blob.size() + 3) / 4);
    if (!blob.empty()) std::memcpy(words.data(), blob.data(), blob.size());
    Parsed p{};
    p.rc = calib::parseCalibration(p.block, &p.size, &p.type, &p.index, data.empty() ? nullptr : data.data(),
                                   static_cast<uint32_t>(data.size()), blob.empty() ? nullptr : words.data(),
                                   static_cast<uint32_t>(blob.size()), 0, layout, focus, index);
    return p;
}

int inspect(const std::string& file, const std::string& keyFile, int32_t focus, uint32_t layout) {
    const Bytes data = readFile(file);
    const Bytes blob = keyFile.empty() ? Bytes{} : readFile(keyFile);

    // An empty file means: the record embedded in the key blob.
    uint32_t length = static_cast<uint32_t>(data.size());
    calib::KeyBlobView view;
    if (length == 0 && blob.size() != calib::kKeySize &&
        calib::parseKeyBlob(blob.data(), static_cast<uint32_t>(blob.size()), view))
        length = view.recordSize;

    json out;
    out["length"] = length;
    calib::ContainerInfo info{};
    const bool known = calib::describeContainer(length, info);
    const Parsed first = parse(data, blob, 0, focus, layout);
    if (first.rc != 0 || !known) {
        out["error"] = hexCode(first.rc);
        std::cout << kvdsr::calibtool::dumpCompact(out) << "\n";
        return 2;
    }
    out["kind"] = info.kind;
    out["bodySize"] = info.bodySize;
    out["enciphered"] = info.enciphered;
    if (info.kind == 4) out["subRecord"] = (layout & 1u) ? 1 : 0;
    out["units"] = "mm";

    json bodies = json::array();
    const uint32_t count = info.kind == 4 || info.bodies > 1 ? info.bodies : 1;
    for (uint32_t i = 0; i < count; ++i) {
        const Parsed p = parse(data, blob, i, focus, layout);
        if (p.rc != 0) {
            out["error"] = hexCode(p.rc);
            std::cout << kvdsr::calibtool::dumpCompact(out) << "\n";
            return 2;
        }
        const pack::Body body = p.type == 1 ? pack::unpackKind1(p.block) : pack::unpackKind3(p.block);
        // Values the parser accepts but no module has: say so, without
        // changing the exit status.
        for (const std::string& w : kvdsr::calibtool::plausibilityWarnings(body))
            std::cerr << "kvdsr-calib: warning: " << file << ", body " << i << ", " << w << "\n";
        json j = kvdsr::calibtool::toJson(body);
        double P1[12], P2[12];
        for (int k = 0; k < 12; ++k) {
            P1[k] = body.camera1.projection[k];
            P2[k] = body.camera2.projection[k];
        }
        const double baseline = kvdsr::geom::cameraBaseline(P1, P2);
        j["baseline"] = std::isfinite(baseline) ? json(baseline) : json(nullptr);
        bodies.push_back(j);
    }
    out["bodies"] = bodies;

    const Parsed chosen = parse(data, blob, calib::kChooseByFocus, focus, layout);
    out["focusChoice"] = {{"focusPosition", focus}, {"layoutSelector", layout}, {"index", chosen.index}};
    std::cout << kvdsr::calibtool::dumpCompact(out) << "\n";
    return 0;
}

pack::Key keyFromFile(const std::string& path) {
    const Bytes blob = readFile(path);
    pack::Key key{};
    if (blob.size() == key.size()) {
        std::copy(blob.begin(), blob.end(), key.begin());
        return key;
    }
    calib::KeyBlobView view;
    if (!calib::parseKeyBlob(blob.data(), static_cast<uint32_t>(blob.size()), view))
        throw std::runtime_error(path + ": neither a 32-byte key nor a key blob");
    return pack::deriveKey(Bytes(view.keyMaterial, view.keyMaterial + view.keyMaterialSize));
}

int packCommand(const std::string& input, const std::string& output, uint32_t length, bool encipher,
                const std::string& keyFile, uint32_t ivSeed) {
    const Bytes text = readFile(input);
    const json doc = kvdsr::calibtool::parseDocument(std::string(text.begin(), text.end()), input);
    std::vector<pack::Body> bodies;
    try {
        bodies = kvdsr::calibtool::moduleFromJson(doc);
    } catch (const std::exception& e) {
        throw std::runtime_error(input + ": " + e.what());
    }
    if (length == 0) length = doc.value("container", 1547u);
    if (encipher) {
        static const std::map<uint32_t, uint32_t> kEnciphered = {{464, 496},   {466, 496},   {512, 544},
                                                                 {514, 544},   {1403, 1499}, {2801, 2993},
                                                                 {1547, 1643}, {1488, 2080}};
        const auto it = kEnciphered.find(length);
        if (it != kEnciphered.end()) length = it->second;
    }
    calib::ContainerInfo info;
    if (!calib::describeContainer(length, info)) throw std::runtime_error("not a container length: " + std::to_string(length));
    pack::PackOptions options;
    if (!keyFile.empty()) options.key = keyFromFile(keyFile);
    options.ivSeed = ivSeed;
    writeFile(output, pack::packContainer(bodies, length, options));
    std::cerr << "wrote " << length << " bytes (kind " << info.kind << ", " << (info.enciphered ? "enciphered" : "plain")
              << ") to " << output << "\n";
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{"Inspect and pack kvDSR calibration containers"};
    app.require_subcommand(1);

    std::string file, keyFile;
    int32_t focus = 0;
    uint32_t layout = 0;
    auto* inspectCmd = app.add_subcommand("inspect", "Print a container's bodies as JSON");
    inspectCmd->add_option("FILE", file, "Container (an empty file: the record in the key blob)")->required();
    inspectCmd->add_option("--key", keyFile, "32-byte key or key blob");
    inspectCmd->add_option("--focus", focus, "Focus actuator position for the focus rule");
    inspectCmd->add_option("--layout", layout, "Layout selector (kind 4: odd picks the second sub-record)");

    std::string input, output, packKey;
    uint32_t length = 0, ivSeed = 1;
    bool encipher = false;
    auto* packCmd = app.add_subcommand("pack", "Write a container from JSON bodies");
    packCmd->add_option("JSON", input, "Module JSON ({\"bodies\": [...]}, as inspect prints)")->required();
    packCmd->add_option("-o,--output", output, "Container file")->required();
    packCmd->add_option("--length", length, "Container length (default: the JSON's \"container\", else 1547)");
    packCmd->add_flag("--encipher", encipher, "Use the enciphered form of the container");
    packCmd->add_option("--key", packKey, "32-byte key or key blob (default: the built-in key)");
    packCmd->add_option("--iv-seed", ivSeed, "Seed of the reproducible IVs");

    std::string blobOut, materialHex, materialFile, recordFile;
    auto* blobCmd = app.add_subcommand("keyblob", "Write a key blob");
    blobCmd->add_option("-o,--output", blobOut, "Key blob file")->required();
    auto* hexOpt = blobCmd->add_option("--material", materialHex, "Key material as hex");
    blobCmd->add_option("--material-file", materialFile, "Key material file")->excludes(hexOpt);
    blobCmd->add_option("--record", recordFile, "Container to embed");

    std::string sampleOut;
    auto* sampleCmd = app.add_subcommand("sample", "Write the sample module as JSON");
    sampleCmd->add_option("-o,--output", sampleOut, "JSON file")->required();

    CLI11_PARSE(app, argc, argv);
    try {
        if (*inspectCmd) return inspect(file, keyFile, focus, layout);
        if (*packCmd) return packCommand(input, output, length, encipher, packKey, ivSeed);
        if (*blobCmd) {
            const Bytes material = !materialFile.empty() ? readFile(materialFile) : fromHex(materialHex);
            const Bytes record = recordFile.empty() ? Bytes{} : readFile(recordFile);
            writeFile(blobOut, pack::makeKeyBlob(material, record));
            return 0;
        }
        if (*sampleCmd) {
            json doc;
            doc["description"] =
                "Sample dual-camera module: camera 1 1600x1200 fixed focus, camera 2 4160x3120 autofocus, "
                "calibrated at 300, 1000 and 3000 mm. Regenerate with: kvdsr-calib sample -o FILE";
            doc["units"] = "mm";
            doc["container"] = 1547;
            doc["bodies"] = kvdsr::calibtool::moduleToJson(pack::sampleModule())["bodies"];
            std::ofstream(sampleOut) << kvdsr::calibtool::dumpCompact(doc) << "\n";
            return 0;
        }
    } catch (const std::exception& e) {
        std::cerr << "kvdsr-calib: " << e.what() << "\n";
        return 1;
    }
    return 1;
}
