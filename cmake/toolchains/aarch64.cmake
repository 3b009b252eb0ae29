# 64-bit Arm, with Debian's cross compiler and qemu-aarch64.
set(triplet aarch64-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(qemu_processor aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
