/** @file
 * Speech enhancement of live and recorded streams: the public interface of libtm_se_bf_stream.so.
 *
 * A stream takes interleaved sound with one or two microphones, at any rate from 8 to 192 kHz and
 * in pieces of any length, and gives back as many enhanced mono samples. A process may have any
 * number of streams: they share nothing.
 *
 * @par Two ways to use a stream
 * - Live, se_bf_stream_process_*: every call gives as many samples as it takes, late by
 *   se_bf_stream_latency() samples. For audio callbacks.
 * - Aligned, se_bf_stream_push_* ... se_bf_stream_finish_*: output sample i belongs to input sample
 *   i, and as many samples come out as went in. For files and pipes.
 *
 * The 16-bit and the float functions may alternate on one stream.
 *
 * @par Samples
 * Floats have a full scale of 1, and NaN and infinities count as silence (SE_BF_STREAM_NOT_FINITE
 * tells of them). The enhancement itself works on 16 bits at 16 kHz: it is there, and nowhere
 * before, that louder floats saturate. The beamformer raises the talker by up to 3 dB. Behind the
 * shield it has that headroom: floats may exceed full scale, and the 16-bit functions give 3 dB
 * less than the float functions in SE_BF_MODE_MVDR, about the level of the input. The band above 8
 * kHz is never louder than in the input; at rates other than 16 kHz the input is limited to 60 dB
 * above full scale. At 16 kHz nothing else changes a bit: a `plain` stream in a mode of the core
 * gives the samples of se_bf_do (see tm_se_bf.h) with 320 samples a call.
 *
 * @par Latency
 * Constant for the life of a stream, and the same in every mode. At 16 kHz it is 320 samples of
 * the block plus the delay of the signal: 256 samples with hop 160, 192 with hop 192 or 320. A
 * stream of two channels that is opened `plain` in SE_BF_MODE_MONO has only the 320 samples. Other
 * rates add their filters.
 *
 * @par Shielding
 * Two channels, every mode but SE_BF_MODE_MONO, not `plain`:
 * - The output is silence until both microphones carry sound at comparable levels, for 0.2 s of
 *   sound at most: a dead microphone does not hold the other one up. SE_BF_STREAM_REFINED does not
 *   wait.
 * - Digital silence in both channels, beyond what empties the signal path, is bridged: the output
 *   is silence, and the noise estimate and the beamformer stay as they were.
 * - SE_BF_STREAM_REFINED leaves a dead microphone out at once, takes it back at once, and matches
 *   levels that differ.
 * - Channels that carry the same sound but for a factor, such as one input with reversed polarity,
 *   are one microphone: the louder one is used alone. SE_BF_STREAM_REFINED does this with `plain`,
 *   too.
 * - A microphone that gives zeros is left out at once.
 * - A dead microphone, identical or copied channels make the beamformer suppress noise as with one
 *   microphone. Once both have been sound for 2 s, a beamformer that has heard the last second
 *   takes over again. SE_BF_MODE_OMLSA, too, comes back to both microphones in this way.
 * - The beamformer does not clip inside: it gets its input 3 dB lower.
 * - SE_BF_MODE_MEAN gives the mean of the microphones that work, at once. A plain stream suppresses
 * noise while one is dead or both channels are identical, also in this mode.
 * - Levels of the microphones that happen to be equal, a fault to a plain stream, change nothing.
 *
 * @par Memory and real time
 * se_bf_stream_open allocates everything, 278 KiB at 16 kHz and 0.3 to 1.8 MB at other rates, for
 * which it also computes filters (a few milliseconds). No function but open and close calls the
 * heap or the operating system, takes a lock or prints. se_bf_stream_reset sets up an instance of
 * the core, about the work of 13 blocks of 20 ms. After a change, and after a microphone has
 * healed, two blocks cost up to ten times, and for half a second each block four times as much as
 * an ordinary one; while a setting keeps changing this goes on.
 *
 * @par Threads
 * Calls on one stream come from one thread at a time. Different streams need no care.
 *
 * @par Floating point
 * The calling thread rounds to nearest and has no floating-point traps enabled.
 *
 * @par Null
 * Every function takes null for every pointer: without a stream or a buffer it does nothing and
 * returns 0, a null pointer or SE_BF_STREAM_ERROR_NULL.
 *
 * @par Example
 * @code{.c}
 *   const char *error;
 *   se_bf_stream_config config;
 *   se_bf_stream_config_init(&config);
 *   config.rate = 48000;
 *   se_bf_stream *stream = se_bf_stream_open(&config, &error);
 *   if (stream == NULL) {
 *     fprintf(stderr, "%s\n", error);
 *     return 1;
 *   }
 *   float in[2 * 480];
 *   float out[480];
 *   while (fread(in, sizeof in, 1, microphones) == 1) {
 *     se_bf_stream_process_f32(stream, in, 480, out);
 *     fwrite(out, sizeof out, 1, enhanced);
 *   }
 *   se_bf_stream_close(stream);
 *   return 0;
 * @endcode
 */
#ifndef TM_SE_BF_STREAM_H
#define TM_SE_BF_STREAM_H

#include <stddef.h>
#include <stdint.h>

#include "tm_se_bf.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Modes besides SE_BF_MODE_*. */
enum {
  SE_BF_STREAM_AUTO = 0,   /**< what suits most callers: the same as SE_BF_STREAM_REFINED with hop
                                0 or 320, and as SE_BF_MODE_OMLSA with other hops */
  SE_BF_STREAM_REFINED = 1 /**< the best quality, hop 320 only: finds the talker, aligns the
                                microphones on him, suppresses noise in two steps and late
                                reverberation a little */
};

/** Range of se_bf_stream_config.rate, in Hz. */
enum { SE_BF_STREAM_MIN_RATE = 8000, SE_BF_STREAM_MAX_RATE = 192000 };

/** Largest se_bf_stream_config.mic_distance, in metres. */
enum { SE_BF_STREAM_MAX_DISTANCE = 10 };

/** Kinds of events. */
enum {
  SE_BF_STREAM_DEAD = 0,         /**< a microphone is silent, or 40 dB weaker than the other */
  SE_BF_STREAM_IDENTICAL = 1,    /**< both channels carry the same samples */
  SE_BF_STREAM_EQUAL_LEVELS = 2, /**< different channels met at one level (plain MEAN, MVDR only) */
  SE_BF_STREAM_SILENT = 3,       /**< both channels are digital silence (plain MEAN, MVDR only) */
  SE_BF_STREAM_HEALED = 4,       /**< both microphones have been sound for 2 s */
  SE_BF_STREAM_NOT_FINITE = 5,   /**< samples that are no numbers, told once in 20 ms */
  SE_BF_STREAM_COPIES = 6        /**< both channels carry the same sound but for a factor; told in
                                      every mode but MONO, unless `plain`; REFINED always tells */
};

/** Results of se_bf_stream_change and se_bf_stream_direction besides 0. */
enum {
  SE_BF_STREAM_ERROR_NULL = -1,    /**< no stream or no config */
  SE_BF_STREAM_ERROR_CONFIG = -2,  /**< a field that se_bf_stream_open would refuse */
  SE_BF_STREAM_ERROR_FIXED = -3,   /**< rate, channels or hop differ from those of the stream */
  SE_BF_STREAM_ERROR_LATENCY = -4, /**< the stream was opened plain in SE_BF_MODE_MONO, without the
                                        delay that the mode needs */
  SE_BF_STREAM_ERROR_MODE = -5     /**< the mode at work follows no direction */
};

/** One stream; its content is private to the library. */
typedef struct se_bf_stream se_bf_stream;

/** What happened. Times are in input samples per channel, at the rate of the stream, since it was
 * opened or reset.
 *
 * Those of NOT_FINITE are exact. The others count blocks of 20 ms: `since` is within 20 ms at
 * 16 kHz, and within 30 ms at other rates.
 *
 * A dead microphone is found 0.4 to 0.9 s after it died, identical channels after 2 to 3.2 s.
 * Copied channels are found after 0.2 s of sound where they differ by less than -40 dB but for the
 * factor, after 1.2 s where that is -30 dB. What ends sooner gives no event. */
typedef struct se_bf_stream_event {
  int32_t kind;        /**< SE_BF_STREAM_DEAD ... SE_BF_STREAM_NOT_FINITE */
  int32_t mic;         /**< DEAD: microphone 0 or 1; NOT_FINITE: that of the first such sample;
                            COPIES: the louder one, which is used alone */
  int64_t time;        /**< first sample of the 20 ms in which it was found */
  int64_t since;       /**< start of the block of 20 ms in which it began, as far as the sound
                            before tells; for NOT_FINITE the first such sample */
  int32_t beamforming; /**< HEALED: 1 when the mode is SE_BF_MODE_MVDR and the beamformer works, or
                            takes over again within half a second of sound */
  int32_t count;       /**< NOT_FINITE: such samples in the 20 ms, of all channels; else 0 */
} se_bf_stream_event;

/** Settings of a stream. Fill them by se_bf_stream_config_init first. */
typedef struct se_bf_stream_config {
  /** sizeof(se_bf_stream_config): later versions append fields. Of a config that is larger than
   * this version's, the bytes beyond must be 0, at most 4096 in all. */
  uint32_t size;
  /** Samples per second of input and output, 8000 to 192000. Default: 16000. */
  int32_t rate;
  /** Interleaved input channels: 1 or 2. Default: 2. */
  int32_t channels;
  /** SE_BF_STREAM_* or SE_BF_MODE_*. With one channel every mode is SE_BF_MODE_OMLSA, except that
   * SE_BF_MODE_MONO copies unless `plain`, and that SE_BF_STREAM_AUTO and _REFINED stay. Default:
   * SE_BF_STREAM_AUTO. */
  int32_t mode;
  /** Analysis hop in samples at 16 kHz: 160, 192, 320, or 0 for 320. Default: 0.
   * SE_BF_STREAM_REFINED takes 0 and 320; SE_BF_STREAM_AUTO takes all. */
  int32_t hop;
  /** Spacing of the microphones in metres, 0 to 10; 0: the direction is unknown. It and `doa` count
   * in SE_BF_MODE_MVDR and the refined path alone. Default: 0. */
  float mic_distance;
  /** Direction of the talker in degrees, finite: 0 is on the line of the microphones on the side of
   * microphone 0, 90 is broadside. Not read with mic_distance 0. SE_BF_STREAM_REFINED finds the
   * talker where mic_distance is 0; with NaN here as well, and then se_bf_stream_direction knows
   * degrees. Default: 90. */
  float doa;
  /** 1: no shielding, the enhancement as it is; 0: shielding. Default: 0. */
  int32_t plain;
  /** 1: keeps what lies above 8 kHz, at rates above 16 kHz; 0: removes it. Default: 1. */
  int32_t full_band;
  /** Called with each event from within process, push and finish; may be null. It must not call
   * functions of the same stream. The event is valid during the call. Default: null. */
  void (*on_event)(void *user, const se_bf_stream_event *event);
  /** Handed to on_event. Default: null. */
  void *user;
  /** SE_BF_STREAM_REFINED: most that a sound is attenuated, in decibels, 0 to 60; 0: no limit.
   * Default: 0. */
  float max_attenuation_db;
  /** For a later version; 0. */
  int32_t reserved;
} se_bf_stream_config;

/** Where the talker is, as SE_BF_STREAM_REFINED with two channels knows it. */
typedef struct se_bf_stream_direction_info {
  float delay_us;   /**< by which he is heard later at microphone 1 than at microphone 0 */
  float confidence; /**< 0: nothing found yet, the microphones are mixed without delay, or with that
                         of the setting before; up to 1: all frequencies agree. Below 0.15 a search
                         has no effect. 1 where mic_distance and doa say it */
  float degrees;    /**< the same direction as in `doa`; NaN where mic_distance is 0 */
  int32_t alone;    /**< microphone that is used alone, because the other one is dead or both carry
                         the same sound but for a factor; -1: both are used */
} se_bf_stream_direction_info;

/** Writes the defaults, `size` included. */
SE_BF_API void se_bf_stream_config_init(se_bf_stream_config *config);

/** Makes a stream. Returns null when a field is out of range or memory lacks; `error` (may be null)
 * is then set to a static text that names the field and its range, else to null. */
SE_BF_API se_bf_stream *se_bf_stream_open(const se_bf_stream_config *config, const char **error);

/** Samples, at the rate of the stream, by which the process functions delay the signal. */
SE_BF_API int32_t se_bf_stream_latency(const se_bf_stream *stream);

/** Takes `frames` samples per channel, interleaved, and writes `frames` mono samples,
 * se_bf_stream_latency() samples late. `out` may be `in`. */
SE_BF_API void se_bf_stream_process_s16(se_bf_stream *stream, const int16_t *in, size_t frames,
                                        int16_t *out);
/** The same with floats. */
SE_BF_API void se_bf_stream_process_f32(se_bf_stream *stream, const float *in, size_t frames,
                                        float *out);

/** Takes `frames` samples per channel, interleaved, and returns the number of aligned samples
 * written to `out`, which has room for `frames`: the process functions without their first
 * se_bf_stream_latency() samples. `out` may be `in`. */
SE_BF_API size_t se_bf_stream_push_s16(se_bf_stream *stream, const int16_t *in, size_t frames,
                                       int16_t *out);
/** The same with floats. */
SE_BF_API size_t se_bf_stream_push_f32(se_bf_stream *stream, const float *in, size_t frames,
                                       float *out);

/** Ends the sound: feeds silence, writes the samples that are still inside (at most
 * se_bf_stream_latency(), for which `out` has room) and returns their number. The stream is then
 * as after se_bf_stream_reset. */
SE_BF_API size_t se_bf_stream_finish_s16(se_bf_stream *stream, int16_t *out);
/** The same with floats. */
SE_BF_API size_t se_bf_stream_finish_f32(se_bf_stream *stream, float *out);

/** Changes mode, mic_distance, doa, plain, full_band, max_attenuation_db, on_event and user while
 * the stream runs.
 * Returns 0, or a negative SE_BF_STREAM_ERROR_* when refused; nothing has changed then.
 *
 * The new setting starts beside the old one, hears the last second of sound at three times the
 * speed, and is cross-faded in over 20 ms, about half a second after the call; SE_BF_MODE_MONO,
 * where it copies, hears nothing first and is there in less than 90 ms. What later calls ask for
 * meanwhile is started then, the newest alone: a direction that keeps moving is followed half a
 * second to a second late. If they have gone back to the setting that is heard, it stays. The
 * latency stays, too: SE_BF_MODE_MONO is delayed like the rest. Only a stream that was opened plain
 * in SE_BF_MODE_MONO cannot change to other modes. full_band, max_attenuation_db, on_event and user
 * change at once. From one refined setting to another the stream keeps what it knows of the
 * talker's direction and of the microphones' levels. */
SE_BF_API int32_t se_bf_stream_change(se_bf_stream *stream, const se_bf_stream_config *config);

/** Tells where the talker is. Returns 0, or SE_BF_STREAM_ERROR_NULL, or SE_BF_STREAM_ERROR_MODE
 * when the stream is not refined or has one channel; `info` is untouched then. */
SE_BF_API int32_t se_bf_stream_direction(const se_bf_stream *stream,
                                         se_bf_stream_direction_info *info);

/** Forgets all sound: the stream is as just opened, with the settings of the last change and the
 * latency that it has. */
SE_BF_API void se_bf_stream_reset(se_bf_stream *stream);

/** Releases the stream. */
SE_BF_API void se_bf_stream_close(se_bf_stream *stream);

/** Version of the library as text: "2.0.0". */
SE_BF_API const char *se_bf_stream_version(void);

#ifdef __cplusplus
}
#endif

#endif /* TM_SE_BF_STREAM_H */
