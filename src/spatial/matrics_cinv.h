// Inverse of a Hermitian 2-by-2 matrix in closed form (Horn and Johnson, "Matrix analysis", 1985,
// 0.8).
#ifndef TM_SE_BF_SPATIAL_MATRICS_CINV_H
#define TM_SE_BF_SPATIAL_MATRICS_CINV_H

#include "spatial/se_matrix_funcs.h"

// The parts that determine a Hermitian inverse ((a, conj(c)), (c, d)), and whether it exists.
struct chmat_inverse {
  float a;
  float d;
  se_complex c;
  bool exists;
};

// Inverse of the Hermitian matrix ((a, b), (conj(b), d)) by Cramer's rule. lower_re: the real part
// of the lower entry A10, which only the sum for singular matrices uses; it differs from that of b
// only if b is the mean of unequal entries. Inline and without branches, so that loops over bins
// vectorise.
inline chmat_inverse chmat_pinv_of(float a, float d, se_complex b, float lower_re) {
  // Deliberate: for an exactly singular matrix this sum replaces the determinant, instead of a
  // regularisation. The beamformer's weights in such bins depend on it.
  const float determinant = a * d - (b.re * b.re + b.im * b.im);
  const float entry_sum = a + d + b.re + lower_re;
  const float divisor = determinant == 0.0f ? entry_sum : determinant;

  const float r = 1.0f / divisor;
  const chmat_inverse inverse = {d * r, a * r, {-b.re * r, b.im * r}, false};
  const float residue = se_finite_residue(inverse.a) + se_finite_residue(inverse.d) +
                        se_finite_residue(inverse.c.re) + se_finite_residue(inverse.c.im);
  const bool exists = divisor != 0.0f && residue == 0.0f;
  return {inverse.a, inverse.d, inverse.c, exists};
}

// Writes the inverse of the Hermitian matrix A (entries A00, A01, A10, A11; out may be A) and
// returns 0. Only the real parts of the diagonal are read. If A01 and conj(A10) differ, both are
// first replaced by their mean. For an exactly singular matrix the sum of the real parts of the
// entries (A01 after that step, A10 as given) replaces the determinant. Returns -1 and writes
// nothing when that sum is 0 too, or when the inverse would not be finite. No diagonal loading.
// Only tests call these two forms.
int chmat_pinv_dim2(se_complex *out, const se_complex *A);
int chmat_pinv(cmat *out, const cmat *A);

#endif  // TM_SE_BF_SPATIAL_MATRICS_CINV_H
