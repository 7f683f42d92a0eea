// Names of the library's status codes and what a user can do about each.
#pragma once

#include <cstdint>
#include <string>

namespace kvdsrtool {

const char* statusName(uint32_t code);    // "kvDSR_ERR_NULL_POINTER", or "unknown status"
const char* statusAdvice(uint32_t code);  // one sentence
// "kvDSR_Run returned 0x74008 (kvDSR_ERR_NOT_INITIALISED): <advice>"
std::string describeStatus(const std::string& call, uint32_t code);

}  // namespace kvdsrtool
