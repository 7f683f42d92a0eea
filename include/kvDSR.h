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
 * below; kvDSR_StatusName() gives a code's name. Each failed check returns at
 * once; the checks of each function are listed in the order they are made.
 * Calibration parser codes (0x6002..0x600C) are passed through by every _Init
 * that takes calibration data.
 *
 * Threading: no entry point is re-entrant; the caller serialises all calls.
 * Per-pixel work and Init's table builds run on the calling thread and the
 * library's own helper threads (started by the first _Init or run call that
 * needs them). Their number follows the calling thread's OpenMP setting
 * (OMP_NUM_THREADS, omp_set_num_threads), which is read and never changed.
 *
 * Ownership: images, descriptors, calibration data and output buffers belong
 * to the caller and are borrowed for the duration of a call. Two calls write
 * into caller memory besides the output: the depth engines repair invalid
 * pixels of the caller's depth plane in place, and kvDSR_Binocular_Run
 * colour-matches the caller's right image in place.
 *
 * Strides: most run functions read planes as packed rows exactly as wide as
 * the image, whatever the descriptor's stride fields say. Each function below
 * lists the fields it reads; a field it does not list is ignored. Outputs are
 * always written packed. Sizes below assume even widths and heights for the
 * 4:2:0 formats (odd ones work, with height/2 chroma rows).
 *
 * The header compiles as C89 and later and as C++98 and later.
 */
#ifndef KVDSR_H
#define KVDSR_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(_WIN32)
#define KVDSR_API
#else
#define KVDSR_API __attribute__((visibility("default")))
#endif

/* Version of this header; kvDSR_VersionInfo_Get returns the library's. A
 * library of the same major version runs programs built with this header. */
#define KVDSR_VERSION_MAJOR  0
#define KVDSR_VERSION_MINOR  61
#define KVDSR_VERSION_STRING "0.61"

/* ---- Status codes ------------------------------------------------------ */
#define kvDSR_OK                       0x00000u
#define kvDSR_ERR_BUFFER_TOO_SMALL     0x74001u /* VersionInfo_Get: size below 256 */
#define kvDSR_ERR_NULL_POINTER         0x74002u /* a required pointer or plane is NULL */
#define kvDSR_ERR_STRIDE               0x74003u /* padded 0xF02 strides not all larger than width */
#define kvDSR_ERR_CAMERA_LAYOUT        0x74004u /* CameraLayout_Set outside 1..4 */
#define kvDSR_ERR_SIZE_COMBINATION     0x74005u /* image/map of different aspect class at _Init, or run sizes differ from _Init's */
#define kvDSR_ERR_SIDE_BY_SIDE_WIDTH   0x74007u /* side-by-side width is not 2x (or 1x where allowed) */
#define kvDSR_ERR_NOT_INITIALISED      0x74008u /* run before a successful _Init, or after _Close */
#define kvDSR_ERR_DEPTH_FORMAT         0x74009u /* depth format not 0xF03/0xF04 (also flat depth with another image format) */
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

/* Image descriptor: read, never written. A stride of 0 means packed; which
 * fields a call reads is listed at each call. */
typedef struct kvDSR_ImageDesc {
    uint32_t format;
    uint32_t stride[3];
    uint8_t* plane[3];
} kvDSR_ImageDesc;

/* On 32-bit ARM the descriptor is exactly seven 32-bit words (a negative
 * array size stops the build otherwise, in every language version). */
#if defined(__arm__) && !defined(__aarch64__)
typedef char kvDSR_ImageDesc_is_28_bytes[sizeof(kvDSR_ImageDesc) == 28 ? 1 : -1];
typedef char kvDSR_ImageDesc_stride_at_4[offsetof(kvDSR_ImageDesc, stride) == 4 ? 1 : -1];
typedef char kvDSR_ImageDesc_plane_at_16[offsetof(kvDSR_ImageDesc, plane) == 16 ? 1 : -1];
#endif

/* ---- Calibration arguments of every _Init --------------------------------
 * calibration, calibrationSize: a calibration container of one of the
 *   accepted lengths (else 0x6002). It may be NULL (or the size 0) only when
 *   keyMaterial is a key blob that carries the record.
 * keyMaterial, keyMaterialSize: NULL/0 for the built-in key; 32 bytes are the
 *   key itself; any other size is parsed as a key blob. The size is counted
 *   in bytes and the blob is read byte by byte (no alignment needed), although
 *   it is typed as uint32_t.
 * Both are read during the call only. A failing _Init leaves the engine as it
 * was before the call.
 */

/* ---- Depth view engine ------------------------------------------------- */

/* Checks, in order:
 *   - size combination (0x74005): when image and map are both landscape
 *     (width > height and depthWidth > depthHeight) or both portrait, each is
 *     classed 4:3 or 16:9 by the nearer ratio, and the two classes must be
 *     equal. A square size, or an image and map of different orientation, is
 *     accepted: the class of an earlier _Init of this engine stays (also
 *     across kvDSR_Close), and with none before it the run functions
 *     synthesise no pixel (0xF01 and packed 0xF02 outputs come out black, a
 *     padded 0xF02 output keeps the caller's bytes);
 *   - calibration (parser codes).
 * Then builds the virtual camera and its shift table (0x7400C if an
 * allocation fails). May be called again without kvDSR_Close. The four sizes
 * given here must be given again to every run call. viewShift: how far the
 * virtual camera moves to the left (pixels move right, near ones more). */
KVDSR_API uint32_t kvDSR_Init(const uint8_t* calibration, uint32_t calibrationSize,
                              const uint32_t* keyMaterial, uint32_t keyMaterialSize,
                              uint16_t width, uint16_t height,
                              uint16_t depthWidth, uint16_t depthHeight, uint16_t viewShift);

/* Synthesises the view of the moved camera into out.
 * Checks, in order: out, depth, image non-NULL (0x74002); initialised
 * (0x74008); depth->format 0xF03/0xF04 (0x74009); width, height, depthWidth,
 * depthHeight equal to Init's and height not negative (0x74005);
 * depth->plane[0] non-NULL (0x74002). Then the depth map is repaired (below)
 * and the image is checked: flat map (one depth everywhere): format
 * 0xF01/0xF02 (0x74009), plane[0] (0x74002); 0xF01: plane[0] and plane[1]
 * (0x74002); 0xF02 padded: every stride larger than width (0x74003), then
 * all three planes (0x74002); 0xF02 packed: plane[0] (0x74002); other
 * formats 0x7400A.
 * Reads:
 *   depth: format, plane[0] holding depthWidth x depthHeight packed samples
 *     (1 byte for 0xF03, 2 for 0xF04). Its strides are ignored.
 *   image 0xF01: plane[0] rows stride[0] apart, plane[1] rows stride[1]
 *     apart (0 means width). A non-zero stride below width is not refused:
 *     the view is then synthesised from an all-zero image.
 *   image 0xF02, packed (all three strides 0 or width): plane[0] only, as the
 *     start of the three planes laid one after the other (3 x width x height
 *     bytes); plane[1] and plane[2] are ignored.
 *   image 0xF02, padded (every stride larger than width): all three planes,
 *     each with its stride.
 *   flat map: the image is copied to out unchanged, its planes read as
 *     above, except that no stride is checked (a padded 0xF02 frame's planes
 *     are each read with their stride, 0 meaning width) and the rows of a
 *     NULL plane 1 or 2 are left as they are in out.
 * Writes:
 *   out, packed, in the image's format: width*height*3/2 bytes (0xF01: luma,
 *     then height/2 rows of interleaved chroma) or width*height*3 (0xF02).
 *     0xF01 and packed 0xF02 outputs are written whole; a padded 0xF02 output
 *     keeps the caller's bytes where no pixel lands (the leftmost columns and
 *     disocclusions).
 *   the caller's depth plane: invalid samples (255 or 1023) are replaced by
 *     the mean of valid neighbours, in place, even when an image check then
 *     fails. */
KVDSR_API uint32_t kvDSR_Run(uint8_t* out, const kvDSR_ImageDesc* image, uint32_t width, int32_t height,
                             const kvDSR_ImageDesc* depth, uint16_t depthWidth, uint16_t depthHeight);

/* As kvDSR_Run, into one frame twice as wide: the synthesised view on the
 * left, the input on the right.
 * Checks, in order: out, depth, image non-NULL (0x74002); initialised
 * (0x74008); outWidth == 2 * width (0x74007); then as kvDSR_Run from the
 * depth format on. reserved is not read.
 * Reads: as kvDSR_Run.
 * Writes: out, outWidth-wide packed rows: 0xF01: height luma rows, then
 *   height/2 chroma rows (2*width*height*3/2 bytes); 0xF02: 3*height rows
 *   (planes one after the other, 6*width*height bytes). The right halves are
 *   the input; 0xF01 left halves are written whole, 0xF02 left halves keep
 *   the caller's bytes where no pixel lands. The depth plane is repaired in
 *   place as by kvDSR_Run. */
KVDSR_API uint32_t kvDSR_Run_SideBySide(uint8_t* out, uint32_t outWidth, uint32_t reserved,
                                        const kvDSR_ImageDesc* image, uint16_t width, uint16_t height,
                                        const kvDSR_ImageDesc* depth, uint16_t depthWidth, uint16_t depthHeight);

/* Frees the depth view engine's tables; always returns 0. */
KVDSR_API uint32_t kvDSR_Close(void);

/* ---- Binocular engine -------------------------------------------------- */

/* Same arguments and checks as kvDSR_Init (size combination 0x74005, then
 * parser codes), with this engine's own aspect class and state; viewShift is
 * the baseline of the synthesised view in hundredths of the calibration's
 * length unit. */
KVDSR_API uint32_t kvDSR_Binocular_Init(const uint8_t* calibration, uint32_t calibrationSize,
                                        const uint32_t* keyMaterial, uint32_t keyMaterialSize,
                                        uint16_t width, uint16_t height,
                                        uint16_t depthWidth, uint16_t depthHeight, uint16_t viewShift);

/* Synthesises from left with disoccluded gaps filled from right.
 * Checks, in order: left, out, depth, right non-NULL (0x74002); initialised
 * (0x74008); depth->format (0x74009); width, height, depthWidth, depthHeight
 * equal to Init's (0x74005); depth->plane[0] (0x74002). Then the depth map is
 * repaired, and only then: both formats 0xF01 (0x7400A); plane[0] of left
 * and right non-NULL (0x74002).
 * Reads:
 *   depth: format, plane[0] (depthWidth x depthHeight packed samples).
 *   left, right: format and plane[0] only, each as one packed 0xF01 frame of
 *     width*height*3/2 bytes (luma, then the chroma rows right after it).
 *     Strides, plane[1] and plane[2] are ignored.
 * Writes:
 *   out: width*height*3/2 bytes, packed 0xF01.
 *   right->plane[0]: all width*height*3/2 bytes are colour-matched to left,
 *     in place.
 *   the depth plane: repaired in place as by kvDSR_Run, even when an image
 *     check then fails. */
KVDSR_API uint32_t kvDSR_Binocular_Run(uint8_t* out, const kvDSR_ImageDesc* left, const kvDSR_ImageDesc* right,
                                       uint32_t width, uint16_t height,
                                       const kvDSR_ImageDesc* depth, uint16_t depthWidth, uint16_t depthHeight);

/* Frees the binocular engine's buffers; always returns 0. */
KVDSR_API uint32_t kvDSR_Binocular_Close(void);

/* ---- Stereo view engine ------------------------------------------------ */

/* Parses the calibration (parser codes), then builds full- and half-
 * resolution rectification maps of both cameras for width x height (0x7400C
 * if an allocation fails; the engine is then uninitialised). No size check
 * can fail here. Frames below 2 x 2 are not warped (half-resolution: chroma
 * planes below 2 x 2): the runs then leave those outputs untouched. */
KVDSR_API uint32_t kvDSR_StereoView_Init(const uint8_t* calibration, uint32_t calibrationSize,
                                         const uint32_t* keyMaterial, uint32_t keyMaterialSize,
                                         uint16_t width, uint16_t height);

/* Rectifies a pair: imageSecond (camera 2) into outSecond, imageFirst
 * (camera 1) into outFirst.
 * Checks, in order: outSecond, outFirst, imageSecond, imageFirst non-NULL
 * (0x74002); initialised (0x74008); formats equal and one of 0xF01, 0xF02,
 * 0xF05 (0x7400A); width and height equal to Init's (0x74005); the planes the
 * format reads non-NULL (0x74002).
 * Reads (strides are ignored: every plane is read as packed rows):
 *   0xF01: plane[0] (width x height), plane[1] (height/2 rows of width bytes,
 *     pairs taken as V, U).
 *   0xF02: plane[0] only (luma); plane[1] and plane[2] are ignored.
 *   0xF05: plane[0] (width x height), plane[1] and plane[2] (each width/2 x
 *     height/2).
 * Writes each output packed, in the input's format: 0xF01 and 0xF05
 *   width*height*3/2 bytes (0xF05: the two chroma planes in the input's
 *   order); 0xF02 only the width*height luma plane. */
KVDSR_API uint32_t kvDSR_StereoView_Run(uint8_t* outSecond, uint8_t* outFirst,
                                        const kvDSR_ImageDesc* imageSecond, const kvDSR_ImageDesc* imageFirst,
                                        uint16_t width, uint16_t height);

/* As kvDSR_StereoView_Run, packed side by side: camera 1 left, camera 2
 * right.
 * Checks, in order: out, imageSecond, imageFirst non-NULL (0x74002);
 * initialised (0x74008); outWidth == 2 * width (0x74007); then as
 * kvDSR_StereoView_Run from the formats on. outHeight is not read.
 * Reads: as kvDSR_StereoView_Run.
 * Writes out, outWidth-wide packed rows: 0xF01: height luma rows, then
 *   height/2 rows of chroma pairs (2*width*height*3/2 bytes); 0xF02: height
 *   luma rows (2*width*height bytes); 0xF05: height luma rows, then height/2
 *   rows of width bytes for each chroma plane (each row: camera 1's width/2
 *   samples, then camera 2's). */
KVDSR_API uint32_t kvDSR_StereoView_Run_SideBySide(uint8_t* out, uint32_t outWidth, uint32_t outHeight,
                                                   const kvDSR_ImageDesc* imageSecond, const kvDSR_ImageDesc* imageFirst,
                                                   uint16_t width, uint16_t height);

/* Frees the stereo view engine's maps and scratch buffers; returns 0. */
KVDSR_API uint32_t kvDSR_StereoView_Close(void);

/* ---- Focal alignment shift --------------------------------------------- */

/* distance above 10000 gives 0x7400B before the calibration is read; then
 * parser codes. Computes the shift s that aligns objects at distance (in the
 * calibration's length unit) for frames width pixels wide, and allocates the
 * buffer of the half-width side-by-side call: one frame of 2*width x height.
 * The shift is 0 before the first _Init and survives _Close. */
KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShift_Init(const uint8_t* calibration, uint32_t calibrationSize,
                                                             const uint32_t* keyMaterial, uint32_t keyMaterialSize,
                                                             uint16_t width, uint16_t height, uint16_t distance);

/* Slides the camera-1 frame left and the camera-2 frame right by s pixels.
 * Needs no _Init (s is then 0); width and height are not compared with
 * Init's.
 * Checks, in order: outFirst, outSecond non-NULL (0x74002); imageFirst,
 * imageSecond non-NULL (0x74002); imageFirst->format 0xF01 or 0xF05 and equal
 * to imageSecond's (0x7400A); plane[0] of both non-NULL (0x74002).
 * Reads: format and plane[0] only, as one packed frame of width*height*3/2
 *   bytes (luma, then the chroma right after it; for 0xF05 the Cb and Cr
 *   planes one after the other). Strides, plane[1] and plane[2] are ignored.
 * Writes: width*height*3/2 bytes of each output, treating every row of the
 *   frame, chroma included, as width bytes; the last s bytes of each outFirst
 *   row and the first s of each outSecond row keep the caller's bytes. */
KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShift(uint8_t* outSecond, uint8_t* outFirst,
                                                        const kvDSR_ImageDesc* imageSecond, const kvDSR_ImageDesc* imageFirst,
                                                        uint16_t width, uint16_t height);

/* Shifts the two halves of one side-by-side frame width x height: the left
 * half left, the right half right, by s.
 * Checks, in order: out non-NULL (0x74002); width == outWidth or width ==
 * 2 * outWidth (0x74007); image non-NULL (0x74002); format 0xF01 or 0xF05
 * (0x7400A); half-width output only: an _Init's buffer present (0x74008),
 * the frame no larger than it, width*height*3/2 <=
 * (2*initWidth*initHeight)*3/2 bytes (0x74005); then plane[0] non-NULL (0x74002).
 * Reads: format and plane[0] only, as one packed frame of width*height*3/2
 *   bytes. Strides, plane[1] and plane[2] are ignored.
 * Writes:
 *   outWidth == width: out holds min(height, outHeight) luma rows of width
 *     bytes, and its chroma area starts at out + outWidth*outHeight: the
 *     first width*min(height, outHeight)/2 bytes there are written. In luma
 *     rows the last s columns of the left half and the first s of the right
 *     half keep the caller's bytes.
 *   outWidth * 2 == width: every other pixel (pair, for 0xF01) of the
 *     shifted frame, in min(height, outHeight)*3/2 rows of outWidth bytes,
 *     every byte of them written.
 * An unknown format in the half-width call also frees the buffer. */
KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShiftSideBySide(uint8_t* out, uint32_t outWidth, uint32_t outHeight,
                                                                  const kvDSR_ImageDesc* image,
                                                                  uint16_t width, uint16_t height);

/* Frees the intermediate buffer; returns 0. */
KVDSR_API uint32_t kvDSR_StereoView_FocalAlignmentShift_Close(void);

/* ---- SPR engine -------------------------------------------------------- */

/* Parses the calibration (parser codes) and builds maps from inWidth x
 * inHeight frames to outWidth x outHeight (0x7400C if an allocation fails;
 * the engine is then uninitialised). No size check can fail here; frames
 * below 2 x 2 are not warped. */
KVDSR_API uint32_t kvDSR_SPR_Init(const uint8_t* calibration, uint32_t calibrationSize,
                                  const uint32_t* keyMaterial, uint32_t keyMaterialSize,
                                  uint16_t inWidth, uint16_t inHeight, uint16_t outWidth, uint16_t outHeight);

/* Rectifies and rescales a 0xF01 pair: imageSecond (camera 2) into
 * outSecond, imageFirst (camera 1) into outFirst.
 * Checks, in order: imageSecond, imageFirst non-NULL (0x74002); a pair that
 * is not 0xF01 on both sides is a silent no-op that returns 0; initialised
 * (0x74008); the four sizes equal to Init's (0x74005); outSecond, outFirst,
 * plane[0] and plane[1] of both images non-NULL (0x74002).
 * Reads: plane[0] (inWidth x inHeight) and plane[1] (inHeight/2 rows of
 *   inWidth bytes), packed; strides and plane[2] are ignored.
 * Writes: outWidth*outHeight*3/2 bytes of each output, packed 0xF01. */
KVDSR_API uint32_t kvDSR_SPR_Run(uint8_t* outSecond, uint8_t* outFirst,
                                 const kvDSR_ImageDesc* imageSecond, const kvDSR_ImageDesc* imageFirst,
                                 uint16_t inWidth, uint16_t inHeight, uint16_t outWidth, uint16_t outHeight);

/* Frees the SPR engine's buffers; returns 0, harmless when repeated. */
KVDSR_API uint32_t kvDSR_SPR_Close(void);

/* ---- Settings and queries ---------------------------------------------- */

/* Stores layout 1..4 (default 4) for the next _Init; else 0x74004 and the
 * stored value is kept. */
KVDSR_API uint32_t kvDSR_CameraLayout_Set(uint32_t layout);

/* Writes the stored layout to *layout; NULL gives 0x74002. */
KVDSR_API uint32_t kvDSR_CameraLayout_Get(uint32_t* layout);

/* Copies the library's version ("0.61") and its NUL into buffer. size < 256
 * gives 0x74001 (checked first), NULL buffer 0x74002. Only those five bytes
 * are written. */
KVDSR_API uint32_t kvDSR_VersionInfo_Get(char* buffer, int32_t size);

/* Confidentiality notice; no function reads it. */
KVDSR_API extern const char* const zavim_statement;

/* ---- Status names (in this header only; not exported by the library) --- */

#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 199901L)
#define KVDSR_HEADER_FUNCTION static inline
#elif defined(__GNUC__)
#define KVDSR_HEADER_FUNCTION static __inline__
#else
#define KVDSR_HEADER_FUNCTION static
#endif

/* The symbolic name of a status code ("kvDSR_ERR_NULL_POINTER"), or
 * "unknown status" for a code this header does not define. Never NULL. */
KVDSR_HEADER_FUNCTION const char* kvDSR_StatusName(uint32_t status) {
    switch (status) {
        case kvDSR_OK: return "kvDSR_OK";
        case kvDSR_ERR_BUFFER_TOO_SMALL: return "kvDSR_ERR_BUFFER_TOO_SMALL";
        case kvDSR_ERR_NULL_POINTER: return "kvDSR_ERR_NULL_POINTER";
        case kvDSR_ERR_STRIDE: return "kvDSR_ERR_STRIDE";
        case kvDSR_ERR_CAMERA_LAYOUT: return "kvDSR_ERR_CAMERA_LAYOUT";
        case kvDSR_ERR_SIZE_COMBINATION: return "kvDSR_ERR_SIZE_COMBINATION";
        case kvDSR_ERR_SIDE_BY_SIDE_WIDTH: return "kvDSR_ERR_SIDE_BY_SIDE_WIDTH";
        case kvDSR_ERR_NOT_INITIALISED: return "kvDSR_ERR_NOT_INITIALISED";
        case kvDSR_ERR_DEPTH_FORMAT: return "kvDSR_ERR_DEPTH_FORMAT";
        case kvDSR_ERR_IMAGE_FORMAT: return "kvDSR_ERR_IMAGE_FORMAT";
        case kvDSR_ERR_DISTANCE_RANGE: return "kvDSR_ERR_DISTANCE_RANGE";
        case kvDSR_ERR_OUT_OF_MEMORY: return "kvDSR_ERR_OUT_OF_MEMORY";
        case kvDSR_ERR_CALIB_LENGTH: return "kvDSR_ERR_CALIB_LENGTH";
        case kvDSR_ERR_CALIB_DECIPHER: return "kvDSR_ERR_CALIB_DECIPHER";
        case kvDSR_ERR_CALIB_REVISION: return "kvDSR_ERR_CALIB_REVISION";
        case kvDSR_ERR_CALIB_REF_WIDTH: return "kvDSR_ERR_CALIB_REF_WIDTH";
        case kvDSR_ERR_CALIB_CAMERA1: return "kvDSR_ERR_CALIB_CAMERA1";
        case kvDSR_ERR_CALIB_CAMERA2: return "kvDSR_ERR_CALIB_CAMERA2";
        case kvDSR_ERR_CALIB_NO_DATA: return "kvDSR_ERR_CALIB_NO_DATA";
        case kvDSR_ERR_CALIB_EXTRACT: return "kvDSR_ERR_CALIB_EXTRACT";
        case kvDSR_ERR_CALIB_KEY: return "kvDSR_ERR_CALIB_KEY";
        default: return "unknown status";
    }
}

#ifdef __cplusplus
}
#endif

#endif /* KVDSR_H */
