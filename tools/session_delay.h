#pragma once

#include "tools/engine.h"

namespace ORVEL::TOOLS {

/** By how much a session's output lags behind its input: whole samples and what is left of one. */
struct SessionDelay {
  std::uint32_t samples = 0;
  double fraction = 0.0;  ///< -0.5 to 0.5
};

/**
 * The library tells a session's latency in whole samples; sample-rate conversion can add half of
 * one. This measures the rest on a session of its own, opened to gain 1 at every frequency, with a
 * pulse.
 *
 * @param scratch a noise-cleaning session that is used up by it.
 */
SessionDelay measureDelay(Session scratch);

}  // namespace ORVEL::TOOLS
