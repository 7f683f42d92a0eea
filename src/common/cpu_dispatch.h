// Run-time choice among a kernel's variants, for every area that has SIMD
// kernels: the supported variants are found once, on first use, by the
// calling thread; the best is the last one, and tests and benchmarks may
// override the choice to compare every variant with the plain one.
#pragma once

#include <atomic>

namespace kvdsr {

#if defined(__x86_64__) || defined(__i386__)
inline bool cpuHasSse41() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("sse4.1");
}
inline bool cpuHasAvx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
}
inline bool cpuHasAvx512() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
           __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512bw");
}
inline bool cpuHasAvx512Vbmi() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
           __builtin_cpu_supports("avx512vbmi");
}
#endif

template <class Fn>
struct KernelVariant {
    const char* name;
    Fn fn;
};

// Constant-initialised (constexpr constructor): no code runs at load.
template <class Fn, int MaxVariants>
class KernelDispatch {
public:
    using Variant = KernelVariant<Fn>;
    using Fill = int (*)(Variant* out);  // writes the supported variants, reference first, best last

    constexpr explicit KernelDispatch(Fill fill) : fill_(fill) {}

    int variants(const Variant** out) {
        const int n = detect();
        if (out) *out = list_;
        return n;
    }
    Fn kernel() {
        Fn fn = chosen_.load(std::memory_order_acquire);
        if (!fn) {
            fn = list_[detect() - 1].fn;
            chosen_.store(fn, std::memory_order_release);
        }
        return fn;
    }
    // nullptr restores the automatic choice.
    void set(Fn fn) { chosen_.store(fn, std::memory_order_release); }

private:
    int detect() {
        int n = count_.load(std::memory_order_acquire);
        if (n) return n;
        n = fill_(list_);
        count_.store(n, std::memory_order_release);
        return n;
    }

    Fill fill_;
    Variant list_[MaxVariants] = {};
    std::atomic<int> count_{0};
    std::atomic<Fn> chosen_{nullptr};
};

}  // namespace kvdsr
