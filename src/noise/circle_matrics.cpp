// Ring of eight vectors with element-wise minimum, and three-point smoothing.
#include "noise/circle_matrics.h"

#include "support/pool_vector.h"
#include "support/se_vector.h"

namespace {

// The comparison is strict, so that a not-a-number in `minimum` stays and one in `x` is skipped.
SE_BF_VECTOR_CLONES void lower_to(float *__restrict minimum, const float *__restrict x, int32_t n) {
  for (int32_t j = 0; j < n; ++j) {
    minimum[j] = minimum[j] > x[j] ? x[j] : minimum[j];
  }
}

}  // namespace

SE_BF_RARELY_RUN circular_mat *initCircularMat_in(core_state *core, int32_t n) {
  circular_mat *mat = static_cast<circular_mat *>(tamrin_malloc_in(core, sizeof(circular_mat)));
  if (mat == nullptr) {
    return nullptr;
  }
  mat->base = pool_floats(core, kCircularRows * n);
  if (mat->base == nullptr) {
    return nullptr;
  }
  mat->n = n;
  for (int32_t row = 0; row < kCircularRows; ++row) {
    mat->rows[row] = mat->base + row * n;
  }
  return mat;
}

SE_BF_RARELY_RUN void uinitCircularMat(circular_mat *mat) {
  if (mat == nullptr) {
    return;
  }
  pool_release(mat->base);
  tamrin_free(mat);
}

SE_BF_RARELY_RUN void resetCircularMat(circular_mat *mat, const float *vec) {
  if (mat == nullptr || vec == nullptr) {
    return;
  }
  for (int32_t row = 0; row < kCircularRows; ++row) {
    copy_floats(mat->rows[row], vec, mat->n);
  }
}

SE_BF_RARELY_RUN void shiftToPutCircularMat(circular_mat *mat, const float *vec) {
  if (mat == nullptr || vec == nullptr) {
    return;
  }
  float *oldest = mat->rows[0];
  for (int32_t row = 1; row < kCircularRows; ++row) {
    mat->rows[row - 1] = mat->rows[row];
  }
  mat->rows[kCircularRows - 1] = oldest;
  copy_floats(oldest, vec, mat->n);
}

void getMinFrmCircleMat(const circular_mat *mat, float *out) {
  if (mat == nullptr || out == nullptr || mat->n <= 0) {
    return;
  }
  copy_floats(out, mat->base, mat->n);
  for (int32_t slice = 1; slice < kCircularRows; ++slice) {
    lower_to(out, mat->base + slice * mat->n, mat->n);
  }
}

SE_BF_RARELY_RUN void b_spline(float *x, int32_t len) {
  if (len < 2) {
    return;
  }
  for (int32_t i = len - 1; i > 0; --i) {
    x[i] = 0.5f * x[i] + 0.5f * x[i - 1];
  }
  for (int32_t i = 0; i < len - 1; ++i) {
    x[i] = 0.5f * x[i] + 0.5f * x[i + 1];
  }
}
