#include "calibpack.h"

#include <mbedtls/aes.h>
#include <mbedtls/hkdf.h>
#include <mbedtls/md.h>

#include <cmath>
#include <cstring>
#include <stdexcept>

#include "calibration/calib_block.h"
#include "calibration/calib_parser.h"
#include "calibration/cipher.h"

namespace kvdsr::calibpack {

namespace calib = kvdsr::calib;
using calib::load;
using calib::store;

namespace {

template <size_t N>
void storeFloats(uint8_t* p, uint32_t offset, const std::array<float, N>& v) {
    for (size_t i = 0; i < N; ++i) store<float>(p, offset + 4 * static_cast<uint32_t>(i), v[i]);
}
template <size_t N>
void loadFloats(const uint8_t* p, uint32_t offset, std::array<float, N>& v) {
    for (size_t i = 0; i < N; ++i) v[i] = load<float>(p, offset + 4 * static_cast<uint32_t>(i));
}

// Field offsets of one section layout; kind 1 has no number and no map values.
struct SectionLayout {
    int64_t number, homography, projection, mapValues, modelWidth, modelHeight, calibWidth, calibHeight, pitch,
        slope, infinity, focal, distance, principalX, principalY, count, radii, values;
};
constexpr SectionLayout kKind3Section{
    calib::sec::kFirstField,     calib::sec::kHomography,     calib::sec::kProjection,       calib::sec::kMapValues,
    calib::sec::kModelWidth,     calib::sec::kModelHeight,    calib::sec::kCalibWidth,       calib::sec::kCalibHeight,
    calib::sec::kPixelPitch,     calib::sec::kFocusSlope,     calib::sec::kFocusInfinity,    calib::sec::kFocalLength,
    calib::sec::kObjectDistance, calib::sec::kPrincipalX,     calib::sec::kPrincipalY,       calib::sec::kDistortionCount,
    calib::sec::kDistortionRadii, calib::sec::kDistortionValues};
constexpr SectionLayout kKind1Section{
    -1,
    calib::kind1::kHomography,
    calib::kind1::kProjection,
    -1,
    calib::kind1::kModelWidth,
    calib::kind1::kModelHeight,
    calib::kind1::kCalibWidth,
    calib::kind1::kCalibHeight,
    calib::kind1::kPixelPitch,
    calib::kind1::kFocusSlope,
    calib::kind1::kFocusInfinity,
    calib::kind1::kFocalLength,
    calib::kind1::kObjectDistance,
    calib::kind1::kPrincipalX,
    calib::kind1::kPrincipalY,
    calib::kind1::kDistortionCount,
    calib::kind1::kDistortionRadii,
    calib::kind1::kDistortionValues};

void writeSection(uint8_t* s, const SectionLayout& l, const CameraSection& c) {
    if (l.number >= 0) store<int32_t>(s, l.number, c.number);
    storeFloats(s, l.homography, c.homography);
    storeFloats(s, l.projection, c.projection);
    if (l.mapValues >= 0) {
        store<uint16_t>(s, l.mapValues, c.mapValues[0]);
        store<uint16_t>(s, l.mapValues + 2, c.mapValues[1]);
    }
    store<uint16_t>(s, l.modelWidth, c.modelWidth);
    store<uint16_t>(s, l.modelHeight, c.modelHeight);
    store<uint16_t>(s, l.calibWidth, c.calibWidth);
    store<uint16_t>(s, l.calibHeight, c.calibHeight);
    store<float>(s, l.pitch, c.pixelPitch);
    store<float>(s, l.slope, c.focusSlope);
    store<float>(s, l.infinity, c.focusInfinity);
    store<float>(s, l.focal, c.focalLength);
    store<float>(s, l.distance, c.objectDistance);
    store<uint16_t>(s, l.principalX, c.principalX);
    store<uint16_t>(s, l.principalY, c.principalY);
    const size_t n = std::min<size_t>(c.distortion.size(), calib::sec::kMaxDistortionEntries);
    store<uint16_t>(s, l.count, static_cast<uint16_t>(n));
    for (size_t i = 0; i < n; ++i) {
        store<int16_t>(s, l.radii + 2 * static_cast<uint32_t>(i), c.distortion[i].radius);
        store<int16_t>(s, l.values + 2 * static_cast<uint32_t>(i), c.distortion[i].distortion);
    }
}

CameraSection readSection(const uint8_t* s, const SectionLayout& l) {
    CameraSection c;
    c.number = l.number >= 0 ? load<int32_t>(s, l.number) : 0;
    loadFloats(s, l.homography, c.homography);
    loadFloats(s, l.projection, c.projection);
    if (l.mapValues >= 0) c.mapValues = {load<uint16_t>(s, l.mapValues), load<uint16_t>(s, l.mapValues + 2)};
    c.modelWidth = load<uint16_t>(s, l.modelWidth);
    c.modelHeight = load<uint16_t>(s, l.modelHeight);
    c.calibWidth = load<uint16_t>(s, l.calibWidth);
    c.calibHeight = load<uint16_t>(s, l.calibHeight);
    c.pixelPitch = load<float>(s, l.pitch);
    c.focusSlope = load<float>(s, l.slope);
    c.focusInfinity = load<float>(s, l.infinity);
    c.focalLength = load<float>(s, l.focal);
    c.objectDistance = load<float>(s, l.distance);
    c.principalX = load<uint16_t>(s, l.principalX);
    c.principalY = load<uint16_t>(s, l.principalY);
    // A corrupt count is shown as far as the table reaches.
    const uint16_t n = std::min<uint16_t>(load<uint16_t>(s, l.count), calib::sec::kMaxDistortionEntries);
    for (uint16_t i = 0; i < n; ++i)
        c.distortion.push_back({load<int16_t>(s, l.radii + 2u * i), load<int16_t>(s, l.values + 2u * i)});
    return c;
}

void writeKind4SubRecord(uint8_t* sub, const Body* bodies[3]) {
    using namespace calib::kind4;
    const Body& first = *bodies[0];
    store<uint16_t>(sub, kRevision, first.revision);
    store<uint16_t>(sub, kReferenceWidth, first.referenceWidth);
    store<uint16_t>(sub, kDistanceCount, 3);
    store<float>(sub, kFocalLength, first.camera2.focalLength);
    store<float>(sub, kFocusSlope, first.camera2.focusSlope);
    store<float>(sub, kFocusInfinity, first.camera2.focusInfinity);
    writeSection(sub + kSection1, kKind3Section, first.camera1);
    writeSection(sub + kSection2, kKind3Section, first.camera2);
    for (uint32_t i = 0; i < 3; ++i) {
        const CameraSection& cam2 = bodies[i]->camera2;
        store<float>(sub, kDistances + 4 * i, cam2.objectDistance);
        uint8_t* per = sub + kPerDistance + kPerDistanceSize * i;
        storeFloats(per, kPdProjection, cam2.projection);
        store<uint16_t>(per, kPdPrincipalX, cam2.principalX);
        store<uint16_t>(per, kPdPrincipalY, cam2.principalY);
    }
}

std::array<uint8_t, 16> ivFor(uint32_t seed, uint32_t index) {
    // Reproducible, distinct per body; not a secret.
    std::array<uint8_t, 16> iv{};
    uint64_t x = (static_cast<uint64_t>(seed) << 32) ^ (index + 0x9E3779B97F4A7C15ull);
    for (auto& b : iv) {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        b = static_cast<uint8_t>(x >> 24);
    }
    return iv;
}

void put(Bytes& out, size_t offset, const Bytes& part) {
    std::memcpy(out.data() + offset, part.data(), part.size());
}

}  // namespace

Bytes packKind1(const Body& body) {
    Bytes out(calib::kKind1BodySize, 0);
    writeSection(out.data() + calib::kind1::kSectionOffset[1], kKind1Section, body.camera1);
    writeSection(out.data() + calib::kind1::kSectionOffset[2], kKind1Section, body.camera2);
    return out;
}

Bytes packKind3(const Body& body) {
    Bytes out(calib::kBlockSize, 0);
    store<uint16_t>(out.data(), calib::hdr::kRevision, body.revision);
    store<uint16_t>(out.data(), calib::hdr::kReferenceWidth, body.referenceWidth);
    writeSection(out.data() + calib::kSectionOffset[1], kKind3Section, body.camera1);
    writeSection(out.data() + calib::kSectionOffset[2], kKind3Section, body.camera2);
    return out;
}

Bytes packKind4Source(const std::vector<Body>& pair0, const std::vector<Body>& pair1) {
    if (pair0.size() < 3 || pair1.size() < 3) throw std::invalid_argument("kind 4 needs three bodies per pair");
    Bytes out(calib::kind4::kSourceSize, 0);
    const Body* a[3] = {&pair0[0], &pair0[1], &pair0[2]};
    const Body* b[3] = {&pair1[0], &pair1[1], &pair1[2]};
    writeKind4SubRecord(out.data(), a);
    writeKind4SubRecord(out.data() + calib::kind4::kSubRecordSize, b);
    return out;
}

Body unpackKind1(const uint8_t* body464) {
    Body b;
    b.revision = 0;
    b.camera1 = readSection(body464 + calib::kind1::kSectionOffset[1], kKind1Section);
    b.camera2 = readSection(body464 + calib::kind1::kSectionOffset[2], kKind1Section);
    b.referenceWidth = b.camera2.calibWidth;
    return b;
}

Body unpackKind3(const uint8_t* block512) {
    Body b;
    b.revision = load<uint16_t>(block512, calib::hdr::kRevision);
    b.referenceWidth = load<uint16_t>(block512, calib::hdr::kReferenceWidth);
    b.camera1 = readSection(block512 + calib::kSectionOffset[1], kKind3Section);
    b.camera2 = readSection(block512 + calib::kSectionOffset[2], kKind3Section);
    return b;
}

Key defaultKey() {
    Key k;
    std::memcpy(k.data(), calib::kDefaultKey, k.size());
    return k;
}

Key deriveKey(const Bytes& keyMaterial) {
    if (keyMaterial.empty()) return defaultKey();
    Key k{};
    const mbedtls_md_info_t* sha256 = mbedtls_md_info_from_type(MBEDTLS_MD_SHA256);
    const int rc = mbedtls_hkdf(sha256, reinterpret_cast<const unsigned char*>(calib::keyblob::kSalt),
                                sizeof calib::keyblob::kSalt - 1, keyMaterial.data(), keyMaterial.size(),
                                reinterpret_cast<const unsigned char*>(calib::keyblob::kInfo),
                                sizeof calib::keyblob::kInfo - 1, k.data(), k.size());
    if (rc != 0) throw std::runtime_error("HKDF failed");
    return k;
}

Bytes encipher(const Bytes& plain, const Key& key, const std::array<uint8_t, 16>& iv) {
    const size_t pad = 16 - plain.size() % 16;
    Bytes padded(plain);
    padded.insert(padded.end(), pad, static_cast<uint8_t>(pad));
    Bytes out(16 + padded.size());
    std::memcpy(out.data(), iv.data(), 16);
    mbedtls_aes_context aes;
    mbedtls_aes_init(&aes);
    std::array<uint8_t, 16> chain = iv;
    int rc = mbedtls_aes_setkey_enc(&aes, key.data(), 256);
    if (rc == 0)
        rc = mbedtls_aes_crypt_cbc(&aes, MBEDTLS_AES_ENCRYPT, padded.size(), chain.data(), padded.data(),
                                   out.data() + 16);
    mbedtls_aes_free(&aes);
    if (rc != 0) throw std::runtime_error("AES failed");
    return out;
}

Bytes makeKeyBlob(const Bytes& keyMaterial, const Bytes& record) {
    const uint32_t header = calib::keyblob::kHeaderSize;
    Bytes out(header + keyMaterial.size() + record.size(), 0);
    std::memcpy(out.data(), calib::keyblob::kMagic, 4);
    store<uint16_t>(out.data(), 4, calib::keyblob::kVersion);
    store<uint32_t>(out.data(), 8, static_cast<uint32_t>(keyMaterial.size()));
    store<uint32_t>(out.data(), 12, static_cast<uint32_t>(record.size()));
    if (!keyMaterial.empty()) std::memcpy(out.data() + header, keyMaterial.data(), keyMaterial.size());
    if (!record.empty()) std::memcpy(out.data() + header + keyMaterial.size(), record.data(), record.size());
    return out;
}

std::vector<uint32_t> containerLengths() {
    return {464, 466, 496, 512, 514, 544, 1403, 1488, 1499, 1547, 1643, 2080, 2801, 2993};
}

Bytes packContainer(const std::vector<Body>& bodies, uint32_t length, const PackOptions& options) {
    calib::ContainerInfo info;
    if (!calib::describeContainer(length, info)) throw std::invalid_argument("not a container length");
    if (bodies.empty()) throw std::invalid_argument("no bodies");
    auto body = [&](size_t i) -> const Body& { return bodies[i % bodies.size()]; };

    Bytes out(length, 0);
    if (info.kind == 4) {
        const std::vector<Body> pair0{body(0), body(1), body(2)}, pair1{body(3), body(4), body(5)};
        const Bytes source = packKind4Source(pair0, pair1);
        put(out, 0, info.enciphered ? encipher(source, options.key, ivFor(options.ivSeed, 0)) : source);
        return out;
    }

    const uint32_t stored = info.enciphered ? calib::encipheredSize(info.bodySize) : info.bodySize;
    const uint32_t first = info.bodies > 1 ? 7 : 0;
    const uint32_t stride = stored + 2;
    if (info.bodies > 1) {
        // Seven-byte header, ignored by the parser.
        const uint8_t header[7] = {'K', 'V', 'C', static_cast<uint8_t>(info.kind),
                                   static_cast<uint8_t>(info.bodies), info.enciphered ? uint8_t(1) : uint8_t(0), 0};
        std::memcpy(out.data(), header, sizeof header);
    }
    for (uint32_t i = 0; i < info.bodies; ++i) {
        Bytes plain = info.kind == 1 ? packKind1(body(i)) : packKind3(body(i));
        put(out, first + stride * i, info.enciphered ? encipher(plain, options.key, ivFor(options.ivSeed, i)) : plain);
    }
    return out;
}

}  // namespace kvdsr::calibpack
