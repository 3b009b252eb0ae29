// The LADSPA plug-in as difficult hosts use it: several instances, any rate, odd blocks, one buffer
// for input and output, unconnected and meaningless controls. A stream of the stream library says
// what each instance must give.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <ladspa.h>

#include "test_signals.h"
#include "tm_se_bf_stream.h"

#ifdef COUNT_HEAP_CALLS
extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void __libc_free(void *block);
#endif

namespace {

int64_t g_heap_calls = 0;

enum { INPUT_0, INPUT_1, OUTPUT, MODE, SPACING, DIRECTION, LATENCY_PORT, ATTENUATION };
constexpr size_t kControls = 4;
constexpr unsigned long kControlPorts[kControls] = {MODE, SPACING, DIRECTION, ATTENUATION};

using samples = std::vector<float>;

samples make_noise(uint32_t seed, size_t count) {
  samples x(count);
  for (float &sample : x) {
    sample = static_cast<float>(noise(&seed, 8192)) / 32768.0f;
  }
  return x;
}

void *const library = dlopen(PLUGIN_FILE, RTLD_NOW | RTLD_LOCAL);
const LADSPA_Descriptor *const plugin =
    reinterpret_cast<LADSPA_Descriptor_Function>(dlsym(library, "ladspa_descriptor"))(0);

struct instance {
  LADSPA_Handle handle;
  float controls[kControls];
  float latency;
};

// An active instance.
void start(instance *i, unsigned long rate_hz, float mode, float spacing, float direction) {
  *i = {plugin->instantiate(plugin, rate_hz), {mode, spacing, direction, 0.0f}, -1.0f};
  for (size_t n = 0; n < kControls; ++n) {
    plugin->connect_port(i->handle, kControlPorts[n], &i->controls[n]);
  }
  plugin->connect_port(i->handle, LATENCY_PORT, &i->latency);
  plugin->activate(i->handle);
}

// Runs one block, which begins at `at`; the output replaces one of the inputs.
void run_block(const instance &i, samples *a, samples *b, size_t at, size_t frames) {
  plugin->connect_port(i.handle, INPUT_0, &(*a)[at]);
  plugin->connect_port(i.handle, INPUT_1, &(*b)[at]);
  plugin->connect_port(i.handle, OUTPUT, &(*a)[at]);
  plugin->run(i.handle, frames);
}

samples run(const instance &i, samples a, samples b, size_t block) {
  for (size_t at = 0; at < a.size(); at += block) {
    run_block(i, &a, &b, at, std::min(block, a.size() - at));
  }
  return a;
}

se_bf_stream_config make_config(int32_t rate_hz, int32_t mode, float spacing, float direction,
                                float attenuation = 0) {
  se_bf_stream_config config;
  se_bf_stream_config_init(&config);
  config.rate = rate_hz;
  config.mode = mode == 4 ? static_cast<int32_t>(SE_BF_STREAM_REFINED) : SE_BF_MODE_MEAN + mode;
  config.mic_distance = spacing;
  config.doa = direction;
  config.max_attenuation_db = attenuation;
  return config;
}

// What a stream gives that changes from one setting to another at sample `change`.
samples expected(const se_bf_stream_config &config, const samples &a, const samples &b,
                 const se_bf_stream_config *other = nullptr, size_t change = 0) {
  samples in;
  for (size_t n = 0; n < a.size(); ++n) {
    in.push_back(a[n]);
    in.push_back(b[n]);
  }
  // The plug-in opens its stream in a mode with the full delay.
  se_bf_stream_config opened = config;
  opened.mode = SE_BF_STREAM_REFINED;
  se_bf_stream *stream = se_bf_stream_open(&opened, nullptr);
  se_bf_stream_change(stream, &config);
  samples out(a.size());
  se_bf_stream_process_f32(stream, in.data(), change, out.data());
  if (other != nullptr) {
    EXPECT_EQ(se_bf_stream_change(stream, other), 0);
  }
  se_bf_stream_process_f32(stream, &in[2 * change], a.size() - change, &out[change]);
  se_bf_stream_close(stream);
  return out;
}

TEST(Ladspa, RatesOutOfRangeAreRefusedAndOthersTellTheirLatency) {
  for (const unsigned long rate_hz : {0ul, 7999ul, 192001ul, (1ul << 32) + 16000}) {
    EXPECT_EQ(plugin->instantiate(plugin, rate_hz), nullptr) << rate_hz;
  }
  plugin->cleanup(nullptr);  // as hosts do that were refused an instance
  for (const int32_t rate_hz : {8000, 11025, 16000, 44100, 48000, 192000}) {
    const se_bf_stream_config config = make_config(rate_hz, 2, 0, 0);
    se_bf_stream *stream = se_bf_stream_open(&config, nullptr);
    for (const float mode : {0.0f, 1.0f, 2.0f, 3.0f, 4.0f}) {
      instance i;
      start(&i, static_cast<unsigned long>(rate_hz), mode, 0.05f, 90);
      run(i, samples(1), samples(1), 1);
      plugin->cleanup(i.handle);
      EXPECT_EQ(i.latency, static_cast<float>(se_bf_stream_latency(stream))) << rate_hz << mode;
    }
    se_bf_stream_close(stream);
  }
}

// With block lengths that differ, in turn, with one that never runs beside them.
TEST(Ladspa, EveryInstanceIsAStreamOfItsOwn) {
  constexpr unsigned long kRate = 48000;
  const float settings[3][3] = {{2, 0.06f, 30}, {1, 0, -200}, {4, 0.3f, 140}};
  const size_t blocks[] = {64, 1000, 777};
  instance idle;
  instance instances[3];
  samples a[3];
  samples b[3];
  samples wanted[3];
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  start(&idle, kRate, 2, 0, -200);
  for (uint32_t i = 0; i < 3; ++i) {
    a[i] = make_noise(2 * i + 1, 2 * kRate);
    b[i] = make_noise(2 * i + 2, 2 * kRate);
    const float *s = settings[i];
    wanted[i] = expected(make_config(kRate, static_cast<int32_t>(s[0]), s[1], s[2]), a[i], b[i]);
    start(&instances[i], kRate, s[0], s[1], s[2]);
  }
  size_t done[3] = {};
  for (size_t at = 0; at < 2 * kRate; at += 1000) {
    for (size_t i = 0; i < 3; ++i) {
      while (done[i] < at + 1000) {
        const size_t frames = std::min(blocks[i], 2 * kRate - done[i]);
        run_block(instances[i], &a[i], &b[i], done[i], frames);
        done[i] += frames;
      }
    }
  }
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_TRUE(a[i] == wanted[i]) << "instance " << i << " is not as if it were alone";
    EXPECT_NE(a[i][kRate], 0.0f) << "instance " << i << " is silent";
    plugin->cleanup(instances[i].handle);
  }
  plugin->cleanup(idle.handle);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The old setting is heard until the new one is faded in.
TEST(Ladspa, ControlsChangeWithoutAGap) {
  constexpr int32_t kRate = 44100;
  constexpr size_t kChange = 44000;
  const samples a = make_noise(1, 3 * kRate);
  const samples b = make_noise(2, 3 * kRate);
  const se_bf_stream_config from = make_config(kRate, 4, 0.06f, 30);
  const float changes[][kControls] = {{1, 0.06f, 30, 0}, {4, 0.06f, 150, 0}, {4, 0.06f, 30, 6}};
  for (const float *to : changes) {
    const int32_t mode = static_cast<int32_t>(to[0]);
    const se_bf_stream_config other = make_config(kRate, mode, to[1], to[2], to[3]);
    instance i;
    start(&i, kRate, 4, 0.06f, 30);
    samples x = a;
    samples y = b;
    const int64_t calls = g_heap_calls;
    for (size_t at = 0; at < x.size(); at += 500) {
      if (at == kChange) {
        std::copy(to, to + kControls, i.controls);
      }
      run_block(i, &x, &y, at, std::min<size_t>(500, x.size() - at));
    }
    plugin->activate(i.handle);
    EXPECT_EQ(g_heap_calls, calls) << "run and activate called the heap";
    const samples unchanged = expected(from, a, b);
    const bool limit_alone = to[3] > 0;  // which changes at once
    const size_t soon = limit_alone ? kChange : kChange + kRate / 2;
    EXPECT_TRUE(std::equal(&x[0], &x[soon], unchanged.data())) << "a gap";
    EXPECT_TRUE(x == expected(from, a, b, &other, kChange));
    EXPECT_TRUE(run(i, a, b, 333) == expected(other, a, b)) << "not as new once activated again";
    plugin->cleanup(i.handle);
  }
}

TEST(Ladspa, SpacingOrDirectionAlonePrefersNone) {
  const samples a = make_noise(1, kSecond);
  const samples b = make_noise(2, kSecond);
  const samples undirected = expected(make_config(16000, 2, 0, 0), a, b);
  instance i;
  start(&i, 16000, 2, 0, 90);
  EXPECT_TRUE(run(i, a, b, 480) == undirected) << "no spacing";
  i.controls[1] = 0.1f;
  for (const float unknown : {NAN, -180.5f, -200.0f, -INFINITY}) {
    i.controls[2] = unknown;
    plugin->activate(i.handle);
    EXPECT_TRUE(run(i, a, b, 480) == undirected) << unknown;
  }
  i.controls[2] = -180.0f;
  plugin->activate(i.handle);
  EXPECT_TRUE(run(i, a, b, 480) == expected(make_config(16000, 2, 0.1f, -180), a, b));
  plugin->connect_port(i.handle, DIRECTION, nullptr);
  plugin->activate(i.handle);
  EXPECT_TRUE(run(i, a, b, 480) == undirected) << "not connected";
  plugin->connect_port(i.handle, MODE, nullptr);
  plugin->activate(i.handle);
  EXPECT_TRUE(run(i, a, b, 480) == expected(make_config(16000, 4, 0, 0), a, b)) << "by default";
  plugin->cleanup(i.handle);
}

TEST(Ladspa, ControlsAndSamplesMayBeWrong) {
  const samples a = make_noise(1, kSecond);
  samples loud(a.size(), 5.0f);
  loud[100] = NAN;
  instance i;
  start(&i, 16000, 0, 0, 0);
  for (const float value : {2.0f, NAN, INFINITY, -INFINITY, -1e30f, 1e30f}) {
    std::fill_n(i.controls, kControls, value);
    for (const float y : run(i, loud, loud, 480)) {
      ASSERT_LE(std::fabs(y), 1.0f) << value;
    }
  }
  i.controls[0] = 3.0f;  // the first channel
  plugin->activate(i.handle);
  const samples mono = run(i, a, loud, 480);
  const size_t latency = static_cast<size_t>(i.latency);
  EXPECT_TRUE(std::equal(&mono[latency], mono.data() + mono.size(), a.data()));
  plugin->cleanup(i.handle);
}

}  // namespace

#ifdef COUNT_HEAP_CALLS
// The program's own functions take the place of the C library's, for the plug-in too.
extern "C" void *malloc(size_t size) {
  ++g_heap_calls;
  return __libc_malloc(size);
}

extern "C" void *calloc(size_t count, size_t size) {
  ++g_heap_calls;
  return __libc_calloc(count, size);
}

extern "C" void free(void *block) {
  ++g_heap_calls;
  __libc_free(block);
}
#endif
