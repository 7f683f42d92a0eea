// A yardstick for the contention benchmark: a call as long as a library call,
// made of items that read no data and wait for nothing, run by the library's
// own frame team. Whatever it suffers beside busy processes is what the
// scheduler does to any call of that length on that team; what a library
// call suffers beyond it comes from its own items (their order, their
// memory traffic).
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <vector>

#include "common/frame_team.h"

namespace benchideal {

class IdealCall {
public:
    // One call, on the team a library call would get.
    void run() {
        kvdsr::runItems(kItems, true, [this](uint32_t item, int) { sink_ += spin(steps_, item); });
    }

    // Sets the call's size so that one thread takes about `ms`.
    void calibrate(double ms) {
        steps_ = 2000;
        std::vector<double> perStep;
        for (int trial = 0; trial < 5; ++trial) {
            const auto t0 = std::chrono::steady_clock::now();
            for (uint32_t i = 0; i < kItems; ++i) sink_ += spin(steps_, i);
            const auto t1 = std::chrono::steady_clock::now();
            perStep.push_back(std::chrono::duration<double, std::milli>(t1 - t0).count() / double(kItems * steps_));
        }
        std::sort(perStep.begin(), perStep.end());
        steps_ = std::max<uint64_t>(1, uint64_t(ms / (perStep[perStep.size() / 2] * kItems)));
    }

private:
    static constexpr uint32_t kItems = 256;  // a few hundred, as a frame's rows make

    // A dependent chain of multiplies: no memory, nothing to skip.
    static uint64_t spin(uint64_t steps, uint64_t x) {
        for (uint64_t s = 0; s < steps; ++s) x = x * 6364136223846793005ull + 1442695040888963407ull;
        return x;
    }

    uint64_t steps_ = 1;
    std::atomic<uint64_t> sink_{0};
};

}  // namespace benchideal
