#include "common/alloc.h"

#include <cstring>

namespace kvdsr {

void GrowBuffer::grow(std::size_t bytes) {
    if (bytes <= capacity_) return;
    auto bigger = allocArray<uint8_t>(bytes);
    if (capacity_) std::memcpy(bigger.get(), data_.get(), capacity_);
    data_ = std::move(bigger);
    capacity_ = bytes;
}

}  // namespace kvdsr
