// Camera layout, version query and the exported notice.
#include <cstring>

#include "common/camera_layout.h"
#include "kvDSR.h"

extern "C" {

const char* const zavim_statement =
    "libkvDSR dual-camera image-processing engine.\n"
    "CONFIDENTIAL: this library and its calibration formats are the\n"
    "confidential property of their owner, licensed only for use in the\n"
    "camera modules they were delivered with. Do not copy, disassemble\n"
    "or redistribute.\n";

KVDSR_API uint32_t kvDSR_CameraLayout_Set(uint32_t layout) {
    if (layout - 1u >= 4u) return kvDSR_ERR_CAMERA_LAYOUT;
    kvdsr::setCameraLayout(layout);
    return kvDSR_OK;
}

KVDSR_API uint32_t kvDSR_CameraLayout_Get(uint32_t* layout) {
    if (!layout) return kvDSR_ERR_NULL_POINTER;
    *layout = kvdsr::cameraLayout();
    return kvDSR_OK;
}

KVDSR_API uint32_t kvDSR_VersionInfo_Get(char* buffer, int32_t size) {
    if (size < 256) return kvDSR_ERR_BUFFER_TOO_SMALL;
    if (!buffer) return kvDSR_ERR_NULL_POINTER;
    static const char kVersion[] = KVDSR_VERSION_STRING;
    static_assert(sizeof kVersion == 5, "the version query writes five bytes");
    std::memcpy(buffer, kVersion, sizeof kVersion);
    return kvDSR_OK;
}

}  // extern "C"
