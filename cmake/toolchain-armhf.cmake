# Cross build for 32-bit ARM (armhf: long, size_t and time_t are 32 bits,
# char is unsigned, 64-bit integers are 8-byte aligned), the target the device
# defines, with Debian's arm-linux-gnueabihf cross compiler. Our dependencies
# come from a sysroot of Debian's armhf packages (scripts/armhf-sysroot) and
# the test programs run under qemu-user with that sysroot, so ctest and
# gtest_discover_tests work as in a native build.
#
#   scripts/armhf-sysroot
#   cmake -S . -B build/armhf -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-armhf.cmake
#
# The sysroot defaults to build/armhf-sysroot beside this file's project;
# VEMO_ARMHF_SYSROOT (cache or environment variable) points elsewhere.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Bionic's stat and dirent carry 64-bit inode numbers and offsets on 32-bit
# ARM; glibc's do only with large-file support. Without it readdir and nftw
# fail with EOVERFLOW on ext4 under qemu-user (a 64-bit process to the kernel,
# which hands it 64-bit directory offsets). time_t stays 32 bits, as on the
# device. -Wno-psabi silences notes about a GCC 7.1 ARM calling-convention
# change that concerns only code mixed with GCC 6 objects.
set(CMAKE_C_FLAGS_INIT "-D_FILE_OFFSET_BITS=64")
set(CMAKE_CXX_FLAGS_INIT "-D_FILE_OFFSET_BITS=64 -Wno-psabi")

if(NOT VEMO_ARMHF_SYSROOT)
    if(DEFINED ENV{VEMO_ARMHF_SYSROOT})
        set(VEMO_ARMHF_SYSROOT "$ENV{VEMO_ARMHF_SYSROOT}")
    else()
        get_filename_component(VEMO_ARMHF_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../build/armhf-sysroot"
                               ABSOLUTE)
    endif()
endif()
if(NOT EXISTS "${VEMO_ARMHF_SYSROOT}/usr/include/rapidjson")
    message(FATAL_ERROR "No armhf sysroot at ${VEMO_ARMHF_SYSROOT}: run scripts/armhf-sysroot")
endif()
set(VEMO_ARMHF_SYSROOT "${VEMO_ARMHF_SYSROOT}" CACHE PATH "armhf dependency sysroot")
# try_compile projects read this file again without our cache.
set(ENV{VEMO_ARMHF_SYSROOT} "${VEMO_ARMHF_SYSROOT}")

# The cross compiler keeps its own libc and libstdc++; --sysroot adds the
# dependencies' headers and libraries (including the multiarch directories).
set(CMAKE_SYSROOT "${VEMO_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH "${VEMO_ARMHF_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config (cpp-httplib) must read the armhf .pc files, not the host's.
set(ENV{PKG_CONFIG_LIBDIR}
    "${VEMO_ARMHF_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${VEMO_ARMHF_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${VEMO_ARMHF_SYSROOT}")
set(ENV{PKG_CONFIG_PATH} "")

find_program(VEMO_QEMU_ARM qemu-arm REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR "${VEMO_QEMU_ARM};-L;${VEMO_ARMHF_SYSROOT}")
