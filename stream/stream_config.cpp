// Defaults and ranges of the settings.
#include "stream_config.h"

#include <cmath>
#include <cstddef>
#include <cstring>

namespace {

constexpr float kDefaultDoa = 90.0f;  // degrees: the talker is in front

// Size of the config of the first version.
constexpr uint32_t kFirstSize = offsetof(se_bf_stream_config, max_attenuation_db);

constexpr uint32_t kThisSize = sizeof(se_bf_stream_config);
static_assert(offsetof(se_bf_stream_config, reserved) + sizeof(int32_t) == kThisSize,
              "no padding that a later version could take for a field");

// Beyond any version to come: a larger size was never set.
constexpr uint32_t kLargestSize = 4096;

bool is_flag(int32_t value) {
  return value == 0 || value == 1;
}

// Fields of a later version ask for nothing when they are 0.
bool unknown_fields_are_zero(const se_bf_stream_config *config) {
  const unsigned char *bytes = reinterpret_cast<const unsigned char *>(config);
  for (uint32_t i = kThisSize; i < config->size; ++i) {
    if (bytes[i] != 0) {
      return false;
    }
  }
  return true;
}

const char *size_fault(const se_bf_stream_config *config) {
  if (config->size < kFirstSize || config->size > kLargestSize) {
    return "config.size must be sizeof(se_bf_stream_config), which se_bf_stream_config_init sets";
  }
  if (!unknown_fields_are_zero(config)) {
    return "config.size must be that of this version: fields beyond it must be 0";
  }
  return nullptr;
}

bool mode_is_known(int32_t mode) {
  return mode == SE_BF_STREAM_AUTO || mode == SE_BF_STREAM_REFINED ||
         (mode >= SE_BF_MODE_MEAN && mode <= SE_BF_MODE_MONO);
}

bool hop_is_known(int32_t hop) {
  for (const int32_t known : kStreamHops) {
    if (hop == known) {
      return true;
    }
  }
  return false;
}

int32_t hop_of(const se_bf_stream_config *config) {
  return config->hop == 0 ? kStreamDefaultHop : config->hop;
}

// The choice of SE_BF_STREAM_AUTO: the best that the hop allows.
bool is_refined(const se_bf_stream_config *config) {
  return config->mode == SE_BF_STREAM_REFINED ||
         (config->mode == SE_BF_STREAM_AUTO && hop_of(config) == kStreamDefaultHop);
}

const char *direction_fault(const se_bf_stream_config *config) {
  const float distance = config->mic_distance;
  // False for NaN, too.
  const bool in_range =
      distance >= 0.0f && distance <= static_cast<float>(SE_BF_STREAM_MAX_DISTANCE);
  if (!in_range) {
    return "config.mic_distance must be 0 to 10 m";
  }
  const bool searches = is_refined(config) && std::isnan(config->doa);
  if (distance > 0.0f && !std::isfinite(config->doa) && !searches) {
    return "config.doa must be a finite number of degrees where config.mic_distance is above 0, "
           "or NaN with SE_BF_STREAM_REFINED, or with SE_BF_STREAM_AUTO at hop 320";
  }
  return nullptr;
}

// With one channel the core suppresses noise in every mode; only a plain stream wants to hear that.
int32_t mode_at_work(const se_bf_stream_config *config) {
  const bool chosen_here =
      config->mode == SE_BF_STREAM_AUTO || config->mode == SE_BF_STREAM_REFINED;
  const bool copies = config->mode == SE_BF_MODE_MONO && config->plain == 0;
  const bool single = config->channels == 1 && !copies;
  return chosen_here || single ? static_cast<int32_t>(SE_BF_MODE_OMLSA) : config->mode;
}

const char *attenuation_fault(const se_bf_stream_config *config) {
  const float limit = config->max_attenuation_db;
  const bool in_range = limit >= 0.0f && limit <= kMaxAttenuation;
  if (!in_range) {
    return "config.max_attenuation_db must be 0 to 60 dB";
  }
  return config->reserved == 0 ? nullptr : "config.reserved must be 0";
}

const char *field_fault(const se_bf_stream_config *config) {
  if (config->rate < SE_BF_STREAM_MIN_RATE || config->rate > SE_BF_STREAM_MAX_RATE) {
    return "config.rate must be 8000 to 192000 Hz";
  }
  if (config->channels != 1 && config->channels != kStreamMaxChannels) {
    return "config.channels must be 1 or 2";
  }
  if (!mode_is_known(config->mode)) {
    return "config.mode must be SE_BF_STREAM_AUTO, SE_BF_STREAM_REFINED, or SE_BF_MODE_MEAN, "
           "_OMLSA, _MVDR or _MONO";
  }
  if (!hop_is_known(hop_of(config))) {
    return "config.hop must be 0, 160, 192 or 320 samples";
  }
  if (config->mode == SE_BF_STREAM_REFINED && hop_of(config) != kStreamDefaultHop) {
    return "config.hop must be 0 or 320 samples with SE_BF_STREAM_REFINED";
  }
  const char *fault = direction_fault(config);
  if (fault != nullptr) {
    return fault;
  }
  if (!is_flag(config->plain)) {
    return "config.plain must be 0 or 1";
  }
  if (!is_flag(config->full_band)) {
    return "config.full_band must be 0 or 1";
  }
  return attenuation_fault(config);
}

}  // namespace

const char *stream_config_fault(const se_bf_stream_config *config) {
  if (config == nullptr) {
    return "config must not be null";
  }
  const char *fault = size_fault(config);
  if (fault != nullptr) {
    return fault;
  }
  const se_bf_stream_config complete = stream_config_complete(config);
  return field_fault(&complete);
}

se_bf_stream_config stream_config_complete(const se_bf_stream_config *config) {
  se_bf_stream_config complete = {};
  std::memcpy(&complete, config, config->size < kThisSize ? config->size : kThisSize);
  return complete;
}

// Settings that sound the same are the same: only the beamformer and the refined path have a
// direction, if the distance is known, and a shield needs two microphones.
lane_setting stream_config_setting(const se_bf_stream_config *config) {
  const bool refined = is_refined(config);
  const int32_t mode = mode_at_work(config);
  const bool has_direction = mode == SE_BF_MODE_MVDR || (refined && config->channels == 2);
  const float distance = has_direction ? config->mic_distance : 0.0f;
  const bool known = distance > 0.0f && !std::isnan(config->doa);
  const float doa = known ? config->doa : kDefaultDoa;
  const bool plain = config->plain != 0 && config->channels == 2;
  return {{config->channels, mode, hop_of(config), distance, doa},
          plain,
          refined,
          distance > 0.0f && !known,
          refined ? config->max_attenuation_db : 0.0f};
}

bool stream_config_fits(const se_bf_stream_config *now, const se_bf_stream_config *wanted) {
  return now->rate == wanted->rate && now->channels == wanted->channels &&
         hop_of(now) == hop_of(wanted);
}

void se_bf_stream_config_init(se_bf_stream_config *config) {
  if (config == nullptr) {
    return;
  }
  *config = {sizeof(se_bf_stream_config),
             kCoreRateHz,
             kStreamMaxChannels,
             SE_BF_STREAM_AUTO,
             0,
             0.0f,
             kDefaultDoa,
             0,
             1,
             nullptr,
             nullptr,
             0.0f,
             0};
}
