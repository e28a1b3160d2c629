#include "orv-sdk/speexdsp_resampler.h"

#include <speex/speex_resampler.h>

#include <algorithm>
#include <array>
#include <new>
#include <numeric>

namespace ORVEL {

namespace {

// Of 0 to 10: the pass band and the delay of libresample's best, with 20 dB less aliasing. Higher ones lag
// by up to 10 ms at each end of a session.
constexpr int kQuality = 3;

// Without room for another output, speexdsp leaves input behind.
constexpr std::size_t kHeadroom = 8;

// All of the input, and as many outputs as it gives.
std::size_t convert(SpeexResamplerState* state, const float* in, std::size_t inCount, float* out,
                    std::size_t outRoom) {
  auto consumed = static_cast<spx_uint32_t>(inCount);
  auto produced = static_cast<spx_uint32_t>(outRoom);
  speex_resampler_process_float(state, 0, in, &consumed, out, &produced);
  return produced;
}

}  // namespace

void FrameResampler::Close::operator()(SpeexResamplerState* state) const {
  speex_resampler_destroy(state);
}

FrameResampler::FrameResampler(ResamplerCache& /*cache*/, std::size_t inFrameSize,
                               std::size_t outFrameSize)
    : outFrameSize_(outFrameSize) {
  if (inFrameSize == outFrameSize) {
    return;
  }
  const std::size_t divisor = std::gcd(inFrameSize, outFrameSize);
  const std::size_t in = inFrameSize / divisor;
  const std::size_t out = outFrameSize / divisor;
  state_.reset(speex_resampler_init(1, static_cast<spx_uint32_t>(in),
                                    static_cast<spx_uint32_t>(out), kQuality, nullptr));
  if (state_ == nullptr) {
    throw std::bad_alloc();
  }
  work_.resize(outFrameSize + kHeadroom);
  // The filter lags by a whole number of input samples. Zeros in front make that a whole number of output
  // samples; the outputs that they give are dropped.
  std::size_t lag = static_cast<std::size_t>(speex_resampler_get_input_latency(state_.get()));
  while (lag * out % in != 0) {
    ++lag;
    ++lead_;
  }
  delay_ = lag * out / in - runZeros(lead_);
}

std::size_t FrameResampler::runZeros(std::size_t count) {
  constexpr std::array<float, 64> kZeros{};
  std::array<float, 1024> dropped;
  std::size_t produced = 0;
  for (std::size_t fed = 0; fed < count; fed += kZeros.size()) {
    produced += convert(state_.get(), kZeros.data(), std::min(kZeros.size(), count - fed),
                        dropped.data(), dropped.size());
  }
  return produced;
}

int FrameResampler::process(const std::vector<float>& in, std::vector<float>& out) {
  out.resize(outFrameSize_);
  if (isIdentity()) {
    std::copy(in.begin(), in.end(), out.begin());
  } else {
    convert(state_.get(), in.data(), in.size(), work_.data(), work_.size());
    std::copy_n(work_.begin(), outFrameSize_, out.begin());
  }
  return static_cast<int>(outFrameSize_);
}

void FrameResampler::reset() {
  if (!isIdentity()) {
    speex_resampler_reset_mem(state_.get());
    runZeros(lead_);
  }
}

}  // namespace ORVEL
