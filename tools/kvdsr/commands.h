// Subcommands of the kvdsr tool that are more than one engine call.
#pragma once

#include <string>

namespace kvdsrtool {

// Exit codes of the tool.
constexpr int kExitOk = 0;
constexpr int kExitBadInput = 1;  // usage, missing or malformed files, wrong sizes
constexpr int kExitEngine = 2;    // an engine returned a non-zero status

// Runs every engine on the sample data and writes PNGs and index.html to
// outDir. Returns an exit code; engines that fail are shown in the page.
int runDemo(const std::string& outDir, const std::string& dataDir, bool strict);

// Synthesises Aloe's right view with the depth view engine and prints PSNR
// figures beside a plain forward warp and the unwarped left image.
int runQualityAloe(const std::string& dataDir, const std::string& outDir);

// Where the sample data lives: the repository's data/ (compiled in) unless
// overridden by --data.
std::string defaultDataDir();
// The opencv-doc sample folder with the full-size Aloe pair.
std::string opencvSampleDir();

}  // namespace kvdsrtool
