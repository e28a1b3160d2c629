// What a program may do with a model it was given: load it, open sessions, run rough audio through
// them, reset them. Whatever the weights are, the calls answer and the output is finite and in range.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <orvel/orvel.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/support.h"

namespace orvel_fuzz {

struct SessionChoice {
  // Each is taken modulo the number of choices, a few of them wrong.
  std::uint8_t inRate = 0, outRate = 0, duration = 0;
  std::uint8_t frames = 0;
  std::uint8_t attenuationLimit = 0;
};

namespace detail {

inline int rateOf(unsigned choice) {
  constexpr std::size_t kRates = orvel::kSampleRates.size();
  const std::size_t which = choice % (kRates + 1);
  return which == kRates ? 11025 : orvel::kSampleRates[which];
}

inline int durationOf(unsigned choice) {
  constexpr int kDurations[] = {10, 20, 30, 40, 15, 0, -10, 2000000000};
  return kDurations[choice % std::size(kDurations)];
}

// Noise with silence, full scale and NaN.
inline std::vector<float> roughFrame(std::size_t count, unsigned frame) {
  std::vector<float> samples(count);
  std::uint32_t state = 7 + frame;
  for (std::size_t i = 0; i < count; ++i) {
    state = state * 1664525U + 1013904223U;
    const float noise = static_cast<float>(state >> 8U) / 8388608.0F - 1.0F;
    samples[i] = frame % 4 == 2 ? 0.0F : noise * (frame % 4 == 3 ? 1e35F : 0.5F);
    if (frame % 4 == 3 && i % 7 == 0) samples[i] = std::numeric_limits<float>::quiet_NaN();
  }
  return samples;
}

inline std::vector<float> clean(orvel::Cleaner& cleaner, unsigned frames) {
  std::vector<float> all;
  std::vector<float> out(cleaner.outputSize());
  for (unsigned frame = 0; frame < frames; ++frame) {
    cleaner.process(roughFrame(cleaner.inputSize(), frame), out);
    for (const float sample : out)
      require(sample >= -1.0F && sample < 1.0F, "output is finite and in range");
    all.insert(all.end(), out.begin(), out.end());
  }
  return all;
}

inline std::vector<float> score(orvel::Detector& detector, unsigned frames) {
  std::vector<float> all;
  for (unsigned frame = 0; frame < frames; ++frame) {
    all.push_back(detector.process(roughFrame(detector.frameSize(), frame)));
    require(std::isfinite(all.back()), "a score is finite");
  }
  return all;
}

// A session, or nothing with a reason.
template <class Session, class Options>
std::optional<Session> open(const orvel::Library& library, const Options& options) {
  try {
    return Session(library, options);
  } catch (const orvel::Error& error) {
    require(error.what()[0] != '\0', "a refusal has a reason");
    return std::nullopt;
  }
}

inline void runSessions(const orvel::Library& library, const std::string& model,
                        const SessionChoice& choice) {
  constexpr unsigned kMostFrames = 16;
  const unsigned frames = choice.frames % kMostFrames;
  const orvel::CleanerOptions cleaning{rateOf(choice.inRate), rateOf(choice.outRate),
                                       durationOf(choice.duration), model};
  if (auto cleaner = open<orvel::Cleaner>(library, cleaning)) {
    require(cleaner->latency() < static_cast<std::size_t>(cleaner->outputRate()),
            "a latency is below a second");
    if (choice.attenuationLimit > 0) cleaner->setAttenuationLimit(choice.attenuationLimit);
    const std::vector<float> first = clean(*cleaner, frames);
    cleaner->reset();
    require(clean(*cleaner, frames) == first, "a reset session is as newly created");
  }
  const orvel::DetectorOptions detecting{cleaning.inputRate, cleaning.frameMs, model};
  if (auto detector = open<orvel::Detector>(library, detecting)) {
    const std::vector<float> first = score(*detector, frames);
    detector->reset();
    require(score(*detector, frames) == first, "a reset session is as newly created");
  }
}

}  // namespace detail

inline void driveModel(std::string_view tuningKeys, std::string_view weights,
                       const SessionChoice& choice) {
  orvel::Library library;
  try {
    library.loadModelFromMemory(tuningKeys, std::as_bytes(std::span(weights)), "model");
  } catch (const orvel::Error& error) {
    require(error.what()[0] != '\0', "a refusal has a reason");
  }
  detail::runSessions(library, "model", choice);
  // Without a name the choice goes by rate, over what was loaded.
  detail::runSessions(library, "", choice);
}

}  // namespace orvel_fuzz
