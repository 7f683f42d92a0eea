#include <gtest/gtest.h>

#include "calibpack.h"
#include "calibration/cipher.h"

namespace kvdsr {
namespace {

using calibpack::Bytes;

Bytes pattern(size_t n, uint8_t seed) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(seed + 7 * i + (i >> 5));
    return b;
}

TEST(Cipher, PackerProducesStandardAes256Cbc) {
    // FIPS-197 C.3: with a zero IV the first CBC block is the plain AES-256 block.
    calibpack::Key key;
    for (size_t i = 0; i < key.size(); ++i) key[i] = static_cast<uint8_t>(i);
    Bytes plain(16);
    for (size_t i = 0; i < 16; ++i) plain[i] = static_cast<uint8_t>(0x11 * i);
    const Bytes out = calibpack::encipher(plain, key, {});
    const Bytes expected{0x8e, 0xa2, 0xb7, 0xca, 0x51, 0x67, 0x45, 0xbf,
                         0xea, 0xfc, 0x49, 0x90, 0x4b, 0x49, 0x60, 0x89};
    ASSERT_EQ(out.size(), 48u);  // IV, the block, a full padding block
    EXPECT_EQ(Bytes(out.begin() + 16, out.begin() + 32), expected);
}

class CipherSizes : public ::testing::TestWithParam<uint32_t> {};

TEST_P(CipherSizes, RoundTripAndRejections) {
    const uint32_t n = GetParam();
    const auto key = calibpack::defaultKey();
    const Bytes plain = pattern(n, 3);
    const Bytes sealed = calibpack::encipher(plain, key, {1, 2, 3});
    ASSERT_EQ(sealed.size(), calib::encipheredSize(n));
    Bytes out(n + 16, 0xCC);
    ASSERT_TRUE(calib::decipherBody(key.data(), 32, sealed.data(), static_cast<uint32_t>(sealed.size()), out.data(), n));
    EXPECT_EQ(Bytes(out.begin(), out.begin() + n), plain);
    EXPECT_EQ(out[n], 0xCC);  // nothing past the plain text is written

    // Any other expected plain length fails, and leaves the output alone.
    Bytes untouched(n + 16, 0xCC);
    for (uint32_t other : {n - 1, n + 1, n - 16})
        EXPECT_FALSE(calib::decipherBody(key.data(), 32, sealed.data(), static_cast<uint32_t>(sealed.size()),
                                         untouched.data(), other));
    EXPECT_EQ(untouched, Bytes(n + 16, 0xCC));

    auto wrongKey = key;
    wrongKey[31] ^= 0x80;
    EXPECT_FALSE(calib::decipherBody(wrongKey.data(), 32, sealed.data(), static_cast<uint32_t>(sealed.size()),
                                     out.data(), n));
    EXPECT_FALSE(calib::decipherBody(key.data(), 32, sealed.data(), static_cast<uint32_t>(sealed.size()) - 1,
                                     out.data(), n));
    EXPECT_FALSE(calib::decipherBody(key.data(), 31, sealed.data(), static_cast<uint32_t>(sealed.size()),
                                     out.data(), n));
}

INSTANTIATE_TEST_SUITE_P(BodySizes, CipherSizes, ::testing::Values(464u, 512u, 1488u, 100u));

TEST(Cipher, PaddingMustBeUniform) {
    // n = 470 leaves 10 padding bytes; flipping a middle padding byte of the
    // plain text (through the previous cipher block) must be caught.
    const auto key = calibpack::defaultKey();
    Bytes sealed = calibpack::encipher(pattern(470, 9), key, {});
    const size_t lastBlock = sealed.size() - 16;
    sealed[lastBlock - 16 + 12] ^= 0x01;  // byte 12 of the last plain block: padding
    Bytes out(470);
    EXPECT_FALSE(calib::decipherBody(key.data(), 32, sealed.data(), static_cast<uint32_t>(sealed.size()), out.data(), 470));
}

TEST(Cipher, DerivedKeysDependOnEveryByteOfMaterial) {
    const Bytes material = pattern(40, 1);
    uint8_t lib[32];
    ASSERT_TRUE(calib::deriveKey(material.data(), static_cast<uint32_t>(material.size()), lib));
    const auto packer = calibpack::deriveKey(material);
    EXPECT_TRUE(std::equal(packer.begin(), packer.end(), lib));
    for (size_t i = 0; i < material.size(); i += 13) {
        Bytes m = material;
        m[i] ^= 1;
        EXPECT_NE(calibpack::deriveKey(m), packer) << i;
    }
    EXPECT_NE(packer, calibpack::defaultKey());
}

TEST(KeyBlob, ParsesItsParts) {
    const Bytes material{1, 2, 3}, record = pattern(512, 5);
    const Bytes blob = calibpack::makeKeyBlob(material, record);
    calib::KeyBlobView v;
    ASSERT_TRUE(calib::parseKeyBlob(blob.data(), static_cast<uint32_t>(blob.size()), v));
    ASSERT_EQ(v.keyMaterialSize, 3u);
    EXPECT_EQ(Bytes(v.keyMaterial, v.keyMaterial + 3), material);
    ASSERT_EQ(v.recordSize, 512u);
    EXPECT_EQ(Bytes(v.record, v.record + 512), record);

    const Bytes bare = calibpack::makeKeyBlob({});
    ASSERT_TRUE(calib::parseKeyBlob(bare.data(), static_cast<uint32_t>(bare.size()), v));
    EXPECT_EQ(v.keyMaterialSize, 0u);
    EXPECT_EQ(v.recordSize, 0u);
    EXPECT_FALSE(calib::parseKeyBlob(nullptr, 16, v));

    const Bytes tooMuch = calibpack::makeKeyBlob(Bytes(calib::keyblob::kMaxKeyMaterial + 1, 1));
    EXPECT_FALSE(calib::parseKeyBlob(tooMuch.data(), static_cast<uint32_t>(tooMuch.size()), v));
}

}  // namespace
}  // namespace kvdsr
