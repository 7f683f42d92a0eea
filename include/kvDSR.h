/*
 * libkvDSR: image-processing engine of a dual-camera module.
 *
 * Five engines, each with its own _Init, run and _Close functions and its own
 * process-wide state:
 *   - depth view engine      kvDSR_Init / kvDSR_Run / kvDSR_Run_SideBySide / kvDSR_Close
 *   - binocular engine       kvDSR_Binocular_*
 *   - stereo view engine     kvDSR_StereoView_Init / _Run / _Run_SideBySide / _Close
 *   - SPR engine             kvDSR_SPR_*
 *   - focal alignment shift  kvDSR_StereoView_FocalAlignmentShift*
 *
 * Every function returns a 32-bit status: kvDSR_OK (0) or one of the codes
 * below. Calibration parser codes (0x6002..0x600C) are passed through by every
 * _Init that takes calibration data.
 *
 * Threading: no entry point is re-entrant; the caller serialises all calls.
 * Per-pixel work runs on an OpenMP team started by the calling thread.
 *
 * Ownership: images, descriptors, calibration data and output buffers belong
 * to the caller and are borrowed for the duration of a call. Two calls write
 * into caller memory besides the output: the depth engines repair invalid
 * pixels of the caller's depth plane in place, and kvDSR_Binocular_Run
 * colour-matches the caller's right image in place.
 */
#ifndef KVDSR_H
#define KVDSR_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#define KVDSR_API
#else
#define KVDSR_API __attribute__((visibility("default")))
#endif

/* ---- Status codes ------------------------------------------------------ */
#define kvDSR_OK                       0x00000u
#define kvDSR_ERR_BUFFER_TOO_SMALL     0x74001u /* VersionInfo_Get: size below 256 */
#define kvDSR_ERR_NULL_POINTER         0x74002u /* a required pointer or plane is NULL */
#define kvDSR_ERR_STRIDE               0x74003u /* padded planar strides not all larger than width */
#define kvDSR_ERR_CAMERA_LAYOUT        0x74004u /* CameraLayout_Set outside 1..4 */
#define kvDSR_ERR_SIZE_COMBINATION     0x74005u /* image/depth sizes of different aspect class, or run sizes differ from _Init's */
#define kvDSR_ERR_SIDE_BY_SIDE_WIDTH   0x74007u /* side-by-side width is not 2x (or 1x where allowed) */
#define kvDSR_ERR_NOT_INITIALISED      0x74008u /* run before a successful _Init, or after _Close */
#define kvDSR_ERR_DEPTH_FORMAT         0x74009u /* depth format not 0xF03/0xF04 (also flat-depth with unknown image format) */
#define kvDSR_ERR_IMAGE_FORMAT         0x7400Au /* image format not accepted by the called function */
#define kvDSR_ERR_DISTANCE_RANGE       0x7400Bu /* FocalAlignmentShift_Init distance above 10000 */
#define kvDSR_ERR_OUT_OF_MEMORY        0x7400Cu /* an allocation failed; the engine is left as before or uninitialised */

/* Calibration parser codes, returned unchanged by every _Init that parses. */
#define kvDSR_ERR_CALIB_LENGTH         0x6002u /* container length not accepted */
#define kvDSR_ERR_CALIB_DECIPHER       0x6004u /* deciphering failed (wrong key or padding) */
#define kvDSR_ERR_CALIB_REVISION       0x6005u /* 1643 container: body revision below 2 */
#define kvDSR_ERR_CALIB_REF_WIDTH      0x6006u /* 1643 container: reference width matches neither camera */
#define kvDSR_ERR_CALIB_CAMERA1        0x6007u /* 1643 container: camera-1 first field below 1 */
#define kvDSR_ERR_CALIB_CAMERA2        0x6008u /* 1643 container: camera-2 first field below 1 */
#define kvDSR_ERR_CALIB_NO_DATA        0x600Au /* neither calibration data nor key blob given */
#define kvDSR_ERR_CALIB_EXTRACT        0x600Bu /* no calibration record could be taken from the key blob */
#define kvDSR_ERR_CALIB_KEY            0x600Cu /* key blob malformed, key derivation failed */

/* ---- Image formats ----------------------------------------------------- */
#define kvDSR_FMT_YUV420SP  0xF01u /* Y plane, then interleaved chroma pairs (width x height/2 bytes) */
#define kvDSR_FMT_YUV444P   0xF02u /* Y, Cb, Cr planes, each width x height */
#define kvDSR_FMT_DEPTH8    0xF03u /* 8-bit disparity, 255 = invalid */
#define kvDSR_FMT_DEPTH16   0xF04u /* 16-bit disparity in 1/8 pixel, 0..1022, 1023 = invalid */
#define kvDSR_FMT_YUV420P   0xF05u /* Y plane, then Cb and Cr planes of width/2 x height/2 */

/* Image descriptor: read, never written. A stride of 0 means packed. */
typedef struct kvDSR_ImageDesc {
    uint32_t format;
    uint32_t stride[3];
    uint8_t* plane[3];
} kvDSR_ImageDesc;

/* On 32-bit ARM the descriptor is exactly seven 32-bit words. */
#if defined(__arm__) && !defined(__aarch64__)
#if defined(__cplusplus)
static_assert(sizeof(kvDSR_ImageDesc) == 28, "kvDSR_ImageDesc must be 28 bytes");
static_assert(__builtin_offsetof(kvDSR_ImageDesc, stride) == 4, "stride at 4");
static_assert(__builtin_offsetof(kvDSR_ImageDesc, plane) == 16, "plane at 16");
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
_Static_assert(sizeof(kvDSR_ImageDesc) == 28, "kvDSR_ImageDesc must be 28 bytes");
_Static_assert(__builtin_offsetof(kvDSR_ImageDesc, stride) == 4, "stride at 4");
_Static_assert(__builtin_offsetof(kvDSR_ImageDesc, plane) == 16, "plane at 16");
#endif
#endif

/* ---- Depth view engine ------------------------------------------------- */

/* Checks that image and depth-map sizes share orientation and aspect class
 * (0x74005), parses the calibration (parser codes), then builds the virtual
 * camera and its shift table. keyMaterial may be NULL (built-in key). May be
 * called again without kvDSR_Close. The sizes given here must be given again
 * to every run call. */
KVDSR_API uint32_t kvDSR_Init(const uint8_t* calibration, uint32_t calibrationSize,
                              const uint32_t* keyMaterial, uint32_t keyMaterialSize,
                              uint16_t width, uint16_t height,
                              uint16_t depthWidth, uint16_t depthHeight, uint16_t viewShift);

/* Synthesises the sideways-moved view into out (width*height*3/2 bytes for
 * 0xF01, width*height*3 for 0xF02). Checks: out, depth, image non-NULL
 * (0x74002); initialised (0x74008); depth format (0x74009); sizes as at Init
 * (0x74005); then image checks (0x74009 flat depth, 0x74002, 0x7400A, 0x74003).
 * Invalid pixels of the caller's depth plane are repaired in place. */
KVDSR_API uint32_t kvDSR_Run(uint8_t* out, const kvDSR_ImageDesc* image, uint32_t width, int32_t height,
                             const kvDSR_ImageDesc* depth, uint16_t depthWidth, uint16_t depthHeight);

/* As kvDSR_Run, but out is 2*width wide: synthesised view left, input right.
 * outWidth must be 2*width (0x74007, checked after initialisation). The
 * reserved argument is not read. */
KVDSR_API uint32_t kvDSR_Run_SideBySide(uint8_t* out, uint32_t outWidth, uint32_t reserved,
                                        const kvDSR_ImageDesc* image, uint16_t width, uint16_t height,
                                        const kvDSR_ImageDesc* depth, uint16_t depthWidth, uint16_t depthHeight);

/* Frees the depth view engine's tables; always returns 0. */
KVDSR_API uint32_t kvDSR_Close(void);

/* ---- Binocular engine -------------------------------------------------- */

/* Same arguments and first checks as kvDSR_Init; viewShift is the baseline of
 * the synthesised view in hundredths of the calibration's length unit. */
KVDSR_API uint32_t kvDSR_Binocular_Init(const uint8_t* calibration, uint32_t calibrationSize,
                                        const uint32_t* keyMaterial, uint32_t keyMaterialSize,
                                        uint16_t width, uint16_t height,
                                        uint16_t depthWidth, uint16_t depthHeight, uint16_t viewShift);

/* Synthesises from left (0xF01) with holes filled from right (0xF01), which is
 * colour-matched to left IN PLACE. Checks: left, out, depth, right non-NULL
 * (0x74002); initialised (0x74008); depth format (0x74009); sizes as at Init
 * (0x74005); after the depth pass: image formats (0x7400A), plane pointers
 * (0x74002). out receives width*height*3/2 bytes. */
KVDSR_API uint32_t kvDSR_Binocular_Run(uint8_t* out, const kvDSR_ImageDesc* left, const kvDSR_ImageDesc* right,
                                       uint32_t width, uint16_t height,
                                       const kvDSR_ImageDesc* depth, uint16_t depthWidth, uint16_t depthHeight);

/* Frees the binocular engine's buffers; always returns 0. */
KVDSR_API uint32_t kvDSR_Binocular_Close(void);

/* ---- Stereo view engine ------------------------------------------------ */

/* Parses the calibration (parser codes), then builds full- and half-resolution
 * rectification maps of both cameras for width x height. */
KVDSR_API uint32_t kvDSR_StereoView_Init(const uint8_t* calibration, uint32_t calibrationSize,
                                         const uint32_t* keyMaterial, uint32_t keyMaterialSize,
                                         uint16_t width, uint16_t height);

/* Rectifies a pair: imageSecond (camera 2) into outSecond, imageFirst
 * (camera 1) into outFirst. Both formats equal and one of 0xF01, 0xF02
 * (plane 0 only), 0xF05, else 0x7400A. */
KVDSR_API uint32_t kvDSR_StereoView_Run(uint8_t* outSecond, uint8_t* outFirst,
                                        const kvDSR_ImageDesc* imageSecond, const kvDSR_ImageDesc* imageFirst,
                                        uint16_t width, uint16_t height);

/* As kvDSR_StereoView_Run, packed side by side: camera 1 left, camera 2
 * right. outWidth must be 2*width (0x74007); formats as Run (0x7400A). */
KVDSR_API uint32_t kvDSR_StereoView_Run_SideBySide(uint8_t* out, uint32_t outWidth, uint32_t outHeight,
                                                   const kvDSR_ImageDesc* imageSecond, const kvDSR_ImageDesc* imageFirst,
                                                   uint16_t width, uint16_t height);

/* Frees the stereo view engine's maps and scratch buffers; returns 0. */
KVDSR_API uint32_t kvDSR_StereoView_Close(void);

/* ---- Focal alignment shift --------------------------------------------- */

/* distance above 10000 gives 0x7400B before the calibration is read; then
 * parser codes. Computes the shift that aligns objects at distance. */
KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShift_Init(const uint8_t* calibration, uint32_t calibrationSize,
                                                             const uint32_t* keyMaterial, uint32_t keyMaterialSize,
                                                             uint16_t width, uint16_t height, uint16_t distance);

/* Shifts two 4:2:0 frames (0xF01 or 0xF05, equal formats, else 0x7400A);
 * outputs non-NULL (0x74002). Columns uncovered by the shift are not written. */
KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShift(uint8_t* outSecond, uint8_t* outFirst,
                                                        const kvDSR_ImageDesc* imageSecond, const kvDSR_ImageDesc* imageFirst,
                                                        uint16_t width, uint16_t height);

/* Shifts the two halves of one side-by-side frame of width width; writes
 * outWidth == width, or outWidth*2 == width (halved), else 0x74007. */
KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShiftSideBySide(uint8_t* out, uint32_t outWidth, uint32_t outHeight,
                                                                  const kvDSR_ImageDesc* image,
                                                                  uint16_t width, uint16_t height);

/* Frees the intermediate buffer; returns 0. */
KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShift_Close(void);

/* ---- SPR engine -------------------------------------------------------- */

/* Parses the calibration (parser codes) and builds maps from inWidth x
 * inHeight frames to outWidth x outHeight. */
KVDSR_API uint32_t kvDSR_SPR_Init(const uint8_t* calibration, uint32_t calibrationSize,
                                  const uint32_t* keyMaterial, uint32_t keyMaterialSize,
                                  uint16_t inWidth, uint16_t inHeight, uint16_t outWidth, uint16_t outHeight);

/* Rectifies and rescales a 0xF01 pair; any other format is a silent no-op
 * that returns 0. */
KVDSR_API uint32_t kvDSR_SPR_Run(uint8_t* outSecond, uint8_t* outFirst,
                                 const kvDSR_ImageDesc* imageSecond, const kvDSR_ImageDesc* imageFirst,
                                 uint16_t inWidth, uint16_t inHeight, uint16_t outWidth, uint16_t outHeight);

/* Frees the SPR engine's buffers; returns 0, harmless when repeated. */
KVDSR_API uint32_t kvDSR_SPR_Close(void);

/* ---- Settings and queries ---------------------------------------------- */

/* Stores layout 1..4 (default 4) for the next _Init; else 0x74004. */
KVDSR_API uint32_t kvDSR_CameraLayout_Set(uint32_t layout);

/* Writes the stored layout; NULL gives 0x74002. */
KVDSR_API uint32_t kvDSR_CameraLayout_Get(uint32_t* layout);

/* Copies "0.61" and its NUL into buffer. size < 256 gives 0x74001 (checked
 * first), NULL buffer 0x74002. The rest of the buffer is untouched. */
KVDSR_API uint32_t kvDSR_VersionInfo_Get(char* buffer, int32_t size);

/* Confidentiality notice; no function reads it. */
KVDSR_API extern const char* const zavim_statement;

#ifdef __cplusplus
}
#endif

#endif /* KVDSR_H */
