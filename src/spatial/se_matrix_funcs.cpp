// Complex vectors, outer products and 2-by-2 products.
#include "spatial/se_matrix_funcs.h"

#include <cstdio>

const float kMaxDotProduct = 1e-6f;

namespace {

// Entries of a 2-by-2 matrix: A00, A01, A10, A11.
constexpr int32_t kEntries = 4;

float squared_magnitude(se_complex x) {
  return x.re * x.re + x.im * x.im;
}

se_complex multiply_add(se_complex a, se_complex x, se_complex b, se_complex y) {
  return complex_add(complex_mul_complex(a, x), complex_mul_complex(b, y));
}

se_complex conj_multiply_add(se_complex a, se_complex x, se_complex b, se_complex y) {
  return complex_add(complex_conj_mul_complex(a, x), complex_conj_mul_complex(b, y));
}

}  // namespace

se_complex ConjugateDotProduct(const se_complex *a, const se_complex *b, int32_t n) {
  se_complex sum = complex_conj_mul_complex(a[0], b[0]);
  for (int32_t i = 1; i < n; ++i) {
    sum = complex_add(sum, complex_conj_mul_complex(a[i], b[i]));
  }
  return sum;
}

float SumSquares(const se_complex *x, int32_t n) {
  float sum = squared_magnitude(x[0]);
  for (int32_t i = 1; i < n; ++i) {
    sum += squared_magnitude(x[i]);
  }
  return sum;
}

float Norm_Vector(const se_complex *x, int32_t n) {
  return se_sqrt(SumSquares(x, n));
}

void TransposedConjugatedProduct(const se_complex *x, se_complex *out, int32_t n) {
  for (int32_t i = 0; i < n; ++i) {
    for (int32_t j = 0; j < n; ++j) {
      out[i * n + j] = complex_mul_conj_complex(x[i], x[j]);
    }
  }
}

void cmat_print(const cmat *m) {
  for (int32_t i = 0; i < m->dim; ++i) {
    for (int32_t j = 0; j < m->dim; ++j) {
      const se_complex entry = m->data[i * m->dim + j];
      std::printf("%f+i(%f)  ", static_cast<double>(entry.re), static_cast<double>(entry.im));
    }
    std::putchar('\n');
  }
}

int cmat_mul_fval(cmat *out, const cmat *in, float f) {
  for (int32_t i = 0; i < kEntries; ++i) {
    out->data[i] = {in->data[i].re * f, in->data[i].im * f};
  }
  return 0;
}

int cmat_mul_cvec(se_complex *y, const cmat *M, const se_complex *x, int conj) {
  const se_complex *m = M->data;
  if (conj == 0) {
    y[0] = multiply_add(m[0], x[0], m[1], x[1]);
    y[1] = multiply_add(m[2], x[0], m[3], x[1]);
  } else {
    y[0] = conj_multiply_add(m[0], x[0], m[1], x[1]);
    y[1] = conj_multiply_add(m[2], x[0], m[3], x[1]);
  }
  return 0;
}

int cmat_mul_cmat(cmat *out, const cmat *A, const cmat *B) {
  const se_complex *a = A->data;
  const se_complex *b = B->data;
  out->data[0] = multiply_add(a[0], b[0], a[1], b[2]);
  out->data[1] = multiply_add(a[0], b[1], a[1], b[3]);
  out->data[2] = multiply_add(a[2], b[0], a[3], b[2]);
  out->data[3] = multiply_add(a[2], b[1], a[3], b[3]);
  return 0;
}

int cmat_R_by_x_mul_xconj(float alpha, cmat *R, float beta, const se_complex *x) {
  for (int32_t i = 0; i < R->dim; ++i) {
    for (int32_t j = 0; j < R->dim; ++j) {
      const se_complex product = complex_mul_conj_complex(x[i], x[j]);
      se_complex *entry = R->data + i * R->dim + j;
      entry->re = alpha * entry->re + beta * product.re;
      entry->im = alpha * entry->im + beta * product.im;
    }
  }
  return 0;
}

void cmat_psd_with_mask(cmat *R, float mask, const se_complex *x) {
  se_complex *r = R->data;
  const se_complex cross = complex_mul_conj_complex(x[0], x[1]);
  const float re = mask * cross.re;
  const float im = mask * cross.im;

  r[0].re += mask * squared_magnitude(x[0]);
  r[1].re += re;
  r[1].im += im;
  r[2].re += re;
  r[2].im -= im;
  r[3].re += mask * squared_magnitude(x[1]);
}

float chmat_vec_conj_mul_mx_mul_vec(const cmat *M, const se_complex *x) {
  const se_complex *m = M->data;
  const se_complex z = complex_mul_conj_complex(x[0], x[1]);
  return squared_magnitude(x[0]) * m[0].re + squared_magnitude(x[1]) * m[3].re +
         2.0f * (z.re * m[2].re - z.im * m[2].im);
}
