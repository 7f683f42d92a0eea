// Allocation rule shared by every engine.
//
// Element counts above kMaxElements are refused up front: their doubled byte
// size would pass the signed 32-bit range, and on a 64-bit host such a request
// might even succeed. Refusal throws std::bad_alloc, which the C interface
// turns into kvDSR_ERR_OUT_OF_MEMORY.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

namespace kvdsr {

constexpr std::size_t kMaxElements = 0x3F800000u;

inline void checkElementCount(std::size_t count) {
    if (count > kMaxElements) throw std::bad_alloc();
}

// Uninitialised array of count elements; throws std::bad_alloc.
template <class T>
std::unique_ptr<T[]> allocArray(std::size_t count) {
    checkElementCount(count);
    return std::unique_ptr<T[]>(new T[count]);
}

// Buffer that only ever grows; old contents are kept on growth.
class GrowBuffer {
public:
    uint8_t* data() { return data_.get(); }
    const uint8_t* data() const { return data_.get(); }
    std::size_t capacity() const { return capacity_; }
    // Makes room for at least bytes; throws std::bad_alloc and keeps the old
    // buffer intact on failure.
    void grow(std::size_t bytes);
    void release() {
        data_.reset();
        capacity_ = 0;
    }

private:
    std::unique_ptr<uint8_t[]> data_;
    std::size_t capacity_ = 0;
};

}  // namespace kvdsr
