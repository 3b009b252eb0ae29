/** @file
 * Speech enhancement with one or two microphones: the public interface of libtm_se_bf.so.
 *
 * An instance takes blocks of interleaved 16-bit PCM at 16 kHz and returns as many enhanced mono
 * samples at a fixed latency. All of its memory comes from one static pool inside the library.
 *
 * @par Calling order
 * se_bf_create -> se_bf_init (once) -> se_bf_do (any number of times) -> se_bf_destroy;
 * se_bf_change_mode may be called between two calls of se_bf_do.
 *
 * @par Block size
 * se_bf_do consumes and produces `samples_per_call` samples per channel: a positive multiple of
 * 320 (20 ms). Call with 320: the levels that reveal a dead microphone are updated once per call,
 * and it takes about 44 calls to notice one. That is 0.9 s with blocks of 320, but 7 s with blocks
 * of 2560.
 *
 * @par Latency
 * se_bf_init returns N/2 + (320 - L) for hop L and FFT length N (256 for L = 192). The signal
 * itself is delayed by (N - L) + (320 - L): 192 samples for L = 192, 256 for 160, 192 for 320.
 * Align by this delay. Mode SE_BF_MODE_MONO has none.
 *
 * @par Memory and instances
 * The pool holds 102400 bytes. Nothing is allocated while processing. Two calls empty the whole
 * pool, so that every instance of the process is dead: se_bf_destroy of any handle but null, and
 * se_bf_create with a channel count other than 1 or 2. Use one instance at a time per process:
 * create, init, destroy, in this order.
 *
 * @par Null and dead handles
 * A dead handle is one whose instance was destroyed or lost with the pool. Every function
 * recognises null and dead handles without reading through them. A dead handle stays recognisable
 * until a new instance is made, which may get the same address. Each function below says what it
 * does with such handles. A message is one line on standard error; se_bf_do and se_bf_change_mode
 * print each of theirs once until the next instance is made.
 *
 * @par Threads
 * There are no locks. At any time only one thread of a process may call the library.
 *
 * @par Floating point
 * The calling thread must round to nearest and have no floating-point traps enabled: other
 * roundings change the output, and traps end the process. Flushing denormals to zero changes no bit
 * as long as the mode stays; after a change from SE_BF_MODE_OMLSA to SE_BF_MODE_MVDR it may.
 *
 * @par Standard output
 * The library prints notes and the self-test's report on standard output. If you close descriptor
 * 1, open /dev/null in its place: otherwise another file may get the descriptor, and the notes.
 *
 * @par Microphone faults
 * The samples of a dead microphone are overwritten in the input buffer with those of the other one,
 * and from then on the instance analyses channel 0 only. Silence in both channels at the start
 * counts as a fault, and so do exactly equal levels. Identical channels always have them, and
 * well-matched microphones have them by chance, on quiet noise a few times a minute. To beamform
 * again, destroy the instance and create a new one. The levels belong to the process and are not
 * reset.
 *
 * @par Refused configurations
 * Supported hops are 160, 192 and 320. If a configuration cannot be streamed, se_bf_init says why
 * on standard error, and se_bf_do writes silence.
 *
 * @par Example
 * @code{.c}
 *   se_bf_create_param sizes = {2, 320, 0};
 *   se_bf_init_param scene = {SE_BF_MODE_MVDR, 0.05f, 90.0f};
 *   int16_t in[2 * 320];
 *   int16_t out[320];
 *   se_bf_inst *inst = se_bf_create(&sizes);
 *   if (inst == NULL) {
 *     return 1;
 *   }
 *   se_bf_init(inst, &scene);
 *   while (fread(in, sizeof in, 1, microphones) == 1) {
 *     se_bf_do(inst, out, in);
 *     fwrite(out, sizeof out, 1, enhanced);
 *   }
 *   se_bf_destroy(inst);
 *   return 0;
 * @endcode
 */
#ifndef TM_SE_BF_H
#define TM_SE_BF_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define SE_BF_API __attribute__((visibility("default")))
#else
#define SE_BF_API
#endif

/** Processing modes. Any other value passes channel 0 through the block buffer, delayed by 320 - L
 * samples. Only the low 16 bits of a mode count: 6000 + 65536 is the same mode as 6000. */
enum {
  SE_BF_MODE_MEAN = 6000,  /**< mean of the channels, through analysis and synthesis unchanged */
  SE_BF_MODE_OMLSA = 6001, /**< mean of the channels, noise suppressed */
  SE_BF_MODE_MVDR = 6002,  /**< two-microphone beamformer with post-filter */
  SE_BF_MODE_MONO = 6003   /**< channel 0, sample for sample, no delay */
};

/** One instance; its content is private to the library. */
typedef struct se_bf_inst se_bf_inst;

/** Sizes, read once by se_bf_create. */
typedef struct se_bf_create_param {
  /** Interleaved input channels: 1 or 2. */
  int16_t num_ch_in;
  /** Samples per channel of one se_bf_do call: a positive multiple of 320. */
  int32_t samples_per_call;
  /** Analysis hop in samples: 160, 192 or 320; below 1 selects 192. From 1 up only the low 16 bits
   * count: 65536 + 160 is 160, but 65536 is a refused hop of 0. */
  int32_t hop_len;
} se_bf_create_param;

/** Mode and geometry, read once by se_bf_init. */
typedef struct se_bf_init_param {
  /** One of SE_BF_MODE_*; a one-channel instance always runs SE_BF_MODE_OMLSA. */
  int32_t mode;
  /** Spacing of the microphones in metres. If it is 0 or negative, or if doa is not finite, no
   * direction is preferred at the start. */
  float mic_distance;
  /** Direction of the talker in degrees: 0 is on the line of the microphones on the side of
   * microphone 0, 90 is broadside, 180 is on the side of microphone 1. */
  float doa;
} se_bf_init_param;

/** Makes an instance. Returns null and prints a message in three cases:
 * - the channel count is not 1 or 2: on standard output; this empties the pool;
 * - the pool cannot hold the instance record: on standard error; the pool stays as it is;
 * - `param` is null: on standard error; the pool stays as it is.
 *
 * An instance whose record fits but not the rest is returned; se_bf_init then refuses it. */
SE_BF_API se_bf_inst *se_bf_create(const se_bf_create_param *param);

/** Sets mode and geometry and returns the nominal latency in samples (see Latency above). If the
 * instance cannot be streamed, says on standard error why, and what to do. Call it once per
 * instance: each call takes memory from the pool again. With a null `param`, or a null or dead
 * `inst`, returns 0, changes nothing, and says so on standard error each time. */
SE_BF_API int32_t se_bf_init(se_bf_inst *inst, const se_bf_init_param *param);

/** Processes one block and returns `samples_per_call`, also when it writes silence.
 * out: samples_per_call mono samples. in: samples_per_call * num_ch_in interleaved samples, channel
 * 0 first; one channel of it is overwritten with the other when a microphone is found dead.
 *
 * With a null `out` or `in`, does nothing, returns `samples_per_call` and says so (once). With a
 * null or dead `inst`, does nothing, returns 0 and says so (once); a loop that adds up the returned
 * samples must stop at 0. */
SE_BF_API int32_t se_bf_do(se_bf_inst *inst, int16_t *out, int16_t *in);

/** Changes the mode of a two-channel instance from the next se_bf_do on; a one-channel instance
 * stays in SE_BF_MODE_OMLSA without a message. An instance that was initialised in SE_BF_MODE_MEAN
 * or SE_BF_MODE_OMLSA still analyses one channel only: initialise in SE_BF_MODE_MVDR to be able to
 * beamform later. With a null or dead `inst`, does nothing and says so (once). */
SE_BF_API void se_bf_change_mode(se_bf_inst *inst, int32_t mode);

/** Releases the instance and with it the whole pool. Null does nothing. A dead handle empties the
 * pool too, without a message: a live instance is then lost. */
SE_BF_API void se_bf_destroy(se_bf_inst *inst);

/** Version of the library as text: "1.3.5". */
SE_BF_API const char *se_bf_get_version(void);

/** Runs the stored two-channel recording through a fresh instance and prints timing and similarity
 * to the stored reference on standard output; destroys every other instance of the process.
 * se_type: "bf_mean", "bf_omlsa", "bf_mvdr" or "bf_mono"; any other text, or null, runs mode 0.
 * hop_len: as in se_bf_create_param. Returns the number of characters of the last printed line, not
 * a verdict.
 *
 * The test starts from the current microphone levels of the process. After loud calls with a dead
 * microphone its first call can count as a fault. The similarity of "bf_mvdr" then falls below 0.8
 * although the library works. Run the test before other calls, or in a process of its own. */
SE_BF_API int32_t se_bf_conformance_test(const char *se_type, int32_t hop_len);

#ifdef __cplusplus
}
#endif

#endif /* TM_SE_BF_H */
