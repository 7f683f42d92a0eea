#include <gtest/gtest.h>

#include <cmath>

#include "calibration/calib_block.h"
#include "parse_helper.h"

namespace kvdsr {
namespace {

using calib::kChooseByFocus;
using calibpack::Body;
using calibpack::Bytes;
using testing::parse;

Bytes expectedBlock(const Body& body, uint32_t kind) {
    Bytes b = kind == 1 ? calibpack::packKind1(body) : calibpack::packKind3(body);
    b.resize(512, 0);
    return b;
}

Bytes blockOf(const testing::Parsed& p) { return Bytes(p.block.begin(), p.block.end()); }

// ---- Container lengths ----------------------------------------------------

class EveryContainer : public ::testing::TestWithParam<uint32_t> {};

TEST_P(EveryContainer, RoundTripsEveryBodyWithTheDefaultKey) {
    const uint32_t length = GetParam();
    const auto bodies = calibpack::sampleModule();
    calib::ContainerInfo info;
    ASSERT_TRUE(calib::describeContainer(length, info));
    const Bytes data = calibpack::packContainer(bodies, length);
    ASSERT_EQ(data.size(), length);
    for (uint32_t i = 0; i < info.bodies; ++i) {
        const auto p = parse(data, {}, i);
        ASSERT_EQ(p.rc, 0u) << "body " << i;
        EXPECT_EQ(p.type, info.kind);
        EXPECT_EQ(p.size, info.bodySize);
        const uint32_t expectedIndex = info.bodies == 1 && info.kind != 4 ? 0 : i;
        EXPECT_EQ(p.index, expectedIndex);
        const Body& body = bodies[expectedIndex % bodies.size()];
        if (info.kind == 4) {
            // Kind 4 rebuilds a kind-3 block from the shared sections and the
            // per-distance values, which the sample module keeps consistent.
            EXPECT_EQ(blockOf(p), expectedBlock(body, 3)) << "distance " << i;
        } else {
            EXPECT_EQ(blockOf(p), expectedBlock(body, info.kind)) << "body " << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Lengths, EveryContainer, ::testing::ValuesIn(calibpack::containerLengths()));

TEST(ContainerLength, NeighboursOfAcceptedLengthsAreRejected) {
    const auto lengths = calibpack::containerLengths();
    const auto accepted = [&](uint32_t n) { return std::find(lengths.begin(), lengths.end(), n) != lengths.end(); };
    for (uint32_t n : lengths)
        for (uint32_t m : {n - 1, n + 1, n + 16})
            if (!accepted(m)) {
                Bytes junk(m, 0x5A);
                EXPECT_EQ(parse(junk).rc, 0x6002u) << m;
            }
    EXPECT_EQ(parse(Bytes(465, 0)).rc, 0x6002u);
    EXPECT_EQ(parse(Bytes(5000, 0)).rc, 0x6002u);
    EXPECT_EQ(parse(Bytes(1, 0)).rc, 0x6002u);
}

TEST(ContainerLength, TrailingAndHeaderBytesAreIgnored) {
    const auto bodies = calibpack::sampleModule();
    for (uint32_t length : {466u, 514u, 1403u, 1547u, 2801u}) {
        Bytes data = calibpack::packContainer(bodies, length);
        const auto clean = parse(data, {}, 0);
        if (length > 1000) std::fill(data.begin(), data.begin() + 7, 0xEE);
        data.back() = length == 466 || length == 514 ? 0xEE : data.back();
        const auto dirty = parse(data, {}, 0);
        ASSERT_EQ(dirty.rc, 0u);
        EXPECT_EQ(blockOf(dirty), blockOf(clean)) << length;
    }
}

TEST(ContainerLength, KindOneFillsOnlyTheFirst464Bytes) {
    const auto p = parse(calibpack::packContainer(calibpack::sampleModule(), 464));
    ASSERT_EQ(p.rc, 0u);
    for (size_t i = 464; i < 512; ++i) EXPECT_EQ(p.block[i], 0) << i;
}

// ---- Keys and enciphering -------------------------------------------------

TEST(Keys, MissingDataAndBlob) {
    EXPECT_EQ(parse({}, {}).rc, 0x600Au);
    uint8_t block[512] = {};
    uint32_t s, t, i;
    const uint8_t one = 0;
    // A length without a buffer, or a buffer without a length, is no data.
    EXPECT_EQ(calib::parseCalibration(block, &s, &t, &i, nullptr, 512, nullptr, 0, 0, 0, 0, 0), 0x600Au);
    EXPECT_EQ(calib::parseCalibration(block, &s, &t, &i, &one, 0, nullptr, 0, 0, 0, 0, 0), 0x600Au);
}

TEST(Keys, ThirtyTwoByteBlobIsTheKey) {
    calibpack::PackOptions opt;
    for (size_t i = 0; i < opt.key.size(); ++i) opt.key[i] = static_cast<uint8_t>(3 * i + 1);
    const Bytes blob(opt.key.begin(), opt.key.end());
    for (uint32_t length : {496u, 544u, 1499u, 1643u, 2080u, 2993u}) {
        const Bytes data = calibpack::packContainer(calibpack::sampleModule(), length, opt);
        EXPECT_EQ(parse(data, blob, 0).rc, 0u) << length;
        EXPECT_EQ(parse(data, {}, 0).rc, 0x6004u) << "default key must not open " << length;
        Bytes wrong = blob;
        wrong[5] ^= 1;
        EXPECT_EQ(parse(data, wrong, 0).rc, 0x6004u) << length;
    }
}

TEST(Keys, DerivedKeyFromBlobMaterial) {
    const Bytes material{'m', 'o', 'd', 'u', 'l', 'e', '-', '4', '2'};
    calibpack::PackOptions opt;
    opt.key = calibpack::deriveKey(material);
    const Bytes data = calibpack::packContainer(calibpack::sampleModule(), 1643, opt);
    const auto p = parse(data, calibpack::makeKeyBlob(material), 2);
    ASSERT_EQ(p.rc, 0u);
    EXPECT_EQ(blockOf(p), expectedBlock(calibpack::sampleModule()[2], 3));
    Bytes other = material;
    other.back() = '3';
    EXPECT_EQ(parse(data, calibpack::makeKeyBlob(other), 2).rc, 0x6004u);
    // A 32-byte blob is taken as the key itself, never as blob material.
    EXPECT_EQ(parse(data, Bytes(opt.key.begin(), opt.key.end()), 2).rc, 0u);
}

TEST(Keys, RecordEmbeddedInTheBlob) {
    const Bytes material{1, 2, 3, 4, 5};
    calibpack::PackOptions opt;
    opt.key = calibpack::deriveKey(material);
    for (uint32_t length : {544u, 1488u, 2080u, 2801u}) {
        const Bytes record = calibpack::packContainer(calibpack::sampleModule(), length, opt);
        const auto fromBlob = parse({}, calibpack::makeKeyBlob(material, record), 1);
        const auto direct = parse(record, calibpack::makeKeyBlob(material), 1);
        ASSERT_EQ(fromBlob.rc, 0u) << length;
        ASSERT_EQ(direct.rc, 0u) << length;
        EXPECT_EQ(blockOf(fromBlob), blockOf(direct)) << length;
        EXPECT_EQ(fromBlob.type, direct.type);
    }
    // Given data wins over the embedded record.
    const Bytes embedded = calibpack::packContainer(calibpack::sampleModule(), 512);
    EXPECT_EQ(parse(Bytes(465, 0), calibpack::makeKeyBlob(material, embedded)).rc, 0x6002u);
}

TEST(Keys, BlobWithoutRecordOrMalformed) {
    const Bytes noRecord = calibpack::makeKeyBlob({9, 9, 9});
    EXPECT_EQ(parse({}, noRecord).rc, 0x600Bu);
    EXPECT_EQ(parse({}, Bytes(32, 7)).rc, 0x600Bu);  // a bare key carries no record
    // The embedded record still has to be a known length.
    EXPECT_EQ(parse({}, calibpack::makeKeyBlob({9}, Bytes(100, 0))).rc, 0x6002u);

    const Bytes good = calibpack::makeKeyBlob({9, 9, 9}, calibpack::packContainer(calibpack::sampleModule(), 512));
    const auto mutate = [&](size_t at, uint8_t v) {
        Bytes b = good;
        b[at] = v;
        return b;
    };
    const Bytes data = calibpack::packContainer(calibpack::sampleModule(), 512);
    EXPECT_EQ(parse(data, good).rc, 0u);
    EXPECT_EQ(parse(data, mutate(0, 'X')).rc, 0x600Cu);   // magic
    EXPECT_EQ(parse(data, mutate(4, 2)).rc, 0x600Cu);     // version
    EXPECT_EQ(parse(data, mutate(6, 1)).rc, 0x600Cu);     // flags
    EXPECT_EQ(parse(data, mutate(8, 4)).rc, 0x600Cu);     // material length past the record
    EXPECT_EQ(parse(data, mutate(15, 1)).rc, 0x600Cu);    // huge record length
    EXPECT_EQ(parse(data, Bytes(good.begin(), good.end() - 1)).rc, 0x600Cu);
    EXPECT_EQ(parse(data, Bytes(good.begin(), good.begin() + 12)).rc, 0x600Cu);
    // The key is checked before the data: a malformed blob wins over a bad length.
    EXPECT_EQ(parse(Bytes(465, 0), mutate(0, 'X')).rc, 0x600Cu);
}

TEST(Keys, CorruptCipherTextFailsToDecipher) {
    for (uint32_t length : {496u, 544u, 1499u, 2080u}) {
        Bytes data = calibpack::packContainer(calibpack::sampleModule(), length);
        // The last byte of the (first) enciphered body lies in its padding block.
        const uint32_t lastByte = length == 496 ? 495 : length == 544 ? 543 : length == 1499 ? 7 + 495 : 1519;
        data[lastByte] ^= 0x40;
        EXPECT_EQ(parse(data, {}, 0).rc, 0x6004u) << length;
    }
}

// ---- 1643 validations ------------------------------------------------------

struct Fault {
    const char* name;
    void (*apply)(Body&);
    uint32_t code;
};

const Fault kFaults[] = {
    {"revision", [](Body& b) { b.revision = 1; }, 0x6005},
    {"reference width", [](Body& b) { b.referenceWidth = 1234; }, 0x6006},
    {"camera 1 field", [](Body& b) { b.camera1.number = 0; }, 0x6007},
    {"camera 2 field", [](Body& b) { b.camera2.number = -5; }, 0x6008},
};

TEST(Validation, EachFaultHasItsCodeInEveryBody) {
    for (const Fault& f : kFaults)
        for (int bad = 0; bad < 3; ++bad) {
            auto bodies = calibpack::sampleModule();
            f.apply(bodies[bad]);
            EXPECT_EQ(parse(calibpack::packContainer(bodies, 1643), {}, 0).rc, f.code) << f.name << " in body " << bad;
            // Only the enciphered three-body container is validated.
            EXPECT_EQ(parse(calibpack::packContainer(bodies, 1547), {}, 0).rc, 0u) << f.name;
            EXPECT_EQ(parse(calibpack::packContainer(bodies, 544), {}, 0).rc, 0u) << f.name;
        }
}

TEST(Validation, FirstFailingCheckWins) {
    for (size_t first = 0; first < std::size(kFaults); ++first)
        for (size_t later = first + 1; later < std::size(kFaults); ++later) {
            auto bodies = calibpack::sampleModule();
            kFaults[later].apply(bodies[0]);
            kFaults[first].apply(bodies[0]);
            EXPECT_EQ(parse(calibpack::packContainer(bodies, 1643)).rc, kFaults[first].code)
                << kFaults[first].name << " before " << kFaults[later].name;
        }
    // Bodies are checked in order.
    auto bodies = calibpack::sampleModule();
    kFaults[3].apply(bodies[0]);
    kFaults[0].apply(bodies[1]);
    EXPECT_EQ(parse(calibpack::packContainer(bodies, 1643)).rc, 0x6008u);
}

TEST(Validation, ReferenceWidthMayBeEitherCamera) {
    auto bodies = calibpack::sampleModule();
    for (auto& b : bodies) b.referenceWidth = b.camera1.calibWidth;
    EXPECT_EQ(parse(calibpack::packContainer(bodies, 1643)).rc, 0u);
}

// ---- Focus choice -------------------------------------------------------------

// With focal length 4, distance d gives extension 4d/(d-4) - 4: 8 -> 4, 12 -> 2, 20 -> 1.
// Slope 10 and infinity position 100 put the bodies at 140, 120 and 110.
std::vector<Body> focusBodies(std::vector<float> distances) {
    std::vector<Body> bodies;
    for (size_t i = 0; i < distances.size(); ++i) {
        Body b = calibpack::sampleModule()[0];
        b.camera2.focalLength = 4.0f;
        b.camera2.focusSlope = i == 0 ? 10.0f : 999.0f;  // only body 0's focus values count
        b.camera2.focusInfinity = i == 0 ? 100.0f : -999.0f;
        b.camera2.objectDistance = distances[i];
        b.camera2.principalX = static_cast<uint16_t>(1000 + i);  // tells the bodies apart
        bodies.push_back(b);
    }
    return bodies;
}

struct FocusCase {
    std::vector<float> distances;
    int32_t focus;
    uint32_t expected;
};

class FocusChoice : public ::testing::TestWithParam<FocusCase> {};

TEST_P(FocusChoice, PicksTheNearestPredictedPositionTiesToLowerIndex) {
    const FocusCase& c = GetParam();
    const auto bodies = focusBodies(c.distances);
    for (uint32_t length : {1403u, 1547u, 1643u, 2801u, 2993u, 1488u, 2080u}) {
        const auto p = parse(calibpack::packContainer(bodies, length), {}, kChooseByFocus, c.focus);
        ASSERT_EQ(p.rc, 0u) << length;
        EXPECT_EQ(p.index, c.expected) << length;
        const uint32_t pxOffset = p.type == 1 ? calib::kind1::kSectionOffset[2] + calib::kind1::kPrincipalX
                                              : calib::kSectionOffset[2] + calib::sec::kPrincipalX;
        EXPECT_EQ(calib::load<uint16_t>(p.block.data(), pxOffset), 1000 + c.expected) << length;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FocusChoice,
    ::testing::Values(FocusCase{{8, 12, 20}, 140, 0}, FocusCase{{8, 12, 20}, 121, 1}, FocusCase{{8, 12, 20}, 100, 2},
                      FocusCase{{8, 12, 20}, 130, 0},   // 0 and 1 tie
                      FocusCase{{12, 20, 12}, 115, 0},  // all three tie
                      FocusCase{{20, 12, 8}, 115, 0},   // 0 and 1 tie, 2 further
                      FocusCase{{8, 20, 12}, 130, 0},   // 2 ties with the nearer of 0 and 1
                      FocusCase{{8, 20, 12}, 125, 2}, FocusCase{{20, 8, 12}, 135, 1},
                      FocusCase{{8, 12, 20, 20, 20, 20}, 110, 2}));

TEST(FocusChoice, SixBodiesChooseAmongTheFirstThreeButAnIndexReachesAll) {
    // Bodies 3..5 would match the focus exactly; focus selection never looks at them.
    const auto bodies = focusBodies({8, 12, 12, 20, 20, 20});
    for (uint32_t length : {2801u, 2993u}) {
        const Bytes data = calibpack::packContainer(bodies, length);
        const auto byFocus = parse(data, {}, kChooseByFocus, 110);
        ASSERT_EQ(byFocus.rc, 0u);
        EXPECT_EQ(byFocus.index, 1u);
        for (uint32_t i = 3; i < 6; ++i) {
            const auto p = parse(data, {}, i);
            ASSERT_EQ(p.rc, 0u);
            EXPECT_EQ(p.index, i);
            EXPECT_EQ(blockOf(p), expectedBlock(bodies[i], 1));
        }
    }
}

TEST(FocusChoice, SingleBodiesIgnoreIndexAndFocus) {
    for (uint32_t length : {464u, 496u, 512u, 544u}) {
        const auto p = parse(calibpack::packContainer(calibpack::sampleModule(), length), {}, 2, 999);
        ASSERT_EQ(p.rc, 0u);
        EXPECT_EQ(p.index, 0u);
    }
}

TEST(RequestedIndex, PastTheBodiesGivesAnEmptyBody) {
    for (uint32_t length : {1403u, 1547u, 1643u, 2801u, 1488u}) {
        for (uint32_t index : {3u, 6u, 7u, 0xFFFFFFFEu}) {
            const Bytes data = calibpack::packContainer(calibpack::sampleModule(), length);
            calib::ContainerInfo info;
            calib::describeContainer(length, info);
            if (index < info.bodies) continue;
            testing::Parsed p = parse(data, {}, index);
            ASSERT_EQ(p.rc, 0u);
            EXPECT_EQ(p.index, index);
            EXPECT_EQ(blockOf(p), Bytes(512, 0)) << length << " index " << index;
        }
    }
}

// ---- Kind 4 -----------------------------------------------------------------

TEST(Kind4, LayoutSelectorPicksTheSubRecord) {
    auto bodies = calibpack::sampleModule();
    auto second = bodies;
    for (auto& b : second) {
        b.camera1.principalX = 4321;
        b.camera2.projection[3] += 10.0f;
    }
    bodies.insert(bodies.end(), second.begin(), second.end());
    for (uint32_t length : {1488u, 2080u})
        for (uint32_t layout = 0; layout < 4; ++layout) {
            const auto p = parse(calibpack::packContainer(bodies, length), {}, 1, 0, layout);
            ASSERT_EQ(p.rc, 0u);
            EXPECT_EQ(p.type, 4u);
            EXPECT_EQ(p.size, 512u);
            EXPECT_EQ(blockOf(p), expectedBlock(bodies[(layout & 1) ? 4 : 1], 3)) << "layout " << layout;
        }
}

TEST(Kind4, PerDistanceValuesComeFromTheChosenDistance) {
    const auto bodies = calibpack::sampleModule();
    const Bytes data = calibpack::packContainer(bodies, 1488);
    for (uint32_t i = 0; i < 3; ++i) {
        const auto p = parse(data, {}, i);
        ASSERT_EQ(p.rc, 0u);
        const auto b = calibpack::unpackKind3(p.block.data());
        EXPECT_EQ(b.camera2.objectDistance, bodies[i].camera2.objectDistance);
        EXPECT_EQ(b.camera2.projection, bodies[i].camera2.projection);
        EXPECT_EQ(b.camera2.focalLength, bodies[0].camera2.focalLength);
    }
}

// ---- Summary ------------------------------------------------------------------

TEST(Summary, KindOneAndKindThreeAgreeOnTheSameBody) {
    const Body body = calibpack::sampleModule()[1];
    calib::CalibSummary s1, s3, untouched;
    const Bytes k1 = expectedBlock(body, 1), k3 = expectedBlock(body, 3);
    ASSERT_TRUE(calib::readSummary(k1.data(), 1, s1));
    ASSERT_TRUE(calib::readSummary(k3.data(), 3, s3));
    for (const auto* s : {&s1, &s3}) {
        EXPECT_EQ(s->width, 4160);
        EXPECT_EQ(s->height, 3120);
        EXPECT_EQ(s->pixelPitch, body.camera2.pixelPitch);
        EXPECT_EQ(s->focalLength, body.camera2.focalLength);
        for (int i = 0; i < 12; ++i) {
            EXPECT_EQ(s->projection1[i], body.camera1.projection[i]);
            EXPECT_EQ(s->projection2[i], body.camera2.projection[i]);
        }
    }
    calib::CalibSummary s4 = untouched;
    ASSERT_TRUE(calib::readSummary(k3.data(), 4, s4));
    EXPECT_EQ(s4.width, 4160);
    calib::CalibSummary s2;
    EXPECT_FALSE(calib::readSummary(k3.data(), 2, s2));
    EXPECT_EQ(s2.width, 0);
}

}  // namespace
}  // namespace kvdsr

namespace kvdsr {
namespace {

TEST(Kind1, ExpandsIntoTheSectionLayout) {
    for (calibpack::Body body : calibpack::sampleModule()) {
        body.camera1.mapValues = {0, 0};
        body.camera2.mapValues = {0, 0};
        const auto p = testing::parse(calibpack::packContainer({body}, 464));
        ASSERT_EQ(p.rc, 0u);
        auto block = p.block;
        calib::expandKind1(block.data(), block.data());
        body.revision = 0;
        body.referenceWidth = body.camera2.calibWidth;
        body.camera1.number = 1;
        body.camera2.number = 2;
        EXPECT_EQ(calibpack::Bytes(block.begin(), block.end()), calibpack::packKind3(body));
    }
}

}  // namespace
}  // namespace kvdsr
