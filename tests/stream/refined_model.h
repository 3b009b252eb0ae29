// The refined path once more, in double precision and off line: the oracle of its tests. It has no
// protection against faults.
#ifndef TM_SE_BF_TESTS_STREAM_REFINED_MODEL_H
#define TM_SE_BF_TESTS_STREAM_REFINED_MODEL_H

#include <complex>

#include "test_signals.h"

namespace refined_model {

constexpr size_t kHop = 320, kLength = 512, kBins = 256;
using spectrum = std::valarray<std::complex<double>>;

// Angle of bin k for each sample.
inline double turn(size_t k, size_t length = kLength) {
  return 2 * kPi * static_cast<double>(k) / static_cast<double>(length);
}

// Sum of x(n) exp(sign 2 pi i k n / N), by halves (Cooley and Tukey, 1965).
inline spectrum transform(const spectrum &x, double sign) {
  const size_t n = x.size(), half = n / 2;
  if (n == 1) {
    return x;
  }
  const spectrum even = transform(x[std::slice(0, half, 2)], sign);
  const spectrum odd = transform(x[std::slice(1, half, 2)], sign);
  spectrum y(n);
  for (size_t k = 0; k < half; ++k) {
    const double angle = sign * turn(k, n);
    y[k] = even[k] + std::polar(1.0, angle) * odd[k];
    y[k + half] = even[k] - std::polar(1.0, angle) * odd[k];
  }
  return y;
}

template <typename function>
wave by_bin(function value, size_t count = kBins) {
  wave x(count);
  for (size_t k = 0; k < count; ++k) {
    x[k] = value(k);
  }
  return x;
}

inline wave power(const spectrum &x) {
  return by_bin([&](size_t k) { return std::norm(x[k]); });
}

inline wave larger(const wave &x, double least) {
  return by_bin([&](size_t k) { return std::max(x[k], least); });
}

inline wave smaller(const wave &x, const wave &y) {
  return by_bin([&](size_t k) { return std::min(x[k], y[k]); });
}

inline wave window() {
  return by_bin([](size_t n) { return 0.54 - 0.46 * std::cos(turn(n)); }, kLength);
}

// Cohen and Berdugo, 2002.
struct presence {
  int frame = 0;
  wave prob = wave(kBins), noise, smooth, least, recent;
  std::vector<wave> rows;
  void hear(const wave &pwr) {
    noise = frame == 0 ? pwr : noise;
    smooth = frame == 0 ? pwr : wave(0.9 * smooth + 0.1 * pwr);
    ++frame;
    least = frame < 15 ? smooth : smaller(least, smooth);
    recent = frame < 15 ? smooth : smaller(recent, smooth);
    prob *= 0.09;
    prob += by_bin([&](size_t k) { return smooth[k] > 5 * least[k] ? 0.91 : 0.0; });
    const wave keep = 0.85 + 0.15 * prob;
    noise = (1.0 - keep) * pwr + keep * noise;
    if (frame == 15) {
      rows.assign(8, smooth);
    } else if (frame % 15 == 0) {
      rows.erase(rows.begin());
      rows.push_back(recent);
      least = rows[0];
      for (const wave &row : rows) {
        least = smaller(least, row);
      }
      recent = smooth;
    }
  }
};

// Weighted averages of both powers and the cross-spectrum.
struct average {
  wave weight = wave(kBins), first = wave(kBins), second = wave(kBins);
  spectrum cross = spectrum(kBins);
  void hear(const wave &w, const spectrum &x, const spectrum &y) {
    weight = 0.998 * weight + 0.002 * w;
    first = 0.998 * first + 0.002 * w * power(x);
    second = 0.998 * second + 0.002 * w * power(y);
    for (size_t k = 0; k < kBins; ++k) {
      cross[k] = 0.998 * cross[k] + 0.002 * w[k] * x[k] * std::conj(y[k]);
    }
  }
};

struct direction {
  presence talk;
  average speech, noise;
  wave ringing = wave(kBins);
  double delay = 0, target = 0, coarse = 0;
  bool found = false;
  // Best delay among those from `first` on, or 1e9 when none is good.
  double search(double first, double last, double step, double least) const {
    std::vector<std::complex<double>> phasors(kBins);
    double most = 1e-9;
    for (size_t k = 7; k <= 176; ++k) {
      const double s = 1 / (speech.weight[k] + 1e-9), n = 1 / (noise.weight[k] + 1e-9);
      const std::complex<double> added = speech.cross[k] * s - noise.cross[k] * n;
      const double power0 = std::max(0.0, speech.first[k] * s - noise.first[k] * n);
      const double power1 = std::max(0.0, speech.second[k] * s - noise.second[k] * n);
      if (power0 * power1 > 0 && std::abs(added) > 0) {
        const double coherence = std::min(1.0, std::abs(added) / std::sqrt(power0 * power1));
        phasors[k] = added / std::abs(added) * coherence * std::sqrt(speech.weight[k]);
        most += std::abs(phasors[k]);
      }
    }
    double best = least * most, winner = 1e9;
    for (double candidate = first; candidate <= std::min(last, 8.0); candidate += step) {
      double sum = 0;
      for (size_t k = 7; k <= 176; ++k) {
        sum += (phasors[k] * std::polar(1.0, -turn(k) * candidate)).real();
      }
      winner = sum > best ? candidate : winner;
      best = std::max(best, sum);
    }
    return winner;
  }
  void hear(const spectrum &x, const spectrum &y) {
    const wave pwr = 0.5 * (power(x) + power(y));
    talk.hear(pwr);
    if (talk.frame == 1) {
      talk.hear(pwr);
    }
    const wave excess = talk.prob * larger(pwr - talk.noise, 0);
    const double vowel = wave(excess[std::slice(9, 40, 1)]).sum() + 1e-15;
    const double click = wave(excess[std::slice(65, 112, 1)]).sum();
    const double voice = std::pow(vowel / (vowel + 2 * click), 2);
    const wave rung = talk.noise + 1.5 * ringing;
    const wave share = voice * talk.prob * larger(1.0 - rung / larger(pwr, 1e-15), 0);
    ringing = by_bin([&](size_t k) { return std::max(0.7 * ringing[k], pwr[k]); });
    speech.hear(talk.frame > 17 ? share : wave(kBins), x, y);
    noise.hear(talk.frame > 5 ? wave(1.0 - talk.prob) : wave(kBins), x, y);
    if (talk.frame % 10 == 4) {
      coarse = search(-8, 8, 0.25, 0);
    }
    if (talk.frame % 10 == 0 && talk.frame >= 40) {
      const double lowest = std::max(-8.0, coarse - 0.375);
      const double fine = search(lowest, lowest + 0.75, 0.125, 0.15);
      target = fine < 1e9 ? fine : target;
      delay = found ? delay : target;
      found = found || fine < 1e9;
    }
    delay = std::abs(target - delay) < 0.001 ? target : delay + 0.08 * (target - delay);
  }
};

struct suppression {
  presence talk;
  wave eta = wave(1.0, kBins), removed = wave(kBins), share = wave(kBins), speech = wave(kBins);
  wave kept = wave(kBins), late = wave(kBins);
  std::vector<wave> rows = std::vector<wave>(4, wave(kBins));
  double pause = 1;
  // Share of the energy in a band that passes.
  static double passed(const wave &gain, const wave &energy, std::slice band, double least) {
    return wave((gain * energy)[band]).sum() / (wave(energy[band]).sum() + least);
  }
  wave hear(const spectrum &z, const wave &mean) {
    talk.hear(mean);
    const wave gamma = mean / (larger(1.0 - talk.prob, 6e-8) * larger(talk.noise, 1.19e-6));
    const wave xi = larger(0.05 * (gamma - 1.0), 0) + 0.95 * eta;
    const wave first = xi / (xi + 1.0);
    eta = gamma * first;

    const wave pwr = power(z);
    removed = 0.985 * removed + 0.015 * (1.0 - first) * pwr;
    share = 0.985 * share + 0.015 * (1.0 - first);
    speech = 0.2 * speech + 0.8 * first * pwr;
    const wave noise = (removed + 1.0 / (kLength * kLength)) / (share + 0.01);
    wave gain = speech / (speech + 2.0 * noise);
    kept = 0.3 * kept + 0.7 * gain * pwr;
    late = 0.7 * late + 0.3 * kept;
    rows.erase(rows.begin());
    rows.push_back(late);
    gain *= larger(1.0 - 0.1 * rows[0] / (kept + 1e-15), 0.1);

    const std::slice band(8, 120, 1);
    const double most = std::max(passed(gain, pwr, band, 1.0 / (kLength * kLength)),
                                 passed(gain, pwr / noise, std::slice(0, 168, 1), 1e-9));
    const double open = std::min(1.0, std::max(0.0, (most - 0.1) / 0.2));
    const double wanted = std::pow(0.25, 1 - open);
    pause = wanted > pause ? wanted : 0.8 * pause + 0.2 * wanted;
    const double alike = (1 - pause) / 0.75, common = wave(gain[band]).sum() / 120;
    return pause * std::sqrt((1 - alike) * gain + alike * common);
  }
};

// Delay in samples that the model searches for itself.
constexpr double kSearched = 1e9;

// x: one or two channels of 16-bit values; delay: of channel 1 against channel 0; floor: smallest
// gain. The result is aligned with x.
inline wave run(std::vector<wave> x, double delay, double floor) {
  const wave analysis = window(), squares = analysis * analysis;
  wave sum = squares;
  for (size_t n = 0; n < kLength - kHop; ++n) {
    sum[n] += squares[n + kHop];
    sum[n + kHop] += squares[n];
  }
  const size_t count = x[0].size(), lead = kLength - kHop, frames = count / kHop;
  wave out(count + kLength);
  direction where;
  suppression suppress;
  wave power0(kBins), power1(kBins);
  double imbalance = 0;
  for (size_t t = 0; t < frames; ++t) {
    if (x.size() == 2) {
      const std::slice block(t * kHop, kHop, 1);
      const double first = std::abs(wave(x[0][block])).sum();
      const double second = std::abs(wave(x[1][block])).sum();
      imbalance += 0.01 * (std::log(second / first) - imbalance);
      const double half = std::abs(imbalance) > 0.12 ? imbalance / 2 : 0;
      x[0][block] *= wave(std::exp(half), kHop);
      x[1][block] *= wave(std::exp(-half), kHop);
    }
    std::vector<spectrum> spectra;
    for (const wave &channel : x) {
      spectrum frame(kLength);
      for (size_t n = t == 0 ? lead : 0; n < kLength; ++n) {
        frame[n] = analysis[n] * channel[t * kHop + n - lead] / kLength;
      }
      spectra.push_back(transform(frame, -1));
      spectra.back()[0] = 0;
    }
    spectrum z = spectra[0][std::slice(0, kBins, 1)];
    wave mean = power(z);
    if (x.size() == 2) {
      if (delay == kSearched) {
        where.hear(spectra[0], spectra[1]);
      }
      const double at = delay == kSearched ? where.delay : delay;
      spectrum a(kBins), b(kBins);
      for (size_t k = 0; k < kBins; ++k) {
        const std::complex<double> ramp = std::polar(1.0, -turn(k) * at / 2);
        a[k] = spectra[0][k] * ramp;
        b[k] = spectra[1][k] * std::conj(ramp);
      }
      power0 = 0.8 * power0 + 0.2 * power(a);
      power1 = 0.8 * power1 + 0.2 * power(b);
      for (size_t k = 0; k < kBins; ++k) {
        const double i = std::sqrt(power0[k]) + 1e-9, j = std::sqrt(power1[k]) + 1e-9;
        z[k] = (j * a[k] + i * b[k]) / (i + j);
        mean[k] = std::norm(0.5 * (a[k] + b[k]));
      }
    }
    const wave gain = floor + (1 - floor) * suppress.hear(z, mean);
    spectrum whole(kLength);
    for (size_t k = 1; k < kBins; ++k) {
      whole[k] = gain[k] * z[k];
      whole[kLength - k] = std::conj(whole[k]);
    }
    const spectrum frame = transform(whole, 1);
    for (size_t n = 0; n < kLength; ++n) {
      out[t * kHop + n] += frame[n].real() * analysis[n] / sum[n];
    }
  }
  return out[std::slice(lead, count, 1)];
}

}  // namespace refined_model

#endif  // TM_SE_BF_TESTS_STREAM_REFINED_MODEL_H
