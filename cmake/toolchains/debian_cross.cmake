# Common part of the cross toolchains: Debian's cross compiler for `triplet`, qemu-user to run what it
# builds. The including file sets triplet, CMAKE_SYSTEM_PROCESSOR and qemu_processor.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)

# Debian's cross compilers know their headers and libraries without a sysroot: the libraries are in
# <root>/lib. Emulated programs find their loader and libraries below the same root.
execute_process(COMMAND ${CMAKE_C_COMPILER} -print-file-name=libc.so.6
                OUTPUT_VARIABLE target_libc OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT IS_ABSOLUTE "${target_libc}")
  message(FATAL_ERROR "no ${triplet}-gcc here; install it: scripts/packages.sh cross")
endif()
get_filename_component(target_root ${target_libc}/../.. REALPATH)

set(CMAKE_FIND_ROOT_PATH ${target_root})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${qemu_processor};-L;${target_root})
