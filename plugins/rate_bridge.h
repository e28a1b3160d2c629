#pragma once

#include <speex/speex_resampler.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace ORVEL::PLUGINS {

/** The session rate for a host's: its own where sessions take it, else the next of 8, 16, 32, 48, 96 kHz. */
int sessionRate(int hostRate) noexcept;

/**
 * Takes one channel of a host's rate to a session's rate and back, in blocks of any length, with a delay that
 * does not depend on the blocks. Where the rates are equal it copies.
 */
class RateBridge {
 public:
  /** @param mostSamples longest block at the host's rate. @throws std::bad_alloc. */
  RateBridge(int hostRate, int sessionRate, std::size_t mostSamples);

  /** Converts a block. @return the samples at the session's rate, which vary from call to call; they may be
   * changed in place and go back with take(). Real-time safe, as all that follow. */
  std::size_t give(const float* host, std::size_t count) noexcept;
  float* samples() noexcept { return session_.data(); }
  /** Gives as many samples as the last give() took. */
  void take(float* host) noexcept;
  void reset() noexcept;

  /** Longest block at the session's rate. */
  std::size_t mostSessionSamples() const noexcept { return session_.size(); }
  /** Delay in host samples, without what happens between give() and take(). */
  double delay() const noexcept { return delay_; }

 private:
  struct Close {
    void operator()(SpeexResamplerState* state) const { speex_resampler_destroy(state); }
  };
  using State = std::unique_ptr<SpeexResamplerState, Close>;
  static State open(int from, int to);

  State up_, down_;  // none where the rates are equal
  std::vector<float> session_;
  std::vector<float> back_;  // at the host's rate, not given out yet
  std::size_t given_ = 0;    // samples in session_
  std::size_t taken_ = 0;    // host samples of the current block
  std::size_t waiting_ = 0;  // samples in back_
  double delay_ = 0.0;
};

}  // namespace ORVEL::PLUGINS
