#include "tests/reference/vad.h"

#include <algorithm>
#include <cmath>

#include "tests/reference/cleaner.h"
#include "tests/reference/windows.h"

namespace orvel_test {

Signal Vad::features() const {
  const size_t length = model_.frameLength;
  Signal frame(length, 0.0);
  const size_t have = std::min(length, levelled_.size());
  std::copy(levelled_.end() - static_cast<long>(have), levelled_.end(),
            frame.end() - static_cast<long>(have));
  const Signal window = hamming(model_.frameLength);
  for (size_t i = 0; i < length; ++i)
    frame[i] *= window[i];
  const Spectrum spectrum = forwardReal(frame);
  // 121 bins: DC and 30 single bins, then 15 pairs, then 15 groups of four.
  Signal result;
  const auto group = [&](int from, int to, int width) {
    for (int k = from; k < to; k += width) {
      double power = 0.0;
      for (int i = k; i < k + width; ++i)
        power += std::norm(spectrum[i]);
      result.push_back(std::log(power / width + 1.0));
    }
  };
  group(0, 31, 1);
  group(31, 61, 2);
  group(61, 121, 4);
  return result;
}

double Vad::score(const Signal& samples) {
  const double energy = meanSquare(samples);
  const double attack = std::pow(0.01, 1.0 / 100.0), decay = std::pow(0.01, 1.0 / 300.0);
  if (energy < 10000.0) {
    level_ *= decay;
  } else if (energy <= 2.0 * level_) {
    level_ = attack * level_ + (1.0 - attack) * energy;
  } else {
    level_ = attack * energy + (1.0 - attack) * level_;
  }
  const double gain = 2000.0 / (std::sqrt(level_) + 1e-7);
  for (const double sample : samples)
    levelled_.push_back(gain * sample);

  const auto normalised = [&](Signal f) {
    for (size_t i = 0; i < model_.mu.size(); ++i)
      f[i] = (f[i] - model_.mu[i]) / std::sqrt(model_.sd[i] + 1e-7);
    return f;
  };
  history_.push_back(normalised(features()));
  Signal x;
  for (int back = 3; back >= 0; --back) {
    const bool known = history_.size() > static_cast<size_t>(back);
    const Signal past = known ? history_[history_.size() - 1 - back]
                              : normalised(Signal(history_.back().size(), 0.0));
    x.insert(x.end(), past.begin(), past.end());
  }
  const double raw = network_.raw(x);
  if (model_.minMax.size() < 2 || model_.bestF1.empty()) return raw;
  const double low = model_.minMax[0], best = model_.bestF1[0], high = model_.minMax[1];
  const double s =
      raw < best ? (raw - low) * 0.5 / (best - low) : (raw - best) * 0.5 / (high - best) + 0.5;
  return std::clamp(s, 0.00001, 0.99999);
}

}  // namespace orvel_test
