/* Serves a caller whose blocks have any length, at any rate, as audio callbacks do.
 *
 *     cc any_block_size.c -o any_block_size -ltm_se_bf_stream
 *
 * any_block_size IN OUT RATE FRAMES: raw two-channel 16-bit PCM at RATE Hz in, raw mono PCM out,
 * handled in blocks of FRAMES samples per channel.
 *
 * Every call returns as many samples as it takes. The sound is late by the latency of the stream,
 * so that OUT begins with it and the end of the sound is missing; push and finish, as in
 * switch_modes.c, keep both in step. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <tm_se_bf_stream.h>

enum { CHANNELS = 2, MAX_FRAMES = 65536 };

static int fail(const char *what) {
  fprintf(stderr, "any_block_size: %s\n", what);
  return EXIT_FAILURE;
}

static int enhance(se_bf_stream *stream, FILE *in, FILE *out, size_t frames) {
  static int16_t microphones[CHANNELS * MAX_FRAMES];
  static int16_t enhanced[MAX_FRAMES];
  size_t count = 0;
  while ((count = fread(microphones, CHANNELS * sizeof(int16_t), frames, in)) > 0) {
    se_bf_stream_process_s16(stream, microphones, count, enhanced);
    fwrite(enhanced, sizeof(int16_t), count, out);
  }
  return !ferror(in) && fclose(out) == 0 ? EXIT_SUCCESS : fail("reading or writing failed");
}

int main(int argc, char **argv) {
  const long frames = argc == 5 ? atol(argv[4]) : 0;
  if (frames < 1 || frames > MAX_FRAMES) {
    return fail("usage: any_block_size IN OUT RATE FRAMES, with FRAMES from 1 to 65536");
  }
  FILE *in = fopen(argv[1], "rb");
  FILE *out = in == NULL ? NULL : fopen(argv[2], "wb");
  if (in == NULL || out == NULL) {
    return fail("cannot open IN or OUT");
  }
  se_bf_stream_config config;
  se_bf_stream_config_init(&config);
  config.rate = (int32_t)atol(argv[3]);
  const char *error = NULL;
  se_bf_stream *stream = se_bf_stream_open(&config, &error);
  if (stream == NULL) {
    return fail(error);
  }
  printf("latency: %d samples\n", (int)se_bf_stream_latency(stream));
  const int status = enhance(stream, in, out, (size_t)frames);
  se_bf_stream_close(stream);
  fclose(in);
  return status;
}
