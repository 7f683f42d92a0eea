// Calibration, key material and calling orders a hostile or careless caller
// may produce, on every engine: garbage and implausible calibration in every
// accepted container length, key blobs of every odd length, run before Init,
// double Close, re-Init with other sizes, failed and out-of-memory Inits.
//
// What must hold: Init returns 0 or a documented code; a failed Init leaves
// the engine as it was (same bytes from the next run), or, after running out
// of memory, uninitialised; a run after an Init that accepted nonsense values
// still returns a code and stays inside the caller's buffers.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "calibpack.h"
#include "calibration/calib_parser.h"
#include "caller_memory.h"
#include "kvDSR.h"

namespace {

using kvdsr::test::CallerBuffer;
using kvdsr::test::CallerFrame;
using kvdsr::test::FrameShape;
using kvdsr::test::Placement;
using Bytes = std::vector<uint8_t>;
namespace pack = kvdsr::calibpack;

const std::vector<pack::Body>& module() {
    static const std::vector<pack::Body> m = pack::sampleModule();
    return m;
}
const Bytes& goodCalibration() {
    static const Bytes c = pack::packContainer(module(), 1547);
    return c;
}

bool isParserCode(uint32_t rc) {
    return rc == kvDSR_ERR_CALIB_LENGTH || (rc >= kvDSR_ERR_CALIB_DECIPHER && rc <= kvDSR_ERR_CALIB_CAMERA2) ||
           (rc >= kvDSR_ERR_CALIB_NO_DATA && rc <= kvDSR_ERR_CALIB_KEY);
}
// Map-build codes a stereo view or SPR Init may pass on.
bool isRemapCode(uint32_t rc) { return rc == 0xC115 || rc == 0xC117 || (rc >= 0xD000 && rc <= 0xD119); }
bool isInitCode(uint32_t rc) {
    return rc == 0 || isParserCode(rc) || isRemapCode(rc) || rc == kvDSR_ERR_SIZE_COMBINATION ||
           rc == kvDSR_ERR_OUT_OF_MEMORY;
}

struct RunResult {
    uint32_t status = 0;
    Bytes out;
    bool untouched = false;
    bool ringsIntact = false;
};

FrameShape packed420(size_t w, size_t h, uint32_t seed) {
    FrameShape f;
    f.w = w;
    f.h = h;
    f.seed = seed;
    return f;
}

// Runs a call into one output buffer of `bytes`, prefilled, and records it.
RunResult capture(size_t bytes, const std::function<uint32_t(uint8_t*)>& call,
                  const std::vector<const CallerFrame*>& frames = {}) {
    CallerBuffer out(bytes);
    out.fill(0x3C);
    const Bytes before = out.bytes();
    RunResult r;
    r.status = call(out.data());
    r.out = out.bytes();
    r.untouched = r.out == before;
    r.ringsIntact = out.ringIntact();
    for (const CallerFrame* f : frames) r.ringsIntact = r.ringsIntact && f->ringsIntact();
    return r;
}

// One engine at one small size: how to Init it, how to run one frame, how
// to ask it for more memory than there is.
struct Probe {
    std::string name;
    std::function<uint32_t(const uint8_t*, uint32_t, const uint32_t*, uint32_t)> init;
    std::function<uint32_t()> initHuge;
    std::function<RunResult()> run;
    std::function<uint32_t()> close;
};

std::unique_ptr<CallerBuffer> disparity(size_t dw, size_t dh) {
    auto m = std::make_unique<CallerBuffer>(dw * dh);
    for (size_t i = 0; i < dw * dh; ++i) m->data()[i] = i % 13 == 0 ? 255 : uint8_t(20 + (i * 7) % 90);
    return m;
}

// 4:3 frames with a 4:3 map; the binocular width leaves room for its
// 20-column margin.
constexpr uint16_t kW = 24, kH = 18, kDw = 8, kDh = 6;

const std::vector<Probe>& probes() {
    static const std::vector<Probe> p = {
        {"depth view",
         [](const uint8_t* c, uint32_t n, const uint32_t* k, uint32_t kn) {
             return kvDSR_Init(c, n, k, kn, kW, kH, kDw, kDh, 300);
         },
         [] { return kvDSR_Init(goodCalibration().data(), uint32_t(goodCalibration().size()), nullptr, 0, 65535,
                                65535, 65535, 65535, 300); },
         [] {
             CallerFrame img(packed420(kW, kH, 1));
             auto map = disparity(kDw, kDh);
             kvDSR_ImageDesc d{kvDSR_FMT_DEPTH8, {0, 0, 0}, {map->data(), nullptr, nullptr}};
             RunResult r = capture(size_t(kW) * kH * 3 / 2,
                                   [&](uint8_t* o) { return kvDSR_Run(o, img.desc(), kW, kH, &d, kDw, kDh); }, {&img});
             r.ringsIntact = r.ringsIntact && map->ringIntact();
             return r;
         },
         kvDSR_Close},
        {"binocular",
         [](const uint8_t* c, uint32_t n, const uint32_t* k, uint32_t kn) {
             return kvDSR_Binocular_Init(c, n, k, kn, kW, kH, kDw, kDh, 800);
         },
         [] { return kvDSR_Binocular_Init(goodCalibration().data(), uint32_t(goodCalibration().size()), nullptr, 0,
                                          65535, 65535, 65535, 65535, 800); },
         [] {
             FrameShape ls = packed420(kW, kH, 1), rs = packed420(kW, kH, 2);
             ls.stridesHonoured = rs.stridesHonoured = false;
             CallerFrame l(ls), rt(rs);
             auto map = disparity(kDw, kDh);
             kvDSR_ImageDesc d{kvDSR_FMT_DEPTH8, {0, 0, 0}, {map->data(), nullptr, nullptr}};
             RunResult r = capture(
                 size_t(kW) * kH * 3 / 2,
                 [&](uint8_t* o) { return kvDSR_Binocular_Run(o, l.desc(), rt.desc(), kW, kH, &d, kDw, kDh); },
                 {&l, &rt});
             r.ringsIntact = r.ringsIntact && map->ringIntact();
             return r;
         },
         kvDSR_Binocular_Close},
        {"stereo view",
         [](const uint8_t* c, uint32_t n, const uint32_t* k, uint32_t kn) {
             return kvDSR_StereoView_Init(c, n, k, kn, kW, kH);
         },
         [] { return kvDSR_StereoView_Init(goodCalibration().data(), uint32_t(goodCalibration().size()), nullptr, 0,
                                           65535, 65535); },
         [] {
             CallerFrame a(packed420(kW, kH, 1)), b(packed420(kW, kH, 2));
             return capture(size_t(kW) * kH * 3, [&](uint8_t* o) {
                 return kvDSR_StereoView_Run_SideBySide(o, 2 * kW, kH, a.desc(), b.desc(), kW, kH);
             }, {&a, &b});
         },
         kvDSR_StereoView_Close},
        {"SPR",
         [](const uint8_t* c, uint32_t n, const uint32_t* k, uint32_t kn) {
             return kvDSR_SPR_Init(c, n, k, kn, kW, kH, kW / 2, kH / 2);
         },
         [] { return kvDSR_SPR_Init(goodCalibration().data(), uint32_t(goodCalibration().size()), nullptr, 0, 65535,
                                    65535, 65535, 65535); },
         [] {
             CallerFrame a(packed420(kW, kH, 1)), b(packed420(kW, kH, 2));
             const size_t view = size_t(kW / 2) * (kH / 2) * 3 / 2;
             return capture(2 * view, [&](uint8_t* o) {
                 return kvDSR_SPR_Run(o, o + view, a.desc(), b.desc(), kW, kH, kW / 2, kH / 2);
             }, {&a, &b});
         },
         kvDSR_SPR_Close},
        {"focal shift",
         [](const uint8_t* c, uint32_t n, const uint32_t* k, uint32_t kn) {
             return kvDSR_StereoView_FocalAlignmentShift_Init(c, n, k, kn, kW, kH, 400);
         },
         [] { return kvDSR_StereoView_FocalAlignmentShift_Init(goodCalibration().data(),
                                                               uint32_t(goodCalibration().size()), nullptr, 0, 65535,
                                                               65535, 400); },
         [] {
             // Half width: needs the intermediate buffer of Init.
             FrameShape fs = packed420(2 * kW, kH, 3);
             fs.stridesHonoured = false;
             CallerFrame f(fs);
             return capture(size_t(kW) * kH * 3 / 2, [&](uint8_t* o) {
                 return kvDSR_StereoView_FocalAlignmentShiftSideBySide(o, kW, kH, f.desc(), 2 * kW, kH);
             }, {&f});
         },
         kvDSR_StereoView_FocalAlignmentShift_Close},
    };
    return p;
}

uint32_t initGood(const Probe& p) {
    return p.init(goodCalibration().data(), uint32_t(goodCalibration().size()), nullptr, 0);
}

class EveryEngine : public ::testing::TestWithParam<size_t> {
protected:
    const Probe& probe() const { return probes()[GetParam()]; }
    void TearDown() override { probe().close(); }

    // Inits with the good calibration and returns the reference frame.
    RunResult reference() {
        EXPECT_EQ(initGood(probe()), kvDSR_OK);
        RunResult ref = probe().run();
        EXPECT_EQ(ref.status, kvDSR_OK);
        EXPECT_TRUE(ref.ringsIntact);
        return ref;
    }

    // Starting from the good calibration's state: after a refused Init the
    // engine must give the reference bytes again; after an accepted one it
    // must still run inside the caller's buffers.
    void expectStateAfter(const std::function<uint32_t()>& attempt, const RunResult& ref) {
        ASSERT_EQ(initGood(probe()), kvDSR_OK);
        const uint32_t rc = attempt();
        ASSERT_TRUE(isInitCode(rc)) << std::hex << rc;
        const RunResult r = probe().run();
        EXPECT_TRUE(r.ringsIntact);
        if (rc != 0) {
            EXPECT_EQ(r.status, ref.status) << "state lost by a refused Init " << std::hex << rc;
            EXPECT_TRUE(r.out == ref.out) << "bytes changed by a refused Init " << std::hex << rc;
        } else {
            EXPECT_EQ(r.status, kvDSR_OK);
        }
    }
};

std::string probeName(const ::testing::TestParamInfo<size_t>& p) {
    std::string n = probes()[p.param].name;
    for (char& c : n)
        if (c == ' ') c = '_';
    return n;
}

// ---- Calibration -----------------------------------------------------------------

TEST_P(EveryEngine, GarbageInEveryContainerLength) {
    const RunResult ref = reference();
    std::mt19937 rng(GetParam() + 11);
    for (uint32_t length : pack::containerLengths())
        for (int variant = 0; variant < 3; ++variant) {
            SCOPED_TRACE(std::to_string(length) + " variant " + std::to_string(variant));
            CallerBuffer garbage(length, variant);
            for (size_t i = 0; i < length; ++i)
                garbage.data()[i] = variant == 2 ? 0xFF : uint8_t(rng());
            expectStateAfter([&] { return probe().init(garbage.data(), length, nullptr, 0); }, ref);
            EXPECT_TRUE(garbage.ringIntact());
        }
}

// Values no module has, in bodies that parse: the engines must neither divide
// their way into undefined conversions nor index outside their tables.
TEST_P(EveryEngine, ImplausibleValuesInEveryContainerLength) {
    const RunResult ref = reference();
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = std::numeric_limits<float>::infinity();
    using Edit = std::function<void(pack::CameraSection&)>;
    const std::vector<std::pair<const char*, Edit>> edits = {
        {"negative pitch", [](auto& c) { c.pixelPitch = -c.pixelPitch; }},
        {"zero pitch", [](auto& c) { c.pixelPitch = 0; }},
        {"NaN pitch", [=](auto& c) { c.pixelPitch = nan; }},
        {"infinite pitch", [=](auto& c) { c.pixelPitch = inf; }},
        {"tiny pitch", [](auto& c) { c.pixelPitch = 1e-38f; }},
        {"negative focal length", [](auto& c) { c.focalLength = -c.focalLength; }},
        {"zero focal length", [](auto& c) { c.focalLength = 0; }},
        {"NaN focal length", [=](auto& c) { c.focalLength = nan; }},
        {"huge focal length", [](auto& c) { c.focalLength = 3e38f; }},
        {"zero calibrated size", [](auto& c) { c.calibWidth = c.calibHeight = c.modelWidth = c.modelHeight = 0; }},
        {"huge calibrated size", [](auto& c) { c.calibWidth = c.calibHeight = 65535; }},
        {"zero projection", [](auto& c) { c.projection.fill(0); }},
        {"NaN projection", [=](auto& c) { c.projection.fill(nan); }},
        {"huge projection", [](auto& c) { c.projection.fill(3e38f); }},
        {"NaN homography", [=](auto& c) { c.homography.fill(nan); }},
        {"singular homography", [](auto& c) { c.homography.fill(0); }},
        {"no distortion table", [](auto& c) { c.distortion.clear(); }},
        {"wild distortion", [](auto& c) {
             for (auto& e : c.distortion) e = {int16_t(-e.radius), int16_t(32767)};
         }},
        {"far principal point", [](auto& c) { c.principalX = c.principalY = 65535; }},
    };
    for (const auto& [what, edit] : edits) {
        std::vector<pack::Body> bodies = module();
        for (auto& b : bodies) {
            edit(b.camera1);
            edit(b.camera2);
        }
        for (uint32_t length : pack::containerLengths()) {
            SCOPED_TRACE(std::string(what) + " in " + std::to_string(length));
            const Bytes c = pack::packContainer(bodies, length);
            expectStateAfter([&] { return probe().init(c.data(), uint32_t(c.size()), nullptr, 0); }, ref);
        }
    }
}

TEST_P(EveryEngine, KeyBlobsOfEveryLength) {
    const RunResult ref = reference();
    const Bytes material{'s', 'e', 'e', 'd', '-', 'k', 'e', 'y'};
    pack::PackOptions derived;
    derived.key = pack::deriveKey(material);
    const Bytes full = pack::makeKeyBlob(material);
    std::mt19937 rng(GetParam() + 5);
    bool sweptPrefixes = false;
    for (uint32_t length : pack::containerLengths()) {
        kvdsr::calib::ContainerInfo info;
        ASSERT_TRUE(kvdsr::calib::describeContainer(length, info));
        if (!info.enciphered) continue;
        SCOPED_TRACE(length);
        const Bytes sealed = pack::packContainer(module(), length, derived);
        auto initWith = [&](const Bytes& blob, bool withData) {
            // Exactly the blob's bytes; the parser takes them as 32-bit words.
            CallerBuffer b(blob.size());
            if (!blob.empty()) std::memcpy(b.data(), blob.data(), blob.size());
            const uint32_t rc = probe().init(withData ? sealed.data() : nullptr, withData ? length : 0,
                                             reinterpret_cast<const uint32_t*>(b.data()), uint32_t(blob.size()));
            EXPECT_TRUE(b.ringIntact());
            return rc;
        };
        // Every prefix of a good blob (the blob is read before the container
        // is, so one container length is enough), then random blobs of odd
        // lengths.
        for (size_t n = 1; n < full.size() && !sweptPrefixes; ++n) {
            SCOPED_TRACE("prefix " + std::to_string(n));
            expectStateAfter([&] { return initWith(Bytes(full.begin(), full.begin() + n), true); }, ref);
        }
        sweptPrefixes = true;
        for (size_t n : {1, 2, 3, 5, 7, 15, 17, 31, 33, 63, 65, 255, 1001}) {
            Bytes blob(n);
            for (auto& v : blob) v = uint8_t(rng());
            if (n > 4) std::memcpy(blob.data(), full.data(), 4);  // magic, then nonsense
            expectStateAfter([&] { return initWith(blob, true); }, ref);
        }
        // A header that claims more key material or record than follows.
        Bytes lying = full;
        std::memset(lying.data() + 8, 0xFF, 8);
        expectStateAfter([&] { return initWith(lying, true); }, ref);
        expectStateAfter([&] { return initWith(lying, false); }, ref);
        // The record carried inside the blob, whole and cut short.
        const Bytes embedded = pack::makeKeyBlob(material, sealed);
        EXPECT_EQ(initWith(embedded, false), kvDSR_OK);
        for (size_t n : {embedded.size() - 1, embedded.size() - 16, full.size() + 3})
            expectStateAfter([&] { return initWith(Bytes(embedded.begin(), embedded.begin() + n), false); }, ref);
        EXPECT_EQ(initWith(full, true), kvDSR_OK);
    }
}

TEST_P(EveryEngine, MissingOrMisSizedCalibration) {
    const RunResult ref = reference();
    const Bytes& good = goodCalibration();
    const uint32_t n = uint32_t(good.size());
    uint32_t key[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_EQ(probe().init(nullptr, n, nullptr, 0), kvDSR_ERR_CALIB_NO_DATA);
    EXPECT_EQ(probe().init(good.data(), 0, nullptr, 0), kvDSR_ERR_CALIB_NO_DATA);
    EXPECT_EQ(probe().init(nullptr, 0, nullptr, 32), kvDSR_ERR_CALIB_NO_DATA);
    EXPECT_EQ(probe().init(nullptr, 0, key, 0), kvDSR_ERR_CALIB_NO_DATA);
    // Lengths no container has are refused before a byte is read, even a
    // claim far beyond the buffer.
    for (uint32_t size : {1u, n - 1, n + 1, 463u, 465u, 0xFFFFFFFFu}) {
        CallerBuffer c(std::min<uint32_t>(size, 4096));
        EXPECT_EQ(probe().init(c.data(), size, nullptr, 0), kvDSR_ERR_CALIB_LENGTH) << size;
        EXPECT_TRUE(c.ringIntact());
    }
    const RunResult r = probe().run();
    EXPECT_TRUE(r.out == ref.out);
    // A plain container with a key blob is read as it is.
    EXPECT_EQ(probe().init(good.data(), n, key, 32), kvDSR_OK);
}

// ---- Calling orders ----------------------------------------------------------------

TEST_P(EveryEngine, RunBeforeInitAndAfterCloseWritesNothing) {
    probe().close();
    probe().close();
    RunResult r = probe().run();
    EXPECT_EQ(r.status, kvDSR_ERR_NOT_INITIALISED);
    EXPECT_TRUE(r.untouched && r.ringsIntact);
    const RunResult ref = reference();
    EXPECT_EQ(probe().close(), kvDSR_OK);
    EXPECT_EQ(probe().close(), kvDSR_OK);
    r = probe().run();
    EXPECT_EQ(r.status, kvDSR_ERR_NOT_INITIALISED);
    EXPECT_TRUE(r.untouched && r.ringsIntact);
    // And it comes back whole.
    ASSERT_EQ(initGood(probe()), kvDSR_OK);
    r = probe().run();
    EXPECT_EQ(r.status, kvDSR_OK);
    EXPECT_TRUE(r.out == ref.out);
}

TEST_P(EveryEngine, RepeatedInitGivesTheSameBytes) {
    const RunResult ref = reference();
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(initGood(probe()), kvDSR_OK);
        const RunResult r = probe().run();
        EXPECT_TRUE(r.out == ref.out) << i;
    }
}

TEST_P(EveryEngine, OutOfMemoryInitLeavesTheEngineAsBeforeOrUninitialised) {
    const RunResult ref = reference();
    EXPECT_EQ(probe().initHuge(), kvDSR_ERR_OUT_OF_MEMORY);
    const RunResult r = probe().run();
    EXPECT_TRUE(r.ringsIntact);
    if (r.status == kvDSR_ERR_NOT_INITIALISED) {
        EXPECT_TRUE(r.untouched);
    } else {
        EXPECT_EQ(r.status, kvDSR_OK);
        EXPECT_TRUE(r.out == ref.out);
    }
    ASSERT_EQ(initGood(probe()), kvDSR_OK);
    EXPECT_TRUE(probe().run().out == ref.out);
}

INSTANTIATE_TEST_SUITE_P(Engines, EveryEngine, ::testing::Range<size_t>(0, 5), probeName);

// Other engines' Init and Close leave an engine's bytes alone (the SPR and
// stereo view engines share their parameter blocks).
TEST(Engines, OneEnginesLifecycleLeavesTheOthersAlone) {
    std::vector<RunResult> refs;
    for (const Probe& p : probes()) {
        ASSERT_EQ(initGood(p), kvDSR_OK) << p.name;
        refs.push_back(p.run());
    }
    for (size_t i = 0; i < probes().size(); ++i) {
        const Probe& other = probes()[i];
        // Another calibration (a different module layout) for the one engine.
        ASSERT_EQ(kvDSR_CameraLayout_Set(2), kvDSR_OK);
        const Bytes kind4 = pack::packContainer(module(), 1488);
        EXPECT_TRUE(isInitCode(other.init(kind4.data(), uint32_t(kind4.size()), nullptr, 0)));
        ASSERT_EQ(kvDSR_CameraLayout_Set(4), kvDSR_OK);
        other.close();
        for (size_t j = 0; j < probes().size(); ++j) {
            if (j == i) continue;
            const RunResult r = probes()[j].run();
            EXPECT_EQ(r.status, kvDSR_OK) << other.name << " -> " << probes()[j].name;
            EXPECT_TRUE(r.out == refs[j].out) << other.name << " -> " << probes()[j].name;
        }
        ASSERT_EQ(initGood(other), kvDSR_OK);
    }
    for (const Probe& p : probes()) p.close();
}

// Re-Init with other sizes: the old sizes are refused, the new ones work.
TEST(Engines, ReInitWithOtherSizes) {
    const Bytes& c = goodCalibration();
    const uint32_t n = uint32_t(c.size());
    CallerBuffer tiny(1);
    kvDSR_ImageDesc f{kvDSR_FMT_YUV420SP, {0, 0, 0}, {tiny.data(), tiny.data(), nullptr}};
    kvDSR_ImageDesc d{kvDSR_FMT_DEPTH8, {0, 0, 0}, {tiny.data(), nullptr, nullptr}};
    ASSERT_EQ(kvDSR_Init(c.data(), n, nullptr, 0, 64, 48, 16, 12, 300), kvDSR_OK);
    ASSERT_EQ(kvDSR_Init(c.data(), n, nullptr, 0, 32, 18, 16, 9, 300), kvDSR_OK);
    EXPECT_EQ(kvDSR_Run(tiny.data(), &f, 64, 48, &d, 16, 12), kvDSR_ERR_SIZE_COMBINATION);
    ASSERT_EQ(kvDSR_Binocular_Init(c.data(), n, nullptr, 0, 64, 48, 16, 12, 300), kvDSR_OK);
    ASSERT_EQ(kvDSR_Binocular_Init(c.data(), n, nullptr, 0, 32, 18, 16, 9, 300), kvDSR_OK);
    EXPECT_EQ(kvDSR_Binocular_Run(tiny.data(), &f, &f, 64, 48, &d, 16, 12), kvDSR_ERR_SIZE_COMBINATION);
    ASSERT_EQ(kvDSR_StereoView_Init(c.data(), n, nullptr, 0, 64, 48), kvDSR_OK);
    ASSERT_EQ(kvDSR_StereoView_Init(c.data(), n, nullptr, 0, 32, 18), kvDSR_OK);
    EXPECT_EQ(kvDSR_StereoView_Run(tiny.data(), tiny.data(), &f, &f, 64, 48), kvDSR_ERR_SIZE_COMBINATION);
    ASSERT_EQ(kvDSR_SPR_Init(c.data(), n, nullptr, 0, 64, 48, 32, 24), kvDSR_OK);
    ASSERT_EQ(kvDSR_SPR_Init(c.data(), n, nullptr, 0, 32, 18, 16, 9), kvDSR_OK);
    EXPECT_EQ(kvDSR_SPR_Run(tiny.data(), tiny.data(), &f, &f, 64, 48, 32, 24), kvDSR_ERR_SIZE_COMBINATION);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShift_Init(c.data(), n, nullptr, 0, 64, 48, 500), kvDSR_OK);
    ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShift_Init(c.data(), n, nullptr, 0, 16, 9, 500), kvDSR_OK);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(tiny.data(), 64, 48, &f, 128, 48),
              kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_TRUE(tiny.ringIntact());

    // The new sizes run, inside buffers of exactly their size.
    CallerFrame img(packed420(32, 18, 9)), other(packed420(32, 18, 10));
    auto map = disparity(16, 9);
    kvDSR_ImageDesc dm{kvDSR_FMT_DEPTH8, {0, 0, 0}, {map->data(), nullptr, nullptr}};
    const size_t view = 32 * 18 * 3 / 2;
    EXPECT_EQ(capture(view, [&](uint8_t* o) { return kvDSR_Run(o, img.desc(), 32, 18, &dm, 16, 9); }).status, 0u);
    EXPECT_EQ(capture(2 * view, [&](uint8_t* o) {
                  return kvDSR_StereoView_Run(o, o + view, img.desc(), other.desc(), 32, 18);
              }).status,
              0u);
    EXPECT_EQ(capture(2 * 16 * 9 * 3 / 2, [&](uint8_t* o) {
                  return kvDSR_SPR_Run(o, o + 16 * 9 * 3 / 2, img.desc(), other.desc(), 32, 18, 16, 9);
              }).status,
              0u);
    EXPECT_TRUE(img.ringsIntact() && other.ringsIntact() && map->ringIntact());
    kvDSR_Close();
    kvDSR_Binocular_Close();
    kvDSR_StereoView_Close();
    kvDSR_SPR_Close();
    kvDSR_StereoView_FocalAlignmentShift_Close();
}

}  // namespace
