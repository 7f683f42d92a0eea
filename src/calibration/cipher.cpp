#include "calibration/cipher.h"

#include <mbedtls/aes.h>
#include <mbedtls/hkdf.h>
#include <mbedtls/md.h>
#include <mbedtls/platform_util.h>

#include <cstring>

namespace kvdsr::calib {

const uint8_t kDefaultKey[kKeySize] = {
    0x6b, 0x76, 0x44, 0x53, 0x52, 0x2d, 0x63, 0x61, 0x6c, 0x2e, 0x9e, 0x37, 0x79, 0xb9, 0x7f, 0x4a,
    0x7c, 0x15, 0xf3, 0x9c, 0xc7, 0x06, 0x02, 0x5e, 0xd1, 0xb5, 0x4e, 0x21, 0x3a, 0x88, 0x0c, 0x61,
};

namespace {
// Largest body we decipher: the 1488-byte kind-4 source plus its padding.
constexpr uint32_t kMaxCipherText = 1504;

struct AesContext {
    mbedtls_aes_context ctx;
    AesContext() { mbedtls_aes_init(&ctx); }
    ~AesContext() { mbedtls_aes_free(&ctx); }
};
}  // namespace

bool decipherBody(const uint8_t* key, uint32_t keyBytes, const uint8_t* in, uint32_t inSize, uint8_t* out,
                  uint32_t plainSize) {
    if (inSize < kIvSize + kCipherBlock) return false;
    const uint32_t cipherSize = inSize - kIvSize;
    if (cipherSize % kCipherBlock != 0 || cipherSize > kMaxCipherText) return false;
    if (keyBytes != 16 && keyBytes != 24 && keyBytes != 32) return false;

    AesContext aes;
    if (mbedtls_aes_setkey_dec(&aes.ctx, key, keyBytes * 8) != 0) return false;
    uint8_t iv[kIvSize];
    std::memcpy(iv, in, kIvSize);
    uint8_t plain[kMaxCipherText];
    bool ok = mbedtls_aes_crypt_cbc(&aes.ctx, MBEDTLS_AES_DECRYPT, cipherSize, iv, in + kIvSize, plain) == 0;
    if (ok) {
        const uint8_t pad = plain[cipherSize - 1];
        ok = pad >= 1 && pad <= kCipherBlock && cipherSize - pad == plainSize;
        for (uint32_t i = 0; ok && i < pad; ++i) ok = plain[cipherSize - 1 - i] == pad;
    }
    if (ok) std::memcpy(out, plain, plainSize);
    mbedtls_platform_zeroize(plain, sizeof plain);
    return ok;
}

bool parseKeyBlob(const uint8_t* blob, uint32_t blobSize, KeyBlobView& out) {
    if (blob == nullptr || blobSize < keyblob::kHeaderSize) return false;
    if (std::memcmp(blob, keyblob::kMagic, 4) != 0) return false;
    uint16_t version, flags;
    uint32_t material, record;
    std::memcpy(&version, blob + 4, 2);
    std::memcpy(&flags, blob + 6, 2);
    std::memcpy(&material, blob + 8, 4);
    std::memcpy(&record, blob + 12, 4);
    if (version != keyblob::kVersion || flags != 0) return false;
    if (material > keyblob::kMaxKeyMaterial) return false;
    const uint32_t rest = blobSize - keyblob::kHeaderSize;
    if (record > rest || material != rest - record) return false;
    out.keyMaterial = material ? blob + keyblob::kHeaderSize : nullptr;
    out.keyMaterialSize = material;
    out.record = record ? blob + keyblob::kHeaderSize + material : nullptr;
    out.recordSize = record;
    return true;
}

bool deriveKey(const uint8_t* material, uint32_t materialSize, uint8_t key[kKeySize]) {
    const mbedtls_md_info_t* sha256 = mbedtls_md_info_from_type(MBEDTLS_MD_SHA256);
    if (sha256 == nullptr) return false;
    return mbedtls_hkdf(sha256, reinterpret_cast<const unsigned char*>(keyblob::kSalt), sizeof keyblob::kSalt - 1,
                        material, materialSize, reinterpret_cast<const unsigned char*>(keyblob::kInfo),
                        sizeof keyblob::kInfo - 1, key, kKeySize) == 0;
}

}  // namespace kvdsr::calib
