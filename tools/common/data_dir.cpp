#include "data_dir.h"

#include <filesystem>
#include <system_error>

namespace fs = std::filesystem;

namespace kvdsrtool {

namespace {

// The running executable's folder; empty where the system does not say.
fs::path executableDir() {
    std::error_code ec;
    const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    return ec ? fs::path() : exe.parent_path();
}

}  // namespace

std::string sampleDataDir(const char* buildDir, const char* sourceDataDir, const char* dataRelPath) {
    const fs::path exeDir = executableDir();
    const fs::path installed = (exeDir / dataRelPath).lexically_normal();
    std::error_code ec;
    if (!exeDir.empty() && fs::is_directory(installed / "samples", ec)) return installed.string();
    if (!exeDir.empty() && fs::equivalent(exeDir, buildDir, ec)) return sourceDataDir;
    return exeDir.empty() ? std::string(sourceDataDir) : installed.string();
}

}  // namespace kvdsrtool
