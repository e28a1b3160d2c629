#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "containers/any_map.h"
#include "utils/fft.h"

/**
 * Objects made once per model and shared by its cleaners. They are kept in the model's key map; the
 * caller serialises the creation of cleaners.
 */
namespace ORVEL::NOISE_CANCELLER {

using SharedWindow = std::shared_ptr<const std::vector<float>>;

/**
 * The object of that name and type, made on first use. A tuning key that happens to have the name is
 * replaced: it holds text, which no cleaner asks for under a generated name.
 */
template <class T, class Make>
std::shared_ptr<T> obtainGenerated(CONTAINERS::AnyMap& keys, const std::string& name, Make make) {
  if (auto known = keys.get<T>(name)) {
    return known;
  }
  keys.set<T>(name, make(), true);
  return keys.get<T>(name);
}

SharedWindow obtainHammingWindow(CONTAINERS::AnyMap& keys, std::size_t length);
SharedWindow obtainTriangleWindow(CONTAINERS::AnyMap& keys, std::size_t length);
SharedWindow obtainVorbisWindow(CONTAINERS::AnyMap& keys, std::size_t length);
std::shared_ptr<UTILS::FFT> obtainFFT(CONTAINERS::AnyMap& keys, std::size_t length);

}  // namespace ORVEL::NOISE_CANCELLER
