#include "orv-sdk/libresample_resampler.h"

#include <libresample.h>
#include <malloc.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace ORVEL {

namespace {

constexpr std::size_t kHeadroom = 1024;

std::size_t stateSize(void* handle) {
#ifdef _WIN32
  return _msize(handle);
#else
  return malloc_usable_size(handle);
#endif
}

// Feeds all of the input; the stream has no end, so the last-call flag is never set.
std::size_t convert(void* handle, double factor, const float* in, std::size_t inCount, float* out,
                    std::size_t outRoom) {
  std::size_t consumed = 0;
  std::size_t produced = 0;
  while (true) {
    int used = 0;
    const int result = resample_process(handle, factor, const_cast<float*>(in) + consumed,
                                        static_cast<int>(inCount - consumed), 0, &used,
                                        out + produced, static_cast<int>(outRoom - produced));
    consumed += static_cast<std::size_t>(used);
    if (result < 0) {
      return produced;
    }
    produced += static_cast<std::size_t>(result);
    const bool stalled = result == 0 && used == 0;
    if (stalled || (result == 0 && consumed == inCount)) {
      return produced;
    }
  }
}

}  // namespace

ResamplerCache::Prepared& ResamplerCache::prepared(double factor) {
  Prepared& entry = byFactor_[factor];
  if (entry.handle == nullptr) {
    entry.handle = openResampler(factor);
  }
  return entry;
}

ResamplerHandle ResamplerCache::open(double factor) {
  return copyResampler(prepared(factor).handle);
}

std::size_t ResamplerCache::firstOutputCount(double factor, std::size_t inputCount) {
  Prepared& entry = prepared(factor);
  const auto known = entry.firstOutputCounts.find(inputCount);
  if (known != entry.firstOutputCounts.end()) {
    return known->second;
  }
  const ResamplerHandle probe = copyResampler(entry.handle);
  const std::vector<float> zeros(inputCount, 0.0F);
  std::vector<float> out(kHeadroom +
                         static_cast<std::size_t>(static_cast<double>(inputCount) * factor));
  const std::size_t count =
      convert(probe.get(), factor, zeros.data(), inputCount, out.data(), out.size());
  entry.firstOutputCounts.emplace(inputCount, count);
  return count;
}

FrameResampler::FrameResampler(ResamplerCache& cache, std::size_t inFrameSize,
                               std::size_t outFrameSize)
    : factor_(static_cast<double>(outFrameSize) / static_cast<double>(inFrameSize)),

      outFrameSize_(outFrameSize) {
  if (factor_ == 1.0) {
    return;
  }
  handle_ = cache.open(factor_);
  const auto* state = static_cast<const unsigned char*>(handle_.get());
  freshState_.assign(state, state + stateSize(handle_.get()));
  delay_ = outFrameSize - cache.firstOutputCount(factor_, inFrameSize) + 1;
  work_.resize(kHeadroom + outFrameSize, 0.0F);
}

int FrameResampler::process(const std::vector<float>& in, std::vector<float>& out) {
  if (isIdentity()) {
    out = in;
    return static_cast<int>(in.size());
  }
  const std::size_t produced = run(in);
  out.resize(outFrameSize_);
  if (first_) {
    deliverFirst(produced, out);
  } else {
    deliver(produced, out);
  }
  return static_cast<int>(produced);
}

// libresample has no reset, and a fresh handle would take memory. Its state is one block, which holds the
// position in the stream, and two buffers of samples, which stay where they are: zeros are run through
// until the buffers hold nothing else, then the block is put back.
void FrameResampler::reset() {
  if (isIdentity()) {
    return;
  }
  constexpr std::array<float, 64> kZeros{};
  // The filter reaches as far back as it looks ahead; four times that leaves no sample in it.
  const auto lookAhead = static_cast<std::size_t>(static_cast<double>(delay_) / factor_) + 1;
  for (std::size_t fed = 0; fed < 4 * lookAhead; fed += kZeros.size()) {
    convert(handle_.get(), factor_, kZeros.data(), kZeros.size(), work_.data(), work_.size());
  }
  std::memcpy(handle_.get(), freshState_.data(), freshState_.size());
  first_ = true;
  pending_ = 0;
}

std::size_t FrameResampler::run(const std::vector<float>& in) {
  return convert(handle_.get(), factor_, in.data(), in.size(), work_.data() + pending_,
                 work_.size() - pending_);
}

// The filter cannot give the whole frame yet: zeros stand in front, and one sample is held back for
// calls that produce one less than a frame.
void FrameResampler::deliverFirst(std::size_t produced, std::vector<float>& out) {
  first_ = false;
  const std::size_t held = std::min<std::size_t>(produced, 1);
  const std::size_t delivered = std::min(produced - held, outFrameSize_);
  const auto zeros = static_cast<std::ptrdiff_t>(outFrameSize_ - delivered);
  std::fill(out.begin(), out.begin() + zeros, 0.0F);
  std::copy_n(work_.begin(), delivered, out.begin() + zeros);
  std::copy_n(work_.begin() + static_cast<std::ptrdiff_t>(produced - held), held, work_.begin());
  pending_ = held;
}

void FrameResampler::deliver(std::size_t produced, std::vector<float>& out) {
  const std::size_t available = pending_ + produced;
  const std::size_t delivered = std::min(available, outFrameSize_);
  const auto rest = work_.begin() + static_cast<std::ptrdiff_t>(delivered);
  std::copy(work_.begin(), rest, out.begin());
  std::fill(out.begin() + static_cast<std::ptrdiff_t>(delivered), out.end(), 0.0F);
  pending_ = available - delivered;
  std::copy_n(rest, pending_, work_.begin());
}

}  // namespace ORVEL
