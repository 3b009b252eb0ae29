// Checks of the command line: values of options, and options that go together.
#include "arguments_check.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>

#include "report.h"
#include "sound_format.h"

namespace {

constexpr size_t kMaxChannels = 1024;  // more than a sound file holds

// Options that mode or hop exclude.
std::string check_mode(const CLI::App *command, enhance_options *options) {
  const int32_t mode = scene_mode_chosen(options->mode, options->hop);
  const std::string hop = "hop " + std::to_string(kStreamDefaultHop);
  if (mode == SE_BF_STREAM_REFINED && options->hop != kStreamDefaultHop) {
    return "mode refined has " + hop + " alone; leave out --hop, or give another mode";
  }
  if (command->count("--max-attenuation") > 0 && mode != SE_BF_STREAM_REFINED) {
    return "--max-attenuation is for mode refined at " + hop + ", not for mode " +
           scene_mode_name(options->mode) + " at hop " + std::to_string(options->hop);
  }
  if (command->count("--doa") > 0 && options->mic_distance_m == 0.0f) {
    return "--doa needs --mic-distance: the spacing of the microphones, in metres";
  }
  if (command->count("--doa") == 0 && options->mic_distance_m > 0.0f) {
    options->doa_deg = NAN;
    return mode == SE_BF_STREAM_REFINED
               ? ""
               : "--mic-distance needs --doa in mode " + scene_mode_name(mode) +
                     ": the direction of the talker, in degrees, 90 for in front; leave out both "
                     "where it is not known";
  }
  return "";
}

}  // namespace

std::string check_range(const std::string &text, double low, double high) {
  char *end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  const bool number = end != text.c_str() && *end == '\0' && std::isfinite(value);
  if (number && value >= low && value <= high) {
    return "";
  }
  return "'" + text + "' is not a number from " + report_number(low, 0) + " to " +
         report_number(high, 0);
}

std::string check_channels(const std::string &text, std::vector<size_t> *channels) {
  std::string wrong = "'" + text + "' is not one channel number or two different ones, as 0,3";
  channels->clear();
  const char *next = text.c_str();
  for (;;) {
    char *end = nullptr;
    if (*next < '0' || *next > '9') {
      return wrong;
    }
    const unsigned long value = std::strtoul(next, &end, 10);
    const bool again = !channels->empty() && channels->front() == value;
    if (value >= kMaxChannels || again || channels->size() == 2) {
      return wrong;
    }
    channels->push_back(value);
    if (*end == '\0') {
      return "";
    }
    if (*end != ',') {
      return wrong;
    }
    next = end + 1;
  }
}

std::string check_places(const batch_options *batch, enhance_options *options) {
  const std::vector<std::string> &places = batch->places;
  if (!batch->out_dir.empty()) {
    return "";
  }
  if (places.size() != 2) {
    return places.size() < 2 ? "OUT is missing: se_bf enhance IN OUT"
                             : "many files need --out-dir DIR; without it give IN and OUT only";
  }
  options->in = places[0];
  options->out = places[1];
  return "";
}

std::string check_pairs(const CLI::App *command, enhance_options *options) {
  std::string wrong = check_mode(command, options);
  if (!wrong.empty()) {
    return wrong;
  }
  const CLI::Option *raw = command->get_option_no_throw("--raw-channels");
  if (raw != nullptr && raw->count() > 0 && options->in != "-") {
    return "--raw-channels is for raw PCM on standard input, IN -; a sound file tells its channels";
  }
  const sound_format *told = sound_format_of(options->out);
  const CLI::Option *rate = command->get_option_no_throw("--raw-rate");
  const bool headed = told != nullptr || (!options->format.empty() && options->format != "raw");
  if (rate != nullptr && rate->count() > 0 && options->raw_channels == 0 && headed) {
    return "--raw-rate is for raw PCM, and neither IN nor OUT is; a sound file tells its rate";
  }
  if (told != nullptr && !options->format.empty() && options->format != told->name) {
    return "--format " + options->format + " is not what the name " + options->out +
           " says; leave it out, or give OUT another name";
  }
  return "";
}
