#include "orv-sdk/resampler_cache.h"

#include <libresample.h>

#include <new>

#include "orv-sdk/frame_resampler.h"

namespace ORVEL {

namespace {

constexpr int kHighQuality = 1;

ResamplerHandle duplicate(const ResamplerHandle& original) {
  ResamplerHandle copy(resample_dup(original.get()));
  if (copy == nullptr) {
    throw std::bad_alloc();
  }
  return copy;
}

}  // namespace

void CloseResampler::operator()(void* handle) const { resample_close(handle); }

ResamplerCache::Prepared& ResamplerCache::prepared(double factor) {
  Prepared& entry = byFactor_[factor];
  if (entry.handle == nullptr) {
    entry.handle.reset(resample_open(kHighQuality, factor, factor));
    if (entry.handle == nullptr) {
      throw std::bad_alloc();
    }
  }
  return entry;
}

ResamplerHandle ResamplerCache::open(double factor) { return duplicate(prepared(factor).handle); }

std::size_t ResamplerCache::firstOutputCount(double factor, std::size_t inputCount) {
  Prepared& entry = prepared(factor);
  const auto known = entry.firstOutputCounts.find(inputCount);
  if (known != entry.firstOutputCounts.end()) {
    return known->second;
  }
  const ResamplerHandle probe = duplicate(entry.handle);
  const std::size_t count = countFirstOutput(probe.get(), factor, inputCount);
  entry.firstOutputCounts.emplace(inputCount, count);
  return count;
}

}  // namespace ORVEL
