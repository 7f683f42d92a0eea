// Camera sections as values: every field read from where the packer (which
// keeps its own table of places) wrote it, and written back byte for byte.
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "calibpack.h"
#include "calibration/camera_model.h"

namespace kvdsr {
namespace {

// A section whose every field holds a value no other field has.
calibpack::CameraSection distinctSection(int camera) {
    calibpack::CameraSection c;
    const float k = float(camera) * 1000;
    c.number = camera;
    for (int i = 0; i < 9; ++i) c.homography[i] = k + 1 + i;
    for (int i = 0; i < 12; ++i) c.projection[i] = k + 20 + i;
    c.mapValues = {uint16_t(k + 40), uint16_t(k + 41)};
    c.modelWidth = uint16_t(k + 42);
    c.modelHeight = uint16_t(k + 43);
    c.calibWidth = uint16_t(k + 44);
    c.calibHeight = uint16_t(k + 45);
    c.pixelPitch = k + 46.5f;
    c.focusSlope = k + 47.5f;
    c.focusInfinity = k + 48.5f;
    c.focalLength = k + 49.5f;
    c.objectDistance = k + 50.5f;
    c.principalX = uint16_t(k + 51);
    c.principalY = uint16_t(k + 52);
    for (int i = 0; i < 22; ++i) c.distortion.push_back({int16_t(k + 100 + i), int16_t(-k - 200 - i)});
    return c;
}

TEST(CameraModel, ReadsEveryFieldFromItsPlaceAndWritesItBack) {
    calibpack::Body body;
    body.referenceWidth = 1042;
    body.camera1 = distinctSection(1);
    body.camera2 = distinctSection(2);
    const calibpack::Bytes block = calibpack::packKind3(body);
    ASSERT_EQ(block.size(), calib::kBlockSize);
    for (int camera : {1, 2}) {
        const calibpack::CameraSection& s = camera == 1 ? body.camera1 : body.camera2;
        const calib::CameraModel m = calib::readCamera(block.data(), camera);
        EXPECT_EQ(m.number, s.number);
        for (int i = 0; i < 9; ++i) EXPECT_EQ(m.homography[i], s.homography[i]);
        for (int i = 0; i < 12; ++i) EXPECT_EQ(m.projection[i], s.projection[i]);
        EXPECT_EQ(m.mapValues[0], s.mapValues[0]);
        EXPECT_EQ(m.mapValues[1], s.mapValues[1]);
        EXPECT_EQ(m.modelWidth, s.modelWidth);
        EXPECT_EQ(m.modelHeight, s.modelHeight);
        EXPECT_EQ(m.calibWidth, s.calibWidth);
        EXPECT_EQ(m.calibHeight, s.calibHeight);
        EXPECT_EQ(m.pixelPitch, s.pixelPitch);
        EXPECT_EQ(m.focusSlope, s.focusSlope);
        EXPECT_EQ(m.focusInfinity, s.focusInfinity);
        EXPECT_EQ(m.focalLength, s.focalLength);
        EXPECT_EQ(m.objectDistance, s.objectDistance);
        EXPECT_EQ(m.principalX, s.principalX);
        EXPECT_EQ(m.principalY, s.principalY);
        EXPECT_EQ(m.distortionCount, 22);
        for (int i = 0; i < 22; ++i) {
            EXPECT_EQ(m.distortionRadii[i], s.distortion[i].radius);
            EXPECT_EQ(m.distortionValues[i], s.distortion[i].distortion);
        }
    }
    // Written back over a block that holds something else, the cameras give
    // the packed bytes again; the header and the bytes past the sections stay.
    std::array<uint8_t, calib::kBlockSize> copy;
    copy.fill(0x5A);
    std::memcpy(copy.data(), block.data(), 4);
    std::memcpy(copy.data() + 484, block.data() + 484, calib::kBlockSize - 484);
    for (int camera : {1, 2}) calib::writeCamera(copy.data(), camera, calib::readCamera(block.data(), camera));
    for (uint32_t camera : {1u, 2u}) {
        // 214 bytes of fields; the rest of each 240-byte section is unused.
        const uint32_t at = calib::kSectionOffset[camera];
        EXPECT_EQ(0, std::memcmp(copy.data() + at, block.data() + at, 214)) << camera;
    }
    EXPECT_EQ(0, std::memcmp(copy.data(), block.data(), 4));
}

TEST(CameraModel, OtherCameraNumbersReadNothingAndWriteNothing) {
    const calibpack::Bytes block = calibpack::packKind3(calibpack::sampleModule()[0]);
    for (int camera : {0, 3, -1}) {
        const calib::CameraModel m = calib::readCamera(block.data(), camera);
        EXPECT_EQ(m.modelWidth, 0);
        EXPECT_EQ(m.distortionCount, 0);
        calibpack::Bytes copy = block;
        calib::writeCamera(copy.data(), camera, calib::readCamera(block.data(), 1));
        EXPECT_EQ(copy, block);
    }
}

TEST(CameraModel, ProjectionsOfBothCameras) {
    const auto body = calibpack::sampleModule()[1];
    const calibpack::Bytes block = calibpack::packKind3(body);
    float p1[12], p2[12];
    calib::readProjections(block.data(), p1, p2);
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(p1[i], body.camera1.projection[i]);
        EXPECT_EQ(p2[i], body.camera2.projection[i]);
    }
}

}  // namespace
}  // namespace kvdsr
