// Principal eigenvector of a Hermitian 2-by-2 matrix in closed form.
#ifndef TM_SE_BF_SPATIAL_MATRICS_CEVD_H
#define TM_SE_BF_SPATIAL_MATRICS_CEVD_H

#include "spatial/se_matrix_funcs.h"

// Writes the eigenvector of the larger eigenvalue of A (A00, A01, A10, A11; A10 and the imaginary
// parts of the diagonal are not read): unit norm, the second component real and the first with the
// phase of A01. A diagonal matrix gives the axis of its larger entry, the first one when both are
// equal; so does a matrix so small that its eigenvector would not be finite.
void chmat_principal_ev_dim2(se_complex *v, const se_complex *A);
void chmat_principal_ev(se_complex *v, const cmat *A);

#endif  // TM_SE_BF_SPATIAL_MATRICS_CEVD_H
