#include "common/camera_layout.h"

namespace kvdsr {

namespace {
uint32_t g_cameraLayout = 4;  // constant-initialised: no constructor runs at load
}

uint32_t cameraLayout() { return g_cameraLayout; }
void setCameraLayout(uint32_t layout) { g_cameraLayout = layout; }

uint32_t layoutSelector() {
    const uint32_t l = g_cameraLayout;
    return (l >= 2 && l <= 4) ? l - 1 : 0;
}

}  // namespace kvdsr
