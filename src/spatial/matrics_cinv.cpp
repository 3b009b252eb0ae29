// Cramer's rule for Hermitian 2-by-2 matrices.
#include "spatial/matrics_cinv.h"

#include <cmath>

int chmat_pinv_dim2(se_complex *out, const se_complex *A) {
  const float a = A[0].re;
  const float d = A[3].re;
  se_complex b = A[1];
  const bool hermitian = A[1].re == A[2].re && A[1].im == -A[2].im;
  if (!hermitian) {
    b = {(A[1].re + A[2].re) * 0.5f, (A[1].im - A[2].im) * 0.5f};
  }

  float divisor = a * d - (b.re * b.re + b.im * b.im);
  if (divisor == 0.0f) {
    // Deliberate: an exactly singular matrix gets this divisor instead of a regularisation, and the
    // beamformer's weights in such bins depend on it.
    divisor = a + d + b.re + A[2].re;
  }
  if (divisor == 0.0f) {
    return -1;
  }

  const float r = 1.0f / divisor;
  const float re = -b.re * r;
  const float im = b.im * r;
  const bool finite =
      std::isfinite(d * r) && std::isfinite(re) && std::isfinite(im) && std::isfinite(a * r);
  if (!finite) {
    return -1;
  }
  out[0] = {d * r, 0.0f};
  out[1] = {re, -im};
  out[2] = {re, im};
  out[3] = {a * r, 0.0f};
  return 0;
}

int chmat_pinv(cmat *out, const cmat *A) {
  return chmat_pinv_dim2(out->data, A->data);
}
