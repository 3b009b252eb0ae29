// Low-pass filters for changing the sampling rate: windowed sines after J. F. Kaiser (1974).
#ifndef TM_SE_BF_STREAM_RATE_FILTER_H
#define TM_SE_BF_STREAM_RATE_FILTER_H

constexpr double kPi = 3.14159265358979323846;

// The lower of two rates ends at half of itself, and the transition band below is, as shares of
// that rate, this wide and has its middle here: 7.36 to 8 kHz at rates above 16 kHz. Two such
// filters in a row lose less than half a decibel at 7.5 kHz.
constexpr double kRateTransition = 1.0 / 25.0;
constexpr double kRateCutoff = 0.5 - 0.5 * kRateTransition;

// Products are summed in this many lanes: every length given to rate_filter_dot is a multiple of
// it.
constexpr int kRateFilterLanes = 16;
constexpr int kRateFilterAlignment = 16;

// Number of taps, rounded up to whole lanes, with which a transition band `transition` wide (as a
// fraction of the sampling rate) reaches the stop-band attenuation.
int rate_filter_taps(double transition);

// Rows of a table for `phases` that are not another one's backwards: row phases - p is row p
// backwards.
int rate_filter_rows(int phases);

// Fills `table`, `rows` rows of `taps` coefficients, at most phases + 1. Row p interpolates at
// p / phases behind the middle sample: out = sum over k of row[k] * x[i - taps / 2 + 1 + k], at
// position i + p / phases. `cutoff` is the middle of the transition band as a fraction of the
// sampling rate of x. Every row has the sum 1.
void rate_filter_polyphase(double cutoff, int taps, int phases, int rows, float *table);

// A half-band filter of 4 * quarter - 1 taps: its middle tap is 1/2, its other odd ones are 0, and
// the 2 * quarter even ones, which sum to 1/2, go to `taps`.
void rate_filter_half_band(int quarter, float *taps);

// `quarter` of a half-band filter whose transition band is `transition` of the higher rate wide.
int rate_filter_quarter(double transition);

// Sum of x[k] * h[k], h aligned to kRateFilterAlignment bytes: in a fixed order, so that every
// processor finds the same value.
float rate_filter_dot(const float *x, const float *h, int count);

// y[n] = sum of x[n + k] * taps[k], k = 0 .. count - 1, for n = 0 .. outputs - 1: for short
// filters.
void rate_filter_run(const float *x, const float *taps, int count, float *y, int outputs);

#endif  // TM_SE_BF_STREAM_RATE_FILTER_H
