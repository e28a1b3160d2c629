#include "noise_canceller/vad_cleaner_v0_0_1.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "noise_canceller/tuning_values.h"
#include "utils/arithmetic.h"
#include "utils/diagnostics.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

constexpr std::size_t kHistoryFrames = 4;
constexpr std::size_t kHistorySpans = 5;
constexpr std::size_t kHistoryLength = kHistoryFrames * kVadFeatures;
constexpr std::size_t kFrameLength = 2 * (kVadBins - 1);
constexpr int kBufferMs = 10;
constexpr float kVarianceFloor = 1e-7F;

constexpr std::size_t kRingLength = 200;
constexpr double kVoiceProbability = 0.75;
constexpr float kResetRatio = 0.95F;
constexpr int kLeastHopsBetweenResets = 300;

const WEIGHTS::Weight& checked(const WEIGHTS::Weight& weight, const CleanerTraits& version) {
  const WeightParameters weights(weight);
  weights.require(version.parameters);
  WEIGHTS::getWeightInfo(weight);
  requireSize("FrameLength", weights.count("FrameLength"), "the detector's frame", kFrameLength);
  return weight;
}

}  // namespace

ScoreCalibration::ScoreCalibration(const WEIGHTS::Weight& weight) {
  const auto range = weight.values().get<std::vector<float>>("Test_MINMAX");
  const auto best = weight.values().get<std::vector<float>>("Test_BestF1");
  if (range != nullptr && best != nullptr && range->size() >= 2 && !best->empty()) {
    calibrated_ = true;
    low_ = (*range)[0];
    best_ = (*best)[0];
    high_ = (*range)[1];
  }
}

float ScoreCalibration::score(float raw) const {
  if (!calibrated_) {
    return raw;
  }
  const float mapped = raw < best_ ? (raw - low_) * 0.5F / (best_ - low_)
                                   : (raw - best_) * 0.5F / (high_ - best_) + 0.5F;
  return std::clamp(mapped, 0.00001F, 0.99999F);
}

StateReset::StateReset() : ring_(kRingLength, 0) {}

void StateReset::clear() {
  std::fill(ring_.begin(), ring_.end(), static_cast<unsigned char>(0));
  position_ = 0;
  filled_ = 0;
  count_ = 0;
  hopsSinceReset_ = 0;
}

bool StateReset::update(float rawOutput) {
  const double probability = 1.0 / (1.0 + std::exp(-static_cast<double>(rawOutput)));
  const unsigned char unvoiced = probability < kVoiceProbability ? 1 : 0;
  if (filled_ < kRingLength) {
    ++filled_;
    count_ += unvoiced;
  } else if (count_ > std::numeric_limits<int>::min() + 2) {
    // The new flag is subtracted as well: the count only falls once the ring is full.
    count_ -= ring_[position_] + unvoiced;
  }
  ring_[position_] = unvoiced;
  position_ = (position_ + 1) % kRingLength;
  if (hopsSinceReset_ < kLeastHopsBetweenResets) {
    ++hopsSinceReset_;
  }
  const bool due = static_cast<float>(count_) > kResetRatio * static_cast<float>(filled_) &&
                   hopsSinceReset_ >= kLeastHopsBetweenResets;
  if (due) {
    hopsSinceReset_ = 0;
  }
  return due;
}

VadCleaner_v0_0_1::VadCleaner_v0_0_1(const WEIGHTS::Model& model, const CleanerTraits& version,
                                     int sessionFrameMs)
    : NoiseCleaner(model.weight),
      calibration_(checked(*model.weight, version)),
      network_(NetworkWeights::recurrent(*model.weight, kHistoryLength,
                                         NetworkWeights::Output::kLinear)),
      window_(obtainWindow(*model.weight, version.analysisWindow, kFrameLength)),
      fft_(obtainFFT(*model.weight, kFrameLength)),
      buffer_(kFrameLength, 0.0F),
      windowed_(kFrameLength),
      spectrum_(kVadBins),
      history_(kVadFeatures * (kHistoryFrames + 1) * kHistorySpans),
      output_(network_.outputs()) {
  readStatistics(*model.weight);
  if (TuningValues::read(model, version).on(Key::kVadStateReset)) {
    stateReset_.emplace();
  }
  if (sessionFrameMs != kBufferMs) {
    model.diagnostics.error("ERROR FRAMEDURATIONS");
  }
  fillHistory();
}

void VadCleaner_v0_0_1::fillHistory() {
  for (std::size_t i = 0; i < kHistoryFrames; ++i) {
    appendNormalised({});
  }
}

void VadCleaner_v0_0_1::reset() {
  gain_.reset();
  std::fill(buffer_.begin(), buffer_.end(), 0.0F);
  history_.clear();
  fillHistory();
  network_.reset();
  if (stateReset_.has_value()) {
    stateReset_->clear();
  }
}

void VadCleaner_v0_0_1::readStatistics(const WEIGHTS::Weight& weight) {
  const WeightParameters weights(weight);
  means_ = weights.vector("MU");
  const std::vector<float>& variances = weights.vector("SD");
  requireSize("the length of SD", variances.size(), "the length of MU", means_.size());
  if (means_.size() > kVadFeatures) {
    refuseWeights("the length of MU is " + std::to_string(means_.size()) +
                  ", the number of features is " + std::to_string(kVadFeatures));
  }
  for (const float variance : variances) {
    deviations_.push_back(std::sqrt(variance + kVarianceFloor));
  }
}

void VadCleaner_v0_0_1::shiftIn(const std::vector<float>& samples, float gain) {
  // A buffer longer than the frame leaves only its end.
  const std::size_t fresh = std::min(samples.size(), buffer_.size());
  const auto kept = static_cast<std::ptrdiff_t>(buffer_.size() - fresh);
  std::copy(buffer_.end() - kept, buffer_.end(), buffer_.begin());
  std::transform(samples.end() - static_cast<std::ptrdiff_t>(fresh), samples.end(),
                 buffer_.begin() + kept, [gain](float sample) { return sample * gain; });
}

void VadCleaner_v0_0_1::appendNormalised(const std::array<float, kVadFeatures>& features) {
  float* frame = history_.extend(kVadFeatures);
  std::copy(features.begin(), features.end(), frame);
  for (std::size_t i = 0; i < means_.size(); ++i) {
    frame[i] = (frame[i] - means_[i]) / deviations_[i];
  }
}

void VadCleaner_v0_0_1::begin(const std::vector<float>& samples) {
  shiftIn(samples, gain_.update(samples.data(), samples.size()));
  due_ = true;
}

std::optional<Network::Task> VadCleaner_v0_0_1::prepareHop() {
  if (!std::exchange(due_, false)) {
    return std::nullopt;
  }
  UTILS::multiply(buffer_.data(), window_->data(), windowed_.data(), kFrameLength);
  analysed_ = fft_->forward(windowed_, spectrum_);
  if (!analysed_) {
    return Network::Task{};
  }
  std::array<float, kVadFeatures> features{};
  computeVadFeatures(spectrum_, features);
  history_.advance(kVadFeatures);
  appendNormalised(features);
  return Network::Task{&network_, history_.data(), output_.data()};
}

void VadCleaner_v0_0_1::finishHop() {
  if (analysed_ && stateReset_.has_value() && stateReset_->update(output_.front())) {
    network_.reset();
  }
}

int VadCleaner_v0_0_1::deliver(std::vector<float>& samples) {
  samples.assign(1, analysed_ ? calibration_.score(output_.front()) : 0.0F);
  return analysed_ ? 1 : -1;
}

}  // namespace ORVEL::NOISE_CANCELLER
