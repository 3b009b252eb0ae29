// The Q31 transform against the definition of the DFT, its wrapper, its tables and the STFT
// windows.
#include <gtest/gtest.h>

#include <complex>
#include <cstring>

#include "spectral/fftwrap_fixpoint.h"
#include "test_signals.h"

namespace {

using complex = std::complex<double>;

// Lowest SNR per length for noise with a peak of 2^29, 3 dB below what was measured. Lengths whose
// half is no power of 4 gain a bit from the rounded radix-2 stage.
struct length_case {
  uint32_t n;
  double forward_db;
  double inverse_db;
  double round_trip_db;
};

constexpr length_case kLengths[] = {
    {32, 143.0, 137.0, 133.0},   {64, 135.0, 129.0, 122.0},   {128, 140.0, 134.0, 130.0},
    {256, 132.0, 126.0, 119.0},  {512, 135.0, 131.0, 125.0},  {1024, 127.0, 122.0, 116.0},
    {2048, 130.0, 126.0, 118.0}, {4096, 122.0, 117.0, 109.0}, {8192, 124.0, 120.0, 113.0}};

// (1/n) sum of x[i] e^(-j 2 pi i k / n) for k = 0 .. n - 1, or its conjugate turn, as words.
wave dft(const std::vector<complex> &x, double turn) {
  const size_t n = x.size();
  std::vector<complex> circle(n);
  for (size_t i = 0; i < n; ++i) {
    circle[i] = std::polar(1.0 / static_cast<double>(n), turn * static_cast<double>(i));
  }
  wave words(2 * n, 0.0);
  for (size_t k = 0; k < n; ++k) {
    for (size_t i = 0; i < n; ++i) {
      const complex c = circle[i * k % n];
      words[2 * k] += x[i].real() * c.real() - x[i].imag() * c.imag();
      words[2 * k + 1] += x[i].real() * c.imag() + x[i].imag() * c.real();
    }
  }
  return words;
}

TEST(Q31Transform, IsTheDiscreteFourierTransform) {
  for (const length_case &c : kLengths) {
    const size_t n = c.n;
    const double step = 2.0 * kPi / static_cast<double>(n);
    rfft_q31_instance forward;
    rfft_q31_instance inverse;
    ASSERT_EQ(arm_rfft_init_q31(&forward, c.n, 0, 1), 0);
    ASSERT_EQ(arm_rfft_init_q31(&inverse, c.n, 1, 1), 0);
    std::vector<int32_t> time(n + 1, 7);
    std::vector<int32_t> bins(2 * n, 0);
    std::vector<complex> samples(n);
    std::vector<complex> spectrum(n);
    uint32_t seed = c.n;
    const auto word = [&seed] { return static_cast<int32_t>(536870912.0 * uniform(&seed)); };
    for (size_t i = 0; i < n; ++i) {
      time[i] = word();
      samples[i] = time[i];
    }
    for (size_t k = 0; k <= n / 2; ++k) {
      bins[2 * k] = word();
      bins[2 * k + 1] = k % (n / 2) == 0 ? 0 : word();
      spectrum[k] = complex(bins[2 * k], bins[2 * k + 1]);
      spectrum[(n - k) % n] = std::conj(spectrum[k]);
    }
    std::vector<int32_t> out(2 * n);
    arm_rfft_q31(&forward, time.data(), out.data());
    EXPECT_TRUE(out[1] == 0 && out[n + 1] == 0);
    const double forward_db = snr_db(dft(samples, -step), wave(out.begin(), out.end()));
    const std::vector<int32_t> unread = bins;
    arm_rfft_q31(&inverse, bins.data(), time.data());
    EXPECT_EQ(bins, unread);
    EXPECT_EQ(time[n], 7);
    wave real(2 * n, 0.0);
    for (size_t i = 0; i < n; ++i) {
      real[2 * i] = time[i];
    }
    const double inverse_db = snr_db(dft(spectrum, step), real);
    std::printf("N %u: forward %.1f dB, inverse %.1f dB\n", c.n, forward_db, inverse_db);
    EXPECT_GE(forward_db, c.forward_db);
    EXPECT_GE(inverse_db, c.inverse_db);
  }
  rfft_q31_instance refused;
  for (const uint32_t unsupported : {0u, 16u, 48u, 16384u}) {
    EXPECT_EQ(arm_rfft_init_q31(&refused, unsupported, 0, 1), -1);
  }
  EXPECT_EQ(arm_rfft_init_q31(&refused, 65536 + 256, 1, 1), 0) << "the low 16 bits count";
  const cfft_q31_instance no_stages = {8, nullptr, nullptr, 0};
  int32_t untouched[] = {1, 2};
  arm_cfft_q31(&no_stages, untouched, 0, 0);
  EXPECT_TRUE(untouched[0] == 1 && untouched[1] == 2);
}

TEST(Q31Tables, MatchTheirFormulas) {
  const auto expect_q31 = [](int32_t entry, long double x) {
    const long double scaled = std::min(2147483647.0L, 2147483648.0L * x);
    ASSERT_LE(std::abs(static_cast<double>(entry - scaled)), 1.0);
  };
  const cfft_q31_instance *const lengths[] = {
      &arm_cfft_sR_q31_len16,   &arm_cfft_sR_q31_len32,   &arm_cfft_sR_q31_len64,
      &arm_cfft_sR_q31_len128,  &arm_cfft_sR_q31_len256,  &arm_cfft_sR_q31_len512,
      &arm_cfft_sR_q31_len1024, &arm_cfft_sR_q31_len2048, &arm_cfft_sR_q31_len4096};
  for (const cfft_q31_instance *cfft : lengths) {
    for (uint32_t i = 0; i < cfft->fftLen / 4u * 3u; ++i) {
      const long double angle = 2.0L * std::acos(-1.0L) * i / cfft->fftLen;
      expect_q31(cfft->pTwiddle[2 * i], std::cos(angle));
      expect_q31(cfft->pTwiddle[2 * i + 1], std::sin(angle));
    }
  }
  rfft_q31_instance longest;
  arm_rfft_init_q31(&longest, 8192, 0, 1);
  const int32_t *a = longest.pTwiddleAReal;
  const int32_t *b = longest.pTwiddleBReal;
  for (uint32_t i = 0; i < 4096; ++i) {
    const long double angle = 2.0L * std::acos(-1.0L) * i / 8192.0L;
    expect_q31(a[2 * i], 0.5L - 0.5L * std::sin(angle));
    expect_q31(a[2 * i + 1], -0.5L * std::cos(angle));
    expect_q31(b[2 * i], 0.5L + 0.5L * std::sin(angle));
    expect_q31(b[2 * i + 1], 0.5L * std::cos(angle));
  }
}

// Vector kernels serve the streamed lengths and repeat the scalar path to the bit, silence and the
// edges of the range included.
TEST(Wrapper, EveryKernelGivesTheBitsOfTheScalarPath) {
  EXPECT_EQ(q31_vector_kernel_for(256), q31_vector_kernel_for(512));
  EXPECT_EQ(q31_vector_kernel_for(1024), nullptr);
  for (const int32_t n : {256, 512}) {
    tamrin_free(nullptr);
    fft_setup *fft = spx_fft_init(n);
    const q31_vector_kernel *const kernels[] = {fft->kernel, &q31_vector_sse2, &q31_vector_neon};
    for (const double level : {3000.0, 1e30, 1e-20, 0.0, 1e-36}) {
      const wave x = white_noise(static_cast<uint32_t>(n), static_cast<size_t>(n), level);
      std::vector<float> in(x.begin(), x.end());
      in[7] = level > 1e20 ? -INFINITY : in[7];
      const auto both = [&](const q31_vector_kernel *kernel) {
        std::vector<float> out(2 * in.size(), 1.0f);
        fft->kernel = kernel;
        spx_fft(fft, in.data(), out.data());
        spx_ifft(fft, in.data(), out.data() + n);
        return out;
      };
      const std::vector<float> scalar = both(nullptr);
      for (const q31_vector_kernel *kernel : kernels) {
        if (kernel != nullptr && kernel->forward != nullptr) {
          EXPECT_EQ(std::memcmp(both(kernel).data(), scalar.data(), 8 * in.size()), 0) << level;
        }
      }
    }
  }
}

// Block floating point: the round trip, and what happens at the edges of the range.
TEST(Wrapper, RoundTripAndEdges) {
  for (const length_case &c : kLengths) {
    tamrin_free(nullptr);
    fft_setup *fft = spx_fft_init(static_cast<int32_t>(c.n));
    wave x = white_noise(c.n, c.n, 5000.0);
    std::vector<float> in(x.begin(), x.end());
    std::vector<float> spectrum(c.n);
    spx_fft(fft, in.data(), spectrum.data());
    EXPECT_EQ(spectrum[1], 0.0f);
    spx_ifft(fft, spectrum.data(), in.data());
    double nyquist = 0.0;
    for (size_t i = 0; i < c.n; ++i) {
      nyquist += (i % 2 == 0 ? x[i] : -x[i]) / c.n;
    }
    for (size_t i = 0; i < c.n; ++i) {
      x[i] -= i % 2 == 0 ? nyquist : -nyquist;
    }
    const double round_trip_db = snr_db(x, wave(in.begin(), in.end()));
    std::printf("N %u: round trip %.1f dB\n", c.n, round_trip_db);
    EXPECT_GE(round_trip_db, c.round_trip_db);
  }

  tamrin_free(nullptr);
  EXPECT_EQ(spx_fft_init(96), nullptr);
  fft_setup *fft = spx_fft_init(64);
  const std::vector<float> zeros(64, 0.0f);
  std::vector<float> out(64, 1.0f);
  for (const float value : {0.0f, 1e-31f, -1e-40f, 1.4e-45f, std::nanf("")}) {
    const std::vector<float> in(64, value);
    spx_fft_fixpoint(fft, in.data(), out.data());
    EXPECT_EQ(out, zeros) << value;
    spx_ifft_fixpoint(fft, in.data(), out.data());
    EXPECT_EQ(out, zeros) << value;
  }
  // The Nyquist slot counts with the opposite sign, and a not-a-number as 0.
  std::vector<float> slot = zeros;
  slot[1] = 0.5f;
  slot[7] = std::nanf("");
  spx_ifft(fft, slot.data(), out.data());
  for (size_t i = 0; i < 64; ++i) {
    EXPECT_NEAR(wide(out[i]), i % 2 == 0 ? -0.5 : 0.5, 1e-6);
  }
}

}  // namespace
