#include "calibration/calib_parser.h"

#include <mbedtls/platform_util.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "calibration/calib_block.h"
#include "calibration/cipher.h"

namespace kvdsr::calib {

namespace {

constexpr uint32_t kOk = 0;
constexpr uint32_t kErrLength = 0x6002;
constexpr uint32_t kErrDecipher = 0x6004;
constexpr uint32_t kErrRevision = 0x6005;
constexpr uint32_t kErrReferenceWidth = 0x6006;
constexpr uint32_t kErrCamera1 = 0x6007;
constexpr uint32_t kErrCamera2 = 0x6008;
constexpr uint32_t kErrNoData = 0x600A;
constexpr uint32_t kErrNoRecord = 0x600B;
constexpr uint32_t kErrKey = 0x600C;

constexpr uint32_t kWorkSize = 2993;  // the largest container
constexpr uint32_t kMaxBodies = 6;

struct ContainerLayout {
    uint32_t length;
    uint8_t kind;         // 1, 3 or 4
    uint8_t bodies;       // 1, 3 or 6
    uint32_t first;       // offset of body 0
    uint32_t stride;      // distance between bodies
    uint32_t storedSize;  // bytes of one stored body
    bool enciphered;
    bool validate;        // 1643: revision and camera fields checked
};

constexpr ContainerLayout kLayouts[] = {
    {464, 1, 1, 0, 0, 464, false, false},    {466, 1, 1, 0, 0, 464, false, false},
    {496, 1, 1, 0, 0, 496, true, false},     {1403, 1, 3, 7, 466, 464, false, false},
    {2801, 1, 6, 7, 466, 464, false, false}, {1499, 1, 3, 7, 498, 496, true, false},
    {2993, 1, 6, 7, 498, 496, true, false},  {512, 3, 1, 0, 0, 512, false, false},
    {514, 3, 1, 0, 0, 512, false, false},    {544, 3, 1, 0, 0, 544, true, false},
    {1547, 3, 3, 7, 514, 512, false, false}, {1643, 3, 3, 7, 546, 544, true, true},
    {1488, 4, 1, 0, 0, 1488, false, false},  {2080, 4, 1, 0, 0, 1520, true, false},
};

const ContainerLayout* findLayout(uint32_t length) {
    for (const auto& l : kLayouts)
        if (l.length == length) return &l;
    return nullptr;
}

}  // namespace

bool describeContainer(uint32_t length, ContainerInfo& out) {
    const ContainerLayout* l = findLayout(length);
    if (l == nullptr) return false;
    out.kind = l->kind;
    out.bodies = l->kind == 4 ? 3 : l->bodies;
    out.bodySize = l->kind == 1 ? kKind1BodySize : kBlockSize;
    out.enciphered = l->enciphered;
    return true;
}

namespace {

// Work area of one parse; key and deciphered bodies are wiped on every exit.
struct Work {
    uint8_t key[kKeySize];
    uint8_t container[kWorkSize];
    uint8_t bodies[kMaxBodies][kBlockSize];
    uint8_t source[kind4::kSourceSize];
    ~Work() { mbedtls_platform_zeroize(this, sizeof *this); }
};

struct FocusValues {
    float focal, slope, infinity;
};

FocusValues focusValuesOf(const uint8_t* body, uint32_t kind) {
    if (kind == 1)
        return {load<float>(body, kind1::kFocalLength2), load<float>(body, kind1::kFocusSlope2),
                load<float>(body, kind1::kFocusInfinity2)};
    return {load<float>(body, k3::kFocalLength), load<float>(body, k3::kFocusSlope),
            load<float>(body, k3::kFocusInfinity)};
}

float objectDistanceOf(const uint8_t* body, uint32_t kind) {
    return load<float>(body, kind == 1 ? kind1::kObjectDistance2 : k3::kObjectDistance);
}

// Predicted actuator position of a body: thin-lens extension times slope
// plus the infinity position, truncated toward zero (kept in double so that
// no value can overflow an integer conversion).
double predictedPosition(const FocusValues& f, float distance) {
    const double F = f.focal, d = distance;
    const double extension = d * F / (d - F) - F;
    return std::trunc(static_cast<double>(f.infinity) + extension * static_cast<double>(f.slope));
}

// Ties go to the lower index; a NaN distance never wins.
uint32_t chooseByFocus(const FocusValues& f, const float distances[3], int32_t focus) {
    double a[3];
    for (int i = 0; i < 3; ++i) a[i] = std::fabs(static_cast<double>(focus) - predictedPosition(f, distances[i]));
    if (std::min(a[0], a[1]) > a[2]) return 2;
    if (a[0] > a[1]) return 1;
    return 0;
}

uint32_t validateKind3(const uint8_t* body) {
    if (load<uint16_t>(body, hdr::kRevision) < 2) return kErrRevision;
    const uint16_t reference = load<uint16_t>(body, hdr::kReferenceWidth);
    if (reference != load<uint16_t>(body, k3::kCamera1Width) && reference != load<uint16_t>(body, k3::kCamera2Width))
        return kErrReferenceWidth;
    if (load<int32_t>(body, kSectionOffset[1] + sec::kFirstField) < 1) return kErrCamera1;
    if (load<int32_t>(body, kSectionOffset[2] + sec::kFirstField) < 1) return kErrCamera2;
    return kOk;
}

void kind4ToBlock(const uint8_t* sub, uint32_t distance, uint8_t block[kBlockSize]) {
    std::memset(block, 0, kBlockSize);
    std::memcpy(block + hdr::kRevision, sub + kind4::kRevision, 2);
    std::memcpy(block + hdr::kReferenceWidth, sub + kind4::kReferenceWidth, 2);
    std::memcpy(block + kSectionOffset[1], sub + kind4::kSection1, kSectionSize);
    std::memcpy(block + kSectionOffset[2], sub + kind4::kSection2, kSectionSize);
    uint8_t* cam2 = block + kSectionOffset[2];
    std::memcpy(cam2 + sec::kFocalLength, sub + kind4::kFocalLength, 4);
    std::memcpy(cam2 + sec::kFocusSlope, sub + kind4::kFocusSlope, 4);
    std::memcpy(cam2 + sec::kFocusInfinity, sub + kind4::kFocusInfinity, 4);
    std::memcpy(cam2 + sec::kObjectDistance, sub + kind4::kDistances + 4 * distance, 4);
    std::memcpy(block + kSectionOffset[1] + sec::kObjectDistance, sub + kind4::kDistances + 4 * distance, 4);
    const uint8_t* per = sub + kind4::kPerDistance + kind4::kPerDistanceSize * distance;
    std::memcpy(cam2 + sec::kProjection, per + kind4::kPdProjection, 48);
    std::memcpy(cam2 + sec::kPrincipalX, per + kind4::kPdPrincipalX, 2);
    std::memcpy(cam2 + sec::kPrincipalY, per + kind4::kPdPrincipalY, 2);
}

}  // namespace

uint32_t parseCalibration(uint8_t block[512], uint32_t* calibSize, uint32_t* calibType, uint32_t* calibIndex,
                          const uint8_t* data, uint32_t dataSize, const uint32_t* keyBlob, uint32_t keyBlobSize,
                          int32_t /*reserved*/, uint32_t layoutSelector, int32_t focusPosition,
                          uint32_t requestedIndex) {
    const uint8_t* blob = reinterpret_cast<const uint8_t*>(keyBlob);
    const bool haveData = data != nullptr && dataSize != 0;
    const bool haveBlob = blob != nullptr && keyBlobSize != 0;
    if (!haveData && !haveBlob) return kErrNoData;

    Work work;
    KeyBlobView view;
    bool blobParsed = false;
    if (!haveBlob) {
        std::memcpy(work.key, kDefaultKey, kKeySize);
    } else if (keyBlobSize == kKeySize) {
        std::memcpy(work.key, blob, kKeySize);
    } else {
        if (!parseKeyBlob(blob, keyBlobSize, view)) return kErrKey;
        if (view.keyMaterialSize == 0)
            std::memcpy(work.key, kDefaultKey, kKeySize);
        else if (!deriveKey(view.keyMaterial, view.keyMaterialSize, work.key))
            return kErrKey;
        blobParsed = true;
    }

    const uint8_t* input = data;
    uint32_t inputSize = dataSize;
    if (!haveData) {
        if (!blobParsed || view.recordSize == 0) return kErrNoRecord;
        input = view.record;
        inputSize = view.recordSize;
    }

    const ContainerLayout* layout = findLayout(inputSize);
    if (layout == nullptr) return kErrLength;
    std::memcpy(work.container, input, inputSize);

    if (layout->kind == 4) {
        if (layout->enciphered) {
            if (!decipherBody(work.key, kKeySize, work.container, layout->storedSize, work.source,
                              kind4::kSourceSize))
                return kErrDecipher;
        } else {
            std::memcpy(work.source, work.container, kind4::kSourceSize);
        }
        const uint8_t* sub = work.source + ((layoutSelector & 1u) ? kind4::kSubRecordSize : 0);
        const FocusValues focus{load<float>(sub, kind4::kFocalLength), load<float>(sub, kind4::kFocusSlope),
                                load<float>(sub, kind4::kFocusInfinity)};
        float distances[3];
        for (int i = 0; i < 3; ++i) distances[i] = load<float>(sub, kind4::kDistances + 4 * i);
        const uint32_t chosen = requestedIndex != kChooseByFocus ? requestedIndex
                                                                 : chooseByFocus(focus, distances, focusPosition);
        if (chosen < 3)
            kind4ToBlock(sub, chosen, block);
        else
            std::memset(block, 0, kBlockSize);
        if (calibSize) *calibSize = kBlockSize;
        if (calibType) *calibType = 4;
        if (calibIndex) *calibIndex = chosen;
        return kOk;
    }

    const uint32_t bodySize = layout->kind == 1 ? kKind1BodySize : kBlockSize;
    for (uint32_t i = 0; i < layout->bodies; ++i) {
        const uint8_t* stored = work.container + layout->first + layout->stride * i;
        if (layout->enciphered) {
            if (!decipherBody(work.key, kKeySize, stored, layout->storedSize, work.bodies[i], bodySize))
                return kErrDecipher;
        } else {
            std::memcpy(work.bodies[i], stored, bodySize);
        }
        if (layout->validate) {
            const uint32_t rc = validateKind3(work.bodies[i]);
            if (rc != kOk) return rc;
        }
    }

    uint32_t chosen = 0;
    if (layout->bodies > 1) {
        if (requestedIndex != kChooseByFocus) {
            chosen = requestedIndex;
        } else {
            float distances[3];
            for (int i = 0; i < 3; ++i) distances[i] = objectDistanceOf(work.bodies[i], layout->kind);
            chosen = chooseByFocus(focusValuesOf(work.bodies[0], layout->kind), distances, focusPosition);
        }
    }
    // An index past the container's bodies reads an empty body instead of
    // whatever lies beyond them.
    if (chosen < layout->bodies)
        std::memcpy(block, work.bodies[chosen], bodySize);
    else
        std::memset(block, 0, bodySize);

    if (calibSize) *calibSize = bodySize;
    if (calibType) *calibType = layout->kind;
    if (calibIndex) *calibIndex = chosen;
    return kOk;
}

}  // namespace kvdsr::calib
