// Operations on complex vectors and small square complex matrices, most of them for two
// microphones.
//
// The library itself calls Norm_Vector, and SumSquares through it; its loops over bins have the
// other formulas inline. Only tests call the rest.
//
// Operations on a 2-by-2 matrix read exactly four entries, whatever `dim` says. All but cmat_print
// are pure functions of their arguments in single precision; none allocates. Functions with an int
// result return 0.
#ifndef TM_SE_BF_SPATIAL_SE_MATRIX_FUNCS_H
#define TM_SE_BF_SPATIAL_SE_MATRIX_FUNCS_H

#include <cstdint>

#include "support/se_maths.h"
#include "support/tamrin_memory.h"

#pragma pack(push, 4)
// A square complex matrix; the caller provides and owns the dim * dim entries.
struct cmat {
  int32_t dim;       // number of rows, and of columns
  se_complex *data;  // [dim][dim], row-major
};
#pragma pack(pop)

// Normalised dot product up to which two vectors count as orthogonal; read by nothing.
extern const float kMaxDotProduct;

// Sum of conj(a_i) b_i over n entries; n < 1 counts as 1.
se_complex ConjugateDotProduct(const se_complex *a, const se_complex *b, int32_t n);

// Sum of |x_i|^2 over n entries; n < 1 counts as 1.
float SumSquares(const se_complex *x, int32_t n);

// Euclidean norm, the square root of SumSquares. x is not modified.
float Norm_Vector(const se_complex *x, int32_t n);

// out[i n + j] = x_i conj(x_j) for all i, j < n: the outer product x x^H.
void TransposedConjugatedProduct(const se_complex *x, se_complex *out, int32_t n);

// Prints the matrix on standard output, one row per line.
void cmat_print(const cmat *m);

// out = in * f, 2-by-2. out may be in.
int cmat_mul_fval(cmat *out, const cmat *in, float f);

// y = M x, 2-by-2; with conj != 0 every entry of M is conjugated (M is not transposed). y must not
// alias x.
int cmat_mul_cvec(se_complex *y, const cmat *M, const se_complex *x, int conj);

// out = A B, 2-by-2. out must not alias A or B.
int cmat_mul_cmat(cmat *out, const cmat *A, const cmat *B);

// R = alpha R + beta x x^H for any dimension.
int cmat_R_by_x_mul_xconj(float alpha, cmat *R, float beta, const se_complex *x);

// R += mask * x x^H, 2-by-2: mask-weighted covariance accumulation. R stays Hermitian; the
// imaginary parts of its diagonal are never written.
void cmat_psd_with_mask(cmat *R, float mask, const se_complex *x);

// The real quadratic form x^H M x of a Hermitian 2-by-2 matrix; M01 and the imaginary parts of the
// diagonal are not read.
float chmat_vec_conj_mul_mx_mul_vec(const cmat *M, const se_complex *x);

#endif  // TM_SE_BF_SPATIAL_SE_MATRIX_FUNCS_H
