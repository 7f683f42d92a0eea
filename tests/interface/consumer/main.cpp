// A C++ consumer of the installed library: the same checks as main.c,
// through the header's C++ face.
#include <cstring>
#include <iostream>
#include <string>

#include <kvDSR.h>

int main() {
    char v[256];
    if (kvDSR_VersionInfo_Get(v, sizeof v) != kvDSR_OK) return 1;
    if (std::string(v) != KVDSR_VERSION_STRING) {
        std::cerr << "library " << v << ", header " << KVDSR_VERSION_STRING << "\n";
        return 1;
    }
    uint32_t layout = 0;
    if (kvDSR_CameraLayout_Get(&layout) != kvDSR_OK || layout != 4) return 1;
    std::cout << v << ' ' << kvDSR_StatusName(kvDSR_CameraLayout_Set(7)) << '\n';
    return 0;
}
