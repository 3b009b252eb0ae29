# The compiler flags for speed and size. None of them changes a bit of the output.
#
# Above each flag stands its reason and, on the last line, what it saves: how many more instructions per frame
# modes 6000, 6001 and 6002 need without it, and how many more bytes .text has; first without AVX2, then with
# it. The totals were 27387, 30890, 49293; 30585 bytes | 9712, 11395, 18145; 49811 bytes. To measure a flag,
# leave it out, run bench/check_counts.py with a build directory DIR, and size -A DIR/baseline/libtm_se_bf.so.
# The figures are those of gcc 12.2.

# -fno-math-errno: a square root is one instruction, without a call that may set errno.
#   0, 3410, 1048; 345 bytes | 0, 3223, 1087; 816 bytes
# -fno-trapping-math: both sides of a selection may be computed, so that loops over bins become vectors.
#   0, -2, 2810; -203 bytes | 0, -2, 3033; -240 bytes
# -ffunction-sections, -fdata-sections: the linker leaves out what no public function reaches.
#   0, 0, 0; 3805 bytes | 0, 0, 0; 3808 bytes
target_compile_options(tm_se_bf_objects PRIVATE -fno-math-errno -fno-trapping-math
                       -ffunction-sections -fdata-sections)

# Builds without a type, as inside projects that set none, are as fast as those for release.
set(optimised $<OR:$<CONFIG:Release>,$<CONFIG:>>)

# They compile every source for speed except these, which do little or nothing per frame.
# -Oz: small code.
#   4, 4, 7; 2912 bytes | 4, 4, 7; 2912 bytes
set(compiled_small
  src/support/tamrin_memory.cpp
  src/support/se_time.cpp
  src/support/se_maths.cpp
  src/spatial/se_matrix_funcs.cpp
  src/spatial/matrics_cinv.cpp
  src/spatial/matrics_cevd.cpp
  src/spatial/array_util.cpp
  src/interface/stream_check.cpp
  src/spectral/vector/kernel.cpp
  src/interface/se_bf_instance.cpp
  src/interface/multi_channels_enhance.cpp
  src/conformance/se_bf_conform.cpp)
# Where there are vector kernels, the scalar transform is only used for lengths that no stream has, and its
# wrapper does no more than call the kernel.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|aarch64" AND NOT TM_SE_BF_SMALL)
  list(APPEND compiled_small src/spectral/q31_cfft.cpp src/spectral/q31_rfft.cpp
       src/spectral/fftwrap_fixpoint.cpp)
endif()
# gcc knows -Oz from version 12 on; it saves 60 bytes over -Os.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-Oz TM_SE_BF_HAS_OZ)
set(small $<IF:$<BOOL:${TM_SE_BF_HAS_OZ}>,-Oz,-Os>)

# -ftree-vectorize: gcc 11 does not vectorise at -O2, and gcc 12 only loops of known length.
#   7294, 15047, 14376; -1981 bytes | 8169, 16096, 16508; -4272 bytes
set(fast -O2 -ftree-vectorize)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND fast
    # Copies of functions for constant arguments: with known constants a minimum takes four operations.
    #   435, 435, 414; 21 bytes | -36, -36, -55; -128 bytes
    -fno-ipa-cp
    # Jump threading makes branches of selections, which the vectoriser then replaces by masks.
    #   -15, -16, 1386; -127 bytes | -20, -21, -74; 144 bytes
    -fno-thread-jumps
    # Vector code for the remainder of a loop: no length that occurs leaves a remainder.
    #   13, 35, 31; 1356 bytes | 4, 45, 42; 3200 bytes
    --param=vect-epilogues-nomask=0
    # Padding in front of functions, loops and jump targets.
    #   29, 39, 50; 1014 bytes | 20, 28, 36; 1744 bytes
    -fno-align-functions -fno-align-loops -fno-align-jumps)
endif()

# A small build does without unrolled loops, which clang makes of most: 4 kB.
if(TM_SE_BF_SMALL)
  list(APPEND fast -fno-unroll-loops)
endif()

# A new source is compiled for speed unless it is listed above.
get_target_property(compiled_fast tm_se_bf_objects SOURCES)
foreach(file IN LISTS compiled_small)
  if(NOT file IN_LIST compiled_fast)
    message(FATAL_ERROR "${CMAKE_CURRENT_LIST_FILE}: ${file} is no source of the library")
  endif()
endforeach()
list(REMOVE_ITEM compiled_fast ${compiled_small})
set_property(SOURCE ${compiled_small} APPEND PROPERTY COMPILE_OPTIONS $<${optimised}:${small}>)
set_property(SOURCE ${compiled_fast} APPEND PROPERTY COMPILE_OPTIONS $<${optimised}:${fast}>)
