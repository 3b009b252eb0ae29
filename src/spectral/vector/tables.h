// Tables of the vector kernels: the twiddle and split factors of q31_tables.h, each kind of factor
// in a plane of its own, so that one load fills a vector.
//
// Plain records instead of std::array: a member function would be code that files compiled for
// different processors share.
#ifndef TM_SE_BF_SPECTRAL_VECTOR_TABLES_H
#define TM_SE_BF_SPECTRAL_VECTOR_TABLES_H

#include <cstddef>
#include <cstdint>

// Twiddle factors of one radix-4 stage over groups of kSpan points: for j = 0 .. kSpan/4 - 1 the
// planes cos j, sin j, cos 2j, sin 2j, cos 3j, sin 3j, angles in units of 2 pi / kSpan.
template <size_t kSpan>
struct q31_stage_table {
  int32_t planes[6 * kSpan / 4];
};

extern const q31_stage_table<16> q31_stage_16;
extern const q31_stage_table<64> q31_stage_64;
extern const q31_stage_table<256> q31_stage_256;

// Twiddle factors of the radix-2 stage of 128 points, i = 0 .. 63, angles in units of 2 pi / 128.
struct q31_radix2_table {
  int32_t cosine[64];  // |cos i|
  int32_t sine[64];    // sin i
};

extern const q31_radix2_table q31_radix2_128;

// Split factors of a real transform of kLength points: the planes Re A, |Im A|, Re B of
// k = 1 .. kLength/4. Those of bin kLength/2 - k are the same.
constexpr int32_t kFirstSplitBin = 1;

template <size_t kLength>
struct q31_split_table {
  int32_t planes[3 * kLength / 4];
};

extern const q31_split_table<256> q31_split_256;
extern const q31_split_table<512> q31_split_512;

// Tables for values as pairs of words. A factor and the one behind it make a pair; who loads the
// second factors of a vector reads a word more than there are, hence the padding.

// Twiddle factors of the same stage: for j = 0 .. kSpan/4 - 1 the pairs (cos j, sin j), then
// (cos 2j, sin 2j), then (cos 3j, sin 3j).
template <size_t kSpan>
struct q31_turn_table {
  int32_t words[6 * kSpan / 4];
  int32_t padding;
};

extern const q31_turn_table<64> q31_turns_64;
extern const q31_turn_table<256> q31_turns_256;

// Twiddle factors of the radix-2 stage of 128 points: the pairs (cos i, sin i), i = 0 .. 63.
struct q31_half_turn_table {
  int32_t words[128];
  int32_t padding;
};

extern const q31_half_turn_table q31_half_turn_128;

// Split factors of bins k = 1 .. kLength/4, which hold for their mirror images too: the pairs
// (Re A, |Im A|), then Re B in the first word of each pair.
template <size_t kLength>
struct q31_pair_split_table {
  int32_t words[kLength];
};

extern const q31_pair_split_table<256> q31_pair_split_256;
extern const q31_pair_split_table<512> q31_pair_split_512;

#endif  // TM_SE_BF_SPECTRAL_VECTOR_TABLES_H
