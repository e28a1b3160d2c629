#include "tools/voice_scorer.h"

#include <algorithm>
#include <utility>

#include "tools/vad_segments.h"

namespace ORVEL::TOOLS {

void appendMean(std::span<const float> interleaved, int channels, std::vector<float>& mean) {
  const auto count = static_cast<std::size_t>(channels);
  for (std::size_t i = 0; i + count <= interleaved.size(); i += count) {
    float sum = 0.0F;
    for (std::size_t c = 0; c < count; ++c) {
      sum += interleaved[i + c];
    }
    mean.push_back(sum / static_cast<float>(channels));
  }
}

VoiceScorer::VoiceScorer(const ModelSet& models, const AudioSpec& spec, Emit emit)
    : VoiceScorer(models.library(), models.forRate(0), spec, std::move(emit)) {}

VoiceScorer::VoiceScorer(const orvel::Library& library, const orvel::Model& model,
                         const AudioSpec& spec, Emit emit)
    : detector_(library, {.rate = model.sampleRate, .channels = 1, .model = model.name}),
      spec_(spec),
      emit_(std::move(emit)) {
  // Converted here, not in the session: this conversion shifts nothing in time.
  if (model.sampleRate != spec.sampleRate) {
    converter_.emplace(spec.sampleRate, model.sampleRate, 1);
  }
}

void VoiceScorer::push(std::span<const float> interleaved) {
  mono_.clear();
  appendMean(interleaved, spec_.channels, mono_);
  frames_ += mono_.size();
  if (!converter_) {
    score(mono_);
    return;
  }
  converted_.clear();
  converter_->push(mono_, converted_);
  score(converted_);
}

void VoiceScorer::finish() {
  if (converter_) {
    converted_.clear();
    converter_->finish(converted_);
    score(converted_);
  }
  const std::uint64_t perScore = static_cast<std::uint64_t>(spec_.sampleRate) * kScoreMs;
  const std::uint64_t wanted = (frames_ * 1000 + perScore - 1) / perScore;
  // Conversion may round the length by a sample.
  std::vector<float> silence(detector_.scoreSize(), 0.0F);
  while (heard_ < wanted * silence.size()) {
    const std::uint64_t missing = wanted * silence.size() - heard_;
    score(std::span(silence).first(std::min<std::uint64_t>(silence.size(), missing)));
  }
  detector_.flush([&](float value) {
    if (given_ < wanted) {
      give(value);
    }
  });
}

void VoiceScorer::score(std::span<const float> samples) {
  heard_ += samples.size();
  detector_.process(samples, [&](float value) { give(value); });
}

void VoiceScorer::give(float value) {
  ++given_;
  emit_(static_cast<double>(value));
}

}  // namespace ORVEL::TOOLS
