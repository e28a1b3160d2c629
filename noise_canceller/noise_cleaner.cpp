#include "noise_canceller/noise_cleaner.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <string>

#include "noise_canceller/masking_cleaner.h"
#include "noise_canceller/vad_cleaner_v0_0_1.h"
#include "utils/arithmetic.h"
#include "utils/orvel_exception.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

// One thread at a time counts.
void count(std::atomic<std::uint64_t>& number) {
  number.store(number.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

[[noreturn]] void refuse(const char* message) {
  throw UTILS::ORVEL_Exception(message, "noise_canceller/noise_cleaner", 0, "create");
}

// Damaged weights, which the global functions accept, must not keep the others from being chosen.
WEIGHTS::ModelEntry chooseByRate(const WEIGHTS::ModelStore& store, std::uint32_t inputRate,
                                 SessionKind kind) {
  WEIGHTS::ModelEntry best;
  std::uint32_t bestDistance = std::numeric_limits<std::uint32_t>::max();
  std::exception_ptr damaged;
  for (const WEIGHTS::ModelEntry& model : store.models()) {
    try {
      const bool detectsVoice =
          WEIGHTS::isVoiceActivityVersion(WEIGHTS::getWeightVersion(*model->weight));
      if (detectsVoice != (kind == SessionKind::kVoiceActivity)) {
        continue;
      }
      const auto rate =
          static_cast<std::uint32_t>(WEIGHTS::getWeightInfo(*model->weight).sampleRate);
      if (rate <= inputRate && inputRate - rate < bestDistance) {
        best = model;
        bestDistance = inputRate - rate;
      }
    } catch (const UTILS::ORVEL_Exception&) {
      if (damaged == nullptr) {
        damaged = std::current_exception();
      }
    }
  }
  if (best == nullptr && damaged != nullptr) {
    std::rethrow_exception(damaged);
  }
  return best;
}

}  // namespace

NoiseCleaner::~NoiseCleaner() = default;

void NoiseCleaner::processHops() {
  while (const std::optional<Network::Task> hop = prepareHop()) {
    if (hop->network != nullptr) {
      hop->network->evaluate(hop->input, hop->output);
    }
    finishHop();
  }
}

int NoiseCleaner::end(std::vector<float>& samples) {
  const int status = deliver(samples);
  count(calls_);
  if (status < 0) {
    count(failures_);
  }
  if (!isFinite() || !UTILS::allFinite(samples.data(), samples.size())) {
    reset();
    std::fill(samples.begin(), samples.end(), 0.0F);
    count(resets_);
  }
  return status;
}

std::shared_ptr<NoiseCleaner> create(const WEIGHTS::ModelStore& store, std::uint32_t inputRate,
                                     int frameDurationMs, const char* modelName, SessionKind kind) {
  const WEIGHTS::ModelEntry model =
      modelName != nullptr ? store.find(modelName) : chooseByRate(store, inputRate, kind);
  if (model == nullptr) {
    refuse(modelName != nullptr ? "Weight with this name isn't found" : "Weight not found ");
  }
  const CleanerTraits* version = findCleanerVersion(WEIGHTS::getWeightVersion(*model->weight));
  if (version == nullptr) {
    refuse("Unsupported weight version");
  }
  if (version->kind == SessionKind::kVoiceActivity) {
    return std::make_shared<VadCleaner_v0_0_1>(*model, *version, frameDurationMs);
  }
  return std::make_shared<MaskingCleaner>(*model, *version, frameDurationMs);
}

}  // namespace ORVEL::NOISE_CANCELLER
