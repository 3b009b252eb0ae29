// Measures the cost of digital silence after speech as a ratio to the cost of speech, in processor
// time.
//
// silence_cost [ROUNDS]. In silence the estimator state decays through the denormals and stays
// there, and many processors are slow on denormals. A round streams speech and then silence; each
// call is timed, and medians are compared within a round, so that the machine's speed cancels.
// Prints a ratio for every four seconds of silence. After some 20 s the library takes two silent
// channels for a dead microphone and goes on in mode 6001, whatever the mode was.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <vector>

#include "recording.h"
#include "tm_se_bf.h"

namespace {

constexpr int32_t kModes[] = {SE_BF_MODE_MEAN, SE_BF_MODE_OMLSA, SE_BF_MODE_MVDR};
constexpr int32_t kHop = 192;
constexpr int32_t kPerCall = 960;
constexpr int32_t kSpeechSeconds = 8;
constexpr int32_t kWindowSeconds = 4;
constexpr int32_t kWindows = 10;
constexpr int32_t kDefaultRounds = 15;
constexpr double kNanosecondsPerSecond = 1e9;

struct round_cost {
  double speech;             // median of a call in ns
  double silence[kWindows];  // the same in each window of silence
};

double processor_time_ns() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return kNanosecondsPerSecond * static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec);
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Median cost of a call over some seconds of the recording, or of silence when it is null.
double median_call(se_bf_inst *inst, int32_t seconds, recording *speech) {
  std::vector<int16_t> in(kPerCall * kRecordedChannels);
  std::vector<int16_t> out(kPerCall);
  std::vector<double> costs;
  for (int32_t call = 0; call < seconds * kRate / kPerCall; ++call) {
    if (speech != nullptr) {
      next_block(speech, kPerCall, kRecordedChannels, in.data());
    }
    const double before = processor_time_ns();
    se_bf_do(inst, out.data(), in.data());
    costs.push_back(processor_time_ns() - before);
  }
  return median(costs);
}

round_cost measure_round(int32_t mode, recording *speech) {
  const se_bf_create_param sizes = {kRecordedChannels, kPerCall, kHop};
  const se_bf_init_param scene = {mode, 0.06f, 30.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);
  round_cost cost = {};
  cost.speech = median_call(inst, kSpeechSeconds, speech);
  for (double &window : cost.silence) {
    window = median_call(inst, kWindowSeconds, nullptr);
  }
  se_bf_destroy(inst);
  return cost;
}

void report(int32_t mode, int32_t rounds, recording *speech) {
  std::vector<double> ratios[kWindows];
  for (int32_t round = 0; round < rounds; ++round) {
    const round_cost cost = measure_round(mode, speech);
    for (int32_t w = 0; w < kWindows; ++w) {
      ratios[w].push_back(cost.silence[w] / cost.speech);
    }
  }
  std::fprintf(stderr, "mode %d:", mode);
  double worst = 0.0;
  for (const std::vector<double> &window : ratios) {
    const double ratio = median(window);
    worst = std::max(worst, ratio);
    std::fprintf(stderr, " %.2f", ratio);
  }
  std::fprintf(stderr, " worst %.2f\n", worst);
}

}  // namespace

int main(int argc, char **argv) {
  const int32_t rounds = argument(argc, argv, 1, kDefaultRounds);
  recording speech = open_recording();
  for (const int32_t mode : kModes) {
    report(mode, rounds, &speech);
  }
  return 0;
}
