# The compiler flags for speed and size. None of them changes a bit of the output.
#
# Each flag has a reason and, below it, what it saves: how many more instructions per frame modes 6000, 6001
# and 6002 need without it, and how many more bytes .text has; first without AVX2, then with it. In all there
# are 26957, 30459, 47862; 29888 bytes | 9436, 11117, 17387; 49059 bytes. To measure one, leave it out, run
# check_counts in bench/ with a build directory DIR, and size -A DIR/baseline/libtm_se_bf.so. The figures
# are those of gcc 12.2.

# -fno-math-errno: a square root is one instruction, without a call that may set errno.
#   0, 3410, 991; 281 bytes | 0, 3223, 1026; 512 bytes
# -fno-trapping-math: both sides of a selection may be computed, so that loops over bins become vectors.
#   -2, -4, 2760; -153 bytes | 0, -2, 2947; -288 bytes
# -ffunction-sections, -fdata-sections: the linker leaves out what no public function reaches.
#   0, 0, 0; 3950 bytes | 0, 0, 0; 3968 bytes
target_compile_options(tm_se_bf_objects PRIVATE -fno-math-errno -fno-trapping-math
                       -ffunction-sections -fdata-sections)

# Release builds compile every source for speed but these, which do little or nothing per frame.
# -Os: small code.
#   7, 7, 5; 2894 bytes | 7, 7, 5; 2896 bytes
set(compiled_small
  src/support/tamrin_memory.cpp
  src/support/se_time.cpp
  src/support/se_maths.cpp
  src/spatial/se_matrix_funcs.cpp
  src/spatial/matrics_cinv.cpp
  src/spatial/matrics_cevd.cpp
  src/spatial/array_util.cpp
  src/interface/stream_check.cpp
  src/interface/se_bf_instance.cpp
  src/conformance/se_bf_conform.cpp)
# Where there are vector kernels, the scalar transform only serves lengths that no stream has, and its
# wrapper calls the kernel.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|aarch64")
  list(APPEND compiled_small src/spectral/q31_cfft.cpp src/spectral/q31_rfft.cpp
       src/spectral/fftwrap_fixpoint.cpp)
endif()
set(small -Os)

# -ftree-vectorize: gcc 11 does not vectorise at -O2, and gcc 12 only loops of known length.
#   7155, 14907, 13624; -1935 bytes | 8051, 15977, 14840; -4032 bytes
set(fast -O2 -ftree-vectorize)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND fast
    # Constants that are known to a function's callers would turn a minimum into four operations.
    #   437, 437, 417; -118 bytes | -36, -36, -54; -432 bytes
    -fno-ipa-cp
    # Selections would become branches, which the vectoriser then rebuilds from masks.
    #   -17, -19, 1314; -9 bytes | -35, -36, -100; -80 bytes
    -fno-thread-jumps
    # Vector code for the rest of a loop: no length that occurs leaves one.
    #   8, 30, 26; 1352 bytes | 3, 44, 37; 3072 bytes
    --param=vect-epilogues-nomask=0
    # Padding in front of functions, loops and jump targets.
    #   27, 36, 47; 1176 bytes | 18, 26, 36; 1936 bytes
    -fno-align-functions -fno-align-loops -fno-align-jumps)
endif()

# A new source is compiled for speed until it is listed above.
get_target_property(compiled_fast tm_se_bf_objects SOURCES)
foreach(file IN LISTS compiled_small)
  if(NOT file IN_LIST compiled_fast)
    message(FATAL_ERROR "${CMAKE_CURRENT_LIST_FILE}: ${file} is no source of the library")
  endif()
endforeach()
list(REMOVE_ITEM compiled_fast ${compiled_small})
set_property(SOURCE ${compiled_small} APPEND PROPERTY COMPILE_OPTIONS $<$<CONFIG:Release>:${small}>)
set_property(SOURCE ${compiled_fast} APPEND PROPERTY COMPILE_OPTIONS $<$<CONFIG:Release>:${fast}>)
