// Memory and real time: the heap and the operating system serve open and close alone.
//
// The program's own malloc and its kin take the place of the C library's, for the stream library
// too.
#include <fcntl.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

#include "stream_use.h"

// The C library's own.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *__libc_realloc(void *block, size_t size);
extern "C" void *__libc_memalign(size_t alignment, size_t size);
extern "C" void __libc_free(void *block);
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

int64_t g_calls = 0;        // of the heap
int64_t g_blocks = 0;       // taken and not given back
int64_t g_until_fail = -1;  // requests that are still served; negative: all
int64_t g_largest = 0;      // block in bytes

bool refused(size_t size) {
  ++g_calls;
  g_largest = std::max(g_largest, static_cast<int64_t>(size));
  if (g_until_fail == 0) {
    return true;
  }
  g_until_fail -= g_until_fail > 0 ? 1 : 0;
  ++g_blocks;
  return false;
}

}  // namespace

extern "C" void *malloc(size_t size) {
  return refused(size) ? nullptr : __libc_malloc(size);
}

extern "C" void *calloc(size_t count, size_t size) {
  return refused(count * size) ? nullptr : __libc_calloc(count, size);
}

extern "C" void *aligned_alloc(size_t alignment, size_t size) {
  return refused(size) ? nullptr : __libc_memalign(alignment, size);
}

extern "C" void *realloc(void *block, size_t size) {
  ++g_calls;
  g_blocks += block == nullptr ? 1 : 0;
  return __libc_realloc(block, size);
}

extern "C" void free(void *block) {
  ++g_calls;
  g_blocks -= block != nullptr ? 1 : 0;
  __libc_free(block);
}

namespace {

#ifdef TM_SE_BF_STREAM_RATES
constexpr int32_t kRates[] = {16000, 8000, 44100, 48000, 192000};
#else
constexpr int32_t kRates[] = {16000};
#endif

constexpr size_t kLongest = 32768;  // latency, at any rate

struct buffers {
  std::vector<int16_t> words = std::vector<int16_t>(2 * kLongest);
  std::vector<float> floats = std::vector<float>(2 * kLongest);
  std::vector<int16_t> out_words = std::vector<int16_t>(kLongest);
  std::vector<float> out_floats = std::vector<float>(kLongest);
};

// Every function but open and close, with sound, faults, silence, changes and what is no number.
void use(se_bf_stream *stream, const se_bf_stream_config *one, const se_bf_stream_config *other,
         buffers *b) {
  const size_t frames = static_cast<size_t>(one->rate) / 40;  // events take time, at any rate
  for (int32_t round = 0; round < 2; ++round) {
    for (int32_t i = 0; i < 200; ++i) {
      uint32_t seed = static_cast<uint32_t>(i + 1);
      for (size_t n = 0; n < 2 * frames; ++n) {
        const bool dead = n % 2 == 1 && i > 10 && i < 60;
        b->words[n] = dead || i == 199 ? int16_t{0} : static_cast<int16_t>(noise(&seed, 9000));
        b->floats[n] = static_cast<float>(b->words[n]) / 32768.0f;
      }
      b->floats[77] = HUGE_VALF;
      if (i % 40 == 39) {
        se_bf_stream_change(stream, i % 80 == 39 ? other : one);
      }
      se_bf_stream_process_s16(stream, b->words.data(), frames / 2, b->out_words.data());
      se_bf_stream_process_f32(stream, b->floats.data(), frames / 2, b->out_floats.data());
      se_bf_stream_push_s16(stream, b->words.data(), 333, b->out_words.data());
      se_bf_stream_push_f32(stream, b->floats.data(), 333, b->out_floats.data());
    }
    se_bf_stream_finish_s16(stream, b->out_words.data());
    se_bf_stream_push_f32(stream, b->floats.data(), frames, b->out_floats.data());
    se_bf_stream_finish_f32(stream, b->out_floats.data());
    se_bf_stream_reset(stream);
  }
  se_bf_stream_latency(stream);
  se_bf_stream_version();
}

constexpr int kTooFewEvents = 101;
constexpr int kNoCage = 100;  // and no heap calls

// Ends the process with the number of heap calls; any system call but read and write kills it.
[[noreturn]] void use_in_a_cage(int32_t rate, int heard) {
  buffers b;
  int64_t events = 0;
  se_bf_stream_config one = make_config(2, SE_BF_MODE_MVDR, 160);
  one.rate = rate;
  one.on_event = [](void *user, const se_bf_stream_event *) { ++*static_cast<int64_t *>(user); };
  one.user = &events;
  se_bf_stream_config other = one;
  other.mode = SE_BF_MODE_OMLSA;
  other.full_band = 0;
  se_bf_stream *stream = open_stream(one);
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  dup2(heard, STDOUT_FILENO);
  dup2(heard, STDERR_FILENO);
  const int64_t calls = g_calls;
  const bool caged = prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) == 0;
  use(stream, &one, &other, &b);
  int status = static_cast<int>(std::min<int64_t>(g_calls - calls, 99));
  if (status == 0) {
    status = events < 3 ? kTooFewEvents : caged ? 0 : kNoCage;
  }
  syscall(SYS_exit, status);
  std::abort();
}

TEST(StreamMemory, NothingButOpenAndCloseCallsTheHeapOrTheSystem) {
  bool caged = true;
  for (const int32_t rate : kRates) {
    SCOPED_TRACE(rate);
    int printed[2];
    ASSERT_EQ(pipe(printed), 0);
    const pid_t child = fork();
    if (child == 0) {
      use_in_a_cage(rate, printed[1]);
    }
    close(printed[1]);
    int status = 0;
    waitpid(child, &status, 0);
    char text[200] = {};
    EXPECT_EQ(read(printed[0], text, sizeof text - 1), 0) << "printed: " << text;
    close(printed[0]);
    ASSERT_FALSE(WIFSIGNALED(status)) << "killed by signal " << WTERMSIG(status);
    caged = caged && WEXITSTATUS(status) != kNoCage;
    EXPECT_TRUE(WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == kNoCage)
        << WEXITSTATUS(status) << " heap calls; " << kTooFewEvents << ": too few events";
  }
  if (!caged) {
    GTEST_SKIP() << "no heap calls, but no system calls can be forbidden here";
  }
}

TEST(StreamMemory, EveryAllocationThatFailsLeavesNothingBehind) {
  for (const int32_t rate : kRates) {
    se_bf_stream_config config = make_config(2, SE_BF_MODE_MVDR, 320);
    config.rate = rate;
    const int64_t blocks = g_blocks;
    se_bf_stream *stream = nullptr;
    int64_t served = 0;
    for (; stream == nullptr && served < 100; ++served) {
      const char *error = nullptr;
      g_until_fail = served;
      stream = se_bf_stream_open(&config, &error);
      g_until_fail = -1;
      if (stream == nullptr) {
        ASSERT_NE(error, nullptr);
        ASSERT_NE(std::string(error).find("memory"), std::string::npos) << error;
        ASSERT_EQ(g_blocks, blocks) << "after " << served << " allocations";
      }
    }
    ASSERT_NE(stream, nullptr);
    EXPECT_GE(served, 2) << "the first one failed";
    std::printf("%d Hz: %d allocations, the largest %d bytes\n", rate, static_cast<int>(served - 1),
                static_cast<int>(g_largest));
    se_bf_stream_close(stream);
    EXPECT_EQ(g_blocks, blocks);
  }
}

TEST(StreamMemory, StreamsThatComeAndGoLeaveNothingBehind) {
  const pcm in = make_sound(1000, 1);
  pcm out(1000);
  const int64_t blocks = g_blocks;
  for (int32_t i = 0; i < TM_SE_BF_STREAM_ROUNDS; ++i) {
    se_bf_stream_config config = make_config(2, SE_BF_MODE_MVDR, 0);
    // The filters of other rates take milliseconds to compute.
    config.rate = kRates[i % 200 != 0 ? 0 : static_cast<size_t>(i / 200) % std::size(kRates)];
    se_bf_stream *stream = se_bf_stream_open(&config, nullptr);
    ASSERT_NE(stream, nullptr);
    se_bf_stream_process_s16(stream, in.data(), 1000, out.data());
    se_bf_stream_close(stream);
  }
  EXPECT_EQ(g_blocks, blocks);
}

}  // namespace
