# Shared part of the Debian cross toolchains. The including file sets
# CMAKE_SYSTEM_PROCESSOR, ZEBKIT_TARGET_TRIPLE and ZEBKIT_QEMU_NAME.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${ZEBKIT_TARGET_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${ZEBKIT_TARGET_TRIPLE}-g++)

# Target libraries and headers come from the cross sysroot, and from the
# machine's own root for Debian's multiarch packages of the target (zlib1g-dev:arm64
# puts its library in /usr/lib/<triple>, which only the target's library
# architecture reaches, and its headers in /usr/include); programs (the
# emulator, host tools) come from the build machine.
set(CMAKE_FIND_ROOT_PATH /usr/${ZEBKIT_TARGET_TRIPLE} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# ctest and test discovery start target programs through this command.
find_program(ZEBKIT_QEMU ${ZEBKIT_QEMU_NAME} NO_CMAKE_FIND_ROOT_PATH)
if(NOT ZEBKIT_QEMU)
  set(ZEBKIT_QEMU ${ZEBKIT_QEMU_NAME})
endif()
# The multiarch zlib package brings the target's own C library into
# /lib/<triple>, which the loader would otherwise take before the sysroot's:
# a C library that does not match the sysroot's loader hangs the programs. The
# sysroot's libraries come first, then the multiarch ones for zlib.
set(CMAKE_CROSSCOMPILING_EMULATOR ${ZEBKIT_QEMU} -L /usr/${ZEBKIT_TARGET_TRIPLE}
    -E LD_LIBRARY_PATH=/usr/${ZEBKIT_TARGET_TRIPLE}/lib:/lib/${ZEBKIT_TARGET_TRIPLE})
