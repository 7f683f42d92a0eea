# 32-bit ARM (armv7-a, NEON, hard float) with Debian's cross compiler;
# tests run under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
set(CMAKE_C_FLAGS_INIT "-march=armv7-a -mfpu=neon -mfloat-abi=hard")
set(CMAKE_CXX_FLAGS_INIT "-march=armv7-a -mfpu=neon -mfloat-abi=hard")
# Multiarch packages (libmbedtls-dev:armhf) live under / with arch subdirs.
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The cross toolchain's own glibc comes first: Debian's multiarch libc6 of
# another build, mixed with the cross loader, crashes on thread creation.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm
    -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib:/usr/lib/arm-linux-gnueabihf
    -L /usr/arm-linux-gnueabihf)
