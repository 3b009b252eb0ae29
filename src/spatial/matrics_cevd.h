// Principal eigenvector of a Hermitian 2-by-2 matrix in closed form (Golub and Van Loan, "Matrix
// computations", 1996, chapter 8).
#ifndef TM_SE_BF_SPATIAL_MATRICS_CEVD_H
#define TM_SE_BF_SPATIAL_MATRICS_CEVD_H

#include <cmath>

#include "spatial/se_matrix_funcs.h"

// A unit vector whose second component is real.
struct chmat_eigenvector {
  se_complex first;
  float second;
};

// The eigenvector of ((a, b), (conj(b), d)) for the larger eigenvalue:
//   lambda = m + sqrt(m^2 - (a d - |b|^2)),  m = (a + d) / 2,
//   v = (b, lambda - a) / |(b, lambda - a)|.
// Inline and without branches, so that loops over bins vectorise.
inline chmat_eigenvector chmat_principal_ev_of(float a, float d, se_complex b) {
  const float s = b.re * b.re + b.im * b.im;
  const float m = (a + d) * 0.5f;
  const float exact_disc = m * m - (a * d - s);
  // In exact arithmetic this is never negative. Rounding can make it negative when the levels are
  // equal and the coherence is near 0.
  const float disc = exact_disc < 0.0f ? 0.0f : exact_disc;
  const double root = std::sqrt(static_cast<double>(disc));
  const float t = static_cast<float>(static_cast<double>(m - a) + root);
  const float r = 1.0f / se_sqrt(t * t + s);
  const se_complex first = {b.re * r, b.im * r};
  const float second = t * r;

  // A diagonal matrix gives the axis of its larger entry. So does a matrix so small that the
  // squares of its entries underflow: its eigenvector would not be finite.
  const float first_axis = a < d ? 0.0f : 1.0f;
  const float second_axis = a < d ? 1.0f : 0.0f;
  const bool coupled = std::fabs(b.re) + std::fabs(b.im) != 0.0f;
  const float residue =
      se_finite_residue(first.re) + se_finite_residue(first.im) + se_finite_residue(second);
  const bool use = coupled && residue == 0.0f;
  return {{use ? first.re : first_axis, use ? first.im : 0.0f}, use ? second : second_axis};
}

// Writes the eigenvector of the larger eigenvalue of A (entries A00, A01, A10, A11; A10 and the
// imaginary parts of the diagonal are not read). It has unit norm; its second component is real,
// and the first has the phase of A01. A diagonal matrix gives the axis of its larger entry, or the
// first axis when both are equal; so does a matrix so small that its eigenvector would not be
// finite. Only tests call these two forms.
void chmat_principal_ev_dim2(se_complex *v, const se_complex *A);
void chmat_principal_ev(se_complex *v, const cmat *A);

#endif  // TM_SE_BF_SPATIAL_MATRICS_CEVD_H
