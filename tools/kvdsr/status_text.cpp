#include "status_text.h"

#include <cstdio>

#include "kvDSR.h"

namespace kvdsrtool {
namespace {

struct StatusInfo {
    uint32_t code;
    const char* name;
    const char* advice;
};

constexpr StatusInfo kStatus[] = {
    {kvDSR_OK, "kvDSR_OK", "success"},
    {kvDSR_ERR_BUFFER_TOO_SMALL, "kvDSR_ERR_BUFFER_TOO_SMALL", "pass a buffer of at least 256 bytes"},
    {kvDSR_ERR_NULL_POINTER, "kvDSR_ERR_NULL_POINTER",
     "a buffer or plane pointer is missing; check the input files and the format's planes"},
    {kvDSR_ERR_STRIDE, "kvDSR_ERR_STRIDE", "planar strides must be all packed or all larger than the width"},
    {kvDSR_ERR_CAMERA_LAYOUT, "kvDSR_ERR_CAMERA_LAYOUT", "--camera-layout must be 1, 2, 3 or 4"},
    {kvDSR_ERR_SIZE_COMBINATION, "kvDSR_ERR_SIZE_COMBINATION",
     "image and disparity map must share orientation and aspect (4:3 or 16:9), and run sizes must equal the "
     "sizes given at initialisation"},
    {kvDSR_ERR_SIDE_BY_SIDE_WIDTH, "kvDSR_ERR_SIDE_BY_SIDE_WIDTH",
     "the side-by-side output must be twice (or, for the focal shift, once or half) the input width"},
    {kvDSR_ERR_NOT_INITIALISED, "kvDSR_ERR_NOT_INITIALISED",
     "the engine is not initialised: call its _Init first (and again after _Close)"},
    {kvDSR_ERR_DEPTH_FORMAT, "kvDSR_ERR_DEPTH_FORMAT",
     "the disparity map must be 8-bit (0xF03) or 16-bit (0xF04); with a constant map the image must be nv21/nv12 "
     "or i444"},
    {kvDSR_ERR_IMAGE_FORMAT, "kvDSR_ERR_IMAGE_FORMAT", "this engine does not take that image format; see --help"},
    {kvDSR_ERR_DISTANCE_RANGE, "kvDSR_ERR_DISTANCE_RANGE", "--distance must be at most 10000"},
    {kvDSR_ERR_OUT_OF_MEMORY, "kvDSR_ERR_OUT_OF_MEMORY", "an allocation failed; use smaller images"},
    {kvDSR_ERR_CALIB_LENGTH, "kvDSR_ERR_CALIB_LENGTH",
     "the calibration file's length is not one the parser accepts; is it a calibration container?"},
    {kvDSR_ERR_CALIB_DECIPHER, "kvDSR_ERR_CALIB_DECIPHER",
     "the calibration could not be deciphered; check the key material"},
    {kvDSR_ERR_CALIB_REVISION, "kvDSR_ERR_CALIB_REVISION", "a calibration body's revision is below 2"},
    {kvDSR_ERR_CALIB_REF_WIDTH, "kvDSR_ERR_CALIB_REF_WIDTH",
     "a calibration body's reference width matches neither camera"},
    {kvDSR_ERR_CALIB_CAMERA1, "kvDSR_ERR_CALIB_CAMERA1", "a calibration body's camera-1 section is empty"},
    {kvDSR_ERR_CALIB_CAMERA2, "kvDSR_ERR_CALIB_CAMERA2", "a calibration body's camera-2 section is empty"},
    {kvDSR_ERR_CALIB_NO_DATA, "kvDSR_ERR_CALIB_NO_DATA", "no calibration given; pass --calib FILE"},
    {kvDSR_ERR_CALIB_EXTRACT, "kvDSR_ERR_CALIB_EXTRACT", "no calibration record could be taken from the key blob"},
    {kvDSR_ERR_CALIB_KEY, "kvDSR_ERR_CALIB_KEY", "the key blob is malformed"},
};

const StatusInfo* find(uint32_t code) {
    for (const auto& s : kStatus)
        if (s.code == code) return &s;
    return nullptr;
}

}  // namespace

const char* statusName(uint32_t code) {
    const StatusInfo* s = find(code);
    if (s) return s->name;
    if (code >= 0xC100 && code < 0xE000) return "remap/map-build status";
    return "unknown status";
}

const char* statusAdvice(uint32_t code) {
    const StatusInfo* s = find(code);
    if (s) return s->advice;
    if (code >= 0xC100 && code < 0xE000)
        return "the rectification maps could not be built from this calibration; check its distortion table";
    return "unexpected code; please report it with the command line";
}

std::string describeStatus(const std::string& call, uint32_t code) {
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%X", static_cast<unsigned>(code));
    const bool isInit = call.size() >= 5 && call.compare(call.size() - 5, 5, "_Init") == 0;
    if (code == kvDSR_ERR_NOT_INITIALISED && (isInit || call == "kvDSR_Init"))
        return call + " returned " + hex + " (" + statusName(code) +
               "): this build of the library does not contain the engine yet";
    return call + " returned " + hex + " (" + statusName(code) + "): " + statusAdvice(code);
}

}  // namespace kvdsrtool
