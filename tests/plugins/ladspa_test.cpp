// The LADSPA plug-in as difficult hosts use it: several instances, odd blocks, unconnected
// controls.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ladspa.h>
#include <math.h>
#include <stdlib.h>

#include <algorithm>
#include <vector>

static constexpr size_t LATENCY = 512;
static constexpr float FULL_SCALE = 32768.0f;

enum { INPUT_0, INPUT_1, OUTPUT, MODE, SPACING, DIRECTION, LATENCY_PORT };

using samples = std::vector<float>;

// 16-bit values, so that the way there and back loses nothing.
static samples make_noise(size_t count, unsigned seed) {
  samples x;
  uint32_t state = seed;
  for (size_t n = 0; n < count; ++n) {
    state = state * 1664525u + 1013904223u;
    x.push_back(static_cast<float>(static_cast<int32_t>(state) >> 18) / FULL_SCALE);
  }
  return x;
}

class Ladspa : public testing::Test {
 protected:
  void SetUp() override {
    library = dlopen(PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto entry =
        reinterpret_cast<LADSPA_Descriptor_Function>(dlsym(library, "ladspa_descriptor"));
    ASSERT_NE(entry, nullptr);
    plugin = entry(0);
    EXPECT_EQ(entry(1), nullptr);
  }
  void TearDown() override {
    dlclose(library);
  }

  LADSPA_Handle make() const {
    return plugin->instantiate(plugin, 16000);
  }

  // Runs both inputs through the instance in blocks of `block` samples.
  samples run(LADSPA_Handle handle, samples a, samples b, size_t block) const {
    samples out(a.size(), 9.0f);
    for (size_t at = 0; at < a.size(); at += block) {
      plugin->connect_port(handle, INPUT_0, &a[at]);
      plugin->connect_port(handle, INPUT_1, &b[at]);
      plugin->connect_port(handle, OUTPUT, &out[at]);
      plugin->run(handle, std::min(block, a.size() - at));
    }
    return out;
  }

  void *library = nullptr;
  const LADSPA_Descriptor *plugin = nullptr;
  samples left = make_noise(16000, 1);
  samples right = make_noise(16000, 2);
};

TEST_F(Ladspa, RefusesOtherRates) {
  for (const unsigned long rate : {0ul, 8000ul, 15999ul, 44100ul, 48000ul}) {
    EXPECT_EQ(plugin->instantiate(plugin, rate), nullptr) << rate;
  }
}

TEST_F(Ladspa, BlockLengthAndMomentOfConnectionDoNotMatter) {
  samples first;
  for (const size_t block : {1u, 7u, 320u, 1024u, 16000u}) {
    float latency = 0.0f;
    float mode = 2.0f;
    LADSPA_Handle handle = make();
    plugin->connect_port(handle, LATENCY_PORT, &latency);
    if (block == 7) {
      plugin->connect_port(handle, MODE, &mode);  // others leave it at its default
    }
    plugin->activate(handle);
    const samples out = run(handle, left, right, block);
    plugin->cleanup(handle);
    EXPECT_EQ(static_cast<size_t>(latency), LATENCY);
    first = first.empty() ? out : first;
    EXPECT_EQ(out, first) << block;
  }
}

// In mode 3 the output is the first channel, in the stand-in the mean: both exactly and equally
// late.
TEST_F(Ladspa, SecondActiveInstanceGivesTheMeanAndSaysSoOnce) {
  float mode = 3.0f;
  LADSPA_Handle idle = make();
  LADSPA_Handle handles[3] = {make(), make(), make()};
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  for (LADSPA_Handle handle : handles) {
    plugin->connect_port(handle, MODE, &mode);
    plugin->activate(handle);
  }
  const samples enhanced = run(handles[0], left, right, 100);
  const samples stand_in = run(handles[1], left, right, 333);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  for (size_t n = LATENCY; n < left.size(); ++n) {
    const float mean = 0.5f * (left[n - LATENCY] + right[n - LATENCY]);
    ASSERT_EQ(enhanced[n], left[n - LATENCY]) << n;
    ASSERT_LE(fabsf(stand_in[n] - mean), 1.0f / FULL_SCALE) << n;
  }
  plugin->deactivate(handles[0]);
  plugin->activate(handles[2]);
  EXPECT_EQ(run(handles[2], left, right, 64), enhanced) << "the enhancer is free again";
  for (LADSPA_Handle handle : handles) {
    plugin->cleanup(handle);
  }
  plugin->cleanup(idle);
}

TEST_F(Ladspa, ControlsChangeWhileRunningAndMayBeWrong) {
  float controls[3] = {2.0f, 0.05f, 90.0f};
  LADSPA_Handle handle = make();
  for (unsigned long i = 0; i < 3; ++i) {
    plugin->connect_port(handle, MODE + i, &controls[i]);
  }
  plugin->activate(handle);
  run(handle, left, right, 480);
  controls[0] = 3.0f;
  const samples mono = run(handle, left, right, 480);
  EXPECT_TRUE(std::equal(left.begin(), left.end() - LATENCY, mono.begin() + LATENCY));
  for (const float wrong : {NAN, INFINITY, -INFINITY, -1e30f, 1e30f}) {
    controls[0] = controls[1] = controls[2] = wrong;
    for (const float y : run(handle, left, right, 480)) {
      ASSERT_TRUE(fabsf(y) <= 1.0f);
    }
  }
  controls[0] = 2.0f;
  samples loud(16000, 5.0f);
  loud[100] = NAN;
  for (const float y : run(handle, loud, right, 480)) {
    ASSERT_TRUE(fabsf(y) <= 1.0f);
  }
  plugin->cleanup(handle);
}

// Hosts may process in place.
TEST_F(Ladspa, OutputMayBeAnInput) {
  for (samples *shared : {&left, &right}) {
    LADSPA_Handle handle = make();
    plugin->activate(handle);
    const samples expected = run(handle, left, right, 1000);
    plugin->deactivate(handle);
    plugin->activate(handle);
    samples a = left;
    samples b = right;
    samples &out = shared == &left ? a : b;
    plugin->connect_port(handle, INPUT_0, a.data());
    plugin->connect_port(handle, INPUT_1, b.data());
    plugin->connect_port(handle, OUTPUT, out.data());
    plugin->run(handle, a.size());
    EXPECT_EQ(out, expected);
    plugin->cleanup(handle);
  }
}
