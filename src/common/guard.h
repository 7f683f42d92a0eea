// Keeps exceptions from crossing the C interface.
#pragma once

#include <cstdint>
#include <new>

#include "kvDSR.h"

namespace kvdsr {

// Runs an engine call; an allocation failure (or any other exception, which
// no engine throws on purpose) becomes kvDSR_ERR_OUT_OF_MEMORY. Engines must
// leave their state as before the call or uninitialised when this happens.
template <class F>
uint32_t guarded(F&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return kvDSR_ERR_OUT_OF_MEMORY;
    } catch (...) {
        return kvDSR_ERR_OUT_OF_MEMORY;
    }
}

}  // namespace kvdsr
