/* Changes the mode while the sound goes on: the best quality, one microphone as it is, noise
 * suppression, beamformer, 0.8 s each, over and over.
 *
 *     cc switch_modes.c -o switch_modes -ltm_se_bf_stream
 *
 * switch_modes IN OUT: raw two-channel 16-bit PCM at 16 kHz in, raw mono PCM out.
 *
 * A change is prepared beside the sound and faded in about half a second later, without a gap. The
 * output is aligned: sample i belongs to sample i of the input in every mode. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <tm_se_bf_stream.h>

/* MAX_LATENCY: samples at any rate. */
enum { CHANNELS = 2, FRAMES = 480, FRAMES_PER_MODE = 12800, MAX_LATENCY = 10000 };

static const int32_t MODES[] = {SE_BF_STREAM_REFINED, SE_BF_MODE_MONO, SE_BF_MODE_OMLSA,
                                SE_BF_MODE_MVDR};
enum { MODE_COUNT = sizeof MODES / sizeof MODES[0] };

static int fail(const char *what) {
  fprintf(stderr, "switch_modes: %s\n", what);
  return EXIT_FAILURE;
}

static int enhance(se_bf_stream *stream, se_bf_stream_config *config, FILE *in, FILE *out) {
  int16_t microphones[CHANNELS * FRAMES];
  int16_t enhanced[MAX_LATENCY];
  size_t frames = 0;
  size_t total = 0;
  while ((frames = fread(microphones, CHANNELS * sizeof(int16_t), FRAMES, in)) > 0) {
    const int32_t mode = MODES[total / FRAMES_PER_MODE % MODE_COUNT];
    if (mode != config->mode) {
      config->mode = mode;
      se_bf_stream_change(stream, config);
    }
    const size_t ready = se_bf_stream_push_s16(stream, microphones, frames, enhanced);
    fwrite(enhanced, sizeof(int16_t), ready, out);
    total += frames;
  }
  const size_t rest = se_bf_stream_finish_s16(stream, enhanced);
  fwrite(enhanced, sizeof(int16_t), rest, out);
  return !ferror(in) && fclose(out) == 0 ? EXIT_SUCCESS : fail("reading or writing failed");
}

int main(int argc, char **argv) {
  FILE *in = argc == 3 ? fopen(argv[1], "rb") : NULL;
  FILE *out = in == NULL ? NULL : fopen(argv[2], "wb");
  if (in == NULL || out == NULL) {
    return fail("usage: switch_modes IN OUT; IN must exist, and OUT be writable");
  }
  se_bf_stream_config config;
  se_bf_stream_config_init(&config);
  config.mode = MODES[0];
  const char *error = NULL;
  se_bf_stream *stream = se_bf_stream_open(&config, &error);
  if (stream == NULL) {
    return fail(error);
  }
  const int status = se_bf_stream_latency(stream) <= MAX_LATENCY
                         ? enhance(stream, &config, in, out)
                         : fail("the latency is longer than expected");
  se_bf_stream_close(stream);
  fclose(in);
  return status;
}
