#include "tools/report_figures.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>

namespace ORVEL::TOOLS {
namespace {

nlohmann::json finite(double value) {
  return std::isfinite(value) ? nlohmann::json(std::round(value * 100.0) / 100.0)
                              : nlohmann::json(nullptr);
}

nlohmann::json decibels(double energy, std::size_t samples) {
  return samples == 0 ? nlohmann::json(nullptr)
                      : finite(10.0 * std::log10(energy / static_cast<double>(samples)));
}

}  // namespace

LoudnessMeter::LoudnessMeter(const AudioSpec& spec)
    : channels_(spec.channels),
      state_(ebur128_init(static_cast<unsigned>(spec.channels),
                          static_cast<unsigned long>(spec.sampleRate),
                          EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK)) {
}  // none for channels or rates beyond the standard's

void LoudnessMeter::push(std::span<const float> interleaved) {
  if (state_ &&
      ebur128_add_frames_float(state_.get(), interleaved.data(),
                               interleaved.size() / static_cast<std::size_t>(channels_)) ==
          EBUR128_ERROR_NOMEM) {
    throw std::bad_alloc();
  }
}

nlohmann::json LoudnessMeter::figures() const {
  double integrated = -std::numeric_limits<double>::infinity();
  double range = std::numeric_limits<double>::quiet_NaN();
  double peak = 0.0;
  if (state_) {
    ebur128_loudness_global(state_.get(), &integrated);
    ebur128_loudness_range(state_.get(), &range);
    for (int c = 0; c < channels_; ++c) {
      double one = 0.0;
      ebur128_true_peak(state_.get(), static_cast<unsigned>(c), &one);
      peak = std::max(peak, one);
    }
  }
  return {{"integrated_lufs", finite(integrated)},
          {"range_lu", finite(range)},
          {"true_peak_dbtp", finite(20.0 * std::log10(peak))}};
}

nlohmann::json levels(std::span<const float> mono, int rate, const std::vector<Segment>& speech) {
  const auto frame = static_cast<std::size_t>(std::max(rate * kScoreMs / 1000, 1));
  double energy[2] = {0.0, 0.0};
  std::size_t samples[2] = {0, 0};
  auto segment = speech.begin();
  for (std::size_t at = 0; at + frame <= mono.size(); at += frame) {
    const double begin = static_cast<double>(at) / rate;
    const double end = static_cast<double>(at + frame) / rate;
    while (segment != speech.end() && segment->end <= begin) {
      ++segment;
    }
    const bool apart = segment == speech.end() || segment->start >= end;
    if (!apart && (segment->start > begin || segment->end < end)) {
      continue;
    }
    const std::size_t side = apart ? 1 : 0;
    for (const float x : mono.subspan(at, frame)) {
      energy[side] += static_cast<double>(x) * x;
    }
    samples[side] += frame;
  }
  return {{"speech_dbfs", decibels(energy[0], samples[0])},
          {"between_words_dbfs", decibels(energy[1], samples[1])}};
}

}  // namespace ORVEL::TOOLS
