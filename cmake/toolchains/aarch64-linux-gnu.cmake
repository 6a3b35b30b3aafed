# 64-bit ARM (Debian arm64).
# Cross build with Debian's cross compiler; target programs (the tests
# among them) run under qemu user-mode emulation.
#   cmake -S . -B build-aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

set(ZEBKIT_TARGET_TRIPLE aarch64-linux-gnu)
set(CMAKE_C_COMPILER ${ZEBKIT_TARGET_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${ZEBKIT_TARGET_TRIPLE}-g++)

# Target libraries and headers come from the cross sysroot only; programs
# (the emulator, host tools) from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${ZEBKIT_TARGET_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# ctest and test discovery start target programs through this command.
find_program(ZEBKIT_QEMU qemu-aarch64 NO_CMAKE_FIND_ROOT_PATH)
if(NOT ZEBKIT_QEMU)
  set(ZEBKIT_QEMU qemu-aarch64)
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR ${ZEBKIT_QEMU} -L /usr/${ZEBKIT_TARGET_TRIPLE})
