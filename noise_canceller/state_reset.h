#pragma once

#include <cstddef>
#include <vector>

namespace ORVEL::NOISE_CANCELLER {

/** Watches for a long time without voice, after which the detector's state may be cleared. */
class StateReset {
 public:
  StateReset();

  /** Takes the network's raw output of a hop; true when the state is to be cleared now. */
  bool update(float rawOutput);

 private:
  std::vector<unsigned char> ring_;
  std::size_t position_ = 0;
  std::size_t filled_ = 0;
  int count_ = 0;
  int hopsSinceReset_ = 0;
};

}  // namespace ORVEL::NOISE_CANCELLER
