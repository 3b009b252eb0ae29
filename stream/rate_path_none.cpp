// Stands for rate_path.cpp in a library that knows no rate but 16 kHz.
#include "rate_path.h"

rate_path *rate_path_open(const rate_path_config *, const char **error) {
  if (error != nullptr) {
    *error =
        "built without rates: streams run at 16000 Hz only; convert the sound to that rate, or "
        "build with TM_SE_BF_STREAM_RATES=ON";
  }
  return nullptr;
}

int32_t rate_path_latency(const rate_path *) {
  return 0;
}

void rate_path_process(rate_path *, const float *, size_t, float *) {
}

void rate_path_set_full_band(rate_path *, int32_t) {
}

void rate_path_use(rate_path *, int32_t) {
}

void rate_path_reset(rate_path *) {
}

void rate_path_close(rate_path *) {
}
