# 64-bit IBM Z, the big-endian target, with Debian's cross compiler and qemu-s390x.
set(triplet s390x-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(qemu_processor s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
