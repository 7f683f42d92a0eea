# 64-bit ARM with Debian's cross compiler; tests run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The cross toolchain's own glibc comes first: Debian's multiarch libc6 of
# another build, mixed with the cross loader, crashes on thread creation.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64
    -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib:/usr/lib/aarch64-linux-gnu
    -L /usr/aarch64-linux-gnu)
