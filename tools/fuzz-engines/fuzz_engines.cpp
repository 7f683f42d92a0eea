// libFuzzer target: every engine's run path through the exported functions,
// with sizes, formats, strides, plane layouts, odd addresses and depth maps
// drawn from the input and a fixed valid calibration. Buffers are exactly as
// large as the arguments say, so the sanitizers see any access outside them;
// on top of that a write outside, an undocumented status or a refused call
// that wrote its output stops the run.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "calibpack.h"
#include "caller_memory.h"
#include "fuzz_input.h"
#include "kvDSR.h"

namespace {

using kvdsr::fuzz::EngineInput;
using kvdsr::fuzz::Path;
using kvdsr::test::CallerBuffer;
using kvdsr::test::CallerFrame;
using kvdsr::test::FrameShape;
using kvdsr::test::Placement;

const std::vector<uint8_t>& calibration() {
    static const std::vector<uint8_t> c =
        kvdsr::calibpack::packContainer(kvdsr::calibpack::sampleModule(), 1547);
    return c;
}

[[noreturn]] void fail(const char* what, uint32_t status) {
    std::fprintf(stderr, "fuzz_engines: %s (status 0x%x)\n", what, status);
    std::abort();
}

bool documented(uint32_t rc) {
    return rc == 0 || (rc >= kvDSR_ERR_BUFFER_TOO_SMALL && rc <= kvDSR_ERR_OUT_OF_MEMORY && rc != 0x74006);
}

uint32_t imageFormat(uint8_t v) {
    static const uint32_t kFormats[] = {kvDSR_FMT_YUV420SP, kvDSR_FMT_YUV444P, kvDSR_FMT_YUV420P,
                                        kvDSR_FMT_DEPTH8,   0,                 kvDSR_FMT_DEPTH16};
    return kFormats[v % 6];
}

uint32_t depthFormat(uint8_t v) {
    static const uint32_t kFormats[] = {kvDSR_FMT_DEPTH8, kvDSR_FMT_DEPTH16, kvDSR_FMT_YUV420SP, 0};
    return kFormats[v % 4];
}

uint32_t strideOf(uint8_t v, uint32_t w) {
    const uint32_t by = v >> 2;
    switch (v & 3) {
        case 0: return 0;
        case 1: return w;
        case 2: return w + 1 + by;
        default: return w > 1 ? w - 1 - by % (w - 1) : 1 + by;
    }
}

// How an engine reads a frame: the depth view honours strides; the stereo
// view and SPR read packed rows from each plane; the binocular engine and the
// focal alignment shift read the whole frame from plane 0.
enum class Reads { Strided, PackedPlanes, WholeFrame };

FrameShape frameShape(const EngineInput& in, uint32_t format, Reads reads, bool second) {
    FrameShape f;
    f.format = format;
    f.w = in.w;
    f.h = in.h;
    for (int i = 0; i < 3; ++i) f.stride[i] = strideOf(in.stride[i], in.w);
    // Packed 0xF02 planes are, by the depth view's contract, back to back.
    bool packed444 = format == kvDSR_FMT_YUV444P;
    for (int i = 0; i < 3; ++i) packed444 = packed444 && (f.stride[i] == 0 || f.stride[i] == in.w);
    const bool separate = (in.layout & 1) && reads != Reads::WholeFrame && !(reads == Reads::Strided && packed444);
    f.placement = separate ? Placement::Separate : Placement::Contiguous;
    f.misalign = (in.layout >> (second ? 4 : 1)) & 1;
    f.stridesHonoured = reads == Reads::Strided;
    // A whole-frame reader is owed the documented frame size, which for odd
    // widths exceeds the planes' own rows.
    if (reads == Reads::WholeFrame)
        f.minBytes = format == kvDSR_FMT_YUV444P ? 3u * in.w * in.h : in.w * in.h * 3u / 2;
    const uint8_t nulls = in.layout >> 5;
    if (nulls && !second) f.nullPlane[nulls % 3] = true;
    f.seed = in.layout * 131u + in.stride[0] + (second ? 7u : 0u);
    return f;
}

std::unique_ptr<CallerBuffer> depthMap(const EngineInput& in, uint32_t format) {
    const size_t n = size_t(in.dw) * in.dh * (format == kvDSR_FMT_DEPTH16 ? 2 : 1);
    auto map = std::make_unique<CallerBuffer>(n, (in.layout >> 2) & 1);
    for (size_t i = 0; i < n; ++i) map->data()[i] = in.mapSize ? in.mapBytes[i % in.mapSize] : uint8_t(i);
    return map;
}

// One output buffer, prefilled; checked after the call.
struct Output {
    explicit Output(size_t bytes) : buf(bytes) {
        buf.fill(0x6B);
        before = buf.bytes();
    }
    void check(uint32_t status) const {
        if (!buf.ringIntact()) fail("write outside the output", status);
        if (status != 0 && buf.bytes() != before) fail("a refused call wrote its output", status);
    }
    CallerBuffer buf;
    std::vector<uint8_t> before;
};

void checkCall(uint32_t status, const std::vector<const CallerFrame*>& frames) {
    if (!documented(status)) fail("undocumented status", status);
    for (const CallerFrame* f : frames)
        if (!f->ringsIntact()) fail("write outside an input frame", status);
}

// Output sizes: the depth view writes all three 4:4:4 planes, the stereo
// view only the luma plane of a 4:4:4 frame.
size_t depthViewBytes(uint32_t format, size_t w, size_t h) {
    return format == kvDSR_FMT_YUV444P ? 3 * w * h : w * h * 3 / 2;
}
size_t stereoViewBytes(uint32_t format, size_t w, size_t h) {
    return format == kvDSR_FMT_YUV444P ? w * h : w * h * 3 / 2;
}

void runDepthView(const EngineInput& in, bool sideBySide) {
    if (kvDSR_Init(calibration().data(), uint32_t(calibration().size()), nullptr, 0, in.w, in.h, in.dw, in.dh,
                   uint16_t(in.shift * 4)) != 0)
        return;
    const uint32_t format = imageFormat(in.format), mapFormat = depthFormat(in.depthFormat);
    CallerFrame image(frameShape(in, format, Reads::Strided, false));
    auto map = depthMap(in, mapFormat);
    kvDSR_ImageDesc depth{mapFormat, {0, 0, 0}, {map->data(), nullptr, nullptr}};
    const uint32_t outWidth = (sideBySide ? 2u * in.w : in.w) + (in.sideWidth ? in.sideWidth % 3 + 1 : 0);
    Output out(depthViewBytes(format, outWidth, in.h));
    const uint32_t rc = sideBySide ? kvDSR_Run_SideBySide(out.buf.data(), outWidth, 0, image.desc(), in.w, in.h,
                                                          &depth, in.dw, in.dh)
                                   : kvDSR_Run(out.buf.data(), image.desc(), in.w, in.h, &depth, in.dw, in.dh);
    checkCall(rc, {&image});
    out.check(rc);
    if (!map->ringIntact()) fail("write outside the depth map", rc);
}

void runBinocular(const EngineInput& in) {
    if (kvDSR_Binocular_Init(calibration().data(), uint32_t(calibration().size()), nullptr, 0, in.w, in.h, in.dw,
                             in.dh, uint16_t(in.shift * 4)) != 0)
        return;
    const uint32_t format = imageFormat(in.format), mapFormat = depthFormat(in.depthFormat);
    const uint32_t other = (in.layout & 8) ? imageFormat(uint8_t(in.format + 1)) : format;
    CallerFrame left(frameShape(in, format, Reads::WholeFrame, false)),
        right(frameShape(in, other, Reads::WholeFrame, true));
    auto map = depthMap(in, mapFormat);
    kvDSR_ImageDesc depth{mapFormat, {0, 0, 0}, {map->data(), nullptr, nullptr}};
    Output out(size_t(in.w) * in.h * 3 / 2);
    const uint32_t rc =
        kvDSR_Binocular_Run(out.buf.data(), left.desc(), right.desc(), in.w, in.h, &depth, in.dw, in.dh);
    checkCall(rc, {&left, &right});
    out.check(rc);
    if (!map->ringIntact()) fail("write outside the depth map", rc);
}

void runStereoView(const EngineInput& in, bool sideBySide) {
    if (kvDSR_StereoView_Init(calibration().data(), uint32_t(calibration().size()), nullptr, 0, in.w, in.h) != 0)
        return;
    const uint32_t format = imageFormat(in.format);
    const uint32_t other = (in.layout & 8) ? imageFormat(uint8_t(in.format + 1)) : format;
    CallerFrame second(frameShape(in, other, Reads::PackedPlanes, true));
    CallerFrame first(frameShape(in, format, Reads::PackedPlanes, false));
    uint32_t rc;
    if (sideBySide) {
        const uint32_t outWidth = 2u * in.w + (in.sideWidth ? in.sideWidth % 3 + 1 : 0);
        Output out(stereoViewBytes(format, outWidth, in.h));
        rc = kvDSR_StereoView_Run_SideBySide(out.buf.data(), outWidth, in.h, second.desc(), first.desc(), in.w, in.h);
        checkCall(rc, {&second, &first});
        out.check(rc);
    } else {
        Output a(stereoViewBytes(format, in.w, in.h)), b(stereoViewBytes(format, in.w, in.h));
        rc = kvDSR_StereoView_Run(a.buf.data(), b.buf.data(), second.desc(), first.desc(), in.w, in.h);
        checkCall(rc, {&second, &first});
        a.check(rc);
        b.check(rc);
    }
}

void runSpr(const EngineInput& in) {
    if (kvDSR_SPR_Init(calibration().data(), uint32_t(calibration().size()), nullptr, 0, in.w, in.h, in.dw, in.dh) !=
        0)
        return;
    const uint32_t format = imageFormat(in.format);
    const uint32_t other = (in.layout & 8) ? imageFormat(uint8_t(in.format + 1)) : format;
    CallerFrame second(frameShape(in, other, Reads::PackedPlanes, true));
    CallerFrame first(frameShape(in, format, Reads::PackedPlanes, false));
    Output a(size_t(in.dw) * in.dh * 3 / 2), b(size_t(in.dw) * in.dh * 3 / 2);
    const uint32_t rc =
        kvDSR_SPR_Run(a.buf.data(), b.buf.data(), second.desc(), first.desc(), in.w, in.h, in.dw, in.dh);
    checkCall(rc, {&second, &first});
    // Pairs it does not process are a silent no-op: nothing may be written.
    const bool processed = format == kvDSR_FMT_YUV420SP && other == format;
    a.check(processed ? rc : 1);
    b.check(processed ? rc : 1);
}

void runFocalShift(const EngineInput& in, bool sideBySide) {
    const uint16_t distance = uint16_t(in.shift * 40);
    const bool half = sideBySide && (in.sideWidth & 0x80);
    const uint16_t initWidth = half ? uint16_t(in.w / 2) : in.w;
    if (kvDSR_StereoView_FocalAlignmentShift_Init(calibration().data(), uint32_t(calibration().size()), nullptr, 0,
                                                  initWidth, in.h, distance) != 0)
        return;
    const uint32_t format = imageFormat(in.format);
    if (!sideBySide) {
        const uint32_t other = (in.layout & 8) ? imageFormat(uint8_t(in.format + 1)) : format;
        CallerFrame second(frameShape(in, other, Reads::WholeFrame, true));
        CallerFrame first(frameShape(in, format, Reads::WholeFrame, false));
        Output a(size_t(in.w) * in.h * 3 / 2), b(size_t(in.w) * in.h * 3 / 2);
        const uint32_t rc =
            kvDSR_StereoView_FocalAlignmentShift(a.buf.data(), b.buf.data(), second.desc(), first.desc(), in.w, in.h);
        checkCall(rc, {&second, &first});
        a.check(rc);
        b.check(rc);
        return;
    }
    CallerFrame frame(frameShape(in, format, Reads::WholeFrame, false));
    uint32_t outWidth = half ? in.w / 2u : in.w;
    if (in.sideWidth & 0x7F) outWidth += in.sideWidth % 3 + 1;
    const uint32_t outHeight = in.outHeight ? in.outHeight % 40 : in.h;
    Output out(size_t(outWidth) * outHeight * 3 / 2);
    const uint32_t rc =
        kvDSR_StereoView_FocalAlignmentShiftSideBySide(out.buf.data(), outWidth, outHeight, frame.desc(), in.w, in.h);
    checkCall(rc, {&frame});
    out.check(rc);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    EngineInput in;
    if (!kvdsr::fuzz::splitEngineInput(data, size, in)) return 0;
    switch (in.path) {
        case Path::DepthView: runDepthView(in, false); break;
        case Path::DepthViewSideBySide: runDepthView(in, true); break;
        case Path::Binocular: runBinocular(in); break;
        case Path::StereoView: runStereoView(in, false); break;
        case Path::StereoViewSideBySide: runStereoView(in, true); break;
        case Path::Spr: runSpr(in); break;
        case Path::FocalShift: runFocalShift(in, false); break;
        case Path::FocalShiftSideBySide: runFocalShift(in, true); break;
    }
    // Every input starts from closed engines.
    kvDSR_Close();
    kvDSR_Binocular_Close();
    kvDSR_StereoView_Close();
    kvDSR_SPR_Close();
    kvDSR_StereoView_FocalAlignmentShift_Close();
    return 0;
}
