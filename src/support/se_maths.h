// Scalar mathematics: complex numbers, square root, exponential integral, elementary functions.
//
// Everything is single precision unless a name or a comment says otherwise. Functions are pure.
#ifndef TM_SE_BF_SUPPORT_SE_MATHS_H
#define TM_SE_BF_SUPPORT_SE_MATHS_H

#include <cmath>

// A complex number as two 32-bit floats, real part first.
struct se_complex {
  float re;
  float im;
};

// Square root in single precision. A double-precision root rounded to single has the same bits:
// with 53 bits the second rounding does no harm (Figueroa, "When is double rounding innocuous?",
// 1995).
inline float se_sqrt(float x) {
  return std::sqrt(x);
}

// 0 for a finite x, not-a-number otherwise. The sum of several residues is 0 only if all values are
// finite: a test without branches, for loops that vectorise.
inline float se_finite_residue(float x) {
  return x - x;
}

// e to the x, natural and decimal logarithm. Only tests call them, and the gain rules that no mode
// uses.
float se_exp(float x);
float se_log(float x);
float se_log10(float x);

// Exponential integral E1(x), from its series about 0 (Abramowitz and Stegun, "Handbook of
// Mathematical Functions", 1964, 5.1.11, in the form with the exponential factored out):
//   E1(x) = -(ln|x| + 0.5772 - e^-x * sum over n >= 1 of x^n H(n) / n!),
//   H(n) = 1 + 1/2 + ... + 1/n.
// Meant for 0 < x <= 5, where it needs about twenty iterations at most; x = 0 gives +infinity. The
// single-precision form deliberately keeps Euler's constant at four digits: the bits of the gains
// depend on it. Only do_omlsa and tests call these.
float se_expint(float x);
float expint_f(float x);
double expint_d(double x);

// *out = a, and *out = re + i*im. Only tests call them.
inline void complex_cset(se_complex *out, se_complex a) {
  *out = a;
}

inline void complex_fset(se_complex *out, float re, float im) {
  *out = {re, im};
}

// Magnitude, computed in double precision and rounded to single at the end. Only tests call it.
float complex_abs(se_complex a);

// a + b, a - b, a * b, conj(a) * b, a * conj(b). Only tests need
// a - b and a * conj(b).
inline se_complex complex_add(se_complex a, se_complex b) {
  return {a.re + b.re, a.im + b.im};
}

inline se_complex complex_subtract(se_complex a, se_complex b) {
  return {a.re - b.re, a.im - b.im};
}

inline se_complex complex_mul_complex(se_complex a, se_complex b) {
  return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}

inline se_complex complex_conj_mul_complex(se_complex a, se_complex b) {
  return {a.re * b.re + a.im * b.im, a.re * b.im - a.im * b.re};
}

inline se_complex complex_mul_conj_complex(se_complex a, se_complex b) {
  return {a.re * b.re + a.im * b.im, a.im * b.re - a.re * b.im};
}

// a / b and f / b. The divisor is not tested: b = 0 gives parts that are not finite. Only tests
// call them.
se_complex complex_div_complex(se_complex a, se_complex b);
se_complex float_div_complex(float f, se_complex b);

#endif  // TM_SE_BF_SUPPORT_SE_MATHS_H
