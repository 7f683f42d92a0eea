/* Loads libkvDSR, prints its version and exercises the settings calls. */
#include <stdio.h>

#include "kvDSR.h"

int main(void) {
    char version[256];
    uint32_t layout = 0;
    uint32_t status = kvDSR_VersionInfo_Get(version, (int32_t)sizeof version);
    if (status != kvDSR_OK) {
        fprintf(stderr, "kvDSR_VersionInfo_Get failed: 0x%X\n", (unsigned)status);
        return 1;
    }
    printf("libkvDSR version %s\n", version);
    kvDSR_CameraLayout_Get(&layout);
    printf("camera layout: %u (default)\n", (unsigned)layout);
    status = kvDSR_CameraLayout_Set(2);
    kvDSR_CameraLayout_Get(&layout);
    printf("set layout 2: status 0x%X, layout now %u\n", (unsigned)status, (unsigned)layout);
    status = kvDSR_CameraLayout_Set(7);
    printf("set layout 7: status 0x%X (kvDSR_ERR_CAMERA_LAYOUT is 0x%X)\n", (unsigned)status,
           (unsigned)kvDSR_ERR_CAMERA_LAYOUT);
    return 0;
}
