/* Enhances a two-microphone recording: raw 16-bit PCM at 16 kHz in, raw mono PCM out.
 *
 *     cc minimal.c -o minimal -ltm_se_bf
 *
 * minimal IN OUT [DISTANCE DOA]: spacing of the microphones in metres, direction in degrees. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tm_se_bf.h>

enum { BLOCK = 320, CHANNELS = 2 }; /* 20 ms a call */

static int fail(const char *what) {
  fprintf(stderr, "minimal: %s\n", what);
  return EXIT_FAILURE;
}

/* The output is delayed by 192 samples (hop 192). Zeros fill up the last, incomplete block. */
static int enhance(se_bf_inst *inst, FILE *in, FILE *out) {
  int16_t microphones[CHANNELS * BLOCK];
  int16_t enhanced[BLOCK];
  size_t frames = 0;
  while ((frames = fread(microphones, CHANNELS * sizeof(int16_t), BLOCK, in)) > 0) {
    memset(microphones + CHANNELS * frames, 0, CHANNELS * (BLOCK - frames) * sizeof(int16_t));
    se_bf_do(inst, enhanced, microphones);
    fwrite(enhanced, sizeof(int16_t), BLOCK, out);
  }
  return !ferror(in) && fclose(out) == 0 ? EXIT_SUCCESS : fail("reading or writing failed");
}

int main(int argc, char **argv) {
  const se_bf_create_param sizes = {CHANNELS, BLOCK, 0};
  se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.0f, 0.0f};
  if (argc != 3 && argc != 5) {
    return fail("usage: minimal IN OUT [DISTANCE DOA]");
  }
  if (argc == 5) {
    scene.mic_distance = (float)atof(argv[3]);
    scene.doa = (float)atof(argv[4]);
  }
  FILE *in = fopen(argv[1], "rb");
  FILE *out = in == NULL ? NULL : fopen(argv[2], "wb");
  if (in == NULL || out == NULL) {
    return fail("cannot open IN or OUT");
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
