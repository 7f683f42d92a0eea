/* A C consumer of the installed library: the library's version must be the
 * header's, and a status code must come back with its name. */
#include <stdio.h>
#include <string.h>

#include <kvDSR.h>

int main(void) {
    char v[256];
    uint32_t rc;
    if (kvDSR_VersionInfo_Get(v, 256) != kvDSR_OK) return 1;
    if (strcmp(v, KVDSR_VERSION_STRING) != 0) {
        fprintf(stderr, "library %s, header %s\n", v, KVDSR_VERSION_STRING);
        return 1;
    }
    rc = kvDSR_CameraLayout_Set(7);
    printf("%s %s\n", v, kvDSR_StatusName(rc));
    return 0;
}
