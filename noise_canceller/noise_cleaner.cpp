#include "noise_canceller/noise_cleaner.h"

#include <limits>
#include <string>

#include "noise_canceller/masking_cleaner.h"
#include "noise_canceller/vad_cleaner_v0_0_1.h"
#include "utils/orvel_exception.h"

namespace ORVEL::NOISE_CANCELLER {

NoiseCleaner::~NoiseCleaner() = default;

namespace {

[[noreturn]] void refuse(const char* message) {
  throw UTILS::ORVEL_Exception(message, "noise_canceller/noise_cleaner", 0, "create");
}

WEIGHTS::ModelEntry chooseByRate(const WEIGHTS::ModelStore& store, std::uint32_t inputRate,
                                 SessionKind kind) {
  WEIGHTS::ModelEntry best;
  std::uint32_t bestDistance = std::numeric_limits<std::uint32_t>::max();
  for (const WEIGHTS::ModelEntry& model : store.models()) {
    const bool detectsVoice =
        WEIGHTS::isVoiceActivityVersion(WEIGHTS::getWeightVersion(*model->weight));
    if (detectsVoice != (kind == SessionKind::kVoiceActivity)) {
      continue;
    }
    const auto rate = static_cast<std::uint32_t>(WEIGHTS::getWeightInfo(*model->weight).sampleRate);
    if (rate <= inputRate && inputRate - rate < bestDistance) {
      best = model;
      bestDistance = inputRate - rate;
    }
  }
  return best;
}

}  // namespace

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
