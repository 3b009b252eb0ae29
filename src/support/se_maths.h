// Scalar mathematics: complex numbers, square root, exponential integral, elementary functions.
//
// Everything is single precision unless a name or a comment says otherwise. Functions are pure.
#ifndef TM_SE_BF_SUPPORT_SE_MATHS_H
#define TM_SE_BF_SUPPORT_SE_MATHS_H

// A complex number as two 32-bit floats, real part first.
struct se_complex {
  float re;
  float im;
};

// Square root taken in double precision and rounded to single.
float se_sqrt(float x);

// e to the x, natural and decimal logarithm.
float se_exp(float x);
float se_log(float x);
float se_log10(float x);

// Exponential integral E1(x), from its series about 0 (Abramowitz and Stegun, "Handbook of
// Mathematical Functions", 1964, 5.1.11, in the form with the exponential factored out):
//   E1(x) = -(ln|x| + 0.5772 - e^-x * sum over n >= 1 of x^n H(n) / n!),  H(n) = 1 + 1/2 + ... +
//   1/n.
// Meant for 0 < x <= 5, where it needs at most about twenty rounds; x = 0 gives +infinity. The
// single precision form keeps Euler's constant at four digits deliberately: gains depend on its
// bits.
float se_expint(float x);
float expint_f(float x);
double expint_d(double x);

// *out = a, and *out = re + i*im.
void complex_cset(se_complex *out, se_complex a);
void complex_fset(se_complex *out, float re, float im);

// Magnitude, computed wholly in double precision and rounded to single.
float complex_abs(se_complex a);

// a + b, a - b, a * b, conj(a) * b, a * conj(b).
se_complex complex_add(se_complex a, se_complex b);
se_complex complex_subtract(se_complex a, se_complex b);
se_complex complex_mul_complex(se_complex a, se_complex b);
se_complex complex_conj_mul_complex(se_complex a, se_complex b);
se_complex complex_mul_conj_complex(se_complex a, se_complex b);

// a / b and f / b. The divisor is not tested: b = 0 gives parts that are not finite.
se_complex complex_div_complex(se_complex a, se_complex b);
se_complex float_div_complex(float f, se_complex b);

#endif  // TM_SE_BF_SUPPORT_SE_MATHS_H
