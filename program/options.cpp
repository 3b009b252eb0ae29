// What the user asked for on the command line, as text.
#include "options.h"

#include <cmath>
#include <cstdio>

namespace {

constexpr size_t kNumberLen = 32;  // characters of a number, at most

// The shortest text that still is the same number.
std::string number(float value) {
  char text[kNumberLen];
  std::snprintf(text, sizeof text, "%.9g", static_cast<double>(value + 0.0f));  // -0 becomes 0
  return text;
}

}  // namespace

std::string options_of_sound(const enhance_options *options) {
  const std::string mode = scene_mode_name(scene_mode_chosen(options->mode, options->hop));
  const std::string doa = std::isnan(options->doa_deg) ? "searched" : number(options->doa_deg);
  const float limit = options->max_attenuation_db;
  std::string channels;
  for (const size_t channel : options->channels) {
    channels += (channels.empty() ? "" : ",") + std::to_string(channel);
  }
  return "mode " + mode + ", hop " + std::to_string(options->hop) + ", distance " +
         number(options->mic_distance_m) + ", doa " + doa + ", gain " + number(options->gain_db) +
         ", channels " + (channels.empty() ? "all" : channels) +
         (limit > 0.0f ? ", max attenuation " + number(limit) : "") +
         (options->plain ? ", plain" : "") + (options->full_band ? "" : ", no full band");
}
