// Models of a test in a library of its own, and whole streams through its sessions.
#pragma once

#include <cstdint>
#include <orvel/orvel.hpp>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/test_model.h"

namespace orvel_test {

// A model from the bytes of its weight file.
inline orvel::Model load(orvel::Library& library, const std::string& name,
                         const std::string& weights, const Keys& keys = {}) {
  std::string control;
  for (const auto& [key, value] : keys)
    control.append(key + " " + value + "\n");
  return library.loadModelFromMemory(control, std::as_bytes(std::span(weights)), name);
}
inline orvel::Model load(orvel::Library& library, const std::string& name, const TestModel& model,
                         const Keys& keys = {}) {
  return load(library, name, model.weights().bytes(), keys);
}

// Runs a stream through a session in whole frames; samples behind the last one are left out.
template <class Sample>
std::vector<Sample> cleanStream(orvel::Cleaner& cleaner, const std::vector<Sample>& in) {
  std::vector<Sample> out;
  std::vector<Sample> frame(cleaner.outputSize());
  const std::span<const Sample> all(in);
  for (std::size_t at = 0; at + cleaner.inputSize() <= in.size(); at += cleaner.inputSize()) {
    cleaner.process(all.subspan(at, cleaner.inputSize()), frame);
    out.insert(out.end(), frame.begin(), frame.end());
  }
  return out;
}

// Centre of a pulse's energy in samples, to a fraction of one.
inline double centreOf(const std::vector<float>& stream) {
  double weight = 0.0, moment = 0.0;
  for (std::size_t i = 0; i < stream.size(); ++i) {
    const double energy = static_cast<double>(stream[i]) * static_cast<double>(stream[i]);
    weight += energy;
    moment += energy * static_cast<double>(i);
  }
  return moment / weight;
}

}  // namespace orvel_test
