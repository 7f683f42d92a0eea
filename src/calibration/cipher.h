// Body cipher and key blobs of the calibration containers.
//
// An enciphered body is a 16-byte IV followed by the AES-CBC ciphertext of
// the body with PKCS#7 padding. Keys are 32 bytes: the built-in default, a
// 32-byte key blob as given, or HKDF-SHA256 of a key blob's key material.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kvdsr::calib {

constexpr uint32_t kKeySize = 32;
constexpr uint32_t kIvSize = 16;
constexpr uint32_t kCipherBlock = 16;

extern const uint8_t kDefaultKey[kKeySize];

// PKCS#7 always adds 1..16 bytes, so a multiple of 16 grows by a full block.
constexpr uint32_t encipheredSize(uint32_t plainSize) {
    return kIvSize + (plainSize / kCipherBlock + 1) * kCipherBlock;
}

// Deciphers `in` (IV || ciphertext, inSize bytes) into `out`. True only when
// the padding is well formed and the plain text is exactly plainSize bytes;
// `out` is then written, otherwise it is left as it was.
bool decipherBody(const uint8_t* key, uint32_t keyBytes, const uint8_t* in, uint32_t inSize, uint8_t* out,
                  uint32_t plainSize);

// Key blob (any length other than 32):
//   0  4  magic "KVKB"
//   4  2  version (1)
//   6  2  flags (0)
//   8  4  key material length m (0 = the default key)
//  12  4  embedded calibration record length r (0 = none)
//  16  m  key material
//  16+m r calibration record, as a caller would pass it
// The blob is exactly 16 + m + r bytes long.
namespace keyblob {
constexpr uint8_t kMagic[4] = {'K', 'V', 'K', 'B'};
constexpr uint16_t kVersion = 1;
constexpr uint32_t kHeaderSize = 16;
constexpr uint32_t kMaxKeyMaterial = 1024;
// HKDF-SHA256 salt and info of the derived key.
constexpr char kSalt[] = "kvDSR calibration key salt v1";
constexpr char kInfo[] = "kvDSR calibration body key";
}  // namespace keyblob

struct KeyBlobView {
    const uint8_t* keyMaterial = nullptr;
    uint32_t keyMaterialSize = 0;
    const uint8_t* record = nullptr;
    uint32_t recordSize = 0;
};

// False for a malformed blob (wrong magic, version, flags or lengths).
bool parseKeyBlob(const uint8_t* blob, uint32_t blobSize, KeyBlobView& out);

// HKDF-SHA256(salt, material, info) -> 32 bytes; false if the KDF fails.
bool deriveKey(const uint8_t* material, uint32_t materialSize, uint8_t key[kKeySize]);

}  // namespace kvdsr::calib
