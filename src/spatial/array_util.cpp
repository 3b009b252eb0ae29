// Linear-array geometry and plane-wave steering.
#include "spatial/array_util.h"

#include <cmath>

#include "spatial/se_matrix_funcs.h"

namespace {

constexpr float kSpeedOfSoundMps = 343.0f;
constexpr float kTurnTimesRate = 100530.96f;  // 2 pi times 16000 Hz
constexpr float kHalfTurnDegrees = 180.0f;

// Deliberately one unit in the last place below the float nearest to pi: the bits of the steering
// vectors depend on it.
constexpr float kHalfTurnRadians = 3.1415925f;

constexpr int32_t kCoordinates = 3;

// Steering entry of one microphone from its phase alpha = -p phi.
se_complex phase_entry(float alpha) {
  const double phase = static_cast<double>(alpha);
  return {static_cast<float>(std::cos(phase)), static_cast<float>(std::sin(phase))};
}

}  // namespace

float uniform_steering(int32_t channels) {
  return static_cast<float>(1.0 / std::sqrt(static_cast<double>(channels)));
}

void get_ULA_geometry(int32_t channels, float spacing, float *geometry) {
  if (channels < 1) {
    return;
  }
  float centroid[kCoordinates] = {0.0f, 0.0f, 0.0f};
  for (int32_t m = 0; m < channels; ++m) {
    float *position = geometry + m * kCoordinates;
    position[0] = static_cast<float>(m) * spacing;
    position[1] = 0.0f;
    position[2] = 0.0f;
    for (int32_t axis = 0; axis < kCoordinates; ++axis) {
      centroid[axis] += position[axis];
    }
  }
  for (float &coordinate : centroid) {
    coordinate /= static_cast<float>(channels);
  }
  for (int32_t i = 0; i < channels * kCoordinates; ++i) {
    geometry[i] -= centroid[i % kCoordinates];
  }
}

void get_steering_vector_by_doa(float doa_degrees, const float *geometry, int32_t channels,
                                se_complex *steering, int32_t bins) {
  const float theta = doa_degrees / kHalfTurnDegrees * kHalfTurnRadians;
  const double cosine = std::cos(static_cast<double>(theta));
  const double sine = std::sin(static_cast<double>(theta));
  const float frame_length = static_cast<float>((bins - 1) * 2);
  const float slope = kTurnTimesRate / (frame_length * kSpeedOfSoundMps);

  for (int32_t k = 0; k < bins; ++k) {
    const float phi = static_cast<float>(k) * slope;
    se_complex *entries = steering + k * channels;
    for (int32_t m = 0; m < channels; ++m) {
      const double x = static_cast<double>(geometry[m * kCoordinates]);
      const double y = static_cast<double>(geometry[m * kCoordinates + 1]);
      const float projection = static_cast<float>(x * cosine + y * sine);
      entries[m] = phase_entry(projection * -phi);
    }

    const float norm = Norm_Vector(entries, channels);
    for (int32_t m = 0; m < channels; ++m) {
      entries[m] = {entries[m].re / norm, entries[m].im / norm};
    }
  }
}

float Distance(float x1, float y1, float z1, float x2, float y2, float z2) {
  const float dx = x1 - x2;
  const float dy = y1 - y2;
  const float dz = z1 - z2;
  return se_sqrt(dx * dx + dy * dy + dz * dz);
}

float DotProduct(float x1, float y1, float z1, float x2, float y2, float z2) {
  return x1 * x2 + y1 * y2 + z1 * z2;
}
