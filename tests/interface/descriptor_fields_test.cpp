// The header lists, per run function, the descriptor fields it reads; every
// other field is ignored. Each case runs a call twice, once with the ignored
// fields clean (strides 0, unused planes NULL or as given) and once with them
// set to other values (odd strides, planes pointing at other data), and the
// outputs, the status and every buffer the call may write must not change.
// One case per call also checks a field the call does read.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "calibpack.h"
#include "kvDSR.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint16_t kW = 64, kH = 48, kDW = 32, kDH = 24;

const Bytes& calibration() {
    static const Bytes c = kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 1547);
    return c;
}

Bytes randomBytes(size_t n, uint32_t seed, int lo = 0, int hi = 255) {
    std::mt19937 gen(seed);
    std::uniform_int_distribution<int> d(lo, hi);
    Bytes b(n);
    for (auto& v : b) v = uint8_t(d(gen));
    return b;
}

// Inputs of one run, fresh for each (the depth engines write into the map,
// the binocular engine into the right image).
struct Inputs {
    Bytes a, b, depth;
    Bytes decoyA = randomBytes(kW * kH * 3, 91), decoyB = randomBytes(kW * kH * 3, 92);
};

// What a call produced: status and every buffer it may write.
struct Outcome {
    uint32_t status;
    std::vector<Bytes> buffers;
    bool operator==(const Outcome& o) const { return status == o.status && buffers == o.buffers; }
};

// A descriptor over one packed frame starting at p: planes at the format's
// packed offsets (YUV444P: three w x h planes; 4:2:0: luma, then chroma).
kvDSR_ImageDesc packed(uint32_t format, uint8_t* p, uint16_t w = kW, uint16_t h = kH) {
    const size_t luma = size_t(w) * h;
    kvDSR_ImageDesc d{};
    d.format = format;
    d.plane[0] = p;
    if (format == kvDSR_FMT_YUV420SP) d.plane[1] = p + luma;
    if (format == kvDSR_FMT_YUV420P) {
        d.plane[1] = p + luma;
        d.plane[2] = p + luma + luma / 4;
    }
    if (format == kvDSR_FMT_YUV444P) {
        d.plane[1] = p + luma;
        d.plane[2] = p + 2 * luma;
    }
    return d;
}

// Sets the fields the header says the call ignores to other values.
using Disturb = std::function<void(kvDSR_ImageDesc&, Inputs&)>;

void oddStrides(kvDSR_ImageDesc& d, Inputs&) {
    d.stride[0] = kW + 64;
    d.stride[1] = 3;
    d.stride[2] = 12345;
}
void oddStride2(kvDSR_ImageDesc& d, Inputs&) { d.stride[2] = 12345; }
void decoyPlane2(kvDSR_ImageDesc& d, Inputs& in) { d.plane[2] = in.decoyA.data(); }
void decoyPlanes12(kvDSR_ImageDesc& d, Inputs& in) {
    d.plane[1] = in.decoyA.data();
    d.plane[2] = in.decoyB.data();
}
Disturb both(Disturb f, Disturb g) {
    return [=](kvDSR_ImageDesc& d, Inputs& in) {
        f(d, in);
        g(d, in);
    };
}
void nothing(kvDSR_ImageDesc&, Inputs&) {}

struct Case {
    std::string name;
    std::function<uint32_t()> init;
    std::function<Inputs()> inputs;
    // Runs the call; `disturb` is applied to every image descriptor (image)
    // and `disturbDepth` to the depth descriptor.
    std::function<Outcome(Inputs&, const Disturb& image, const Disturb& depth)> run;
    Disturb ignored, ignoredDepth;
};

Inputs stereoPair() {
    Inputs in;
    in.a = randomBytes(kW * kH * 3, 1);
    in.b = randomBytes(kW * kH * 3, 2);
    return in;
}

Inputs depthInputs(bool flat) {
    Inputs in;
    in.a = randomBytes(kW * kH * 3, 3);
    in.b = randomBytes(kW * kH * 3, 4);
    in.depth = flat ? Bytes(kDW * kDH, 40) : randomBytes(kDW * kDH, 5, 20, 60);
    for (size_t i = 7; i < in.depth.size(); i += 97) in.depth[i] = 255;  // to be repaired
    return in;
}

uint32_t initStereo() {
    const Bytes& c = calibration();
    return kvDSR_StereoView_Init(c.data(), uint32_t(c.size()), nullptr, 0, kW, kH);
}
uint32_t initDepth() {
    const Bytes& c = calibration();
    return kvDSR_Init(c.data(), uint32_t(c.size()), nullptr, 0, kW, kH, kDW, kDH, 50);
}

Case stereoRun(uint32_t format, Disturb ignored) {
    return {"StereoView_Run_" + std::to_string(format), initStereo, stereoPair,
            [format](Inputs& in, const Disturb& image, const Disturb&) {
                Bytes o1(kW * kH * 3, 0xAA), o2(kW * kH * 3, 0xAA);
                kvDSR_ImageDesc first = packed(format, in.a.data()), second = packed(format, in.b.data());
                image(first, in);
                image(second, in);
                return Outcome{kvDSR_StereoView_Run(o2.data(), o1.data(), &second, &first, kW, kH), {o1, o2}};
            },
            ignored, nothing};
}

std::vector<Case> cases() {
    std::vector<Case> c;
    c.push_back(stereoRun(kvDSR_FMT_YUV420SP, both(oddStrides, decoyPlane2)));
    c.push_back(stereoRun(kvDSR_FMT_YUV420P, oddStrides));
    c.push_back(stereoRun(kvDSR_FMT_YUV444P, both(oddStrides, decoyPlanes12)));
    c.push_back({"StereoView_Run_SideBySide", initStereo, stereoPair,
                 [](Inputs& in, const Disturb& image, const Disturb&) {
                     Bytes o(2 * kW * kH * 3, 0xAA);
                     kvDSR_ImageDesc first = packed(kvDSR_FMT_YUV420SP, in.a.data());
                     kvDSR_ImageDesc second = packed(kvDSR_FMT_YUV420SP, in.b.data());
                     image(first, in);
                     image(second, in);
                     return Outcome{kvDSR_StereoView_Run_SideBySide(o.data(), 2 * kW, 999, &second, &first, kW, kH),
                                    {o}};
                 },
                 both(oddStrides, decoyPlane2), nothing});
    c.push_back({"SPR_Run",
                 [] {
                     const Bytes& cal = calibration();
                     return kvDSR_SPR_Init(cal.data(), uint32_t(cal.size()), nullptr, 0, kW, kH, kW / 2, kH / 2);
                 },
                 stereoPair,
                 [](Inputs& in, const Disturb& image, const Disturb&) {
                     Bytes o1(kW * kH * 3, 0xAA), o2(kW * kH * 3, 0xAA);
                     kvDSR_ImageDesc first = packed(kvDSR_FMT_YUV420SP, in.a.data());
                     kvDSR_ImageDesc second = packed(kvDSR_FMT_YUV420SP, in.b.data());
                     image(first, in);
                     image(second, in);
                     return Outcome{kvDSR_SPR_Run(o2.data(), o1.data(), &second, &first, kW, kH, kW / 2, kH / 2),
                                    {o1, o2}};
                 },
                 both(oddStrides, decoyPlane2), nothing});
    for (uint32_t format : {kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV420P}) {
        const auto initShift = [] {
            const Bytes& cal = calibration();
            return kvDSR_StereoView_FocalAlignmentShift_Init(cal.data(), uint32_t(cal.size()), nullptr, 0, kW, kH, 300);
        };
        c.push_back({"FocalAlignmentShift_" + std::to_string(format), initShift, stereoPair,
                     [format](Inputs& in, const Disturb& image, const Disturb&) {
                         Bytes o1(kW * kH * 3, 0xAA), o2(kW * kH * 3, 0xAA);
                         kvDSR_ImageDesc first = packed(format, in.a.data()), second = packed(format, in.b.data());
                         image(first, in);
                         image(second, in);
                         return Outcome{
                             kvDSR_StereoView_FocalAlignmentShift(o2.data(), o1.data(), &second, &first, kW, kH),
                             {o1, o2}};
                     },
                     both(oddStrides, decoyPlanes12), nothing});
        for (uint32_t outWidth : {uint32_t(kW), uint32_t(kW / 2)}) {
            c.push_back({"FocalAlignmentShiftSideBySide_" + std::to_string(format) + "_" + std::to_string(outWidth),
                         initShift, stereoPair,
                         [format, outWidth](Inputs& in, const Disturb& image, const Disturb&) {
                             Bytes o(kW * kH * 3, 0xAA);
                             kvDSR_ImageDesc frame = packed(format, in.a.data());
                             image(frame, in);
                             return Outcome{kvDSR_StereoView_FocalAlignmentShiftSideBySide(o.data(), outWidth, kH,
                                                                                             &frame, kW, kH),
                                            {o}};
                         },
                         both(oddStrides, decoyPlanes12), nothing});
        }
    }
    c.push_back({"Binocular_Run",
                 [] {
                     const Bytes& cal = calibration();
                     return kvDSR_Binocular_Init(cal.data(), uint32_t(cal.size()), nullptr, 0, kW, kH, kDW, kDH, 50);
                 },
                 [] { return depthInputs(false); },
                 [](Inputs& in, const Disturb& image, const Disturb& depth) {
                     Bytes o(kW * kH * 3, 0xAA);
                     kvDSR_ImageDesc left = packed(kvDSR_FMT_YUV420SP, in.a.data());
                     kvDSR_ImageDesc right = packed(kvDSR_FMT_YUV420SP, in.b.data());
                     kvDSR_ImageDesc d = packed(kvDSR_FMT_DEPTH8, in.depth.data());
                     image(left, in);
                     image(right, in);
                     depth(d, in);
                     return Outcome{kvDSR_Binocular_Run(o.data(), &left, &right, kW, kH, &d, kDW, kDH),
                                    {o, in.b, in.depth}};
                 },
                 both(oddStrides, decoyPlanes12), both(oddStrides, decoyPlanes12)});
    // Depth view, with a varied and a flat map: the depth map's strides and
    // unused planes; an 0xF01 image's third plane and stride; a packed 0xF02
    // image's planes 1 and 2.
    for (bool flat : {false, true}) {
        for (uint32_t format : {kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV444P}) {
            const Disturb image =
                format == kvDSR_FMT_YUV444P ? Disturb(decoyPlanes12) : both(oddStride2, decoyPlane2);
            c.push_back({std::string(flat ? "Run_flat_" : "Run_") + std::to_string(format), initDepth,
                         [flat] { return depthInputs(flat); },
                         [format](Inputs& in, const Disturb& image, const Disturb& depth) {
                             Bytes o(kW * kH * 3, 0xAA);
                             kvDSR_ImageDesc im = packed(format, in.a.data());
                             kvDSR_ImageDesc d = packed(kvDSR_FMT_DEPTH8, in.depth.data());
                             image(im, in);
                             depth(d, in);
                             return Outcome{kvDSR_Run(o.data(), &im, kW, kH, &d, kDW, kDH), {o, in.depth}};
                         },
                         image, both(oddStrides, decoyPlanes12)});
        }
    }
    return c;
}

void PrintTo(const Case& c, std::ostream* os) { *os << c.name; }

class IgnoredFields : public ::testing::TestWithParam<Case> {};

TEST_P(IgnoredFields, DoNotChangeAByte) {
    const Case& c = GetParam();
    ASSERT_EQ(c.init(), kvDSR_OK);
    Inputs clean = c.inputs(), disturbed = c.inputs();
    const Outcome want = c.run(clean, nothing, nothing);
    ASSERT_EQ(want.status, kvDSR_OK) << kvDSR_StatusName(want.status);
    const Outcome got = c.run(disturbed, c.ignored, c.ignoredDepth);
    EXPECT_TRUE(got == want);
}

INSTANTIATE_TEST_SUITE_P(EveryRunFunction, IgnoredFields, ::testing::ValuesIn(cases()),
                         [](const ::testing::TestParamInfo<Case>& i) { return i.param.name; });

// The controls: fields the header says are read do change the output.
TEST(ReadFields, StereoViewReadsPlaneOneOfYuv420sp) {
    ASSERT_EQ(initStereo(), kvDSR_OK);
    Inputs in = stereoPair();
    Bytes o1(kW * kH * 3), o2(kW * kH * 3), p1(kW * kH * 3), p2(kW * kH * 3);
    kvDSR_ImageDesc first = packed(kvDSR_FMT_YUV420SP, in.a.data()), second = packed(kvDSR_FMT_YUV420SP, in.b.data());
    ASSERT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &second, &first, kW, kH), kvDSR_OK);
    first.plane[1] = in.decoyA.data();
    ASSERT_EQ(kvDSR_StereoView_Run(p2.data(), p1.data(), &second, &first, kW, kH), kvDSR_OK);
    EXPECT_EQ(o2, p2);
    EXPECT_NE(o1, p1);
}

// The depth view honours 0xF01 strides: a padded copy of the frame gives the
// packed frame's output, and a 0xF02 frame padded in every plane likewise.
TEST(ReadFields, DepthViewHonoursPaddedStrides) {
    ASSERT_EQ(initDepth(), kvDSR_OK);
    for (uint32_t format : {kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV444P}) {
        const Inputs in = depthInputs(false);
        const uint32_t pad = 24, stride = kW + pad;
        const size_t rows = format == kvDSR_FMT_YUV420SP ? kH * 3 / 2 : kH * 3;
        Bytes padded(rows * stride, 0x55);
        for (size_t r = 0; r < rows; ++r)
            std::copy_n(in.a.begin() + r * kW, kW, padded.begin() + r * stride);
        kvDSR_ImageDesc plain = packed(format, const_cast<uint8_t*>(in.a.data()));
        kvDSR_ImageDesc wide{};
        wide.format = format;
        const int planes = format == kvDSR_FMT_YUV420SP ? 2 : 3;
        for (int p = 0; p < planes; ++p) {
            wide.stride[p] = stride;
            wide.plane[p] = padded.data() + size_t(p) * kH * stride;
        }
        Bytes d1 = in.depth, d2 = in.depth, o1(kW * kH * 3, 0), o2(kW * kH * 3, 0);
        kvDSR_ImageDesc dep1 = packed(kvDSR_FMT_DEPTH8, d1.data()), dep2 = packed(kvDSR_FMT_DEPTH8, d2.data());
        ASSERT_EQ(kvDSR_Run(o1.data(), &plain, kW, kH, &dep1, kDW, kDH), kvDSR_OK);
        ASSERT_EQ(kvDSR_Run(o2.data(), &wide, kW, kH, &dep2, kDW, kDH), kvDSR_OK);
        if (format == kvDSR_FMT_YUV420SP) {
            EXPECT_EQ(o1, o2);
        } else {
            // A padded 0xF02 output keeps the caller's bytes where no pixel
            // lands, a packed one is cleared first: compare where both wrote.
            size_t same = 0, compared = 0;
            for (size_t i = 0; i < o1.size(); ++i) {
                if (o2[i] == 0 && o1[i] != 0) continue;
                ++compared;
                same += o1[i] == o2[i];
            }
            EXPECT_EQ(same, compared);
            EXPECT_GT(compared, o1.size() / 2);
        }
    }
}

}  // namespace
