// Closed-form 2-by-2 Hermitian eigenvector.
#include "spatial/matrics_cevd.h"

#include <cmath>

namespace {

void larger_axis(se_complex *v, float a, float d) {
  const bool second = a < d;
  v[0] = {second ? 0.0f : 1.0f, 0.0f};
  v[1] = {second ? 1.0f : 0.0f, 0.0f};
}

}  // namespace

void chmat_principal_ev_dim2(se_complex *v, const se_complex *A) {
  const float a = A[0].re;
  const float d = A[3].re;
  const se_complex b = A[1];
  if (b.re == 0.0f && b.im == 0.0f) {
    larger_axis(v, a, d);
    return;
  }

  // lambda_max = m + sqrt(disc), t = lambda_max - a, v = (b, t) / |(b, t)|.
  const float s = b.re * b.re + b.im * b.im;
  const float m = (a + d) * 0.5f;
  const float exact_disc = m * m - (a * d - s);
  // Never negative on paper; rounding makes it so for equal levels with next to no coherence.
  const float disc = exact_disc < 0.0f ? 0.0f : exact_disc;
  const double root = std::sqrt(static_cast<double>(disc));
  const float t = static_cast<float>(static_cast<double>(m - a) + root);
  const float norm = se_sqrt(t * t + s);
  const float r = 1.0f / norm;
  const se_complex first = {b.re * r, b.im * r};
  const float second = t * r;

  // Squares of entries near the smallest floats vanish: the norm is then 0.
  if (!std::isfinite(first.re) || !std::isfinite(first.im) || !std::isfinite(second)) {
    larger_axis(v, a, d);
    return;
  }
  v[0] = first;
  v[1] = {second, 0.0f};
}

void chmat_principal_ev(se_complex *v, const cmat *A) {
  chmat_principal_ev_dim2(v, A->data);
}
