// The library of an earlier revision named by KVDSR_BASELINE_LIB, loaded
// beside this build so that a benchmark times both in one process
// (bench/build_baseline.sh REF DIR builds one). Exits on a bad path or a
// missing symbol: a half-loaded baseline would time nothing useful.
#pragma once

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <type_traits>

namespace benchbase {

class BaselineLib {
public:
    // False when KVDSR_BASELINE_LIB is unset or empty.
    bool open() {
        const char* path = std::getenv("KVDSR_BASELINE_LIB");
        if (!path || !*path) return false;
        lib_ = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        if (!lib_) {
            std::fprintf(stderr, "KVDSR_BASELINE_LIB: %s\n", dlerror());
            std::exit(1);
        }
        return true;
    }

    // Sets fn to the library's symbol of that name.
    template <class Fn>
    void get(Fn& fn, const char* symbol) const {
        fn = reinterpret_cast<std::remove_reference_t<Fn>>(dlsym(lib_, symbol));
        if (!fn) {
            std::fprintf(stderr, "KVDSR_BASELINE_LIB: no %s\n", symbol);
            std::exit(1);
        }
    }

private:
    void* lib_ = nullptr;
};

}  // namespace benchbase
