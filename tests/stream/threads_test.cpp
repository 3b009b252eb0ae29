// Streams in threads of their own do not know of each other.
#include <thread>

#include "stream_use.h"

namespace {

TEST(StreamThreads, EightStreamsGiveWhatEachGivesAlone) {
  constexpr size_t kStreams = 8;
  const pcm in = mute(make_sound(4 * kSecond, 21), 0, 20000, 30000);
  se_bf_stream_config configs[kStreams];
  pcm alone[kStreams];
  for (size_t i = 0; i < kStreams; ++i) {
    const int32_t mode = SE_BF_MODE_MEAN + static_cast<int32_t>(i % 4);
    const int32_t channels = i % 3 == 2 ? 1 : 2;
    configs[i] = make_config(channels, mode, kHops[i % 3].hop, i % 2 == 1);
    configs[i].rate = i == 7 ? TM_SE_BF_STREAM_OTHER_RATE : 16000;
    alone[i] = run_process(configs[i], in, {1000});
  }
  pcm together[kStreams];
  std::vector<std::thread> threads;
  for (size_t i = 0; i < kStreams; ++i) {
    threads.emplace_back([&, i] {
      const uint32_t seed = 100 + static_cast<uint32_t>(i);
      together[i] = run_process(configs[i], in, {700, true, seed});
    });
  }
  for (std::thread &t : threads) {
    t.join();
  }
  for (size_t i = 0; i < kStreams; ++i) {
    EXPECT_TRUE(together[i] == alone[i]) << "stream " << i;
  }
}

}  // namespace
