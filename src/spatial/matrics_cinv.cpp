// Closed-form 2-by-2 Hermitian inverse.
#include "spatial/matrics_cinv.h"

int chmat_pinv_dim2(se_complex *out, const se_complex *A) {
  const se_complex upper = A[1];
  const se_complex lower = A[2];
  const bool hermitian = upper.re == lower.re && upper.im == -lower.im;
  const se_complex mean = {(upper.re + lower.re) * 0.5f, (upper.im - lower.im) * 0.5f};
  const chmat_inverse inverse = chmat_pinv_of(A[0].re, A[3].re, hermitian ? upper : mean, lower.re);
  if (!inverse.exists) {
    return -1;
  }
  out[0] = {inverse.a, 0.0f};
  out[1] = {inverse.c.re, -inverse.c.im};
  out[2] = inverse.c;
  out[3] = {inverse.d, 0.0f};
  return 0;
}

int chmat_pinv(cmat *out, const cmat *A) {
  return chmat_pinv_dim2(out->data, A->data);
}
