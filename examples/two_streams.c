/* Two streams at the same time, each in a thread of its own: one hears sound microphones, the other
 * one loses a microphone for a while.
 *
 *     cc two_streams.c -o two_streams -ltm_se_bf_stream -pthread
 *
 * two_streams IN SOUND FAULTY: raw two-channel 16-bit PCM at 16 kHz in, raw mono PCM out, from IN
 * played over and over for nine seconds. In the stream that writes FAULTY, microphone 1 is dead
 * from 2 s to 4 s. What the streams tell of that is printed at the end. */
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <tm_se_bf_stream.h>

enum { RATE = 16000, CHANNELS = 2, FRAMES = 480, SECONDS = 9, MAX_EVENTS = 16 };
enum { DEAD_FROM = 2 * RATE, DEAD_TO = 4 * RATE };

typedef struct job {
  const char *name;
  const int16_t *recording; /* [frames][CHANNELS] */
  size_t frames;
  int faulty;
  se_bf_stream *stream;
  FILE *out;
  size_t event_count;
  se_bf_stream_event events[MAX_EVENTS];
} job;

static int fail(const char *what) {
  fprintf(stderr, "two_streams: %s\n", what);
  return EXIT_FAILURE;
}

/* Runs in the thread of the stream, in between its samples: it takes a note and returns. */
static void note(void *user, const se_bf_stream_event *event) {
  job *j = user;
  if (j->event_count < MAX_EVENTS) {
    j->events[j->event_count++] = *event;
  }
}

static void *run(void *user) {
  job *j = user;
  int16_t microphones[CHANNELS * FRAMES];
  int16_t enhanced[FRAMES];
  for (size_t at = 0; at < SECONDS * RATE; at += FRAMES) {
    for (size_t n = 0; n < FRAMES; ++n) {
      const int16_t *sample = j->recording + (at + n) % j->frames * CHANNELS;
      const int dead = j->faulty && at + n >= DEAD_FROM && at + n < DEAD_TO;
      microphones[CHANNELS * n] = sample[0];
      microphones[CHANNELS * n + 1] = dead ? 0 : sample[1];
    }
    se_bf_stream_process_s16(j->stream, microphones, FRAMES, enhanced);
    fwrite(enhanced, sizeof(int16_t), FRAMES, j->out);
  }
  return NULL;
}

static int open_job(job *j, const char *path) {
  se_bf_stream_config config;
  se_bf_stream_config_init(&config);
  config.rate = RATE;
  config.on_event = note;
  config.user = j;
  const char *error = NULL;
  j->stream = se_bf_stream_open(&config, &error);
  if (j->stream == NULL) {
    return fail(error);
  }
  j->out = fopen(path, "wb");
  return j->out != NULL ? EXIT_SUCCESS : fail("cannot write SOUND or FAULTY");
}

static void print_events(const job *j) {
  for (size_t i = 0; i < j->event_count; ++i) {
    const se_bf_stream_event *event = &j->events[i];
    const double since = (double)event->since / RATE;
    if (event->kind == SE_BF_STREAM_DEAD) {
      printf("%s: microphone %d is dead since %.2f s\n", j->name, (int)event->mic, since);
    } else if (event->kind == SE_BF_STREAM_HEALED) {
      printf("%s: both microphones are sound since %.2f s\n", j->name, since);
    } else {
      printf("%s: event %d since %.2f s\n", j->name, (int)event->kind, since);
    }
  }
}

int main(int argc, char **argv) {
  static int16_t recording[CHANNELS * SECONDS * RATE];
  static job jobs[] = {{.name = "sound"}, {.name = "faulty", .faulty = 1}};
  FILE *in = argc == 4 ? fopen(argv[1], "rb") : NULL;
  const size_t frames =
      in == NULL ? 0 : fread(recording, CHANNELS * sizeof(int16_t), SECONDS * RATE, in);
  if (frames == 0) {
    return fail("usage: two_streams IN SOUND FAULTY; IN must exist and hold sound");
  }
  fclose(in);
  pthread_t threads[2];
  for (int i = 0; i < 2; ++i) {
    jobs[i].recording = recording;
    jobs[i].frames = frames;
    if (open_job(&jobs[i], argv[2 + i]) != EXIT_SUCCESS) {
      return EXIT_FAILURE;
    }
    if (pthread_create(&threads[i], NULL, run, &jobs[i]) != 0) {
      return fail("cannot start a thread");
    }
  }
  int status = EXIT_SUCCESS;
  for (int i = 0; i < 2; ++i) {
    pthread_join(threads[i], NULL);
    print_events(&jobs[i]);
    status = fclose(jobs[i].out) == 0 ? status : fail("writing failed");
    se_bf_stream_close(jobs[i].stream);
  }
  return status;
}
