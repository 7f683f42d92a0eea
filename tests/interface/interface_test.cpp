// Entry-point checks that hold whatever the engines compute: the order of the
// argument checks, the settings calls, the version query, the descriptor
// layout and the out-of-memory rule.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <vector>

#include "common/alloc.h"
#include "common/aspect.h"
#include "common/guard.h"
#include "kvDSR.h"

namespace {

TEST(Version, SizeIsCheckedBeforePointer) {
    EXPECT_EQ(kvDSR_VersionInfo_Get(nullptr, 100), kvDSR_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(kvDSR_VersionInfo_Get(nullptr, -1), kvDSR_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(kvDSR_VersionInfo_Get(nullptr, 256), kvDSR_ERR_NULL_POINTER);
    char small[255];
    EXPECT_EQ(kvDSR_VersionInfo_Get(small, 255), kvDSR_ERR_BUFFER_TOO_SMALL);
}

TEST(Version, WritesFiveBytesAndLeavesTheRest) {
    std::vector<char> buf(300, 'x');
    ASSERT_EQ(kvDSR_VersionInfo_Get(buf.data(), 256), kvDSR_OK);
    EXPECT_STREQ(buf.data(), "0.61");
    for (size_t i = 5; i < buf.size(); ++i) ASSERT_EQ(buf[i], 'x') << i;
}

TEST(CameraLayout, DefaultRangeAndRejection) {
    uint32_t layout = 0;
    EXPECT_EQ(kvDSR_CameraLayout_Get(nullptr), kvDSR_ERR_NULL_POINTER);
    ASSERT_EQ(kvDSR_CameraLayout_Get(&layout), kvDSR_OK);
    EXPECT_EQ(layout, 4u);  // never set in this process yet
    for (uint32_t bad : {0u, 5u, 0xFFFFFFFFu, 0x80000001u}) {
        EXPECT_EQ(kvDSR_CameraLayout_Set(bad), kvDSR_ERR_CAMERA_LAYOUT) << bad;
        kvDSR_CameraLayout_Get(&layout);
        EXPECT_EQ(layout, 4u);
    }
    for (uint32_t good : {1u, 2u, 3u, 4u}) {
        EXPECT_EQ(kvDSR_CameraLayout_Set(good), kvDSR_OK);
        kvDSR_CameraLayout_Get(&layout);
        EXPECT_EQ(layout, good);
    }
}

TEST(Descriptor, SevenWordsOn32Bit) {
    EXPECT_EQ(offsetof(kvDSR_ImageDesc, format), 0u);
    EXPECT_EQ(offsetof(kvDSR_ImageDesc, stride), 4u);
    EXPECT_EQ(offsetof(kvDSR_ImageDesc, plane), 16u);
    if (sizeof(void*) == 4) EXPECT_EQ(sizeof(kvDSR_ImageDesc), 28u);
}

TEST(Notice, IsExportedText) {
    ASSERT_NE(zavim_statement, nullptr);
    EXPECT_GT(std::strlen(zavim_statement), 40u);
    EXPECT_NE(std::strchr(zavim_statement, '\n'), nullptr);
}

// Before any Init: pointer checks first, then the initialisation check.
TEST(RunBeforeInit, PointerChecksComeFirst) {
    uint8_t out[16] = {};
    kvDSR_ImageDesc img{kvDSR_FMT_YUV420SP, {0, 0, 0}, {out, out, nullptr}};
    kvDSR_ImageDesc dep{kvDSR_FMT_DEPTH8, {0, 0, 0}, {out, nullptr, nullptr}};
    kvDSR_Close();
    EXPECT_EQ(kvDSR_Run(nullptr, &img, 4, 2, &dep, 4, 2), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_Run(out, &img, 4, 2, nullptr, 4, 2), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_Run(out, nullptr, 4, 2, &dep, 4, 2), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_Run(out, &img, 4, 2, &dep, 4, 2), kvDSR_ERR_NOT_INITIALISED);
    EXPECT_EQ(kvDSR_Run_SideBySide(nullptr, 8, 0, &img, 4, 2, &dep, 4, 2), kvDSR_ERR_NULL_POINTER);
    // Not initialised is reported before the side-by-side width.
    EXPECT_EQ(kvDSR_Run_SideBySide(out, 9, 0, &img, 4, 2, &dep, 4, 2), kvDSR_ERR_NOT_INITIALISED);

    kvDSR_Binocular_Close();
    EXPECT_EQ(kvDSR_Binocular_Run(out, nullptr, &img, 4, 2, &dep, 4, 2), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_Binocular_Run(nullptr, &img, &img, 4, 2, &dep, 4, 2), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_Binocular_Run(out, &img, nullptr, 4, 2, &dep, 4, 2), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_Binocular_Run(out, &img, &img, 4, 2, nullptr, 4, 2), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_Binocular_Run(out, &img, &img, 4, 2, &dep, 4, 2), kvDSR_ERR_NOT_INITIALISED);

    kvDSR_StereoView_Close();
    EXPECT_EQ(kvDSR_StereoView_Run(out, out, &img, nullptr, 4, 2), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_StereoView_Run(out, out, &img, &img, 4, 2), kvDSR_ERR_NOT_INITIALISED);
    EXPECT_EQ(kvDSR_StereoView_Run_SideBySide(out, 8, 2, &img, &img, 4, 2), kvDSR_ERR_NOT_INITIALISED);

    kvDSR_SPR_Close();
    EXPECT_EQ(kvDSR_SPR_Run(out, out, &img, &img, 4, 2, 4, 2), kvDSR_ERR_NOT_INITIALISED);
}

TEST(Close, AlwaysSucceedsAndRepeats) {
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(kvDSR_Close(), kvDSR_OK);
        EXPECT_EQ(kvDSR_Binocular_Close(), kvDSR_OK);
        EXPECT_EQ(kvDSR_StereoView_Close(), kvDSR_OK);
        EXPECT_EQ(kvDSR_SPR_Close(), kvDSR_OK);
        EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift_Close(), kvDSR_OK);
    }
}

TEST(FocalShiftInit, DistanceIsCheckedBeforeCalibration) {
    // No calibration at all: the distance check must answer first.
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift_Init(nullptr, 0, nullptr, 0, 640, 480, 10001),
              kvDSR_ERR_DISTANCE_RANGE);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift_Init(nullptr, 0, nullptr, 0, 640, 480, 65535),
              kvDSR_ERR_DISTANCE_RANGE);
    EXPECT_NE(kvDSR_StereoView_FocalAlignmentShift_Init(nullptr, 0, nullptr, 0, 640, 480, 10000),
              kvDSR_ERR_DISTANCE_RANGE);
}

TEST(FocalShift, PointerWidthAndFormatOrder) {
    uint8_t buf[64] = {};
    kvDSR_ImageDesc f01{kvDSR_FMT_YUV420SP, {0, 0, 0}, {buf, buf, nullptr}};
    kvDSR_ImageDesc f02{kvDSR_FMT_YUV444P, {0, 0, 0}, {buf, buf, buf}};
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift(nullptr, buf, &f01, &f01, 4, 2), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift(buf, nullptr, &f01, &f01, 4, 2), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift(buf, buf, &f01, &f02, 4, 2), kvDSR_ERR_IMAGE_FORMAT);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShift(buf, buf, &f02, &f02, 4, 2), kvDSR_ERR_IMAGE_FORMAT);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(nullptr, 8, 2, &f01, 8, 2), kvDSR_ERR_NULL_POINTER);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(buf, 5, 2, &f01, 8, 2),
              kvDSR_ERR_SIDE_BY_SIDE_WIDTH);
    EXPECT_EQ(kvDSR_StereoView_FocalAlignmentShiftSideBySide(buf, 16, 2, &f01, 8, 2),
              kvDSR_ERR_SIDE_BY_SIDE_WIDTH);
}

struct AspectCase {
    uint32_t w, h, dw, dh;
    uint32_t status;
    uint8_t is43;
    double referenceWidth;
};

class SizeCombination : public ::testing::TestWithParam<AspectCase> {};

TEST_P(SizeCombination, ClassesAndReferenceWidth) {
    const AspectCase c = GetParam();
    kvdsr::AspectState st{7, -1.0};
    EXPECT_EQ(kvdsr::checkSizeCombination(c.w, c.h, c.dw, c.dh, st), c.status);
    EXPECT_EQ(st.is43, c.is43);
    EXPECT_EQ(st.referenceWidth, c.referenceWidth);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, SizeCombination,
    ::testing::Values(AspectCase{1920, 1080, 640, 360, kvDSR_OK, 0, 1280.0},
                      AspectCase{1920, 1080, 480, 270, kvDSR_OK, 0, 1280.0},
                      AspectCase{1920, 1080, 640, 480, kvDSR_ERR_SIZE_COMBINATION, 7, -1.0},
                      AspectCase{1440, 1080, 480, 270, kvDSR_ERR_SIZE_COMBINATION, 7, -1.0},
                      AspectCase{640, 480, 320, 240, kvDSR_OK, 1, 1280.0},
                      AspectCase{1080, 1920, 360, 640, kvDSR_OK, 0, 720.0},
                      AspectCase{1080, 1920, 270, 480, kvDSR_OK, 0, 720.0},
                      AspectCase{480, 640, 240, 320, kvDSR_OK, 1, 960.0},
                      AspectCase{480, 640, 270, 480, kvDSR_ERR_SIZE_COMBINATION, 7, -1.0},
                      // Square or mixed orientation: lenient, state untouched.
                      AspectCase{1000, 1000, 480, 270, kvDSR_OK, 7, -1.0},
                      AspectCase{1920, 1080, 270, 480, kvDSR_OK, 7, -1.0}));

TEST(Allocation, CountsAboveTheLimitFailAsOutOfMemory) {
    EXPECT_THROW(kvdsr::allocArray<uint16_t>(0x3F800001u), std::bad_alloc);
    EXPECT_NO_THROW(kvdsr::allocArray<uint8_t>(16));
    EXPECT_EQ(kvdsr::guarded([] { return kvdsr::allocArray<uint8_t>(0x3F800001u) ? 0u : 1u; }),
              kvDSR_ERR_OUT_OF_MEMORY);
    EXPECT_EQ(kvdsr::guarded([] { return 5u; }), 5u);
}

TEST(Allocation, GrowBufferKeepsContentsAndNeverShrinks) {
    kvdsr::GrowBuffer b;
    b.grow(8);
    std::memset(b.data(), 0xAB, 8);
    b.grow(4);
    EXPECT_EQ(b.capacity(), 8u);
    b.grow(32);
    EXPECT_EQ(b.capacity(), 32u);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(b.data()[i], 0xAB);
    uint8_t* before = b.data();
    EXPECT_THROW(b.grow(std::size_t(0x3F800001u)), std::bad_alloc);
    EXPECT_EQ(b.data(), before);
    EXPECT_EQ(b.capacity(), 32u);
}

}  // namespace
