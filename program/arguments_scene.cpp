// Options of the scene, which several subcommands have.
#include "arguments_scene.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <iterator>

#include "arguments_check.h"
#include "scene.h"

namespace {

std::vector<std::string> mode_names() {
  std::vector<std::string> names;
  for (const scene_mode &mode : kModes) {
    names.emplace_back(mode.name);
  }
  return names;
}

std::string mode_help() {
  std::string text;
  for (const scene_mode &mode : kModes) {
    text += (text.empty() ? "" : "; ") + std::string(mode.name) + ": " + mode.what;
  }
  return text + ". Default: auto. With one channel mean and mvdr become omlsa";
}

void declare_geometry(CLI::App *command, enhance_options *options) {
  const auto distance = [](const std::string &text) {
    return check_range(text, 0.0, kMaxDistanceM);
  };
  command
      ->add_option(
          "--mic-distance", options->mic_distance_m,
          "spacing of the microphones; 0: unknown; needs --doa, except in mode refined, which "
          "finds the direction and then tells it in degrees")
      ->check(distance)
      ->capture_default_str()
      ->type_name("METRES");
  const auto angle = [](const std::string &text) {
    return check_range(text, -kMaxAngleDeg, kMaxAngleDeg);
  };
  command
      ->add_option("--doa", options->doa_deg,
                   "direction of the talker: 0 is on the line of the microphones on the side of "
                   "microphone 0, 90 is broadside, 180 is on the side of microphone 1; needs "
                   "--mic-distance; without both, mode refined finds it")
      ->check(angle)
      ->type_name("DEGREES");
}

void declare_levels(CLI::App *command, enhance_options *options) {
  const auto limit = [](const std::string &text) {
    return check_range(text, 0.0, kMaxAttenuationDb);
  };
  command
      ->add_option("--max-attenuation", options->max_attenuation_db,
                   "most by which mode refined turns a sound down, 0 to 60; 0: no limit")
      ->check(limit)
      ->capture_default_str()
      ->type_name("DB");
  const auto gain = [](const std::string &text) {
    return check_range(text, -kMaxGainDb, kMaxGainDb);
  };
  command
      ->add_option(
          "--gain", options->gain_db,
          "amplification of the input, -60 to 60; mvdr is 3 dB louder than one microphone; a "
          "negative gain prevents clipping")
      ->check(gain)
      ->capture_default_str()
      ->type_name("DB");
}

}  // namespace

void arguments_declare_hop(CLI::App *command, int *hop) {
  const std::vector<int> hops(std::begin(kStreamHops), std::end(kStreamHops));
  command->add_option("--hop", *hop, "samples per analysis step")
      ->check(CLI::IsMember(hops))
      ->capture_default_str()
      ->type_name("");
}

void arguments_declare_scene(CLI::App *command, enhance_options *options) {
  const auto channels = [options](const std::string &text) {
    return check_channels(text, &options->channels);
  };
  command
      ->add_option_function<std::string>(
          "--channels", [](const std::string &) {}, "channels of IN to use, from 0, as 0 or 0,3")
      ->check(channels)
      ->type_name("LIST");
  command->add_flag("--plain", options->plain,
                    "the bare library: silence at the start or a microphone fault ends beamforming "
                    "for good");
  const auto narrow = [options](std::int64_t) { options->full_band = false; };
  command->add_flag_function("--no-full-band", narrow,
                             "remove what lies above 8 kHz; it is kept otherwise, and turned down "
                             "as the noise just below");
  const auto mode = [options](const std::string &text) { options->mode = scene_mode_named(text); };
  command->add_option_function<std::string>("--mode", mode, mode_help())
      ->check(CLI::IsMember(mode_names()))
      ->type_name("");
  declare_geometry(command, options);
  arguments_declare_hop(command, &options->hop);
  declare_levels(command, options);
}
