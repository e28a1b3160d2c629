#include "plugins/rate_bridge.h"

#include <algorithm>
#include <new>

#include "orvel/orvel_session.hpp"

namespace ORVEL::PLUGINS {
namespace {

// Of 0 to 10: the library's own conversions use 3; a second one in the path should not be heard beside them.
constexpr int kQuality = 5;
// Both conversions round the number of samples: so many host samples more make sure of a full block.
constexpr std::size_t kMargin = 4;
constexpr std::size_t kHeadroom = 16;

std::size_t convert(SpeexResamplerState* state, const float* in, std::size_t count, float* out,
                    std::size_t room) noexcept {
  auto consumed = static_cast<spx_uint32_t>(count);
  auto produced = static_cast<spx_uint32_t>(room);
  speex_resampler_process_float(state, 0, in, &consumed, out, &produced);
  return produced;
}

}  // namespace

int sessionRate(int hostRate) noexcept {
  const auto& rates = orvel::kSampleRates;
  if (std::find(rates.begin(), rates.end(), hostRate) != rates.end()) return hostRate;
  for (const int rate : {8000, 16000, 32000, 48000})
    if (hostRate < rate) return rate;
  return 96000;
}

RateBridge::State RateBridge::open(int from, int to) {
  State state(speex_resampler_init(1, static_cast<spx_uint32_t>(from),
                                   static_cast<spx_uint32_t>(to), kQuality, nullptr));
  if (state == nullptr) throw std::bad_alloc();
  return state;
}

RateBridge::RateBridge(int hostRate, int sessionRate, std::size_t mostSamples)
    : session_(mostSamples) {
  if (hostRate == sessionRate) return;
  up_ = open(hostRate, sessionRate);
  down_ = open(sessionRate, hostRate);
  const double ratio = static_cast<double>(hostRate) / sessionRate;
  session_.resize(static_cast<std::size_t>(static_cast<double>(mostSamples) / ratio) + kHeadroom);
  back_.resize(mostSamples + kMargin + kHeadroom);
  delay_ = speex_resampler_get_input_latency(up_.get()) +
           speex_resampler_get_input_latency(down_.get()) * ratio + static_cast<double>(kMargin);
  reset();
}

void RateBridge::reset() noexcept {
  if (up_ == nullptr) return;
  speex_resampler_reset_mem(up_.get());
  speex_resampler_reset_mem(down_.get());
  waiting_ = kMargin;
  std::fill(back_.begin(), back_.end(), 0.0F);
}

std::size_t RateBridge::give(const float* host, std::size_t count) noexcept {
  taken_ = given_ = count;
  if (up_ == nullptr) {
    std::copy_n(host, count, session_.begin());
  } else {
    given_ = convert(up_.get(), host, count, session_.data(), session_.size());
  }
  return given_;
}

void RateBridge::take(float* host) noexcept {
  if (up_ == nullptr) {
    std::copy_n(session_.begin(), taken_, host);
    return;
  }
  waiting_ += convert(down_.get(), session_.data(), given_, back_.data() + waiting_,
                      back_.size() - waiting_);
  const std::size_t ready = std::min(waiting_, taken_);
  const auto from = back_.begin() + static_cast<std::ptrdiff_t>(ready);
  std::copy(back_.begin(), from, host);
  std::fill_n(host + ready, taken_ - ready, 0.0F);
  std::copy(from, from + static_cast<std::ptrdiff_t>(waiting_ - ready), back_.begin());
  waiting_ -= ready;
}

}  // namespace ORVEL::PLUGINS
