#include <stdio.h>

#include <kvDSR.h>

int main(void) {
    char v[256];
    if (kvDSR_VersionInfo_Get(v, 256) != kvDSR_OK) return 1;
    printf("%s\n", v);
    return 0;
}
