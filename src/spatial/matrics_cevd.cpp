// Closed-form 2-by-2 Hermitian eigenvector.
#include "spatial/matrics_cevd.h"

void chmat_principal_ev_dim2(se_complex *v, const se_complex *A) {
  const chmat_eigenvector principal = chmat_principal_ev_of(A[0].re, A[3].re, A[1]);
  v[0] = principal.first;
  v[1] = {principal.second, 0.0f};
}

void chmat_principal_ev(se_complex *v, const cmat *A) {
  chmat_principal_ev_dim2(v, A->data);
}
