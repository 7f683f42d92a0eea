// Small predicates shared by the entry points.
#pragma once

#include <cstdint>

#include "kvDSR.h"

namespace kvdsr {

inline bool isDepthFormat(uint32_t f) { return f == kvDSR_FMT_DEPTH8 || f == kvDSR_FMT_DEPTH16; }

inline bool isStereoViewFormat(uint32_t f) {
    return f == kvDSR_FMT_YUV420SP || f == kvDSR_FMT_YUV444P || f == kvDSR_FMT_YUV420P;
}

inline bool isShiftFormat(uint32_t f) { return f == kvDSR_FMT_YUV420SP || f == kvDSR_FMT_YUV420P; }

// Planes a format reads: 0xF02 in the stereo view uses plane 0 only, the
// 4:2:0 formats read plane 0 and 1 (and 2 for 0xF05).
inline bool stereoPlanesPresent(const kvDSR_ImageDesc& d) {
    switch (d.format) {
        case kvDSR_FMT_YUV444P: return d.plane[0] != nullptr;
        case kvDSR_FMT_YUV420SP: return d.plane[0] && d.plane[1];
        case kvDSR_FMT_YUV420P: return d.plane[0] && d.plane[1] && d.plane[2];
        default: return false;
    }
}

}  // namespace kvdsr
