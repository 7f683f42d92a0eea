// Caller memory for the bad-input tests: every buffer is exactly as large as
// a careful caller would make it from the arguments it passes, surrounded by
// a ring that AddressSanitizer sees as poisoned and that holds a canary, so
// that a read outside is caught under the sanitizers and a write outside in
// every build.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include "kvDSR.h"

#if defined(__SANITIZE_ADDRESS__)
#define KVDSR_TEST_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KVDSR_TEST_ASAN 1
#endif
#endif
#ifdef KVDSR_TEST_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace kvdsr::test {

class CallerBuffer {
public:
    static constexpr size_t kRing = 64;
    static constexpr uint8_t kCanary = 0xA5;

    // misalign moves the data off the allocator's alignment (1: an odd address).
    explicit CallerBuffer(size_t bytes, size_t misalign = 0)
        : size_(bytes), lead_(kRing + misalign), store_(new uint8_t[lead_ + bytes + kRing]) {
        std::memset(store_.get(), kCanary, lead_ + bytes + kRing);
        std::memset(data(), 0, bytes);
        poison(true);
    }
    ~CallerBuffer() { poison(false); }
    CallerBuffer(const CallerBuffer&) = delete;
    CallerBuffer& operator=(const CallerBuffer&) = delete;

    uint8_t* data() { return store_.get() + lead_; }
    const uint8_t* data() const { return store_.get() + lead_; }
    size_t size() const { return size_; }
    std::vector<uint8_t> bytes() const { return {data(), data() + size_}; }
    void fill(uint8_t v) { std::memset(data(), v, size_); }

    // True while nothing was written into the ring.
    bool ringIntact() const {
        poison(false);
        bool ok = true;
        const uint8_t* base = store_.get();
        for (size_t i = 0; i < lead_; ++i) ok &= base[i] == kCanary;
        for (size_t i = 0; i < kRing; ++i) ok &= data()[size_ + i] == kCanary;
        poison(true);
        return ok;
    }

private:
    void poison(bool on) const {
#ifdef KVDSR_TEST_ASAN
        uint8_t* base = store_.get();
        if (on) {
            ASAN_POISON_MEMORY_REGION(base, lead_);
            ASAN_POISON_MEMORY_REGION(base + lead_ + size_, kRing);
        } else {
            ASAN_UNPOISON_MEMORY_REGION(base, lead_ + size_ + kRing);
        }
#else
        (void)on;
#endif
    }

    size_t size_;
    size_t lead_;
    std::unique_ptr<uint8_t[]> store_;
};

// The rows of one plane: how many, and how many bytes of each a reader uses.
struct PlaneShape {
    size_t rows;
    size_t rowBytes;
};

inline std::vector<PlaneShape> planeShapes(uint32_t format, size_t w, size_t h) {
    switch (format) {
        case kvDSR_FMT_YUV420SP: return {{h, w}, {h / 2, w}};
        case kvDSR_FMT_YUV444P: return {{h, w}, {h, w}, {h, w}};
        case kvDSR_FMT_YUV420P: return {{h, w}, {h / 2, w / 2}, {h / 2, w / 2}};
        default: return {{h, w}};
    }
}

enum class Placement { Contiguous, Separate };

// One frame as a caller lays it out. Engines that honour strides get rows
// `stride` apart (0: packed); the others read packed rows whatever the
// descriptor says, so their frames are packed and the strides are noise.
struct FrameShape {
    uint32_t format = kvDSR_FMT_YUV420SP;
    size_t w = 0, h = 0;
    std::array<uint32_t, 3> stride{};
    Placement placement = Placement::Contiguous;
    size_t misalign = 0;
    bool stridesHonoured = true;
    uint32_t seed = 1;
    std::array<bool, 3> nullPlane{};  // descriptor says NULL (the memory still exists)
    size_t minBytes = 0;  // contiguous frames: at least this many bytes (a documented frame size)
};

class CallerFrame {
public:
    explicit CallerFrame(const FrameShape& shape) : shape_(shape), shapes_(planeShapes(shape.format, shape.w, shape.h)) {
        std::vector<size_t> bytes;
        for (size_t i = 0; i < shapes_.size(); ++i) {
            const size_t s = shape.stridesHonoured && shape.stride[i] ? shape.stride[i] : shapes_[i].rowBytes;
            step_[i] = s;
            bytes.push_back(shapes_[i].rows ? (shapes_[i].rows - 1) * s + shapes_[i].rowBytes : 0);
        }
        uint8_t* planes[3] = {};
        if (shape.placement == Placement::Contiguous) {
            size_t total = 0;
            for (size_t b : bytes) total += b;
            total = std::max(total, shape.minBytes);
            buffers_.push_back(std::make_unique<CallerBuffer>(total, shape.misalign));
            size_t at = 0;
            for (size_t i = 0; i < bytes.size(); ++i) {
                planes[i] = buffers_[0]->data() + at;
                at += bytes[i];
            }
        } else {
            for (size_t i = 0; i < bytes.size(); ++i) {
                buffers_.push_back(std::make_unique<CallerBuffer>(bytes[i], shape.misalign));
                planes[i] = buffers_.back()->data();
            }
        }
        // Pixels depend on (plane, row, column) only, so that every layout of
        // one shape carries the same picture; padding bytes differ from it.
        for (auto& b : buffers_) b->fill(0x5A);
        for (size_t i = 0; i < shapes_.size(); ++i)
            for (size_t y = 0; y < shapes_[i].rows; ++y)
                for (size_t x = 0; x < shapes_[i].rowBytes; ++x) planes[i][y * step_[i] + x] = pixel(i, y, x);
        desc_.format = shape.format;
        for (size_t i = 0; i < 3; ++i) {
            desc_.stride[i] = shape.stride[i];
            desc_.plane[i] = shape.nullPlane[i] ? nullptr : planes[i];
        }
        std::copy(planes, planes + 3, planes_);
    }

    kvDSR_ImageDesc* desc() { return &desc_; }
    const FrameShape& shape() const { return shape_; }

    // The picture as the engine should see it: each plane's rows, packed,
    // back to back.
    std::vector<uint8_t> packed() const {
        std::vector<uint8_t> out;
        for (size_t i = 0; i < shapes_.size(); ++i)
            for (size_t y = 0; y < shapes_[i].rows; ++y) {
                const uint8_t* row = planes_[i] + y * step_[i];
                out.insert(out.end(), row, row + shapes_[i].rowBytes);
            }
        return out;
    }

    bool ringsIntact() const {
        for (const auto& b : buffers_)
            if (!b->ringIntact()) return false;
        return true;
    }

private:
    uint8_t pixel(size_t plane, size_t y, size_t x) const {
        uint32_t v = shape_.seed * 2654435761u ^ uint32_t(plane * 40503u + y * 7919u + x * 104729u);
        v ^= v >> 15;
        v *= 2246822519u;
        v ^= v >> 13;
        // Smooth enough for the synthesis to open gaps, noisy enough to see a
        // wrong source.
        return uint8_t((x * 5 + y * 3 + plane * 60 + (v & 31)) & 0xFF);
    }

    FrameShape shape_;
    std::vector<PlaneShape> shapes_;
    size_t step_[3] = {};
    uint8_t* planes_[3] = {};
    kvDSR_ImageDesc desc_{};
    std::vector<std::unique_ptr<CallerBuffer>> buffers_;
};

}  // namespace kvdsr::test
