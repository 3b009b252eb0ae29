// Compile-time generation of the vector kernels' planes.
#include "spectral/vector/tables.h"

#include "spectral/q31_circle.h"

namespace {

// Never applied to -1, the one Q31 number without a magnitude.
constexpr int32_t magnitude(int32_t x) {
  return x < 0 ? -x : x;
}

template <size_t kSpan>
constexpr q31_stage_table<kSpan> make_stage() {
  constexpr size_t kQuarter = kSpan / 4;
  q31_stage_table<kSpan> table = {};
  for (size_t j = 0; j < kQuarter; ++j) {
    for (size_t turn = 1; turn <= 3; ++turn) {
      table.planes[(2 * turn - 2) * kQuarter + j] = q31_down(circle_cos(turn * j, kSpan));
      table.planes[(2 * turn - 1) * kQuarter + j] = q31_down(circle_sin(turn * j, kSpan));
    }
  }
  return table;
}

constexpr q31_radix2_table make_radix2() {
  constexpr size_t kLength = 128;
  q31_radix2_table table = {};
  for (size_t i = 0; i < kLength / 2; ++i) {
    table.cosine[i] = magnitude(q31_down(circle_cos(i, kLength)));
    table.sine[i] = q31_down(circle_sin(i, kLength));
  }
  return table;
}

template <size_t kLength>
constexpr q31_split_table<kLength> make_split() {
  constexpr size_t kPlane = kLength / 4;
  q31_split_table<kLength> table = {};
  for (size_t i = 0; i < kPlane; ++i) {
    const size_t k = kFirstSplitBin + i;
    table.planes[i] = q31_nearest(0.5 * (1.0 - circle_sin(k, kLength)));
    table.planes[kPlane + i] = magnitude(q31_nearest(-0.5 * circle_cos(k, kLength)));
    table.planes[2 * kPlane + i] = q31_nearest(0.5 * (1.0 + circle_sin(k, kLength)));
  }
  return table;
}

template <size_t kSpan>
constexpr q31_turn_table<kSpan> make_turns() {
  constexpr size_t kQuarter = kSpan / 4;
  q31_turn_table<kSpan> table = {};
  for (size_t j = 0; j < kQuarter; ++j) {
    for (size_t turn = 1; turn <= 3; ++turn) {
      int32_t *const pair = table.words + 2 * ((turn - 1) * kQuarter + j);
      pair[0] = q31_down(circle_cos(turn * j, kSpan));
      pair[1] = q31_down(circle_sin(turn * j, kSpan));
    }
  }
  return table;
}

constexpr q31_half_turn_table make_half_turn() {
  constexpr size_t kLength = 128;
  q31_half_turn_table table = {};
  for (size_t i = 0; i < kLength / 2; ++i) {
    table.words[2 * i] = q31_down(circle_cos(i, kLength));
    table.words[2 * i + 1] = q31_down(circle_sin(i, kLength));
  }
  return table;
}

template <size_t kLength>
constexpr q31_pair_split_table<kLength> make_pair_split() {
  q31_pair_split_table<kLength> table = {};
  for (size_t k = 1; k <= kLength / 4; ++k) {
    int32_t *const a = table.words + 2 * (k - 1);
    a[0] = q31_nearest(0.5 * (1.0 - circle_sin(k, kLength)));
    a[1] = magnitude(q31_nearest(-0.5 * circle_cos(k, kLength)));
    a[kLength / 2] = q31_nearest(0.5 * (1.0 + circle_sin(k, kLength)));
  }
  return table;
}

}  // namespace

constexpr q31_stage_table<16> q31_stage_16 = make_stage<16>();
constexpr q31_stage_table<64> q31_stage_64 = make_stage<64>();
constexpr q31_stage_table<256> q31_stage_256 = make_stage<256>();
constexpr q31_radix2_table q31_radix2_128 = make_radix2();
constexpr q31_split_table<256> q31_split_256 = make_split<256>();
constexpr q31_split_table<512> q31_split_512 = make_split<512>();

constexpr q31_turn_table<64> q31_turns_64 = make_turns<64>();
constexpr q31_turn_table<256> q31_turns_256 = make_turns<256>();
constexpr q31_half_turn_table q31_half_turn_128 = make_half_turn();
constexpr q31_pair_split_table<256> q31_pair_split_256 = make_pair_split<256>();
constexpr q31_pair_split_table<512> q31_pair_split_512 = make_pair_split<512>();

// Some multipliers saturate -1 times -1, and -1 has no magnitude. So no factor may be -1.
template <size_t kWords>
static constexpr bool none_is_minus_one(const int32_t (&words)[kWords]) {
  for (size_t i = 0; i < kWords; ++i) {
    if (words[i] == INT32_MIN) {
      return false;
    }
  }
  return true;
}

static_assert(none_is_minus_one(q31_stage_16.planes) && none_is_minus_one(q31_stage_64.planes) &&
              none_is_minus_one(q31_stage_256.planes));
static_assert(none_is_minus_one(q31_radix2_128.cosine) && none_is_minus_one(q31_radix2_128.sine));
static_assert(none_is_minus_one(q31_split_256.planes) && none_is_minus_one(q31_split_512.planes));
