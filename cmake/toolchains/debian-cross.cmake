# Shared part of the Debian cross toolchains. The including file sets
# CMAKE_SYSTEM_PROCESSOR, ZEBKIT_TARGET_TRIPLE and ZEBKIT_QEMU_NAME.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${ZEBKIT_TARGET_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${ZEBKIT_TARGET_TRIPLE}-g++)

# Target libraries and headers come from the cross sysroot, and from a folder
# holding Debian's packages of the target unpacked (ZEBKIT_TARGET_ROOT: zlib,
# headers in usr/include, libraries in usr/lib/<triple>); programs (the
# emulator, host tools) come from the build machine. zlib is linked statically,
# so the programs need no more than the sysroot's libraries under emulation.
set(ZEBKIT_TARGET_ROOT "" CACHE PATH "Unpacked target packages (zlib)")
set(CMAKE_FIND_ROOT_PATH /usr/${ZEBKIT_TARGET_TRIPLE} ${ZEBKIT_TARGET_ROOT})
set(ZLIB_USE_STATIC_LIBS ON)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# ctest and test discovery start target programs through this command.
find_program(ZEBKIT_QEMU ${ZEBKIT_QEMU_NAME} NO_CMAKE_FIND_ROOT_PATH)
if(NOT ZEBKIT_QEMU)
  set(ZEBKIT_QEMU ${ZEBKIT_QEMU_NAME})
endif()
# The sysroot's libraries come first, also where the machine has the target's
# own multiarch C library installed, which does not match the sysroot's loader.
set(CMAKE_CROSSCOMPILING_EMULATOR ${ZEBKIT_QEMU} -L /usr/${ZEBKIT_TARGET_TRIPLE}
    -E LD_LIBRARY_PATH=/usr/${ZEBKIT_TARGET_TRIPLE}/lib)
