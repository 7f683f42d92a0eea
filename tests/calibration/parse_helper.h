// Calls the parser the way the engines do and keeps every result.
#pragma once

#include <array>
#include <cstring>
#include <vector>

#include "calibpack.h"
#include "calibration/calib_parser.h"

namespace kvdsr::testing {

struct Parsed {
    uint32_t rc = 0;
    uint32_t size = 0xDEADu, type = 0xDEADu, index = 0xDEADu;
    std::array<uint8_t, 512> block{};
};

inline Parsed parse(const calibpack::Bytes& data, const calibpack::Bytes& blob = {},
                    uint32_t index = calib::kChooseByFocus, int32_t focus = 0, uint32_t layout = 0) {
    // The key blob arrives as 32-bit words.
    std::vector<uint32_t> words((blob.size() + 3) / 4);
    if (!blob.empty()) std::memcpy(words.data(), blob.data(), blob.size());
    Parsed p;
    p.rc = calib::parseCalibration(p.block.data(), &p.size, &p.type, &p.index, data.empty() ? nullptr : data.data(),
                                   static_cast<uint32_t>(data.size()), blob.empty() ? nullptr : words.data(),
                                   static_cast<uint32_t>(blob.size()), 0, layout, focus, index);
    return p;
}

}  // namespace kvdsr::testing
