#include "tests/reference/cleaner.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace orvel_test {
namespace {

int delayMs(int frameLengthMs, int callMs) {
  static const std::map<std::pair<int, int>, int> table = {
      {{32, 10}, 31}, {{32, 20}, 28}, {{32, 30}, 30}, {{32, 40}, 28},
      {{30, 10}, 25}, {{30, 20}, 25}, {{30, 30}, 15}, {{30, 40}, 25}};
  return table.at({frameLengthMs, callMs});
}

}  // namespace

std::vector<std::pair<int, int>> compressedBands(int n, int compress) {
  std::vector<std::pair<int, int>> bands;
  for (int i = 0; i < n >> compress; ++i)
    bands.emplace_back(i, i);
  for (int octave = 1; octave <= compress; ++octave) {
    const int width = 1 << octave;
    const int end = n >> (compress - octave);
    for (int i = end / 2; i < end; i += width)
      bands.emplace_back(i, i + width - 1);
  }
  return bands;
}

Cleaner::Cleaner(const TestModel& model, const Keys& keys, int frameMs)
    : model_(model),
      settings_(model.generation(), keys),
      generation_(model.generation()),
      step_(model.step),
      perCall_(model.rate * frameMs / 1000),
      delay_(model.rate * delayMs(model.frameLength * 1000 / model.rate, frameMs) / 1000),
      network_(model_),
      previous_(model.bins, 0.0) {
  const int n = model.frameLength;
  analysis_ = generation_ == 1 ? hamming(n) : vorbis(n);
  synthesis_ = generation_ == 1 ? (settings_.hammingAfter ? hamming(n) : triangle(n)) : vorbis(n);
  if (settings_.cut) gate_.emplace(model.rate * 4 / n, settings_.cutReference);
  if (settings_.rescale) {
    const double square = settings_.rescaleAmplitude * settings_.rescaleAmplitude;
    loud_.emplace(model.rate * 4 / model.step, settings_.rescaleEnergy, Signal{square});
  }
  input_.assign(step_, 0.0);
  output_.assign(delay_, 0.0);
}

Signal Cleaner::process(const Signal& samples) {
  double peak = 0.0;
  for (const double sample : samples)
    peak = std::fmax(peak, std::fabs(sample));
  silent_ = settings_.skipSilence && peak == 0.0;
  input_.insert(input_.end(), samples.begin(), samples.end());
  for (; (frames_ + 2) * step_ <= input_.size(); ++frames_) {
    const auto begin = input_.begin() + static_cast<long>(frames_ * step_);
    const Signal y = frame(Signal(begin, begin + model_.frameLength));
    output_.resize(delay_ + (frames_ + 1) * step_, 0.0);
    for (size_t i = 0; i < y.size(); ++i)
      output_[output_.size() - 2 * step_ + i] += y[i];
  }
  read_ += perCall_;
  return Signal(output_.begin() + static_cast<long>(read_ - perCall_),
                output_.begin() + static_cast<long>(read_));
}

Signal Cleaner::features(const Spectrum& spectrum, double scale) const {
  Signal result;
  for (const auto& [first, last] : compressedBands(model_.band(), settings_.compress)) {
    double power = 0.0;
    for (int k = first; k <= last; ++k)
      power += std::norm(scale * spectrum[model_.begin + k]);
    result.push_back(generation_ <= 3 ? std::log(std::sqrt(power) + 1.0)
                                      : std::log(power + 1000.0));
  }
  return result;
}

Signal Cleaner::mask(bool silent) {
  const size_t width = history_.back().size();
  Signal x;
  for (int back = model_.preview - 1; back >= 0; --back) {
    const bool known = history_.size() > static_cast<size_t>(back);
    const Signal past = known ? history_[history_.size() - 1 - back] : Signal(width, 0.0);
    x.insert(x.end(), past.begin(), past.end());
  }
  if (generation_ <= 2) {
    Signal average(width, 0.0);
    for (size_t back = 1; back <= static_cast<size_t>(model_.nat) && back <= removed_.size();
         ++back) {
      for (size_t k = 0; k < width; ++k) {
        average[k] += removed_[removed_.size() - back][k] / model_.nat;
      }
    }
    x.insert(x.end(), average.begin(), average.end());
  }
  for (size_t i = 0; i < x.size(); ++i) {
    x[i] = (x[i] - model_.mu[i % model_.mu.size()]) / model_.sd[i % model_.sd.size()];
  }
  if (silent) return Signal(width, 1.0);
  return network_.mask(x);
}

void Cleaner::shape(Signal& gains, double gate) const {
  for (size_t k = 0; k < gains.size(); ++k) {
    double& g = gains[k];
    const double d = g - 0.05;
    g = settings_.softModify
            ? g * g / (1.0 + std::exp(-3.0 * d / 0.05)) + g / (1.0 + std::exp(d / 0.05))
            : g * g;
    if (settings_.highFrequency && k >= gains.size() / 2) g *= g;
    if (settings_.smooth != 1.0) g = (1.0 - settings_.smooth) * previous_[k] + settings_.smooth * g;
    if (settings_.threshold && g < settings_.thresholdAt) g *= g / settings_.thresholdAt;
    g *= gate;
  }
}

Signal Cleaner::frame(const Signal& x) {
  const Signal windowed = multiplied(x, analysis_);
  const double gate = gate_ ? gate_->gate(windowed) : 1.0;
  const Spectrum spectrum = forwardReal(windowed);
  double scale = 1.0;
  if (loud_) {
    const double energy = loud_->loudMean(x);
    if (energy > 1e-6) scale = settings_.rescaleAmplitude / std::sqrt(energy);
  }
  history_.push_back(features(spectrum, scale));

  const Signal bandMask = mask(silent_);
  Signal gains(model_.bins, 0.0);
  const auto bands = compressedBands(model_.band(), settings_.compress);
  for (size_t j = 0; j < bands.size(); ++j) {
    for (int k = bands[j].first; k <= bands[j].second; ++k)
      gains[model_.begin + k] = bandMask[j];
  }
  shape(gains, gate);
  previous_ = gains;

  Signal taken;
  for (int k = model_.begin; k < model_.end; ++k) {
    taken.push_back(std::log(std::abs(spectrum[k]) * std::fabs(1.0 - gains[k]) + 1.0));
  }
  removed_.push_back(taken);

  const bool rawSpectrum = generation_ == 1 && settings_.windowAfter;
  Spectrum masked = rawSpectrum ? forwardReal(x) : spectrum;
  for (size_t k = 0; k < masked.size(); ++k)
    masked[k] *= std::fmax(gains[k], floor_);
  Signal y = backwardReal(masked, x.size());
  for (double& sample : y)
    sample *= settings_.volume;
  if (generation_ != 1 || settings_.windowAfter) y = multiplied(y, synthesis_);
  const double peak = *std::max_element(y.begin(), y.end());
  if (settings_.clipFix && peak > settings_.clipPoint) {
    for (double& sample : y)
      sample *= settings_.clipPoint / peak;
  }
  return y;
}

}  // namespace orvel_test
