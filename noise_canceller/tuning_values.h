#pragma once

#include <array>
#include <cstddef>

#include "noise_canceller/tuning_key_table.h"
#include "weights/model_store.h"

namespace ORVEL::NOISE_CANCELLER {

/** What a model's control file sets for one version, defaults where it sets nothing. */
class TuningValues {
 public:
  /**
   * Reads the version's keys in the order of the table. A value out of its range gives the row's warning
   * and counts as the default.
   */
  static TuningValues read(const WEIGHTS::Model& model, const CleanerTraits& version);

  /** Whether a switch is on, or a choice is the other word; false for a key that the version lacks. */
  bool on(Key key) const { return of(key).on; }
  /** Value of a number, whole or real. */
  float number(Key key) const { return of(key).number; }
  /** Value of a key of KeyKind::kWhole. */
  long long whole(Key key) const { return of(key).whole; }

 private:
  struct Value {
    bool on = false;
    float number = 0.0F;
    long long whole = 0;
  };
  static constexpr std::size_t kCount = static_cast<std::size_t>(Key::kVadStateReset) + 1;

  bool isRead(const TuningKey& key, const CleanerTraits& version) const;
  void setNumber(const TuningKey& key, const CleanerTraits& version, const std::string* text,
                 UTILS::Diagnostics& diagnostics);
  const Value& of(Key key) const { return values_[static_cast<std::size_t>(key)]; }
  Value& of(Key key) { return values_[static_cast<std::size_t>(key)]; }

  std::array<Value, kCount> values_{};
};

}  // namespace ORVEL::NOISE_CANCELLER
