/* Changes the mode while the sound goes on: beamformer, noise suppression, mean, one microphone,
 * half a second each, over and over.
 *
 * switch_modes IN OUT: raw two-channel 16-bit PCM at 16 kHz in, raw mono PCM out.
 *
 * The instance is initialised in SE_BF_MODE_MVDR: after SE_BF_MODE_MEAN or SE_BF_MODE_OMLSA it
 * would analyse one channel only and could not beamform later. A change takes effect with the next
 * call. SE_BF_MODE_MONO has no delay, so that the sound jumps by the signal delay when a change
 * leads to it or from it. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tm_se_bf.h>

enum { BLOCK = 320, CHANNELS = 2, BLOCKS_PER_MODE = 25 };

static const int32_t MODES[] = {SE_BF_MODE_MVDR, SE_BF_MODE_OMLSA, SE_BF_MODE_MEAN,
                                SE_BF_MODE_MONO};
enum { MODE_COUNT = sizeof MODES / sizeof MODES[0] };

static int fail(const char *what) {
  fprintf(stderr, "switch_modes: %s\n", what);
  return EXIT_FAILURE;
}

static int enhance(se_bf_inst *inst, FILE *in, FILE *out) {
  int16_t microphones[CHANNELS * BLOCK];
  int16_t enhanced[BLOCK];
  size_t frames = 0;
  size_t blocks = 0;
  while ((frames = fread(microphones, CHANNELS * sizeof(int16_t), BLOCK, in)) > 0) {
    memset(microphones + CHANNELS * frames, 0, CHANNELS * (BLOCK - frames) * sizeof(int16_t));
    if (blocks % BLOCKS_PER_MODE == 0) {
      se_bf_change_mode(inst, MODES[blocks / BLOCKS_PER_MODE % MODE_COUNT]);
    }
    se_bf_do(inst, enhanced, microphones);
    fwrite(enhanced, sizeof(int16_t), BLOCK, out);
    ++blocks;
  }
  return !ferror(in) && fclose(out) == 0 ? EXIT_SUCCESS : fail("reading or writing failed");
}

int main(int argc, char **argv) {
  const se_bf_create_param sizes = {CHANNELS, BLOCK, 0};
  const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.0f, 0.0f};
  FILE *in = argc == 3 ? fopen(argv[1], "rb") : NULL;
  FILE *out = in == NULL ? NULL : fopen(argv[2], "wb");
  if (in == NULL || out == NULL) {
    return fail("usage: switch_modes IN OUT; IN must exist, and OUT be writable");
  }
  se_bf_inst *inst = se_bf_create(&sizes);
  if (inst == NULL) {
    return fail("the library made no instance");
  }
  se_bf_init(inst, &scene);
  const int status = enhance(inst, in, out);
  se_bf_destroy(inst);
  fclose(in);
  return status;
}
