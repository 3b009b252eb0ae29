// The Q31 transform behind its float wrapper against the definition of the DFT, and its kernels.
#include <gtest/gtest.h>

#include <complex>
#include <cstring>
#include <numeric>

#include "spectral/fftwrap_fixpoint.h"
#include "test_signals.h"

namespace {

using block = std::vector<float>;

// Least SNR of noise, 3 dB below what was measured at length 4096, which comes off worst: lengths
// whose half is a power of 4 gain a bit from the rounded radix-2 stage.
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

TEST(Transform, IsTheDiscreteFourierTransformAndItsInverse) {
  for (int32_t n = 32; n <= 8192; n *= 2) {
    tamrin_free(nullptr);
    fft_setup *fft = spx_fft_init(n);
    wave x = white_noise(static_cast<uint32_t>(n), static_cast<size_t>(n), 5000.0);
    block words(begin(x), end(x));
    spx_fft_fixpoint(fft, words.data(), words.data());
    EXPECT_EQ(words[1], 0.0f);
    const double forward_db = snr_db(dft(x), part(words, 0, words.size()));
    spx_ifft_fixpoint(fft, words.data(), words.data());
    wave nyquist(1.0, x.size());
    nyquist[std::slice(1, x.size() / 2, 2)] = wave(-1.0, x.size() / 2);
    x -= gain_of(nyquist, x) * nyquist;
    const double round_trip_db = snr_db(x, part(words, 0, words.size()));
    std::printf("N %d: forward %.1f dB, round trip %.1f dB\n", n, forward_db, round_trip_db);
    EXPECT_GE(forward_db, kForwardDb);
    EXPECT_GE(round_trip_db, kRoundTripDb);
  }
  for (const int32_t unsupported : {0, 16, 48, 16384}) {
    EXPECT_EQ(spx_fft_init(unsupported), nullptr);
  }
}

// Vector kernels serve the streamed lengths and repeat the scalar path to the bit. Blocks that are
// too small to be scaled, and not-a-numbers, are silence.
TEST(Transform, EveryKernelGivesTheBitsOfTheScalarPathAtTheEdgesOfTheRange) {
  for (const int32_t n : {256, 512}) {
    tamrin_free(nullptr);
    fft_setup *fft = spx_fft_init(n);
    block window(static_cast<size_t>(n));
    std::iota(window.begin(), window.end(), 1.0f);
    const q31_vector_kernel *const kernels[] = {fft->kernel, &q31_vector_sse2, &q31_vector_neon};
    for (const double level : {3000.0, 1e30, 1e-20, 0.0, 1e-34, 1e-40}) {
      const wave x = white_noise(static_cast<uint32_t>(n), static_cast<size_t>(n), level);
      block in(begin(x), end(x));
      in[7] = level > 1e20 ? -INFINITY : level < 1e-15 ? std::nanf("") : in[7];
      const auto both = [&](const q31_vector_kernel *kernel) {
        block out(5 * in.size(), 1.0f);
        float *product = out.data() + 4 * n;
        fft->kernel = kernel;
        spx_fft(fft, in.data(), out.data());
        spx_ifft(fft, in.data(), out.data() + n);
        spx_fft_windowed(fft, in.data(), window.data(), product, out.data() + 2 * n);
        spx_ifft_windowed(fft, in.data(), window.data(), out.data() + 3 * n);
        out.resize(4 * in.size());  // what a kernel leaves in the product is its own business
        return out;
      };
      const block scalar = both(nullptr);
      EXPECT_EQ(scalar == block(4 * in.size(), 0.0f), level < 1e-30);
      for (const q31_vector_kernel *kernel : kernels) {
        if (kernel != nullptr && kernel->forward != nullptr) {
          const block out = both(kernel);
          EXPECT_EQ(std::memcmp(out.data(), scalar.data(), 16 * in.size()), 0) << level;
        }
      }
    }
  }
}

}  // namespace
