// Samples of full scale 1 and their 16-bit words, 2^31 at a time at most.
#ifndef SE_BF_SAMPLE_WORDS_H
#define SE_BF_SAMPLE_WORDS_H

#include <cstddef>
#include <cstdint>

// Puts 0 for what is no number or infinite, and returns how many such samples there were.
int64_t samples_make_finite(float *x, size_t count);

// Multiplies finite samples by `gain`, limits them to full scale, and returns how many of them are
// the largest or the smallest word in 16 bits.
int64_t samples_amplify(float *x, size_t count, float gain);

// Rounds to the nearest words, half to even, saturating, and returns how many of them are the
// largest or the smallest. Exact for x = word / 32768.
int64_t samples_to_words(const float *x, size_t count, int16_t *words);

#endif  // SE_BF_SAMPLE_WORDS_H
