#include "tools/aligned_cleaner.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

constexpr std::size_t kTaps = 2 * FractionalDelay::kWholeDelay + 1;

double sinc(double x) {
  const double angle = std::numbers::pi * x;
  return std::abs(x) < 1e-9 ? 1.0 : std::sin(angle) / angle;
}

// Blackman window around 0 that ends one sample beyond the outermost tap.
double window(double x) {
  const double phase =
      std::numbers::pi * x / (static_cast<double>(FractionalDelay::kWholeDelay) + 1.0);
  return 0.42 + 0.5 * std::cos(phase) + 0.08 * std::cos(2.0 * phase);
}

// The library tells a cleaner's latency in whole samples; sample-rate conversion adds up to half of
// one. This measures the rest with a pulse through a cleaner that lets everything pass: 0 where it
// cannot be told.
double fractionOfDelay(const orvel::Library& library, const orvel::CleanerOptions& options) {
  orvel::Cleaner cleaner(library, options);
  cleaner.setAttenuationLimit(0.0F);

  // A Gaussian pulse whose spectrum lies far below every model's band limit.
  const double sigma = cleaner.inputRate() / 4000.0;
  const double centre = std::ceil(8.0 * sigma);
  const double latency = static_cast<double>(cleaner.latency());
  const std::size_t size = cleaner.inputSize();
  const auto frames = static_cast<std::size_t>(2.0 * centre + latency) / size + 2;
  std::vector<float> frame(size);
  double energy = 0.0;
  double moment = 0.0;
  for (std::size_t at = 0; at < frames * size; at += size) {
    for (std::size_t i = 0; i < size; ++i) {
      const double x = (static_cast<double>(at + i) - centre) / sigma;
      frame[i] = static_cast<float>(0.5 * std::exp(-0.5 * x * x));
    }
    cleaner.process(std::span<const float>(frame), std::span(frame));
    for (std::size_t i = 0; i < size; ++i) {
      const double power = static_cast<double>(frame[i]) * static_cast<double>(frame[i]);
      energy += power;
      moment += power * static_cast<double>(at + i);
    }
  }
  // A cleaner that does not let the pulse through in one piece cannot be measured this way.
  constexpr double kPlausible = 0.75;
  const double fraction = moment / energy - centre - latency;
  return energy > 0.0 && std::abs(fraction) <= kPlausible ? fraction : 0.0;
}

void check(soxr_error_t error) {
  if (error != nullptr) {
    throw ToolError(ExitCode::kInternal,
                    std::string("sample-rate conversion: ") + soxr_strerror(error));
  }
}

}  // namespace

RateConverter::RateConverter(int inputRate, int outputRate, std::size_t channels)
    : channels_(channels) {
  const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
  const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
  const soxr_runtime_spec_t runtime = soxr_runtime_spec(1);
  soxr_error_t error = nullptr;
  handle_.reset(soxr_create(inputRate, outputRate, static_cast<unsigned>(channels), &error, &io,
                            &quality, &runtime));
  check(error);
}

// One call; gives how many frames of the input it took.
std::size_t RateConverter::step(const float* input, std::size_t frames, std::vector<float>& output,
                                bool& idle) {
  constexpr std::size_t kBlock = 4096;
  const std::size_t before = output.size();
  output.resize(before + kBlock * channels_);
  std::size_t taken = 0;
  std::size_t made = 0;
  check(soxr_process(handle_.get(), input, frames, &taken, output.data() + before, kBlock, &made));
  output.resize(before + made * channels_);
  idle = made < kBlock;
  return taken;
}

void RateConverter::push(std::span<const float> input, std::vector<float>& output) {
  bool idle = false;
  while (!input.empty() || !idle) {
    // An empty input that is not null means "no more for now".
    static constexpr float kNothing = 0.0F;
    const float* from = input.empty() ? &kNothing : input.data();
    input = input.subspan(step(from, input.size() / channels_, output, idle) * channels_);
  }
}

void RateConverter::finish(std::vector<float>& output) {
  for (bool idle = false; !idle;) {
    step(nullptr, 0, output, idle);
  }
}

FractionalDelay::FractionalDelay(double delay, std::size_t channels)
    : channels_(channels), taps_(kTaps), history_((kTaps - 1) * channels, 0.0F) {
  std::vector<double> taps(kTaps);
  for (std::size_t i = 0; i < kTaps; ++i) {
    const double x = static_cast<double>(i) - static_cast<double>(kWholeDelay) - delay;
    taps[i] = sinc(x) * window(x);
  }
  const double sum = std::accumulate(taps.begin(), taps.end(), 0.0);
  for (std::size_t i = 0; i < kTaps; ++i) {
    taps_[i] = static_cast<float>(taps[i] / sum);
  }
}

void FractionalDelay::process(std::span<float> interleaved) {
  history_.insert(history_.end(), interleaved.begin(), interleaved.end());
  for (std::size_t n = 0; n < interleaved.size(); ++n) {
    float sum = 0.0F;
    for (std::size_t i = 0; i < kTaps; ++i) {
      sum += taps_[i] * history_[n + (kTaps - 1 - i) * channels_];
    }
    interleaved[n] = sum;
  }
  history_.erase(history_.begin(),
                 history_.begin() + static_cast<std::ptrdiff_t>(interleaved.size()));
}

int sessionRate(int audioRate) noexcept {
  if (std::find(orvel::kSampleRates.begin(), orvel::kSampleRates.end(), audioRate) !=
      orvel::kSampleRates.end()) {
    return audioRate;
  }
  // Multiples of the models' own rates: conversion inside the library is simplest from these.
  constexpr std::array kConvertedRates = {8000, 16000, 32000, 48000, 96000};
  const auto next = std::lower_bound(kConvertedRates.begin(), kConvertedRates.end(), audioRate);
  return next == kConvertedRates.end() ? kConvertedRates.back() : *next;
}

AlignedCleaner::AlignedCleaner(const orvel::Library& library, const CleanerSetup& setup)
    : channels_(static_cast<std::size_t>(setup.spec.channels)),
      cleaner_(library, {.rate = TOOLS::sessionRate(setup.spec.sampleRate),
                         .channels = setup.spec.channels,
                         .model = setup.model}),
      skip_(cleaner_.latency()) {
  const int rate = cleaner_.rate();
  if (rate != setup.spec.sampleRate) {
    toSession_.emplace(setup.spec.sampleRate, rate, channels_);
    fromSession_.emplace(rate, setup.spec.sampleRate, channels_);
  }
  const double fraction = fractionOfDelay(library, {.inputRate = rate, .model = setup.model});
  lag_ = static_cast<double>(cleaner_.latency()) + fraction;
  constexpr double kNegligible = 0.01;  // of a sample
  if (std::abs(fraction) > kNegligible) {
    fraction_.emplace(-fraction, channels_);
    skip_ += FractionalDelay::kWholeDelay;
  }
  if (setup.attenuationLimitDb) {
    cleaner_.setAttenuationLimit(*setup.attenuationLimitDb);
  }
}

orvel::StreamCleaner::Block AlignedCleaner::push(std::span<const float> interleaved) {
  pushed_ += interleaved.size() / channels_;
  if (!toSession_) {
    return feed(interleaved);
  }
  converted_.clear();
  toSession_->push(interleaved, converted_);
  return feed(converted_);
}

void AlignedCleaner::collect(std::vector<float>& output) {
  const std::size_t before = output.size();
  if (fromSession_) {
    cleaned_.clear();
    deliver(block_, cleaned_);
    fromSession_->push(cleaned_, output);
  } else {
    deliver(block_, output);
  }
  given_ += (output.size() - before) / channels_;
}

void AlignedCleaner::finish(std::vector<float>& output) {
  cleaned_.clear();
  if (toSession_) {
    converted_.clear();
    toSession_->finish(converted_);
    const orvel::StreamCleaner::Block rest = feed(converted_);
    cleaner_.process(rest.input, rest.output);
    deliver(block_, cleaned_);
  }
  block_.resize(static_cast<std::size_t>(due_ + skip_) * channels_);
  cleaner_.flush(std::span(block_));
  deliver(block_, cleaned_);
  if (!toSession_) {
    output.insert(output.end(), cleaned_.begin(), cleaned_.end());
    return;
  }
  std::vector<float> tail;
  fromSession_->push(cleaned_, tail);
  fromSession_->finish(tail);
  // Two conversions of a finite stream may round its length by a sample.
  tail.resize(static_cast<std::size_t>(std::max(pushed_, given_) - given_) * channels_, 0.0F);
  output.insert(output.end(), tail.begin(), tail.end());
}

orvel::StreamCleaner::Block AlignedCleaner::feed(std::span<const float> atSessionRate) {
  due_ += atSessionRate.size() / channels_;
  block_.assign(atSessionRate.begin(), atSessionRate.end());
  return {cleaner_, block_, block_};
}

void AlignedCleaner::deliver(std::span<float> cleaned, std::vector<float>& output) {
  if (fraction_) {
    fraction_->process(cleaned);
  }
  const std::uint64_t frames = cleaned.size() / channels_;
  const std::uint64_t dropped = std::min(skip_, frames);
  skip_ -= dropped;
  due_ -= frames - dropped;
  const auto front = static_cast<std::ptrdiff_t>(dropped * channels_);
  output.insert(output.end(), cleaned.begin() + front, cleaned.end());
}

}  // namespace ORVEL::TOOLS
