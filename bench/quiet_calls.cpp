// Counts heap calls, system calls and page faults in se_bf_do after its first call; all should be
// 0.
//
// quiet_calls MODE. The input is speech and then digital silence, so that every path runs,
// including the repair of a microphone.
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "recording.h"
#include "tm_se_bf.h"

// The C library's own allocator, under the names it keeps for programs that replace the public
// ones. NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void __libc_free(void *block);
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

constexpr int32_t kPerCall = 960;
constexpr int32_t kSpeechCalls = 500;
constexpr int32_t kSilentCalls = 500;

int32_t heap_calls;
volatile sig_atomic_t system_calls;

void count_system_call(int) {
  system_calls = system_calls + 1;
}

// From here on every system call raises SIGSYS instead, except those that the end of the program
// and the return from a signal handler need.
bool trap_system_calls() {
  struct sigaction action = {};
  action.sa_handler = count_system_call;
  if (sigaction(SIGSYS, &action, nullptr) != 0) {
    return false;
  }
  constexpr uint32_t kAllowed[] = {__NR_rt_sigreturn, __NR_write, __NR_exit_group};
  std::vector<sock_filter> filter;
  filter.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
  for (const uint32_t number : kAllowed) {
    filter.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1));
    filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRAP));
  const sock_fprog program = {static_cast<uint16_t>(filter.size()), filter.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

int64_t page_faults() {
  rusage usage = {};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_minflt + usage.ru_majflt;
}

se_bf_inst *open_instance(int32_t mode) {
  const se_bf_create_param sizes = {kRecordedChannels, kPerCall, 0};
  const se_bf_init_param scene = {mode, 0.06f, 30.0f};
  se_bf_inst *inst = se_bf_create(&sizes);
  se_bf_init(inst, &scene);
  return inst;
}

// All calls after the first, which the caller has made.
void stream(se_bf_inst *inst, recording *speech, int16_t *in, int16_t *out) {
  for (int32_t call = 0; call < kSpeechCalls; ++call) {
    next_block(speech, kPerCall, kRecordedChannels, in);
    se_bf_do(inst, out, in);
  }
  for (int32_t call = 0; call < kSilentCalls; ++call) {
    std::fill_n(in, kPerCall * kRecordedChannels, int16_t{0});
    se_bf_do(inst, out, in);
  }
}

}  // namespace

extern "C" void *malloc(size_t size) {
  ++heap_calls;
  return __libc_malloc(size);
}
extern "C" void *calloc(size_t count, size_t size) {
  ++heap_calls;
  return __libc_calloc(count, size);
}
extern "C" void *realloc(void *block, size_t size) {
  ++heap_calls;
  return __libc_realloc(block, size);
}
extern "C" void free(void *block) {
  ++heap_calls;
  __libc_free(block);
}

int main(int argc, char **argv) {
  const int32_t mode = argument(argc, argv, 1, SE_BF_MODE_MVDR);
  recording speech = open_recording();
  std::vector<int16_t> in(kPerCall * kRecordedChannels);
  std::vector<int16_t> out(kPerCall);

  // A first run counts page faults and heap calls. The recording is read once before, so that its
  // own page faults do not count.
  for (const int16_t sample : speech.pcm) {
    out[0] = static_cast<int16_t>(out[0] ^ sample);
  }
  se_bf_inst *inst = open_instance(mode);
  next_block(&speech, kPerCall, kRecordedChannels, in.data());
  se_bf_do(inst, out.data(), in.data());
  const int64_t faults_before = page_faults();
  const int32_t heap_before = heap_calls;
  stream(inst, &speech, in.data(), out.data());
  const int64_t faults = page_faults() - faults_before;
  const int32_t heap = heap_calls - heap_before;

  // A second run counts system calls, each of which traps. A known system call, and the heap calls
  // so far, show that the counters work.
  const bool trapped = trap_system_calls();
  syscall(__NR_getppid);
  if (!trapped || system_calls != 1 || heap_before == 0) {
    std::fprintf(stderr, "mode %d: the counters do not work here\n", mode);
    std::_Exit(1);
  }
  system_calls = 0;
  stream(inst, &speech, in.data(), out.data());
  const int32_t systems = system_calls;
  std::fprintf(stderr, "mode %d: heap %d system %d faults %ld\n", mode, heap, systems,
               static_cast<long>(faults));
  std::_Exit(0);
}
