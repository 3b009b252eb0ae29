// Self-test for integrators on the target device: runs the stored recording through a fresh
// instance, times the calls, and compares the output with the stored reference.
#ifndef TM_SE_BF_CONFORMANCE_SE_BF_CONFORM_H
#define TM_SE_BF_CONFORMANCE_SE_BF_CONFORM_H

#include <cstdint>

// Runs the test and prints its report on standard output. se_type: "bf_mean", "bf_omlsa", "bf_mvdr"
// or "bf_mono"; any other text, or null, runs mode 0. hop_len: as at creation. Returns the number
// of characters of the last line; there is no verdict. Destroys every other instance of the
// process; not re-entrant.
//
// The output is compared from sample D on, D being the latency that se_bf_init returns. This is
// more than the delay of the signal. The reference starts at the D of hop 192, so only "bf_mvdr" at
// hop 192 reaches 1. At other hops, and for other types, the output is another signal or is shifted
// against the reference: low figures there do not mean a fault.
int32_t bf_conformance_test(const char *se_type, int32_t hop_len);

// Similarity of two signals of n samples: the normalised cross-correlation at lag zero. It is 1 for
// identical signals, negative for inverted ones, and not a number if one of them is silent. A null
// y counts as silence. Writes the mean squares to pwr_x and pwr_y.
float conform_analysis_on_bf_output(const int16_t *x, const int16_t *y, int32_t n, float *pwr_x,
                                    float *pwr_y);

#endif  // TM_SE_BF_CONFORMANCE_SE_BF_CONFORM_H
