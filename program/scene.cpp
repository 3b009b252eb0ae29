// What the program accepts of a scene: the names of modes.
#include "scene.h"

int32_t scene_mode_named(const std::string &name) {
  for (const scene_mode &mode : kModes) {
    if (name == mode.name) {
      return mode.value;
    }
  }
  return kModeByChannels;
}

std::string scene_mode_name(int32_t mode) {
  for (const scene_mode &known : kModes) {
    if (mode == known.value) {
      return known.name;
    }
  }
  return "";
}
