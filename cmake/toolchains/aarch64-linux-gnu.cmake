# 64-bit ARM (Debian arm64).
# Cross build with Debian's cross compiler; target programs (the tests
# among them) run under qemu user-mode emulation.
#   cmake -S . -B build-aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ZEBKIT_TARGET_TRIPLE aarch64-linux-gnu)
set(ZEBKIT_QEMU_NAME qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake)
