// Calibration packer: builds every container the parser accepts from plain
// C++ values, so that tests, benchmarks and tools make their fixtures from
// source instead of binary files. Lengths are in millimetres throughout the
// sample module (focal length, pixel pitch, distortion radii, translations).
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace kvdsr::calibpack {

using Bytes = std::vector<uint8_t>;
using Key = std::array<uint8_t, 32>;

struct DistortionEntry {
    int16_t radius;      // thousandths of the radius unit (mm)
    int16_t distortion;  // thousandths of a percent
};

// One camera section, as held in a kind-3 block (kind 1 drops `number` and
// `mapValues`).
struct CameraSection {
    int32_t number = 1;  // the section's first field; the parser wants >= 1
    std::array<float, 9> homography{1, 0, 0, 0, 1, 0, 0, 0, 1};
    std::array<float, 12> projection{};
    std::array<uint16_t, 2> mapValues{};
    uint16_t modelWidth = 0, modelHeight = 0;
    uint16_t calibWidth = 0, calibHeight = 0;
    float pixelPitch = 0, focusSlope = 0, focusInfinity = 0, focalLength = 0, objectDistance = 0;
    uint16_t principalX = 0, principalY = 0;  // 1/16 pixel
    std::vector<DistortionEntry> distortion;  // at most 22 entries are stored
};

struct Body {
    uint16_t revision = 2;
    uint16_t referenceWidth = 0;
    CameraSection camera1, camera2;
};

// Single bodies.
Bytes packKind1(const Body& body);  // 464 bytes
Bytes packKind3(const Body& body);  // 512 bytes
// Kind-4 source (1488 bytes): sub-record 0 from pair0, sub-record 1 from
// pair1, three bodies each. Sections come from the first body of a pair;
// focal length, slope and infinity position from its camera 2; each body
// gives its object distance and camera 2's projection and principal point.
Bytes packKind4Source(const std::vector<Body>& pair0, const std::vector<Body>& pair1);

// Reading back (inspection, tests): a kind-1 body or a 512-byte block.
Body unpackKind1(const uint8_t* body464);
Body unpackKind3(const uint8_t* block512);

// Keys and enciphering.
Key defaultKey();
Key deriveKey(const Bytes& keyMaterial);  // HKDF-SHA256 as the library derives it
// IV || AES-256-CBC(plain + PKCS#7).
Bytes encipher(const Bytes& plain, const Key& key, const std::array<uint8_t, 16>& iv);
// Key blob: magic, version, key material, optional embedded record.
Bytes makeKeyBlob(const Bytes& keyMaterial, const Bytes& record = {});

struct PackOptions {
    Key key = defaultKey();
    uint32_t ivSeed = 1;  // IVs are derived from it: packing is reproducible
};

// Every container length the parser accepts, ascending.
std::vector<uint32_t> containerLengths();
// Builds a container of the given length. Body i of the container is
// bodies[i % bodies.size()]; kind 4 uses bodies 0..2 for sub-record 0 and
// 3..5 for sub-record 1. Throws std::invalid_argument for an unknown length
// or no bodies.
Bytes packContainer(const std::vector<Body>& bodies, uint32_t length, const PackOptions& options = {});

// The realistic module: camera 1 at 1600x1200, camera 2 at 4160x3120, three
// bodies calibrated at 300, 1000 and 3000 mm.
std::vector<Body> sampleModule();

}  // namespace kvdsr::calibpack
