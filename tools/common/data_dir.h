// Where a tool finds the sample data: installed beside it, or in the source
// tree when it runs from its build directory.
#pragma once

#include <string>

namespace kvdsrtool {

// The installed data folder, dataRelPath relative to the running
// executable's folder, when it holds samples/. Otherwise sourceDataDir when
// the executable still runs from buildDir (where it was built), else the
// installed folder anyway, so that messages name where the data should be.
std::string sampleDataDir(const char* buildDir, const char* sourceDataDir, const char* dataRelPath);

}  // namespace kvdsrtool
