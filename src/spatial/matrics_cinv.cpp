// Closed-form 2-by-2 Hermitian inverse.
#include "spatial/matrics_cinv.h"

int chmat_pinv_dim2(se_complex *out, const se_complex *A) {
  const chmat_inverse inverse = chmat_pinv_of(A[0].re, A[3].re, A[1], A[2]);
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
