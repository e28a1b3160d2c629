#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "containers/matrix.h"
#include "noise_canceller/cleaner_versions.h"
#include "weights/weight.h"

namespace ORVEL::NOISE_CANCELLER {

/** Throws the ORVEL_Exception of weights that do not fit together: what disagrees, with both sizes. */
[[noreturn]] void refuseWeights(const std::string& message);

/** Refuses unless the two sizes agree: "NAME is ACTUAL, WHAT is EXPECTED". */
void requireSize(const std::string& name, std::size_t actual, const std::string& what,
                 std::size_t expected);

/** The parameters of a weight set by name; every accessor throws ORVEL_Exception for a missing one. */
class WeightParameters {
 public:
  using Matrices = std::vector<CONTAINERS::Matrix>;
  using Vectors = std::vector<std::vector<float>>;

  explicit WeightParameters(const WEIGHTS::Weight& weight) : weight_(weight) {}

  /** A whole number that counts something: refused when it is below `least`. */
  std::size_t count(const char* name, std::size_t least = 1) const;
  const std::vector<float>& vector(const char* name) const;
  const Vectors& vectors(const char* name) const;
  const Matrices& matrices(const char* name) const;

  /** Throws for the first of these that is missing or of another type. */
  void require(std::span<const RequiredParameter> parameters) const;

  const WEIGHTS::Weight& weight() const { return weight_; }

 private:
  const WEIGHTS::Weight& weight_;
};

/** Framing and band of a noise cleaner, as its weight set gives them; checked against each other. */
struct FrameParameters {
  std::size_t sampleRate;
  /** Samples of one analysis frame: two hops, 30 or 32 ms. */
  std::size_t frameLength;
  /** Samples of one hop. */
  std::size_t step;
  /** First bin of the band that the network sees, and one past its last. */
  std::size_t bandBegin;
  std::size_t bandEnd;
  /** Frames in the network's history input, the current one included. */
  std::size_t previewFrames;
  /** Bins of a frame's spectrum. */
  std::size_t coefficientNumber;

  std::size_t bandWidth() const { return bandEnd - bandBegin; }
  std::size_t frameDurationMs() const { return frameLength * 1000 / sampleRate; }

  /** @throws ORVEL_Exception for a missing parameter, or for the first two that do not fit. */
  static FrameParameters read(const WeightParameters& weights);
};

}  // namespace ORVEL::NOISE_CANCELLER
