// Tables of the vector kernels: the twiddle and split factors of q31_tables.h, one value a plane,
// in the order in which vector lanes consume them.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_TABLES_H
#define TM_SE_BF_SPECTRAL_VECTOR_TABLES_H

#include <array>
#include <cstddef>
#include <cstdint>

// Twiddle factors of one radix-4 stage over groups of kSpan points: for j = 0 .. kSpan/4 - 1 the
// planes cos j, sin j, cos 2j, sin 2j, cos 3j, sin 3j, angles in units of 2 pi / kSpan.
template <size_t kSpan>
using q31_stage_table = std::array<int32_t, kSpan / 4 * 6>;

extern const q31_stage_table<16> q31_stage_16;
extern const q31_stage_table<64> q31_stage_64;
extern const q31_stage_table<256> q31_stage_256;

// Twiddle factors of the radix-2 stage of 128 points: planes |cos i|, sin i, i = 0 .. 63.
extern const std::array<int32_t, 128> q31_radix2_128;

// Split factors of a real transform of kLength points: planes Re A, |Im A|, Re B of k = 0 ..
// kLength/2 - 1.
template <size_t kLength>
using q31_split_table = std::array<int32_t, kLength / 2 * 3>;

extern const q31_split_table<256> q31_split_256;
extern const q31_split_table<512> q31_split_512;

#endif  // TM_SE_BF_SPECTRAL_VECTOR_TABLES_H
