# Initial cache (cmake -C) of the clang sanitizer build: AddressSanitizer and
# UndefinedBehaviorSanitizer, including float-to-integer overflow and
# implicit integer conversions that change a value, every report fatal.
# scripts/test runs the whole test suite in it and scripts/checks/fuzz-engines
# fuzzes the engines from the same objects (hence the fuzzing instrumentation).
set(CMAKE_C_COMPILER clang CACHE STRING "")
set(CMAKE_CXX_COMPILER clang++ CACHE STRING "")
set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "")
set(KVDSR_SANITIZE "address,undefined,float-cast-overflow,implicit-conversion" CACHE STRING "")
set(_kvdsr_clang_flags
    "-fsanitize=fuzzer-no-link -fsanitize-ignorelist=${CMAKE_CURRENT_LIST_DIR}/sanitizer-ignore.txt")
set(CMAKE_C_FLAGS "${_kvdsr_clang_flags}" CACHE STRING "")
set(CMAKE_CXX_FLAGS "${_kvdsr_clang_flags}" CACHE STRING "")
set(KVDSR_BUILD_FUZZ ON CACHE BOOL "")
set(KVDSR_BUILD_TOOLS OFF CACHE BOOL "")
set(KVDSR_BUILD_EXAMPLES OFF CACHE BOOL "")
