#include "noise_canceller/tuning_values.h"

#include <memory>
#include <string>

#include "utils/c_numbers.h"

namespace ORVEL::NOISE_CANCELLER {

namespace {

float numberIn(const std::string& text, bool isWhole) {
  return isWhole ? static_cast<float>(UTILS::wholeNumberIn(text.c_str()))
                 : static_cast<float>(UTILS::realNumberIn(text.c_str()));
}

bool contains(const KeyRange& range, float value, const CleanerTraits& version) {
  const bool aboveLeast =
      range.aboveLeast || (range.onlyWholeAboveLeast && version.numbers == NumberStyle::kWhole);
  return (aboveLeast ? value > range.least : value >= range.least) &&
         (range.belowMost ? value < range.most : value <= range.most);
}

}  // namespace

bool TuningValues::isRead(const TuningKey& key, const CleanerTraits& version) const {
  if (!key.condition.has_value()) {
    return true;
  }
  const bool holds = !key.condition->onlyWhole || version.numbers == NumberStyle::kWhole;
  return !holds || on(key.condition->key);
}

void TuningValues::setNumber(const TuningKey& key, const CleanerTraits& version,
                             const std::string* text, UTILS::Diagnostics& diagnostics) {
  float& value = of(key.key).number;
  if (text != nullptr) {
    value = numberIn(*text, key.kind == KeyKind::kNumber && version.numbers == NumberStyle::kWhole);
  }
  if (!key.range.has_value()) {
    return;
  }
  if (!contains(*key.range, value, version)) {
    value = static_cast<float>(key.fallback);
    if (*key.warning != '\0') {
      diagnostics.warn(key.warning);
    }
  } else if (key.consequence.has_value() && !on(key.consequence->key)) {
    of(key.consequence->key).on = true;
    diagnostics.warnLine(key.consequence->warning);
  }
}

TuningValues TuningValues::read(const WEIGHTS::Model& model, const CleanerTraits& version) {
  TuningValues values;
  for (const TuningKey& key : tuningKeys()) {
    Value& value = values.of(key.key);
    value.number = static_cast<float>(key.fallback);
    if (!key.isReadBy(version)) {
      continue;
    }
    value.on = key.kind == KeyKind::kSwitch && key.fallback != 0.0;
    value.whole = static_cast<long>(defaultOf(key, version));
    if (!values.isRead(key, version)) {
      continue;
    }
    const std::shared_ptr<std::string> text = model.keys.get<std::string>(fullName(key, version));
    switch (key.kind) {
      case KeyKind::kSwitch:
        value.on = text != nullptr ? *text == "TRUE" : value.on;
        break;
      case KeyKind::kChoice:
        value.on = text != nullptr && *text == key.otherWord;
        break;
      case KeyKind::kReal:
      case KeyKind::kNumber:
        values.setNumber(key, version, text.get(), model.diagnostics);
        break;
      case KeyKind::kWhole:
        if (text != nullptr && !text->empty()) {
          value.whole = UTILS::wholeNumberIn(text->c_str());
        }
        break;
    }
  }
  return values;
}

}  // namespace ORVEL::NOISE_CANCELLER
