// The LADSPA plug-in as difficult hosts use it: several instances, odd blocks, one buffer for input
// and output, unconnected and meaningless controls.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ladspa.h>

#include "test_signals.h"

namespace {

constexpr size_t kLatency = 512;

enum { INPUT_0, INPUT_1, OUTPUT, MODE, SPACING, DIRECTION, LATENCY_PORT };

using samples = std::vector<float>;

// 16-bit values, so that the way there and back loses nothing.
samples make_noise(uint32_t seed) {
  samples x(kSecond);
  for (float &sample : x) {
    sample = static_cast<float>(noise(&seed, 8192)) / 32768.0f;
  }
  return x;
}

void *const library = dlopen(PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
const LADSPA_Descriptor *const plugin =
    reinterpret_cast<LADSPA_Descriptor_Function>(dlsym(library, "ladspa_descriptor"))(0);
const samples left = make_noise(1);
const samples right = make_noise(2);

// An active instance with all controls at one variable, or unconnected.
LADSPA_Handle start(float *controls) {
  LADSPA_Handle handle = plugin->instantiate(plugin, 16000);
  for (unsigned long port = MODE; port <= DIRECTION; ++port) {
    plugin->connect_port(handle, port, controls);
  }
  plugin->activate(handle);
  return handle;
}

// Runs both inputs through the instance in blocks; the output replaces one of them.
samples run(LADSPA_Handle handle, size_t block, samples a = left, samples b = right) {
  samples &out = block % 2 == 0 ? a : b;
  for (size_t at = 0; at < a.size(); at += block) {
    plugin->connect_port(handle, INPUT_0, &a[at]);
    plugin->connect_port(handle, INPUT_1, &b[at]);
    plugin->connect_port(handle, OUTPUT, &out[at]);
    plugin->run(handle, std::min(block, a.size() - at));
  }
  return out;
}

TEST(Ladspa, RefusesOtherRates) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(plugin->instantiate(plugin, 44100), nullptr);
  plugin->cleanup(nullptr);  // as hosts do that were refused an instance
  EXPECT_PRED_FORMAT2(testing::IsSubstring, "16000 Hz only, not at 44100 Hz",
                      testing::internal::GetCapturedStderr());
}

// In mode 3 the output is the first channel, in the stand-in the mean: both exactly and equally
// late, whatever the blocks and whichever input is overwritten.
TEST(Ladspa, SecondActiveInstanceGivesTheMeanAndSaysSoOnce) {
  float mode = 3.0f;
  float latency = 0.0f;
  LADSPA_Handle idle = plugin->instantiate(plugin, 16000);
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  LADSPA_Handle handles[] = {start(&mode), start(&mode), start(&mode)};
  plugin->connect_port(handles[0], LATENCY_PORT, &latency);
  const samples enhanced = run(handles[0], 100);
  EXPECT_EQ(latency, static_cast<float>(kLatency));
  const samples stand_in = run(handles[1], 333);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  for (size_t n = kLatency; n < left.size(); ++n) {
    ASSERT_EQ(enhanced[n], left[n - kLatency]) << n;
    ASSERT_NEAR(stand_in[n], 0.5f * (left[n - kLatency] + right[n - kLatency]), 1.0f / 32768.0f);
  }
  plugin->deactivate(handles[0]);
  plugin->activate(handles[2]);
  EXPECT_EQ(run(handles[2], 7), enhanced) << "the enhancer is free again";
  for (LADSPA_Handle handle : {idle, handles[0], handles[1], handles[2]}) {
    plugin->cleanup(handle);
  }
}

TEST(Ladspa, SpacingOrDirectionAlonePrefersNone) {
  float mode = 2.0f;
  float spacing = 0.0f;
  float direction = -200.0f;
  LADSPA_Handle handle = start(&mode);
  plugin->connect_port(handle, SPACING, &spacing);
  plugin->connect_port(handle, DIRECTION, &direction);
  testing::internal::CaptureStderr();
  const samples undirected = run(handle, 480);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  direction = 90.0f;
  plugin->activate(handle);
  EXPECT_EQ(run(handle, 480), undirected) << "no spacing";
  spacing = 0.1f;
  for (const float unknown : {NAN, -180.5f, -200.0f, -INFINITY}) {
    direction = unknown;
    plugin->activate(handle);
    EXPECT_EQ(run(handle, 480), undirected) << unknown;
  }
  plugin->connect_port(handle, DIRECTION, nullptr);
  plugin->activate(handle);
  EXPECT_EQ(run(handle, 480), undirected) << "not connected";
  plugin->connect_port(handle, DIRECTION, &direction);
  direction = -180.0f;
  EXPECT_NE(run(handle, 480), undirected);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
  EXPECT_PRED_FORMAT2(testing::IsSubstring, "both the spacing", said);
  plugin->cleanup(handle);
}

TEST(Ladspa, ControlsAndSamplesMayBeWrong) {
  samples loud(left.size(), 5.0f);
  loud[100] = NAN;
  float control = 0.0f;
  LADSPA_Handle handle = start(&control);
  for (const float value : {2.0f, NAN, INFINITY, -INFINITY, -1e30f, 1e30f}) {
    control = value;
    for (const float y : run(handle, 480, loud)) {
      ASSERT_LE(std::fabs(y), 1.0f) << value;
    }
  }
  control = 3.0f;  // the first channel
  const samples mono = run(handle, 480);
  EXPECT_TRUE(std::equal(left.begin(), left.end() - kLatency, mono.begin() + kLatency));
  plugin->cleanup(handle);
}

}  // namespace
