#pragma once

#include <ebur128.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <vector>

#include "tools/audio.h"
#include "tools/vad_segments.h"

namespace ORVEL::TOOLS {

/** Loudness of a recording by EBU R128, all channels of it. */
class LoudnessMeter {
 public:
  explicit LoudnessMeter(const AudioSpec& spec);

  /** Takes interleaved frames. */
  void push(std::span<const float> interleaved);
  /** Integrated loudness, LUFS; range, LU; true peak, dBTP. Null where there is nothing to measure. */
  nlohmann::json figures() const;

 private:
  struct Deleter {
    void operator()(ebur128_state* state) const noexcept { ebur128_destroy(&state); }
  };
  int channels_;
  std::unique_ptr<ebur128_state, Deleter> state_;
};

/** Level of a mono signal inside and outside of stretches with speech, dB below full scale, null where
 * there is none or nothing but silence. Frames that touch the border of a stretch count on neither side. */
nlohmann::json levels(std::span<const float> mono, int rate, const std::vector<Segment>& speech);

}  // namespace ORVEL::TOOLS
