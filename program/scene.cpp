// What the program accepts of a scene: the names of modes.
#include "scene.h"

int32_t scene_mode_named(const std::string &name) {
  for (const scene_mode &mode : kModes) {
    if (name == mode.name) {
      return mode.value;
    }
  }
  return SE_BF_STREAM_AUTO;
}

std::string scene_mode_name(int32_t mode) {
  for (const scene_mode &known : kModes) {
    if (mode == known.value) {
      return known.name;
    }
  }
  return "";
}

int32_t scene_mode_chosen(int32_t mode, int hop) {
  const int32_t best = hop == kStreamDefaultHop ? static_cast<int32_t>(SE_BF_STREAM_REFINED)
                                                : static_cast<int32_t>(SE_BF_MODE_OMLSA);
  return mode == SE_BF_STREAM_AUTO ? best : mode;
}
