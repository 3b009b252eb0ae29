/* Serves a caller whose blocks have any length, as audio callbacks do, with a FIFO of 320 samples.
 *
 * any_block_size IN OUT FRAMES: raw two-channel 16-bit PCM at 16 kHz in, raw mono PCM out, handled
 * in blocks of FRAMES samples per channel.
 *
 * The FIFO holds one block of the library in each direction: while the input block fills up, the
 * output of the previous block is returned. Every call returns as many samples as it takes, 320
 * samples later than the library alone. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <tm_se_bf.h>

enum { BLOCK = 320, CHANNELS = 2, MAX_FRAMES = 65536 };

typedef struct fifo {
  se_bf_inst *inst;
  size_t fill; /* samples per channel in `in`, and samples returned from `out` */
  int16_t in[CHANNELS * BLOCK];
  int16_t out[BLOCK];
} fifo;

static int fail(const char *what) {
  fprintf(stderr, "any_block_size: %s\n", what);
  return EXIT_FAILURE;
}

/* The audio callback: takes `frames` samples per channel and returns `frames` samples. */
static void process(fifo *f, const int16_t *in, int16_t *out, size_t frames) {
  for (size_t n = 0; n < frames; ++n) {
    f->in[CHANNELS * f->fill] = in[CHANNELS * n];
    f->in[CHANNELS * f->fill + 1] = in[CHANNELS * n + 1];
    out[n] = f->out[f->fill];
    ++f->fill;
    if (f->fill == BLOCK) {
      se_bf_do(f->inst, f->out, f->in);
      f->fill = 0;
    }
  }
}

static int stream(fifo *f, FILE *in, FILE *out, size_t frames) {
  static int16_t microphones[CHANNELS * MAX_FRAMES];
  static int16_t enhanced[MAX_FRAMES];
  size_t count = 0;
  while ((count = fread(microphones, CHANNELS * sizeof(int16_t), frames, in)) > 0) {
    process(f, microphones, enhanced, count);
    fwrite(enhanced, sizeof(int16_t), count, out);
  }
  return !ferror(in) && fclose(out) == 0 ? EXIT_SUCCESS : fail("reading or writing failed");
}

int main(int argc, char **argv) {
  const se_bf_create_param sizes = {CHANNELS, BLOCK, 0};
  const se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.0f, 0.0f};
  static fifo f;
  const long frames = argc == 4 ? atol(argv[3]) : 0;
  if (frames < 1 || frames > MAX_FRAMES) {
    return fail("usage: any_block_size IN OUT FRAMES, with FRAMES from 1 to 65536");
  }
  FILE *in = fopen(argv[1], "rb");
  FILE *out = in == NULL ? NULL : fopen(argv[2], "wb");
  if (in == NULL || out == NULL) {
    return fail("cannot open IN or OUT");
  }
  f.inst = se_bf_create(&sizes);
  if (f.inst == NULL) {
    return fail("the library made no instance");
  }
  se_bf_init(f.inst, &scene);
  const int status = stream(&f, in, out, (size_t)frames);
  se_bf_destroy(f.inst);
  fclose(in);
  return status;
}
