# Cross-build for Linux on 64-bit Arm with Debian's cross compiler
# (g++-aarch64-linux-gnu) and Debian's arm64 libraries installed beside the
# host's through multiarch (dpkg --add-architecture arm64, then the :arm64
# forms of the -dev packages; scripts/install-deps-aarch64 does both).
#
#   cmake -S . -B build-aarch64 -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
#
# or KESTA_CROSS=aarch64 scripts/build build-aarch64.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

# Multiarch keeps the target's libraries and package files under
# /usr/lib/aarch64-linux-gnu: find_package and find_library look there by
# this name, and pkg-config is pointed there instead of at the host's.
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)

# qemu-user runs the target's programs on the build machine: GoogleTest's
# test discovery at build time, and CTest. The arm64 loader and libraries of
# multiarch lie where it looks, so it needs no QEMU_LD_PREFIX.
find_program(KESTA_QEMU_AARCH64 qemu-aarch64)
if(KESTA_QEMU_AARCH64)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${KESTA_QEMU_AARCH64})
endif()
