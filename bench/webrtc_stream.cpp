// Runs the workload of run_stream through the packaged WebRTC audio processing, for comparison.
//
// webrtc_stream WHAT SECONDS [OUT]: WHAT is "caller" (blocks made, nothing processed), "ns" (noise
// suppression alone, one channel) or "beamformer" (two microphones 6 cm apart, followed by noise
// suppression). The output goes to the file OUT as raw floats.
#include <webrtc/modules/audio_processing/include/audio_processing.h>
#include <webrtc/modules/interface/module_common_types.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "recording.h"

namespace {

constexpr int32_t kBlock = 160;  // 10 ms, the block of that interface
constexpr int32_t kDefaultSeconds = 60;
constexpr float kHalfSpacing = 0.03f;  // metres

std::unique_ptr<webrtc::AudioProcessing> open_processing(bool beamform) {
  webrtc::Config config;
  if (beamform) {
    const std::vector<webrtc::Point> microphones = {{-kHalfSpacing, 0.0f, 0.0f},
                                                    {kHalfSpacing, 0.0f, 0.0f}};
    config.Set<webrtc::Beamforming>(new webrtc::Beamforming(true, microphones));
  }
  std::unique_ptr<webrtc::AudioProcessing> processing(webrtc::AudioProcessing::Create(config));
  processing->noise_suppression()->set_level(webrtc::NoiseSuppression::kModerate);
  processing->noise_suppression()->Enable(true);
  return processing;
}

// One block, split into channels as floats, in place.
int process(webrtc::AudioProcessing *processing, const int16_t *block, int32_t channels,
            float *const *planes) {
  constexpr float kFullScale = 32768.0f;
  for (int32_t i = 0; i < kBlock; ++i) {
    for (int32_t c = 0; c < channels; ++c) {
      planes[c][i] = static_cast<float>(block[i * channels + c]) / kFullScale;
    }
  }
  if (processing == nullptr) {
    return 0;
  }
  const webrtc::StreamConfig in(kRate, channels);
  const webrtc::StreamConfig out(kRate, 1);
  return processing->ProcessStream(planes, in, out, planes);
}

}  // namespace

int main(int argc, char **argv) {
  const char *what = argc > 1 ? argv[1] : "ns";
  const int32_t seconds = argument(argc, argv, 2, kDefaultSeconds);
  const bool beamform = std::strcmp(what, "beamformer") == 0;
  const bool caller_alone = std::strcmp(what, "caller") == 0;
  const int32_t channels = beamform ? kRecordedChannels : 1;
  recording speech = open_recording();
  const std::unique_ptr<webrtc::AudioProcessing> processing = open_processing(beamform);

  std::FILE *output = argc > 3 ? std::fopen(argv[3], "wb") : nullptr;
  if (argc > 3 && output == nullptr) {
    std::fprintf(stderr, "webrtc_stream: %s cannot be written\n", argv[3]);
    return 1;
  }
  std::vector<int16_t> block(static_cast<size_t>(kBlock * channels));
  std::vector<float> first(kBlock);
  std::vector<float> second(kBlock);
  float *const planes[] = {first.data(), second.data()};
  for (int32_t n = 0; n < seconds * kRate / kBlock; ++n) {
    next_block(&speech, kBlock, channels, block.data());
    const int error =
        process(caller_alone ? nullptr : processing.get(), block.data(), channels, planes);
    if (error != 0) {
      std::fprintf(stderr, "webrtc_stream: ProcessStream failed with %d\n", error);
      return 1;
    }
    if (output != nullptr) {
      std::fwrite(first.data(), sizeof(float), first.size(), output);
    }
  }
  if (output != nullptr && std::fclose(output) != 0) {
    std::fprintf(stderr, "webrtc_stream: %s cannot be written\n", argv[3]);
    return 1;
  }
  std::fprintf(stderr, "last %.6f\n", static_cast<double>(first[0]));
  return 0;
}
