// The stereo view and SPR run paths against the references of
// reference_run.h, byte by byte: random frames of odd and even sizes, every
// format, two outputs and side by side, on 1, 2 and 3 threads.
#include <gtest/gtest.h>
#include <omp.h>

#include <ostream>
#include <tuple>
#include <vector>

#include "kvDSR.h"
#include "reference_run.h"
#include "stereo_fixtures.h"
#include "stereoview/stereo_params.h"
#include "stereoview/stereo_warp.h"

namespace kvdsr::test {
namespace {

constexpr uint8_t kCanary = 0x6B;
constexpr size_t kTail = 32;  // canary bytes after each output

struct Size {
    uint16_t w, h;
};
void PrintTo(const Size& s, std::ostream* os) { *os << s.w << "x" << s.h; }

// The maps the engine's Init built, rebuilt from the blocks it prepared.
struct Maps {
    stereoview::MapSet full, half;
    Maps(uint16_t inW, uint16_t inH, uint16_t outW, uint16_t outH) {
        const auto& p = stereoview::stereoParams();
        stereoview::buildMapSet(full, p.calibBlock, inW, inH, outW, outH);
        stereoview::buildMapSet(half, p.halfCalibBlock, inW / 2, inH / 2, outW / 2, outH / 2);
    }
};

class ThreadCount {
protected:
    explicit ThreadCount(int threads) { omp_set_num_threads(threads); }
    ~ThreadCount() { omp_set_num_threads(saved_); }
    const int saved_ = omp_get_max_threads();
};

class StereoRunPaths : public ::testing::TestWithParam<std::tuple<Size, int>>, ThreadCount {
protected:
    StereoRunPaths() : ThreadCount(std::get<1>(GetParam())) {}
};

TEST_P(StereoRunPaths, MatchTheReferenceInEveryFormat) {
    const auto [size, threads] = GetParam();
    const uint16_t w = size.w, h = size.h;
    const auto module = sampleContainer();
    ASSERT_EQ(kvDSR_StereoView_Init(module.data(), uint32_t(module.size()), nullptr, 0, w, h), kvDSR_OK);
    Maps maps(w, h, w, h);
    ASSERT_TRUE(maps.full.ready && maps.half.ready);
    reference::Scratch scratch(maps.full);
    for (uint32_t fmt : {kvDSR_FMT_YUV444P, kvDSR_FMT_YUV420P, kvDSR_FMT_YUV420SP}) {
        SCOPED_TRACE(testing::Message() << std::hex << fmt);
        for (uint32_t seed : {1u, 2u}) {
            Frame first(fmt, w, h, seed), second(fmt, w, h, seed + 100);
            const size_t n = outputBytes(fmt, w, h);
            std::vector<uint8_t> o1(n + kTail, kCanary), o2(n + kTail, kCanary), r1 = o1, r2 = o2;
            ASSERT_EQ(kvDSR_StereoView_Run(o2.data(), o1.data(), &second.desc, &first.desc, w, h), kvDSR_OK);
            reference::run(maps.full, maps.half, r2.data(), r1.data(), second.desc, first.desc, scratch);
            ASSERT_EQ(o1, r1) << "first view";
            ASSERT_EQ(o2, r2) << "second view";

            std::vector<uint8_t> sbs(2 * n + kTail, kCanary), ref = sbs;
            ASSERT_EQ(kvDSR_StereoView_Run_SideBySide(sbs.data(), 2u * w, h, &second.desc, &first.desc, w, h),
                      kvDSR_OK);
            reference::runSideBySide(maps.full, maps.half, ref.data(), second.desc, first.desc, scratch);
            ASSERT_EQ(sbs, ref) << "side by side";
        }
    }
    kvDSR_StereoView_Close();
}

// 16:9 and 4:3 branches; odd widths (0xF01 chroma rows with a spare byte),
// odd halves, the smallest sizes with both map sets, and frames large
// enough for the team.
INSTANTIATE_TEST_SUITE_P(Sizes, StereoRunPaths,
                         ::testing::Combine(::testing::Values(Size{64, 36}, Size{67, 51}, Size{131, 73},
                                                              Size{4, 4}, Size{7, 5}, Size{322, 181}),
                                            ::testing::Values(1, 2, 3)));

struct SprSize {
    uint16_t inW, inH, outW, outH;
};
void PrintTo(const SprSize& s, std::ostream* os) { *os << s.inW << "x" << s.inH << "-" << s.outW << "x" << s.outH; }

class SprRunPath : public ::testing::TestWithParam<std::tuple<SprSize, int>>, ThreadCount {
protected:
    SprRunPath() : ThreadCount(std::get<1>(GetParam())) {}
};

TEST_P(SprRunPath, MatchesTheReference) {
    const auto [s, threads] = GetParam();
    const auto module = sampleContainer();
    ASSERT_EQ(kvDSR_SPR_Init(module.data(), uint32_t(module.size()), nullptr, 0, s.inW, s.inH, s.outW, s.outH),
              kvDSR_OK);
    Maps maps(s.inW, s.inH, s.outW, s.outH);
    ASSERT_TRUE(maps.full.ready && maps.half.ready);
    reference::Scratch scratch(maps.full);
    Frame first(kvDSR_FMT_YUV420SP, s.inW, s.inH, 7), second(kvDSR_FMT_YUV420SP, s.inW, s.inH, 8);
    const size_t n = outputBytes(kvDSR_FMT_YUV420SP, s.outW, s.outH);
    std::vector<uint8_t> o1(n + kTail, kCanary), o2(n + kTail, kCanary), r1 = o1, r2 = o2;
    ASSERT_EQ(kvDSR_SPR_Run(o2.data(), o1.data(), &second.desc, &first.desc, s.inW, s.inH, s.outW, s.outH),
              kvDSR_OK);
    reference::run(maps.full, maps.half, r2.data(), r1.data(), second.desc, first.desc, scratch);
    EXPECT_EQ(o1, r1);
    EXPECT_EQ(o2, r2);
    kvDSR_SPR_Close();
}

// Down and up, odd source and output widths, team-sized frames.
INSTANTIATE_TEST_SUITE_P(Sizes, SprRunPath,
                         ::testing::Combine(::testing::Values(SprSize{67, 51, 33, 25}, SprSize{33, 25, 67, 51},
                                                              SprSize{322, 242, 161, 121},
                                                              SprSize{160, 90, 323, 181}),
                                            ::testing::Values(1, 2, 3)));

}  // namespace
}  // namespace kvdsr::test
