// Counts the floating-point operations on denormals in digital silence that follows speech: a
// figure that does not depend on how slow this processor is on them. x86-64 only.
//
// denormal_count MODE. Every vector instruction with a denormal operand or a result below the
// normal range counts once; comparisons count too, although denormals do not slow them down. Such
// an instruction traps; the handler counts it, and the processor then executes it alone with the
// traps off.
#include <ucontext.h>
#include <xmmintrin.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <vector>

#include "recording.h"
#include "tm_se_bf.h"

namespace {

constexpr int32_t kHop = 192;
constexpr int32_t kPerCall = 960;
constexpr int32_t kSpeechCalls = 150;
constexpr int32_t kWindows = 10;
constexpr int32_t kCallsPerWindow = 60;

// Bits of the control word of vector arithmetic.
constexpr uint32_t kRaisedFlags = 0x3F;
constexpr uint32_t kDenormalMask = 0x100;
constexpr uint32_t kUnderflowMask = 0x800;
constexpr uint32_t kTrapsOff = kDenormalMask | kUnderflowMask;

// Flag of the processor that makes it trap after one instruction.
constexpr greg_t kSingleStep = 0x100;

volatile sig_atomic_t denormal_operations;

void step_over(int, siginfo_t *, void *context) {
  ucontext_t *interrupted = static_cast<ucontext_t *>(context);
  uint32_t *control = &interrupted->uc_mcontext.fpregs->mxcsr;
  *control = (*control | kTrapsOff) & ~kRaisedFlags;
  interrupted->uc_mcontext.gregs[REG_EFL] |= kSingleStep;
  denormal_operations = denormal_operations + 1;
}

void traps_on_again(int, siginfo_t *, void *context) {
  ucontext_t *interrupted = static_cast<ucontext_t *>(context);
  uint32_t *control = &interrupted->uc_mcontext.fpregs->mxcsr;
  *control &= ~(kTrapsOff | kRaisedFlags);
  interrupted->uc_mcontext.gregs[REG_EFL] &= ~kSingleStep;
}

void install_handlers() {
  struct sigaction action = {};
  action.sa_flags = SA_SIGINFO;
  action.sa_sigaction = step_over;
  sigaction(SIGFPE, &action, nullptr);
  action.sa_sigaction = traps_on_again;
  sigaction(SIGTRAP, &action, nullptr);
}

// Operations per frame over some calls on the recording, or on silence when it is null.
double count_calls(se_bf_inst *inst, int32_t calls, recording *speech) {
  std::vector<int16_t> in(kPerCall * kRecordedChannels);
  std::vector<int16_t> out(kPerCall);
  denormal_operations = 0;
  for (int32_t call = 0; call < calls; ++call) {
    if (speech != nullptr) {
      next_block(speech, kPerCall, kRecordedChannels, in.data());
    }
    const uint32_t control = _mm_getcsr();
    _mm_setcsr(control & ~(kTrapsOff | kRaisedFlags));
    se_bf_do(inst, out.data(), in.data());
    _mm_setcsr(control);
  }
  return static_cast<double>(denormal_operations) / (calls * kPerCall / kHop);
}

}  // namespace

int main(int argc, char **argv) {
  const int32_t mode = argument(argc, argv, 1, SE_BF_MODE_OMLSA);
  recording speech = open_recording();
  install_handlers();
  const se_bf_create_param sizes = {kRecordedChannels, kPerCall, kHop};
  const se_bf_init_param scene = {mode, 0.06f, 30.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);

  std::fprintf(stderr, "mode %d: speech %.1f, silence", mode,
               count_calls(inst, kSpeechCalls, &speech));
  double worst = 0.0;
  for (int32_t window = 0; window < kWindows; ++window) {
    const double count = count_calls(inst, kCallsPerWindow, nullptr);
    worst = std::max(worst, count);
    std::fprintf(stderr, " %.1f", count);
  }
  std::fprintf(stderr, " worst %.1f\n", worst);
  se_bf_destroy(inst);
  return 0;
}
