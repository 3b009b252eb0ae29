// Exponential function and logarithm with the same bits on every processor and with every C
// library.
//
// Only additions, multiplications and divisions in double precision, in a fixed order. Callers
// round the results to single precision at once.
#ifndef TM_SE_BF_STREAM_FIXED_MATHS_H
#define TM_SE_BF_STREAM_FIXED_MATHS_H

// e to the x, for |x| up to 700. Relative error below 1e-14.
double fixed_exp(double x);

// Natural logarithm of a normal x > 0. Absolute error below 1e-11.
double fixed_log(double x);

#endif  // TM_SE_BF_STREAM_FIXED_MATHS_H
