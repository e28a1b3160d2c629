#pragma once

#include <cstddef>
#include <map>
#include <memory>

#include "utils/non_copyable.h"

namespace ORVEL {

/** Closes a libresample handle. */
struct CloseResampler {
  void operator()(void* handle) const;
};

using ResamplerHandle = std::unique_ptr<void, CloseResampler>;

/**
 * Prepared resamplers, one per conversion factor: designing a filter takes ten times as long as
 * duplicating it. Not locked; sessions are created by one thread at a time.
 */
class ResamplerCache : private UTILS::NonCopyMovable {
 public:
  /** A fresh resampler, high quality, for exactly this factor (output rate / input rate). */
  ResamplerHandle open(double factor);

  /** Samples that the first call of a fresh resampler gives for `inputCount` samples. */
  std::size_t firstOutputCount(double factor, std::size_t inputCount);

 private:
  struct Prepared {
    ResamplerHandle handle;
    std::map<std::size_t, std::size_t> firstOutputCounts;
  };

  Prepared& prepared(double factor);

  std::map<double, Prepared> byFactor_;
};

}  // namespace ORVEL
