#include "noise_canceller/noise_cleaner.h"

#include <limits>
#include <string>

#include "noise_canceller/noise_cleaner_v0_0_1.h"
#include "noise_canceller/noise_cleaner_v0_0_2.h"
#include "noise_canceller/noise_cleaner_v0_0_3.h"
#include "noise_canceller/noise_cleaner_v0_0_4.h"
#include "noise_canceller/noise_cleaner_v0_0_5.h"
#include "noise_canceller/vad_cleaner_v0_0_1.h"
#include "utils/orvel_exception.h"

namespace ORVEL::NOISE_CANCELLER {

NoiseCleaner::~NoiseCleaner() = default;

namespace {

using Maker = std::shared_ptr<NoiseCleaner> (*)(WEIGHTS::Model&, int);

template <class Cleaner>
std::shared_ptr<NoiseCleaner> make(WEIGHTS::Model& model, int frameDurationMs) {
  return std::make_shared<Cleaner>(model, frameDurationMs);
}

struct Version {
  const char* name;
  Maker maker;
};

constexpr Version kVersions[] = {
    {"0.0.1", make<NoiseCleaner_v0_0_1>}, {"0.0.2", make<NoiseCleaner_v0_0_2>},
    {"0.0.3", make<NoiseCleaner_v0_0_3>}, {"0.0.4", make<NoiseCleaner_v0_0_4>},
    {"0.0.5", make<NoiseCleaner_v0_0_5>}, {"VAD_0.0.1", make<VadCleaner_v0_0_1>},
};

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
  const std::string version = WEIGHTS::getWeightVersion(*model->weight);
  for (const Version& known : kVersions) {
    if (version == known.name) {
      return known.maker(*model, frameDurationMs);
    }
  }
  refuse("Unsupported weight version");
}

}  // namespace ORVEL::NOISE_CANCELLER
