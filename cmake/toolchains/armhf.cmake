# 32-bit Arm with hardware floating point (Armv7-A, VFPv3-D16), with Debian's cross compiler and qemu-arm.
set(triplet arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(qemu_processor arm)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)  # notes on the calling convention before gcc 7
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
