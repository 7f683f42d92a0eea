// Frames a hostile or careless caller passes to the run functions: every
// plane layout (packed, padded, strides below the width, separate or
// contiguous planes, odd addresses), null planes, unknown and mismatched
// formats, sizes other than Init's, degenerate and odd sizes. Every buffer is
// exactly as large as the arguments say (caller_memory.h), so the sanitizer
// builds see any access outside it.
//
// What must hold: a layout the engine accepts gives the bytes of the packed
// layout of the same picture; a refused call returns its code and writes
// nothing; nothing is ever written outside the caller's buffers.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "calibpack.h"
#include "caller_memory.h"
#include "kvDSR.h"

namespace {

using kvdsr::test::CallerBuffer;
using kvdsr::test::CallerFrame;
using kvdsr::test::FrameShape;
using kvdsr::test::Placement;
using Bytes = std::vector<uint8_t>;
using FormatPair = std::pair<uint32_t, uint32_t>;

const Bytes& calibration() {
    static const Bytes c = kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 1547);
    return c;
}
uint32_t calibSize() { return uint32_t(calibration().size()); }

bool isDefinedCode(uint32_t rc) {
    return rc == 0 || (rc >= kvDSR_ERR_BUFFER_TOO_SMALL && rc <= kvDSR_ERR_OUT_OF_MEMORY && rc != 0x74006);
}

// Output prefill: luma area 0, the rest 128, the state the engines clear to,
// so that paths that clear and paths that do not agree on unreached bytes.
std::unique_ptr<CallerBuffer> output(size_t bytes, size_t lumaBytes) {
    auto out = std::make_unique<CallerBuffer>(bytes);
    out->fill(128);
    std::memset(out->data(), 0, std::min(bytes, lumaBytes));
    return out;
}

// ---- Depth maps -------------------------------------------------------------

enum class MapContent { Random, Ramp, Invalid, Constant };

struct MapShape {
    uint32_t format;
    MapContent content;
    size_t misalign;
};

std::string name(const MapShape& m) {
    static const char* kinds[] = {"random", "ramp", "invalid", "constant"};
    return std::string(m.format == kvDSR_FMT_DEPTH8 ? "d8-" : "d16-") + kinds[int(m.content)] +
           (m.misalign ? "-odd" : "");
}

// Random: blocks with invalid pixels. Ramp: a first pixel of 0 (the far
// plane) and nearer ones after it, so a 16-bit ramp of two or more pixels is
// never constant once converted (an 8-bit one can be, where the map's
// height makes every disparity tiny). Invalid/Constant: constant after the
// conversion, so the flat-depth shortcut is taken.
std::unique_ptr<CallerBuffer> depthMap(const MapShape& m, size_t dw, size_t dh, uint32_t seed) {
    const bool wide = m.format == kvDSR_FMT_DEPTH16;
    auto buf = std::make_unique<CallerBuffer>(dw * dh * (wide ? 2 : 1), m.misalign);
    std::mt19937 rng(seed);
    const uint16_t invalid = wide ? 1023 : 255;
    for (size_t i = 0; i < dw * dh; ++i) {
        uint16_t v = 0;
        switch (m.content) {
            case MapContent::Random:
                v = rng() % 20 == 0 ? invalid : uint16_t(4 + ((i % dw) / 3 * 37 + (i / dw) / 3 * 11 + rng() % 5) % 150);
                if (wide && v != invalid) v = uint16_t(v * 6 % 1023);
                break;
            case MapContent::Ramp: v = i == 0 ? 0 : uint16_t(10 + (i * 37) % (wide ? 1000 : 150)); break;
            case MapContent::Invalid: v = invalid; break;
            case MapContent::Constant: v = 40; break;
        }
        if (wide)
            std::memcpy(buf->data() + 2 * i, &v, 2);
        else
            buf->data()[i] = uint8_t(v);
    }
    return buf;
}

kvDSR_ImageDesc depthDesc(uint32_t format, uint8_t* plane) { return {format, {0, 0, 0}, {plane, nullptr, nullptr}}; }

// ---- Depth view -------------------------------------------------------------

struct Sizes {
    uint16_t w, h, dw, dh;
};

std::string sizeName(const ::testing::TestParamInfo<Sizes>& p) {
    return std::to_string(p.param.w) + "x" + std::to_string(p.param.h) + "_" + std::to_string(p.param.dw) + "x" +
           std::to_string(p.param.dh);
}

struct Outcome {
    uint32_t status = 0;
    Bytes out;
    Bytes prefill;
    Bytes extra;  // caller memory the call may change besides out
    bool ringsIntact = false;
    bool untouched() const { return out == prefill; }
};

struct Layout {
    std::string name;
    std::array<uint32_t, 3> stride;
    Placement placement;
    size_t misalign;
    std::array<bool, 3> nullPlane;
};

Outcome runDepthView(bool sideBySide, const FrameShape& shape, const MapShape& m, const Sizes& s) {
    CallerFrame frame(shape);
    auto map = depthMap(m, s.dw, s.dh, s.w * 31u + s.dh);
    kvDSR_ImageDesc depth = depthDesc(m.format, map->data());
    const size_t outW = sideBySide ? 2u * s.w : s.w;
    const size_t luma = outW * s.h;
    const size_t bytes = shape.format == kvDSR_FMT_YUV420SP ? luma * 3 / 2 : luma * 3;
    auto out = output(bytes, luma);
    Outcome r;
    r.prefill = out->bytes();
    r.status = sideBySide ? kvDSR_Run_SideBySide(out->data(), uint32_t(outW), 0, frame.desc(), s.w, s.h, &depth,
                                                 s.dw, s.dh)
                          : kvDSR_Run(out->data(), frame.desc(), s.w, s.h, &depth, s.dw, s.dh);
    r.out = out->bytes();
    r.extra = frame.packed();
    r.ringsIntact = frame.ringsIntact() && map->ringIntact() && out->ringIntact();
    return r;
}

// What the flat-depth shortcut must give: the picture's rows, each plane
// within its own rows (side by side: each row twice).
void expectFlatCopy(const Outcome& r, const Bytes& picture, bool sideBySide, size_t w) {
    if (!sideBySide) {
        ASSERT_GE(r.out.size(), picture.size());
        EXPECT_TRUE(std::equal(picture.begin(), picture.end(), r.out.begin())) << "flat copy differs from the input";
        return;
    }
    for (size_t row = 0; row * w < picture.size(); ++row) {
        const auto src = picture.begin() + row * w;
        ASSERT_TRUE(std::equal(src, src + w, r.out.begin() + 2 * row * w)) << "left half, row " << row;
        ASSERT_TRUE(std::equal(src, src + w, r.out.begin() + 2 * row * w + w)) << "right half, row " << row;
    }
}

class DepthViewFrames : public ::testing::TestWithParam<Sizes> {
protected:
    void SetUp() override {
        const Sizes s = GetParam();
        ASSERT_EQ(kvDSR_Init(calibration().data(), calibSize(), nullptr, 0, s.w, s.h, s.dw, s.dh, 300), kvDSR_OK);
    }
    void TearDown() override { kvDSR_Close(); }

    FrameShape shape(uint32_t format, const Layout& l) const {
        const Sizes s = GetParam();
        FrameShape f;
        f.format = format;
        f.w = s.w;
        f.h = s.h;
        f.stride = l.stride;
        f.placement = l.placement;
        f.misalign = l.misalign;
        f.nullPlane = l.nullPlane;
        f.seed = 7;
        return f;
    }
};

// Layouts the depth view accepts; the first is the reference.
std::vector<Layout> acceptedLayouts(uint32_t format, uint32_t w) {
    const auto C = Placement::Contiguous, S = Placement::Separate;
    if (format == kvDSR_FMT_YUV420SP)
        return {{"packed", {0, 0, 0}, C, 0, {}},
                {"stride-w-separate", {w, w, 0}, S, 0, {}},
                {"padded-separate-odd", {w + 3, w + 5, 0}, S, 1, {}},
                {"padded-contiguous-odd", {w + 8, w + 8, 0}, C, 1, {}},
                {"packed-luma-padded-chroma", {0, w + 7, 0}, S, 0, {}}};
    return {{"packed", {0, 0, 0}, C, 0, {}},
            {"packed-mixed-zero-odd", {w, 0, w}, C, 1, {}},
            {"packed-plane0-only", {0, 0, 0}, C, 0, {false, true, true}},
            {"padded-separate", {w + 1, w + 2, w + 3}, S, 0, {}},
            {"padded-contiguous-odd", {w + 16, w + 16, w + 16}, C, 1, {}},
            {"padded-separate-odd", {w + 5, w + 9, w + 1}, S, 1, {}}};
}

const MapShape kMaps[] = {
    {kvDSR_FMT_DEPTH8, MapContent::Random, 0},    {kvDSR_FMT_DEPTH16, MapContent::Random, 0},
    {kvDSR_FMT_DEPTH16, MapContent::Random, 1},   {kvDSR_FMT_DEPTH8, MapContent::Invalid, 1},
    {kvDSR_FMT_DEPTH16, MapContent::Invalid, 1},  {kvDSR_FMT_DEPTH8, MapContent::Constant, 0},
    {kvDSR_FMT_DEPTH16, MapContent::Constant, 0},
};

bool isFlat(const MapShape& m) { return m.content == MapContent::Invalid || m.content == MapContent::Constant; }

TEST_P(DepthViewFrames, EveryAcceptedLayoutGivesThePackedLayoutsBytes) {
    const Sizes s = GetParam();
    const bool empty = size_t(s.w) * s.h == 0;
    for (uint32_t format : {kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV444P})
        for (const MapShape& m : kMaps)
            for (bool sbs : {false, true}) {
                const auto layouts = acceptedLayouts(format, s.w);
                SCOPED_TRACE(std::to_string(format) + " " + name(m) + (sbs ? " side-by-side" : ""));
                const Outcome ref = runDepthView(sbs, shape(format, layouts[0]), m, s);
                ASSERT_TRUE(ref.ringsIntact);
                if (empty) {
                    EXPECT_TRUE(isDefinedCode(ref.status)) << std::hex << ref.status;
                    continue;
                }
                ASSERT_EQ(ref.status, kvDSR_OK);
                if (isFlat(m)) expectFlatCopy(ref, ref.extra, sbs, s.w);
                for (size_t i = 1; i < layouts.size(); ++i) {
                    SCOPED_TRACE(layouts[i].name);
                    const Outcome r = runDepthView(sbs, shape(format, layouts[i]), m, s);
                    EXPECT_TRUE(r.ringsIntact);
                    ASSERT_EQ(r.status, kvDSR_OK);
                    EXPECT_TRUE(r.out == ref.out) << "bytes differ from the packed layout's";
                }
            }
}

// Strides below the width: the 4:2:0 input is taken as rows that overlap
// (nothing outside them is read); 4:4:4 planes are refused unless the
// shortcut copies them.
TEST_P(DepthViewFrames, StridesBelowTheWidthStayInsideTheRows) {
    const Sizes s = GetParam();
    if (s.w < 2 || s.h == 0) GTEST_SKIP() << "no stride below the width";
    if (size_t(s.dw) * s.dh < 2) GTEST_SKIP() << "needs a map that can vary";
    const uint32_t b = s.w - 1;
    const MapShape maps[] = {{kvDSR_FMT_DEPTH16, MapContent::Ramp, 0},
                            {kvDSR_FMT_DEPTH16, MapContent::Ramp, 1},
                            {kvDSR_FMT_DEPTH8, MapContent::Invalid, 0},
                            {kvDSR_FMT_DEPTH16, MapContent::Constant, 1}};
    for (const MapShape& m : maps)
        for (bool sbs : {false, true})
            for (Placement p : {Placement::Contiguous, Placement::Separate}) {
                SCOPED_TRACE(name(m) + (sbs ? " side-by-side" : ""));
                const Outcome r420 =
                    runDepthView(sbs, shape(kvDSR_FMT_YUV420SP, {"below", {b, b, 0}, p, 1, {}}), m, s);
                EXPECT_TRUE(r420.ringsIntact);
                EXPECT_EQ(r420.status, kvDSR_OK);
                const Outcome r444 =
                    runDepthView(sbs, shape(kvDSR_FMT_YUV444P, {"below", {b, b, b}, p, 1, {}}), m, s);
                EXPECT_TRUE(r444.ringsIntact);
                if (isFlat(m)) {
                    EXPECT_TRUE(isDefinedCode(r444.status)) << std::hex << r444.status;
                } else {
                    EXPECT_EQ(r444.status, kvDSR_ERR_STRIDE);
                    EXPECT_TRUE(r444.untouched());
                }
            }
}

struct Refusal {
    Layout layout;
    uint32_t format;
    uint32_t code;      // with a depth map that varies
    uint32_t flatCode;  // with a constant one; 0xFFFFFFFF: any defined code
};

TEST_P(DepthViewFrames, RefusedFramesGetTheirCodeAndWriteNothing) {
    const Sizes s = GetParam();
    if (size_t(s.w) * s.h == 0 || size_t(s.dw) * s.dh < 2) GTEST_SKIP() << "needs a map that can vary";
    const uint32_t w = s.w;
    const auto C = Placement::Contiguous, S = Placement::Separate;
    constexpr uint32_t kAny = 0xFFFFFFFF;
    const Refusal cases[] = {
        {{"420-no-luma", {0, 0, 0}, S, 0, {true, false, false}}, kvDSR_FMT_YUV420SP, kvDSR_ERR_NULL_POINTER,
         kvDSR_ERR_NULL_POINTER},
        {{"420-no-chroma", {0, 0, 0}, S, 0, {false, true, false}}, kvDSR_FMT_YUV420SP, kvDSR_ERR_NULL_POINTER, kAny},
        {{"444-no-plane0", {0, 0, 0}, C, 0, {true, false, false}}, kvDSR_FMT_YUV444P, kvDSR_ERR_NULL_POINTER,
         kvDSR_ERR_NULL_POINTER},
        {{"444-padded-no-plane2", {w + 1, w + 1, w + 1}, S, 0, {false, false, true}}, kvDSR_FMT_YUV444P,
         kvDSR_ERR_NULL_POINTER, kAny},
        {{"444-stride-mix", {w + 64, w, w + 64}, S, 0, {}}, kvDSR_FMT_YUV444P, kvDSR_ERR_STRIDE, kAny},
        {{"444-stride-mix-zero", {w + 2, 0, w + 2}, S, 1, {}}, kvDSR_FMT_YUV444P, kvDSR_ERR_STRIDE, kAny},
        {{"unknown-0", {0, 0, 0}, C, 0, {}}, 0, kvDSR_ERR_IMAGE_FORMAT, kvDSR_ERR_DEPTH_FORMAT},
        {{"unknown-F03", {0, 0, 0}, C, 0, {}}, kvDSR_FMT_DEPTH8, kvDSR_ERR_IMAGE_FORMAT, kvDSR_ERR_DEPTH_FORMAT},
        {{"unknown-F05", {0, 0, 0}, C, 0, {}}, kvDSR_FMT_YUV420P, kvDSR_ERR_IMAGE_FORMAT, kvDSR_ERR_DEPTH_FORMAT},
        {{"unknown-all-ones", {0, 0, 0}, C, 1, {}}, 0xFFFFFFFFu, kvDSR_ERR_IMAGE_FORMAT, kvDSR_ERR_DEPTH_FORMAT},
    };
    const MapShape varying[] = {{kvDSR_FMT_DEPTH16, MapContent::Ramp, 0}, {kvDSR_FMT_DEPTH16, MapContent::Ramp, 1}};
    const MapShape flat[] = {{kvDSR_FMT_DEPTH8, MapContent::Invalid, 0}, {kvDSR_FMT_DEPTH16, MapContent::Constant, 1}};
    for (const Refusal& c : cases)
        for (bool sbs : {false, true}) {
            SCOPED_TRACE(c.layout.name + (sbs ? " side-by-side" : ""));
            for (const MapShape& m : varying) {
                const Outcome r = runDepthView(sbs, shape(c.format, c.layout), m, s);
                EXPECT_TRUE(r.ringsIntact);
                EXPECT_EQ(r.status, c.code) << name(m);
                EXPECT_TRUE(r.untouched()) << name(m);
            }
            for (const MapShape& m : flat) {
                const Outcome r = runDepthView(sbs, shape(c.format, c.layout), m, s);
                EXPECT_TRUE(r.ringsIntact);
                if (c.flatCode == kAny) {
                    EXPECT_TRUE(isDefinedCode(r.status)) << name(m) << std::hex << r.status;
                } else {
                    EXPECT_EQ(r.status, c.flatCode) << name(m);
                    EXPECT_TRUE(r.untouched()) << name(m);
                }
            }
        }
}

INSTANTIATE_TEST_SUITE_P(Sizes, DepthViewFrames,
                         ::testing::Values(Sizes{1, 1, 1, 1}, Sizes{2, 2, 2, 2}, Sizes{3, 3, 1, 1}, Sizes{5, 3, 5, 3},
                                           Sizes{8, 6, 16, 12}, Sizes{33, 19, 33, 19}, Sizes{64, 36, 16, 9},
                                           Sizes{4097, 3, 4097, 3}, Sizes{1, 1441, 1, 1441}, Sizes{0, 0, 0, 0}),
                         sizeName);

// Pointer, format, size and width checks come before anything is touched:
// the buffers here are far smaller than the arguments claim.
TEST(DepthViewChecks, RefusedBeforeAnyAccess) {
    ASSERT_EQ(kvDSR_Init(calibration().data(), calibSize(), nullptr, 0, 64, 36, 16, 9, 300), kvDSR_OK);
    CallerBuffer out(1), plane(1), map(1);
    kvDSR_ImageDesc img{kvDSR_FMT_YUV420SP, {0, 0, 0}, {plane.data(), plane.data(), nullptr}};
    kvDSR_ImageDesc dep = depthDesc(kvDSR_FMT_DEPTH8, map.data());
    kvDSR_ImageDesc noPlane = depthDesc(kvDSR_FMT_DEPTH8, nullptr);
    kvDSR_ImageDesc badDepth = depthDesc(kvDSR_FMT_YUV420SP, map.data());
    uint8_t* o = out.data();

    EXPECT_EQ(kvDSR_Run(nullptr, &img, 64, 36, &dep, 16, 9), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_Run(o, nullptr, 64, 36, &dep, 16, 9), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_Run(o, &img, 64, 36, nullptr, 16, 9), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_Run(o, &img, 64, 36, &noPlane, 16, 9), kvDSR_ERR_NULL_POINTER);
    for (uint32_t f : {0u, 0xF01u, 0xF02u, 0xF05u, 0xF06u, 0xFFFFFFFFu}) {
        badDepth.format = f;
        EXPECT_EQ(kvDSR_Run(o, &img, 64, 36, &badDepth, 16, 9), kvDSR_ERR_DEPTH_FORMAT) << f;
        EXPECT_EQ(kvDSR_Run_SideBySide(o, 128, 0, &img, 64, 36, &badDepth, 16, 9), kvDSR_ERR_DEPTH_FORMAT) << f;
    }
    struct Mismatch {
        uint32_t w;
        int32_t h;
        uint16_t dw, dh;
    };
    for (const Mismatch& m : {Mismatch{65, 36, 16, 9}, Mismatch{64, 37, 16, 9}, Mismatch{64, 36, 17, 9},
                              Mismatch{64, 36, 16, 8}, Mismatch{64, -36, 16, 9}, Mismatch{64, -1, 16, 9},
                              Mismatch{0x10040, 36, 16, 9}, Mismatch{65535, 65535, 65535, 65535},
                              Mismatch{0, 0, 0, 0}}) {
        SCOPED_TRACE(std::to_string(m.w) + "x" + std::to_string(m.h));
        EXPECT_EQ(kvDSR_Run(o, &img, m.w, m.h, &dep, m.dw, m.dh), kvDSR_ERR_SIZE_COMBINATION);
        if (m.h >= 0 && m.w <= 65535)
            EXPECT_EQ(kvDSR_Run_SideBySide(o, 2 * m.w, 0, &img, uint16_t(m.w), uint16_t(m.h), &dep, m.dw, m.dh),
                      kvDSR_ERR_SIZE_COMBINATION);
    }
    for (uint32_t outWidth : {0u, 64u, 127u, 129u, 130u, 0xFFFFFFFFu, 0x80000080u})
        EXPECT_EQ(kvDSR_Run_SideBySide(o, outWidth, 0, &img, 64, 36, &dep, 16, 9), kvDSR_ERR_SIDE_BY_SIDE_WIDTH)
            << outWidth;
    EXPECT_TRUE(out.ringIntact() && plane.ringIntact() && map.ringIntact());
    kvDSR_Close();
}

// ---- Binocular ----------------------------------------------------------------

// The binocular engine reads each 0xF01 frame from plane 0 (luma, then the
// chroma rows) and ignores strides; the right frame is colour-matched in place.
Outcome runBinocular(const Sizes& s, const MapShape& m, const FrameShape& left, const FrameShape& right) {
    CallerFrame l(left), r(right);
    auto map = depthMap(m, s.dw, s.dh, s.w * 17u + s.h);
    kvDSR_ImageDesc depth = depthDesc(m.format, map->data());
    const size_t luma = size_t(s.w) * s.h;
    auto out = output(luma * 3 / 2, luma);
    Outcome o;
    o.prefill = out->bytes();
    o.status = kvDSR_Binocular_Run(out->data(), l.desc(), r.desc(), s.w, s.h, &depth, s.dw, s.dh);
    o.out = out->bytes();
    o.extra = r.packed();
    o.ringsIntact = l.ringsIntact() && r.ringsIntact() && map->ringIntact() && out->ringIntact();
    return o;
}

FrameShape frame420(const Sizes& s, uint32_t seed, size_t misalign = 0, std::array<uint32_t, 3> stride = {},
                   std::array<bool, 3> nullPlane = {}, uint32_t format = kvDSR_FMT_YUV420SP) {
    FrameShape f;
    f.format = format;
    f.w = s.w;
    f.h = s.h;
    f.stride = stride;
    f.misalign = misalign;
    f.stridesHonoured = false;
    f.nullPlane = nullPlane;
    f.seed = seed;
    return f;
}

class BinocularFrames : public ::testing::TestWithParam<Sizes> {
protected:
    void SetUp() override {
        const Sizes s = GetParam();
        ASSERT_EQ(kvDSR_Binocular_Init(calibration().data(), calibSize(), nullptr, 0, s.w, s.h, s.dw, s.dh, 800),
                  kvDSR_OK);
    }
    void TearDown() override { kvDSR_Binocular_Close(); }
};

TEST_P(BinocularFrames, OddAddressesAndDescriptorNoiseChangeNothing) {
    const Sizes s = GetParam();
    const MapShape maps[] = {{kvDSR_FMT_DEPTH8, MapContent::Random, 0},
                            {kvDSR_FMT_DEPTH16, MapContent::Random, 0},
                            {kvDSR_FMT_DEPTH16, MapContent::Random, 1},
                            {kvDSR_FMT_DEPTH16, MapContent::Invalid, 1},
                            {kvDSR_FMT_DEPTH8, MapContent::Constant, 1}};
    for (const MapShape& m : maps) {
        SCOPED_TRACE(name(m));
        const Outcome ref = runBinocular(s, m, frame420(s, 3), frame420(s, 4));
        ASSERT_TRUE(ref.ringsIntact);
        ASSERT_EQ(ref.status, kvDSR_OK);
        const Outcome odd = runBinocular(s, m, frame420(s, 3, 1), frame420(s, 4, 1, {}, {false, true, false}));
        EXPECT_TRUE(odd.ringsIntact);
        EXPECT_EQ(odd.status, kvDSR_OK);
        EXPECT_TRUE(odd.out == ref.out);
        EXPECT_TRUE(odd.extra == ref.extra) << "colour-matched right frame differs";
        const Outcome noise = runBinocular(s, m, frame420(s, 3, 0, {1, 0xFFFFFFFFu, 7}), frame420(s, 4, 1, {3, 1, 0}));
        EXPECT_TRUE(noise.ringsIntact);
        EXPECT_EQ(noise.status, kvDSR_OK);
        EXPECT_TRUE(noise.out == ref.out);
    }
}

TEST_P(BinocularFrames, RefusedFramesGetTheirCodeAndWriteNothing) {
    const Sizes s = GetParam();
    const MapShape m{kvDSR_FMT_DEPTH8, MapContent::Random, 0};
    struct Case {
        const char* name;
        FrameShape left, right;
        uint32_t code;
    };
    const std::array<bool, 3> none{true, true, true};
    const Case cases[] = {
        {"left 0xF02", frame420(s, 3, 0, {}, {}, kvDSR_FMT_YUV444P), frame420(s, 4), kvDSR_ERR_IMAGE_FORMAT},
        {"right 0xF05", frame420(s, 3), frame420(s, 4, 0, {}, {}, kvDSR_FMT_YUV420P), kvDSR_ERR_IMAGE_FORMAT},
        {"both unknown", frame420(s, 3, 0, {}, {}, 0), frame420(s, 4, 0, {}, {}, 0), kvDSR_ERR_IMAGE_FORMAT},
        {"no planes", frame420(s, 3, 0, {}, none), frame420(s, 4, 0, {}, none), kvDSR_ERR_NULL_POINTER},
        {"left plane 0 missing", frame420(s, 3, 0, {}, {true, false, false}), frame420(s, 4),
         kvDSR_ERR_NULL_POINTER},
        {"right plane 0 missing", frame420(s, 3), frame420(s, 4, 1, {}, {true, false, false}),
         kvDSR_ERR_NULL_POINTER},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const Outcome r = runBinocular(s, m, c.left, c.right);
        EXPECT_TRUE(r.ringsIntact);
        EXPECT_EQ(r.status, c.code);
        EXPECT_TRUE(r.untouched());
        CallerFrame untouchedRight(c.right);
        EXPECT_TRUE(r.extra == untouchedRight.packed()) << "right frame changed by a refused call";
    }
    for (uint32_t f : {0u, 0xF01u, 0xF02u, 0xF05u, 0xFFFFFFFFu}) {
        const Outcome r = runBinocular(s, {f, MapContent::Random, 0}, frame420(s, 3), frame420(s, 4));
        EXPECT_EQ(r.status, kvDSR_ERR_DEPTH_FORMAT) << f;
        EXPECT_TRUE(r.untouched() && r.ringsIntact) << f;
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, BinocularFrames,
                         ::testing::Values(Sizes{1, 1, 1, 1}, Sizes{1, 4, 1, 4}, Sizes{2, 2, 2, 2}, Sizes{3, 3, 1, 1},
                                           Sizes{5, 3, 5, 3}, Sizes{22, 12, 22, 12}, Sizes{33, 19, 33, 19},
                                           Sizes{64, 36, 16, 9}, Sizes{4097, 3, 4097, 3}, Sizes{1, 1441, 1, 1441}),
                         sizeName);

TEST(BinocularChecks, SizesOtherThanInitsAreRefusedBeforeAnyAccess) {
    ASSERT_EQ(kvDSR_Binocular_Init(calibration().data(), calibSize(), nullptr, 0, 64, 36, 16, 9, 800), kvDSR_OK);
    CallerBuffer out(1), left(1), right(1), map(1);
    kvDSR_ImageDesc l{kvDSR_FMT_YUV420SP, {0, 0, 0}, {left.data(), nullptr, nullptr}};
    kvDSR_ImageDesc r{kvDSR_FMT_YUV420SP, {0, 0, 0}, {right.data(), nullptr, nullptr}};
    kvDSR_ImageDesc d = depthDesc(kvDSR_FMT_DEPTH16, map.data());
    kvDSR_ImageDesc noPlane = depthDesc(kvDSR_FMT_DEPTH16, nullptr);
    EXPECT_EQ(kvDSR_Binocular_Run(out.data(), &l, &r, 64, 36, &noPlane, 16, 9), kvDSR_ERR_NULL_POINTER);
    for (const Sizes& m : {Sizes{65, 36, 16, 9}, Sizes{64, 35, 16, 9}, Sizes{64, 36, 15, 9}, Sizes{64, 36, 16, 10},
                           Sizes{0, 0, 0, 0}, Sizes{65535, 65535, 65535, 65535}})
        EXPECT_EQ(kvDSR_Binocular_Run(out.data(), &l, &r, m.w, m.h, &d, m.dw, m.dh), kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_EQ(kvDSR_Binocular_Run(out.data(), &l, &r, 0x10040u, 36, &d, 16, 9), kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_TRUE(out.ringIntact() && left.ringIntact() && right.ringIntact() && map.ringIntact());
    kvDSR_Binocular_Close();
}

// ---- Stereo view --------------------------------------------------------------

struct Pair {
    uint16_t w, h, ow, oh;  // SPR: in and out sizes; stereo view: ow, oh unused
};

std::string pairName(const ::testing::TestParamInfo<Pair>& p) {
    return std::to_string(p.param.w) + "x" + std::to_string(p.param.h) + "_" + std::to_string(p.param.ow) + "x" +
           std::to_string(p.param.oh);
}

size_t viewBytes(uint32_t format, size_t w, size_t h) {
    return format == kvDSR_FMT_YUV444P ? w * h : w * h * 3 / 2;
}

FrameShape stereoFrame(uint32_t format, size_t w, size_t h, uint32_t seed, Placement p = Placement::Contiguous,
                      size_t misalign = 0, std::array<uint32_t, 3> stride = {}, std::array<bool, 3> nullPlane = {}) {
    FrameShape f;
    f.format = format;
    f.w = w;
    f.h = h;
    f.stride = stride;
    f.placement = p;
    f.misalign = misalign;
    f.stridesHonoured = false;
    f.nullPlane = nullPlane;
    f.seed = seed;
    return f;
}

// outWidth: the side-by-side width to pass; none: the right one.
Outcome runStereo(bool sideBySide, const FrameShape& second, const FrameShape& first,
                  std::optional<uint32_t> outWidth = std::nullopt) {
    CallerFrame a(second), b(first);
    const size_t w = first.w, h = first.h;
    const uint32_t format = first.format == second.format ? first.format : kvDSR_FMT_YUV420SP;
    Outcome r;
    if (sideBySide) {
        const uint32_t ow = outWidth.value_or(uint32_t(2 * w));
        // A width far off the frame's is refused before anything is touched.
        const size_t bytes = ow <= 4 * w + 4 ? viewBytes(format, ow, h) : 1;
        auto out = output(bytes, size_t(ow) * h);
        r.prefill = out->bytes();
        r.status = kvDSR_StereoView_Run_SideBySide(out->data(), ow, uint32_t(h), a.desc(), b.desc(), uint16_t(w),
                                                   uint16_t(h));
        r.out = out->bytes();
        r.ringsIntact = out->ringIntact();
    } else {
        auto o2 = output(viewBytes(format, w, h), w * h), o1 = output(viewBytes(format, w, h), w * h);
        r.prefill = o2->bytes();
        const Bytes p1 = o1->bytes();
        r.prefill.insert(r.prefill.end(), p1.begin(), p1.end());
        r.status = kvDSR_StereoView_Run(o2->data(), o1->data(), a.desc(), b.desc(), uint16_t(w), uint16_t(h));
        r.out = o2->bytes();
        const Bytes b1 = o1->bytes();
        r.out.insert(r.out.end(), b1.begin(), b1.end());
        r.ringsIntact = o1->ringIntact() && o2->ringIntact();
    }
    r.ringsIntact = r.ringsIntact && a.ringsIntact() && b.ringsIntact();
    return r;
}

class StereoViewFrames : public ::testing::TestWithParam<Pair> {
protected:
    void SetUp() override {
        const Pair p = GetParam();
        ASSERT_EQ(kvDSR_StereoView_Init(calibration().data(), calibSize(), nullptr, 0, p.w, p.h), kvDSR_OK);
    }
    void TearDown() override { kvDSR_StereoView_Close(); }
};

TEST_P(StereoViewFrames, EveryPlacementGivesTheSameBytes) {
    const Pair p = GetParam();
    for (uint32_t format : {kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV444P, kvDSR_FMT_YUV420P})
        for (bool sbs : {false, true}) {
            SCOPED_TRACE(std::to_string(format) + (sbs ? " side-by-side" : ""));
            const Outcome ref = runStereo(sbs, stereoFrame(format, p.w, p.h, 1), stereoFrame(format, p.w, p.h, 2));
            ASSERT_TRUE(ref.ringsIntact);
            ASSERT_EQ(ref.status, kvDSR_OK);
            const Outcome separate =
                runStereo(sbs, stereoFrame(format, p.w, p.h, 1, Placement::Separate, 1),
                          stereoFrame(format, p.w, p.h, 2, Placement::Separate, 1, {p.w + 9u, 1, 0}));
            EXPECT_TRUE(separate.ringsIntact);
            EXPECT_EQ(separate.status, kvDSR_OK);
            EXPECT_TRUE(separate.out == ref.out);
            const Outcome odd = runStereo(sbs, stereoFrame(format, p.w, p.h, 1, Placement::Contiguous, 1, {3, 3, 3}),
                                          stereoFrame(format, p.w, p.h, 2, Placement::Contiguous, 1));
            EXPECT_TRUE(odd.ringsIntact);
            EXPECT_EQ(odd.status, kvDSR_OK);
            EXPECT_TRUE(odd.out == ref.out);
        }
}

TEST_P(StereoViewFrames, RefusedFramesGetTheirCodeAndWriteNothing) {
    const Pair p = GetParam();
    const auto F01 = kvDSR_FMT_YUV420SP, F02 = kvDSR_FMT_YUV444P, F05 = kvDSR_FMT_YUV420P;
    struct Case {
        const char* name;
        FrameShape second, first;
        uint32_t code;
    };
    const Case cases[] = {
        {"0xF01 with 0xF05", stereoFrame(F01, p.w, p.h, 1), stereoFrame(F05, p.w, p.h, 2), kvDSR_ERR_IMAGE_FORMAT},
        {"0xF02 with 0xF01", stereoFrame(F02, p.w, p.h, 1), stereoFrame(F01, p.w, p.h, 2), kvDSR_ERR_IMAGE_FORMAT},
        {"0xF03 pair", stereoFrame(kvDSR_FMT_DEPTH8, p.w, p.h, 1), stereoFrame(kvDSR_FMT_DEPTH8, p.w, p.h, 2),
         kvDSR_ERR_IMAGE_FORMAT},
        {"zero pair", stereoFrame(0, p.w, p.h, 1), stereoFrame(0, p.w, p.h, 2), kvDSR_ERR_IMAGE_FORMAT},
        {"0xF01 no chroma", stereoFrame(F01, p.w, p.h, 1, Placement::Separate, 0, {}, {false, true, false}),
         stereoFrame(F01, p.w, p.h, 2), kvDSR_ERR_NULL_POINTER},
        {"0xF05 no V", stereoFrame(F05, p.w, p.h, 1), stereoFrame(F05, p.w, p.h, 2, Placement::Separate, 1, {},
                                                                  {false, false, true}),
         kvDSR_ERR_NULL_POINTER},
        {"0xF02 no luma", stereoFrame(F02, p.w, p.h, 1, Placement::Separate, 0, {}, {true, false, false}),
         stereoFrame(F02, p.w, p.h, 2), kvDSR_ERR_NULL_POINTER},
    };
    for (const Case& c : cases)
        for (bool sbs : {false, true}) {
            SCOPED_TRACE(std::string(c.name) + (sbs ? " side-by-side" : ""));
            const Outcome r = runStereo(sbs, c.second, c.first);
            EXPECT_TRUE(r.ringsIntact);
            EXPECT_EQ(r.status, c.code);
            EXPECT_TRUE(r.untouched());
        }
    for (uint32_t ow : {0u, 1u, 2u * p.w + 2, uint32_t(p.w), 0xFFFFFFFFu}) {
        if (ow == 2u * p.w) continue;
        const Outcome r = runStereo(true, stereoFrame(F01, p.w, p.h, 1), stereoFrame(F01, p.w, p.h, 2), ow);
        EXPECT_EQ(r.status, kvDSR_ERR_SIDE_BY_SIDE_WIDTH) << ow;
        EXPECT_TRUE(r.untouched() && r.ringsIntact) << ow;
    }
    CallerBuffer tiny(1);
    kvDSR_ImageDesc d{F01, {0, 0, 0}, {tiny.data(), tiny.data(), nullptr}};
    EXPECT_EQ(kvDSR_StereoView_Run(tiny.data(), tiny.data(), &d, &d, p.w + 1, p.h), kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_EQ(kvDSR_StereoView_Run(tiny.data(), tiny.data(), &d, &d, 65535, 65535), kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_EQ(kvDSR_StereoView_Run_SideBySide(tiny.data(), 2u * p.w, p.h, &d, &d, p.w, p.h + 1),
              kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_EQ(kvDSR_StereoView_Run(tiny.data(), nullptr, &d, &d, p.w, p.h), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_StereoView_Run_SideBySide(tiny.data(), 2u * p.w, p.h, &d, nullptr, p.w, p.h),
              kvDSR_ERR_NULL_POINTER);
    EXPECT_TRUE(tiny.ringIntact());
}

INSTANTIATE_TEST_SUITE_P(Sizes, StereoViewFrames,
                         ::testing::Values(Pair{1, 1, 0, 0}, Pair{2, 2, 0, 0}, Pair{3, 3, 0, 0}, Pair{5, 3, 0, 0},
                                           Pair{33, 19, 0, 0}, Pair{64, 48, 0, 0}, Pair{64, 36, 0, 0}),
                         pairName);

// ---- SPR ------------------------------------------------------------------------

Outcome runSpr(const Pair& p, const FrameShape& second, const FrameShape& first) {
    CallerFrame a(second), b(first);
    const size_t luma = size_t(p.ow) * p.oh;
    auto o2 = output(luma * 3 / 2, luma), o1 = output(luma * 3 / 2, luma);
    Outcome r;
    r.prefill = o2->bytes();
    const Bytes p1 = o1->bytes();
    r.prefill.insert(r.prefill.end(), p1.begin(), p1.end());
    r.status = kvDSR_SPR_Run(o2->data(), o1->data(), a.desc(), b.desc(), p.w, p.h, p.ow, p.oh);
    r.out = o2->bytes();
    const Bytes b1 = o1->bytes();
    r.out.insert(r.out.end(), b1.begin(), b1.end());
    r.ringsIntact = o1->ringIntact() && o2->ringIntact() && a.ringsIntact() && b.ringsIntact();
    return r;
}

class SprFrames : public ::testing::TestWithParam<Pair> {
protected:
    void SetUp() override {
        const Pair p = GetParam();
        ASSERT_EQ(kvDSR_SPR_Init(calibration().data(), calibSize(), nullptr, 0, p.w, p.h, p.ow, p.oh), kvDSR_OK);
    }
    void TearDown() override { kvDSR_SPR_Close(); }
};

TEST_P(SprFrames, PlacementsAgreeAndOtherFormatsAreIgnored) {
    const Pair p = GetParam();
    const auto F01 = kvDSR_FMT_YUV420SP;
    const Outcome ref = runSpr(p, stereoFrame(F01, p.w, p.h, 5), stereoFrame(F01, p.w, p.h, 6));
    ASSERT_TRUE(ref.ringsIntact);
    ASSERT_EQ(ref.status, kvDSR_OK);
    const Outcome sep = runSpr(p, stereoFrame(F01, p.w, p.h, 5, Placement::Separate, 1, {1, 2, 3}),
                               stereoFrame(F01, p.w, p.h, 6, Placement::Separate, 1));
    EXPECT_TRUE(sep.ringsIntact);
    EXPECT_EQ(sep.status, kvDSR_OK);
    EXPECT_TRUE(sep.out == ref.out);
    // Anything but a 0xF01 pair: 0, nothing written.
    const FormatPair ignored[] = {{kvDSR_FMT_YUV420P, kvDSR_FMT_YUV420P}, {kvDSR_FMT_YUV444P, kvDSR_FMT_YUV444P},
                                  {F01, kvDSR_FMT_YUV420P},          {kvDSR_FMT_YUV420P, F01},
                                  {0, 0},                            {0xFFFFFFFFu, F01}};
    for (const FormatPair& formats : ignored) {
        const Outcome r = runSpr(p, stereoFrame(formats.first, p.w, p.h, 5), stereoFrame(formats.second, p.w, p.h, 6));
        EXPECT_EQ(r.status, kvDSR_OK);
        EXPECT_TRUE(r.untouched() && r.ringsIntact) << formats.first << " " << formats.second;
    }
    const Outcome noChroma =
        runSpr(p, stereoFrame(F01, p.w, p.h, 5, Placement::Separate, 0, {}, {false, true, false}),
               stereoFrame(F01, p.w, p.h, 6));
    EXPECT_EQ(noChroma.status, kvDSR_ERR_NULL_POINTER);
    EXPECT_TRUE(noChroma.untouched() && noChroma.ringsIntact);

    CallerBuffer tiny(1);
    kvDSR_ImageDesc d{F01, {0, 0, 0}, {tiny.data(), tiny.data(), nullptr}};
    EXPECT_EQ(kvDSR_SPR_Run(tiny.data(), tiny.data(), &d, &d, p.w, p.h, p.ow + 1, p.oh), kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_EQ(kvDSR_SPR_Run(tiny.data(), tiny.data(), &d, &d, p.w, p.h + 1, p.ow, p.oh), kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_EQ(kvDSR_SPR_Run(tiny.data(), tiny.data(), &d, &d, 65535, 65535, 65535, 65535),
              kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_EQ(kvDSR_SPR_Run(nullptr, tiny.data(), &d, &d, p.w, p.h, p.ow, p.oh), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_SPR_Run(tiny.data(), tiny.data(), nullptr, &d, p.w, p.h, p.ow, p.oh), kvDSR_ERR_NULL_POINTER);
    EXPECT_TRUE(tiny.ringIntact());
}

INSTANTIATE_TEST_SUITE_P(Sizes, SprFrames,
                         ::testing::Values(Pair{1, 1, 1, 1}, Pair{2, 2, 3, 3}, Pair{5, 3, 64, 48},
                                           Pair{33, 19, 16, 9}, Pair{64, 48, 32, 24}, Pair{64, 36, 0, 0}),
                         pairName);

// ---- Focal alignment shift -------------------------------------------------------

// Both calls read the whole 4:2:0 frame from plane 0, packed.
struct FocalCase {
    uint16_t w, h, distance;
};

std::string focalName(const ::testing::TestParamInfo<FocalCase>& p) {
    return std::to_string(p.param.w) + "x" + std::to_string(p.param.h) + "_at_" + std::to_string(p.param.distance);
}

FrameShape shiftFrame(uint32_t format, size_t w, size_t h, uint32_t seed, size_t misalign = 0,
                     std::array<uint32_t, 3> stride = {}, std::array<bool, 3> nullPlane = {}) {
    return stereoFrame(format, w, h, seed, Placement::Contiguous, misalign, stride, nullPlane);
}

class FocalShiftFrames : public ::testing::TestWithParam<FocalCase> {
protected:
    void SetUp() override {
        const FocalCase c = GetParam();
        // The half-width call needs the buffer of an Init with the single-view width.
        ASSERT_EQ(kvDSR_StereoView_FocalAlignmentShift_Init(calibration().data(), calibSize(), nullptr, 0,
                                                            uint16_t(c.w / 2), c.h, c.distance),
                  kvDSR_OK);
    }
    void TearDown() override { kvDSR_StereoView_FocalAlignmentShift_Close(); }
};

Outcome runShiftPair(const FrameShape& second, const FrameShape& first) {
    CallerFrame a(second), b(first);
    const size_t bytes = first.w * first.h * 3 / 2, luma = first.w * first.h;
    auto o2 = output(bytes, luma), o1 = output(bytes, luma);
    Outcome r;
    r.prefill = o2->bytes();
    const Bytes p1 = o1->bytes();
    r.prefill.insert(r.prefill.end(), p1.begin(), p1.end());
    r.status = kvDSR_StereoView_FocalAlignmentShift(o2->data(), o1->data(), a.desc(), b.desc(), uint16_t(first.w),
                                                    uint16_t(first.h));
    r.out = o2->bytes();
    const Bytes b1 = o1->bytes();
    r.out.insert(r.out.end(), b1.begin(), b1.end());
    r.ringsIntact = o1->ringIntact() && o2->ringIntact() && a.ringsIntact() && b.ringsIntact();
    return r;
}

Outcome runShiftSideBySide(const FrameShape& frame, uint32_t outWidth, uint32_t outHeight) {
    CallerFrame f(frame);
    const size_t luma = size_t(outWidth) * outHeight;
    // A width far off the frame's is refused before anything is touched.
    auto out = output(outWidth <= 4 * frame.w + 4 ? luma * 3 / 2 : 1, luma);
    Outcome r;
    r.prefill = out->bytes();
    r.status = kvDSR_StereoView_FocalAlignmentShiftSideBySide(out->data(), outWidth, outHeight, f.desc(),
                                                              uint16_t(frame.w), uint16_t(frame.h));
    r.out = out->bytes();
    r.ringsIntact = out->ringIntact() && f.ringsIntact();
    return r;
}

TEST_P(FocalShiftFrames, TwoFramesWhateverThePlacement) {
    const FocalCase c = GetParam();
    for (uint32_t format : {kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV420P}) {
        SCOPED_TRACE(format);
        const Outcome ref = runShiftPair(shiftFrame(format, c.w, c.h, 1), shiftFrame(format, c.w, c.h, 2));
        ASSERT_TRUE(ref.ringsIntact);
        ASSERT_EQ(ref.status, kvDSR_OK);
        const Outcome odd = runShiftPair(shiftFrame(format, c.w, c.h, 1, 1, {9, 9, 9}, {false, true, true}),
                                         shiftFrame(format, c.w, c.h, 2, 1));
        EXPECT_TRUE(odd.ringsIntact);
        EXPECT_EQ(odd.status, kvDSR_OK);
        EXPECT_TRUE(odd.out == ref.out);
        const FormatPair refused[] = {{format, kvDSR_FMT_YUV444P},
                                      {kvDSR_FMT_YUV444P, kvDSR_FMT_YUV444P},
                                      {kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV420P},
                                      {0, 0}};
        for (const FormatPair& formats : refused) {
            const Outcome r =
                runShiftPair(shiftFrame(formats.first, c.w, c.h, 1), shiftFrame(formats.second, c.w, c.h, 2));
            EXPECT_EQ(r.status, kvDSR_ERR_IMAGE_FORMAT);
            EXPECT_TRUE(r.untouched() && r.ringsIntact);
        }
        const Outcome noPlane =
            runShiftPair(shiftFrame(format, c.w, c.h, 1), shiftFrame(format, c.w, c.h, 2, 0, {}, {true, false, false}));
        EXPECT_EQ(noPlane.status, kvDSR_ERR_NULL_POINTER);
        EXPECT_TRUE(noPlane.untouched() && noPlane.ringsIntact);
    }
}

// Side by side: an output shorter than the frame gets the rows that fit, at
// full and at half width, and nothing past them.
TEST_P(FocalShiftFrames, SideBySideWritesOnlyTheRowsThatFit) {
    const FocalCase c = GetParam();
    for (uint32_t format : {kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV420P})
        for (uint32_t outWidth : {uint32_t(c.w), uint32_t(c.w / 2)}) {
            if (outWidth == 0) continue;
            SCOPED_TRACE(std::to_string(format) + " outWidth " + std::to_string(outWidth));
            const FrameShape frame = shiftFrame(format, c.w, c.h, 3, 1);
            const Outcome full = runShiftSideBySide(frame, outWidth, c.h);
            ASSERT_TRUE(full.ringsIntact);
            ASSERT_EQ(full.status, kvDSR_OK);
            for (uint32_t outHeight : {0u, 1u, uint32_t(c.h / 2), uint32_t(c.h > 0 ? c.h - 1 : 0), 10u}) {
                if (outHeight >= c.h) continue;
                SCOPED_TRACE(outHeight);
                const Outcome r = runShiftSideBySide(frame, outWidth, outHeight);
                EXPECT_TRUE(r.ringsIntact);
                EXPECT_EQ(r.status, kvDSR_OK);
                const size_t lumaRows = size_t(outWidth) * outHeight;
                EXPECT_TRUE(std::equal(r.out.begin(), r.out.begin() + lumaRows, full.out.begin()))
                    << "luma rows that fit differ";
            }
        }
}

TEST_P(FocalShiftFrames, SideBySideRefusals) {
    const FocalCase c = GetParam();
    if (c.w < 2) GTEST_SKIP() << "no half width";
    const uint32_t half = c.w / 2;
    for (uint32_t ow : {0u, 1u, half + 1, uint32_t(c.w) + 1, 2u * c.w, 0xFFFFFFFFu}) {
        if (ow == half || ow == c.w) continue;
        const Outcome r = runShiftSideBySide(shiftFrame(kvDSR_FMT_YUV420SP, c.w, c.h, 3), ow, c.h);
        EXPECT_EQ(r.status, kvDSR_ERR_SIDE_BY_SIDE_WIDTH) << ow;
        EXPECT_TRUE(r.untouched() && r.ringsIntact) << ow;
    }
    const Outcome noPlane =
        runShiftSideBySide(shiftFrame(kvDSR_FMT_YUV420SP, c.w, c.h, 3, 0, {}, {true, false, false}), half, c.h);
    EXPECT_EQ(noPlane.status, kvDSR_ERR_NULL_POINTER);
    EXPECT_TRUE(noPlane.untouched());
    // A frame taller than Init's does not fit the intermediate buffer.
    const Outcome taller = runShiftSideBySide(shiftFrame(kvDSR_FMT_YUV420SP, c.w, c.h + 2, 3), half, c.h + 2);
    EXPECT_EQ(taller.status, kvDSR_ERR_SIZE_COMBINATION);
    EXPECT_TRUE(taller.untouched() && taller.ringsIntact);
    // An unknown format at half width releases the buffer: Init again.
    const Outcome unknown = runShiftSideBySide(shiftFrame(kvDSR_FMT_YUV444P, c.w, c.h, 3), half, c.h);
    EXPECT_EQ(unknown.status, kvDSR_ERR_IMAGE_FORMAT);
    EXPECT_TRUE(unknown.untouched() && unknown.ringsIntact);
    const Outcome released = runShiftSideBySide(shiftFrame(kvDSR_FMT_YUV420SP, c.w, c.h, 3), half, c.h);
    EXPECT_EQ(released.status, kvDSR_ERR_NOT_INITIALISED);
    EXPECT_TRUE(released.untouched() && released.ringsIntact);
}

INSTANTIATE_TEST_SUITE_P(Sizes, FocalShiftFrames,
                         ::testing::Values(FocalCase{2, 1, 1000}, FocalCase{2, 2, 100}, FocalCase{6, 3, 300},
                                           FocalCase{34, 19, 10000}, FocalCase{64, 36, 100}, FocalCase{64, 36, 0},
                                           FocalCase{640, 20, 150}),
                         focalName);

}  // namespace
