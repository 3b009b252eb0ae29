// The order of the steps, and samples to spectra and back.
#include "refined_path.h"

#include <cmath>
#include <cstring>

#include "fixed_maths.h"
#include "phase_ramp.h"
#include "support/pcm_pair.h"
#include "support/pool_vector.h"
#include "support/se_maths.h"
#include "support/se_vector.h"

namespace {

constexpr float kSampleRateHz = 16000.0f;
constexpr float kSpeedOfSoundMps = 343.0f;
constexpr float kDegreesPerRadian = 57.2957795f;

// Natural logarithm of an amplitude ratio of 1 dB.
constexpr double kLogPerDb = 0.115129254649702284;

// A frame reaches over two blocks: after as many of digital silence it is silent.
constexpr int32_t kSilentFrame = 2;

// Arguments of do_ss that it does not read.
constexpr int32_t kUnreadMode = 0;
constexpr float kUnreadGainMinDb = 0.0f;

constexpr float kLargestWord = 32767.0f;
constexpr float kSmallestWord = -32768.0f;

// Added and taken away again it rounds a float of less than 2^22 to the nearest integer, half to
// even.
constexpr float kRounder = 12582912.0f;  // 1.5 * 2^23

SE_BF_VECTOR_CLONES void one_to_floats(const int16_t *__restrict block, float *__restrict x) {
  for (int32_t n = 0; n < kRefinedHop; ++n) {
    x[n] = static_cast<float>(block[n]);
  }
}

SE_BF_VECTOR_CLONES void two_to_floats(const int16_t *__restrict block, float *__restrict x,
                                       float *__restrict y) {
  for (int32_t n = 0; n < kRefinedHop; ++n) {
    const pcm_pair pair = pcm_pair_at(block, n);
    x[n] = static_cast<float>(pair.first);
    y[n] = static_cast<float>(pair.second);
  }
}

SE_BF_VECTOR_CLONES void to_words(const float *__restrict x, int16_t *__restrict out) {
  for (int32_t n = 0; n < kRefinedHop; ++n) {
    const float below = x[n] < kLargestWord ? x[n] : kLargestWord;
    const float within = below > kSmallestWord ? below : kSmallestWord;
    out[n] = static_cast<int16_t>(static_cast<int32_t>((within + kRounder) - kRounder));
  }
}

SE_BF_VECTOR_CLONES void split_parts(const float *__restrict packed, float *__restrict re,
                                     float *__restrict im) {
  for (int32_t k = 0; k < kRefinedBins; ++k) {
    re[k] = packed[2 * k];
    im[k] = packed[2 * k + 1];
  }
}

SE_BF_VECTOR_CLONES void power_of(const bin_spectrum *x, float *__restrict power) {
  for (int32_t k = 0; k < kRefinedBins; ++k) {
    power[k] = x->re[k] * x->re[k] + x->im[k] * x->im[k];
  }
}

// y = (floor + (1 - floor) E G) z
SE_BF_VECTOR_CLONES void apply_gain(const bin_spectrum *z, const float *__restrict squared_gain,
                                    float pause, float floor, float *__restrict packed) {
  const float rest = (1.0f - floor) * pause;
  for (int32_t k = 0; k < kRefinedBins; ++k) {
    const float gain = floor + rest * se_sqrt(squared_gain[k]);
    packed[2 * k] = gain * z->re[k];
    packed[2 * k + 1] = gain * z->im[k];
  }
}

// Slot 0 holds DC and Nyquist, which carry no speech.
void unpack(const float *packed, bin_spectrum *x) {
  split_parts(packed, x->re, x->im);
  x->re[0] = 0.0f;
  x->im[0] = 0.0f;
}

// Reads the block, with two channels made fit to be combined.
void read_block(refined_path *path, const int16_t *block, const block_facts *facts) {
  float *first = path->samples;
  if (path->setting.channels == 1) {
    one_to_floats(block, first);
    return;
  }
  float *second = first + kRefinedHop;
  two_to_floats(block, first, second);
  path->alone = channel_guard_block(&path->guard, facts, first, second);
}

// Where one channel stands for both there is nothing to align.
float talker_delay(refined_path *path) {
  if (path->alone != kBothChannels) {
    return 0.0f;
  }
  if (path->setting.direction_known) {
    return path->setting.delay;
  }
  talker_direction_frame(&path->direction, &path->input[0], &path->input[1]);
  return path->direction.delay;
}

void analyse(refined_path *path) {
  stft_time_to_spectrum(path->stft, path->samples, path->packed);
  if (path->setting.channels == 1) {
    unpack(path->packed, &path->mixed);
    power_of(&path->mixed, path->mixed_power);
    copy_floats(path->mean_power, path->mixed_power, kRefinedBins);
    return;
  }
  unpack(path->packed, &path->input[0]);
  unpack(path->packed + kRefinedFft, &path->input[1]);
  const float delay = talker_delay(path);
  channel_mix_frame(&path->mix, &path->input[0], &path->input[1], delay, &path->mixed,
                    path->mixed_power, path->mean_power);
}

void suppress(refined_path *path) {
  const float *noise = mcra_do_mcra(path->noise, path->mean_power);
  const float *prob = mcra_get_speech_prob(path->noise);
  const float *first = do_ss(path->first_gain, path->mean_power, noise, prob);
  second_gain_frame(&path->second, path->mixed_power, first, path->squared_gain, path->over_noise);
  const float pause =
      pause_gain_frame(&path->pause, path->mixed_power, path->over_noise, path->squared_gain);
  apply_gain(&path->mixed, path->squared_gain, pause, path->floor, path->packed);
}

}  // namespace

float refined_delay_of(float mic_distance, float doa) {
  const float cosine = static_cast<float>(std::cos(static_cast<double>(doa / kDegreesPerRadian)));
  return mic_distance * cosine / kSpeedOfSoundMps * kSampleRateHz;
}

float refined_doa_of(float mic_distance, float delay) {
  const float cosine = delay / kSampleRateHz * kSpeedOfSoundMps / mic_distance;
  const float below = cosine < 1.0f ? cosine : 1.0f;
  const float within = below > -1.0f ? below : -1.0f;
  return kDegreesPerRadian * std::acos(within);
}

refined_path *refined_path_create(core_state *core, const refined_setting *setting) {
  tamrin_free_in(core, nullptr);
  core->pwr1 = 0.0f;
  core->pwr2 = 0.0f;
  core->quiet = 1;
  const int32_t size = static_cast<int32_t>(sizeof(refined_path));
  refined_path *path = static_cast<refined_path *>(tamrin_malloc_in(core, size));
  if (path == nullptr) {
    return nullptr;
  }
  path->setting = *setting;
  path->fft = spx_fft_init_in(core, kRefinedFft);
  path->stft = stft_buf_create_in(core, kRefinedFft, kRefinedHop, path->fft, setting->channels);
  return path->fft != nullptr && path->stft != nullptr ? path : nullptr;
}

bool refined_path_init(refined_path *path, core_state *core) {
  if (path == nullptr) {
    return false;
  }
  refined_path_set_limit(path, path->setting.max_attenuation_db);
  path->silent_blocks = kSilentFrame;
  path->alone = kBothChannels;
  path->noise = mcra_init_in(core, kRefinedBins);
  path->first_gain = omlsa_init_in(core, kRefinedBins, kUnreadMode, kUnreadGainMinDb);
  channel_mix_init(&path->mix);
  pause_gain_init(&path->pause);
  const bool searches = path->setting.channels == 2 && !path->setting.direction_known;
  const bool ready = !searches || talker_direction_init(&path->direction, core);
  return ready && path->noise != nullptr && path->first_gain != nullptr;
}

void refined_path_set_limit(refined_path *path, float max_attenuation_db) {
  const double limit_db = static_cast<double>(max_attenuation_db);
  path->setting.max_attenuation_db = max_attenuation_db;
  path->floor = limit_db > 0.0 ? static_cast<float>(fixed_exp(-limit_db * kLogPerDb)) : 0.0f;
}

void refined_path_carry(refined_path *path, const refined_path *from) {
  path->guard = from->guard;
  if (path->setting.direction_known) {
    return;
  }
  talker_direction *own = &path->direction;
  if (from->setting.direction_known) {
    own->delay = from->setting.delay;
    own->target = from->setting.delay;
    return;
  }
  mcra_state *presence = own->presence;
  *own = from->direction;
  own->presence = presence;
}

void refined_path_block(refined_path *path, const int16_t *block, const block_facts *facts,
                        int16_t *out) {
  if (block_has_sound(facts)) {
    path->silent_blocks = 0;
  } else if (path->silent_blocks < kSilentFrame) {
    path->silent_blocks += 1;
  }
  if (path->silent_blocks < kSilentFrame) {
    read_block(path, block, facts);
    analyse(path);
    suppress(path);
  } else {
    std::memset(path->packed, 0, sizeof path->packed);
  }
  stft_spectrum_to_time(path->stft, path->packed, path->samples);
  to_words(path->samples, out);
}
