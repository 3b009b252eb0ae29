// The Q31 transform in its float wrapper against the definition of the DFT, and its vector kernels
// against the scalar path.
#include <gtest/gtest.h>

#include <complex>
#include <cstring>
#include <numeric>

#include "spectral/stft.h"
#include "test_signals.h"

namespace {

using block = std::vector<float>;

// Lowest accepted SNR of transformed noise, 3 dB below the lowest measured value, that of length
// 4096.
constexpr double kForwardDb = 122.0;
constexpr double kRoundTripDb = 109.0;

// Packed spectrum of x by the definition: X[k] / n, with 0 for Nyquist.
wave dft(const wave &x) {
  const size_t n = x.size();
  std::vector<std::complex<double>> circle(n);
  for (size_t i = 0; i < n; ++i) {
    const double turns = static_cast<double>(i) / static_cast<double>(n);
    circle[i] = std::polar(1.0 / static_cast<double>(n), -2.0 * kPi * turns);
  }
  wave packed(n);
  for (size_t k = 0; k < n / 2; ++k) {
    for (size_t i = 0; i < n; ++i) {
      packed[2 * k] += x[i] * circle[i * k % n].real();
      packed[2 * k + 1] += x[i] * circle[i * k % n].imag();
    }
  }
  return packed;
}

// The Nyquist component: alternating samples, which the transform does not represent.
wave nyquist_component(const wave &x) {
  wave nyquist(1.0, x.size());
  nyquist[std::slice(1, x.size() / 2, 2)] = wave(-1.0, x.size() / 2);
  return gain_of(nyquist, x) * nyquist;
}

TEST(Transform, IsTheDiscreteFourierTransformAndItsInverse) {
  for (int32_t n = 32; n <= 8192; n *= 2) {
    tamrin_free(nullptr);
    fft_setup *fft = spx_fft_init(n);
    const wave x = white_noise(static_cast<uint32_t>(n), static_cast<size_t>(n), 5000.0);
    block words(begin(x), end(x));

    spx_fft_fixpoint(fft, words.data(), words.data());
    EXPECT_EQ(words[1], 0.0f) << "Nyquist slot, N " << n;
    const double forward_db = snr_db(dft(x), part(words, 0, words.size()));

    spx_ifft_fixpoint(fft, words.data(), words.data());
    const double round_trip_db = snr_db(x - nyquist_component(x), part(words, 0, words.size()));

    std::printf("N %d: forward %.1f dB, round trip %.1f dB\n", n, forward_db, round_trip_db);
    EXPECT_GE(forward_db, kForwardDb) << "N " << n;
    EXPECT_GE(round_trip_db, kRoundTripDb) << "N " << n;
  }
  for (const int32_t unsupported : {0, 16, 48, 16384}) {
    EXPECT_EQ(spx_fft_init(unsupported), nullptr) << "N " << unsupported;
  }
}

// Results of the four functions for a block, one after the other, and the windowed block, on a
// kernel, or on the scalar path if it is null.
block run(fft_setup *fft, const q31_vector_kernel *kernel, const block &in, const block &window) {
  const size_t n = in.size();
  block out(5 * n, 1.0f);
  fft->kernel = kernel;
  spx_fft(fft, in.data(), &out[0]);
  spx_ifft(fft, in.data(), &out[n]);
  spx_fft_windowed(fft, in.data(), window.data(), &out[4 * n], &out[2 * n]);
  spx_ifft_windowed(fft, in.data(), window.data(), &out[3 * n]);
  return out;
}

void expect_same_bits(const block &scalar, const block &kernel) {
  const char *const entries[] = {"forward", "inverse", "windowed forward", "windowed inverse",
                                 "windowed block"};
  const auto same = [](float x, float y) { return std::memcmp(&x, &y, sizeof x) == 0; };
  const auto [expected, got] = std::mismatch(scalar.begin(), scalar.end(), kernel.begin(), same);
  const size_t n = scalar.size() / 5;
  const size_t i = static_cast<size_t>(expected - scalar.begin());
  if (expected != scalar.end()) {
    ADD_FAILURE() << entries[i / n] << ", value " << i % n << ": expected " << *expected
                  << " as by the scalar path, got " << *got;
  }
}

// The vector kernels of the streamed lengths give the bits of the scalar path. Blocks that are too
// small to be scaled, and not-a-numbers, count as silence. Vectors of 32-bit Arm know neither
// denormal numbers nor more than one not-a-number.
TEST(Transform, EveryKernelGivesTheBitsOfTheScalarPathAtTheEdgesOfTheRange) {
  const float nan = std::nanf("7");
  const struct {
    double level;
    float sample, weight;  // one of each
  } blocks[] = {{3000.0, 32768.0f, 1.0f}, {3000.0, 1e-39f, 1.0f}, {3000.0, 1e-36f, 1e-3f},
                {3000.0, nan, 1.0f},      {3000.0, 1.0f, nan},    {3000.0, 0.0f, 1e-40f},
                {3000.0, 1.0f, -1e-37f},  {1e17, -0.0f, 1e7f},    {1e30, -INFINITY, 1.0f},
                {1e38, 0.0f, 1.0f},       {1e-17, 0.0f, -1.0f},   {1e-20, nan, 1.0f},
                {0.0, nan, 1.0f},         {0.0, -0.0f, 1.0f},     {1e-34, nan, 1.0f},
                {1e-40, nan, 1.0f}};
  for (const int32_t n : {kVectorShortLength, kVectorLongLength}) {
    tamrin_free(nullptr);
    fft_setup *fft = spx_fft_init(n);
    const std::pair<const char *, const q31_vector_kernel *> kernels[] = {
        {"AVX2", &q31_vector_avx2},
        {"AVX", &q31_vector_avx},
        {"SSE4.1", &q31_vector_sse41},
        {"SSE2", &q31_vector_sse2},
        {"NEON", &q31_vector_neon}};
    for (const auto &[level, sample, weight] : blocks) {
      const wave x = white_noise(static_cast<uint32_t>(n), static_cast<size_t>(n), level);
      block in(begin(x), end(x));
      if (sample == 32768.0f) {  // every sample has the magnitude of the peak
        for (float &one : in) {
          one = std::copysign(sample, one);
        }
      }
      in[7] = sample;
      block window(in.size());
      std::iota(window.begin(), window.end(), 1.0f);
      window[7] = weight;
      const block scalar = run(fft, nullptr, in, window);
      const bool silent =
          std::none_of(scalar.begin(), scalar.end() - n, [](float y) { return y != 0.0f; });
      EXPECT_EQ(silent, level < 1e-30) << "level " << level;
      for (const auto &[name, kernel] : kernels) {
        SCOPED_TRACE(testing::Message() << name << " kernel, N " << n << ", level " << level
                                        << ", sample " << sample << ", weight " << weight);
        if (q31_vector_runs(kernel)) {
          expect_same_bits(scalar, run(fft, kernel, in, window));
        }
      }
    }
  }
}

// The windows of all frames that share a sample add up to 1. Where the hop is shorter than the
// overlap, synthesis adds the tail of the last frame behind the hop as well.
TEST(Stft, WindowsAddUpToOneAndSynthesisAddsTheWholeTail) {
  constexpr int32_t kLength = 64;
  constexpr float kBehind = 1000.0f;
  for (const int32_t hop : {16, 32, 48, 64}) {
    tamrin_free(nullptr);
    fft_setup *fft = spx_fft_init(kLength);
    stft_buf *stft = stft_buf_create(kLength, hop, fft, 1);
    const wave x = white_noise(41, kLength, 3000.0);
    const block spectrum(begin(x), end(x));
    block frame(kLength);
    for (int32_t i = 0; i < kLength; ++i) {
      EXPECT_NEAR(stft->window[i], 0.54 - 0.46 * std::cos(6.2832 * i / kLength), 1e-6) << i;
      double sum = 0.0;
      for (int32_t k = i % hop; k < kLength; k += hop) {
        sum += static_cast<double>(stft->window[k] * stft->window[kLength + k]);
      }
      EXPECT_NEAR(sum, 1.0, 1e-6) << "frames that share sample " << i << ", hop " << hop;
    }
    spx_ifft(fft, spectrum.data(), frame.data());
    for (size_t i = 0; i < kLength; ++i) {
      frame[i] *= stft->window[kLength + i];
    }
    for (const bool tail : {false, true}) {
      block out(kLength, kBehind);
      EXPECT_EQ(stft_spectrum_to_time(stft, spectrum.data(), out.data()), out.data());
      for (int32_t i = 0; i < kLength; ++i) {
        const float sample = i < hop ? frame[static_cast<size_t>(i)] : kBehind;
        const float last = tail && i < kLength - hop ? frame[static_cast<size_t>(hop + i)] : 0.0f;
        EXPECT_EQ(out[static_cast<size_t>(i)], sample + last) << "hop " << hop << ", sample " << i;
      }
    }
  }
}

}  // namespace
