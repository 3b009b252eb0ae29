// Inverse of a Hermitian 2-by-2 matrix in closed form.
#ifndef TM_SE_BF_SPATIAL_MATRICS_CINV_H
#define TM_SE_BF_SPATIAL_MATRICS_CINV_H

#include "spatial/se_matrix_funcs.h"

// Writes the inverse of the Hermitian matrix A (entries A00, A01, A10, A11; out may be A) and
// returns 0. Only the real parts of the diagonal are read; unequal off-diagonal entries are first
// replaced by the mean of A01 and conj(A10). An exactly singular matrix is divided by the sum of
// the real parts of its entries instead of its determinant. Returns -1 and writes nothing when that
// sum is 0 too, or when the inverse would not be finite. No diagonal loading.
int chmat_pinv_dim2(se_complex *out, const se_complex *A);
int chmat_pinv(cmat *out, const cmat *A);

#endif  // TM_SE_BF_SPATIAL_MATRICS_CINV_H
