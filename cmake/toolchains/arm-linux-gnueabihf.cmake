# 32-bit ARM with hardware floating point (Debian armhf).
# Cross build with Debian's cross compiler; target programs (the tests
# among them) run under qemu user-mode emulation.
#   cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake
set(CMAKE_SYSTEM_PROCESSOR arm)
set(ZEBKIT_TARGET_TRIPLE arm-linux-gnueabihf)
set(ZEBKIT_QEMU_NAME qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
