// What a program may do with a model it was given: load it, open sessions, run rough audio through
// them, close them. Whatever the weights are, the calls answer and the output is finite and in range.
#pragma once

#include <cstdint>
#include <string_view>

namespace orvel_fuzz {

struct SessionChoice {
  // Each is taken modulo the number of choices, a few of them wrong.
  std::uint8_t inRate = 0, outRate = 0, duration = 0;
  std::uint8_t frames = 0;
  std::uint8_t attenuationLimit = 0;
};

void driveModel(std::string_view tuningKeys, std::string_view weights, const SessionChoice& choice);

}  // namespace orvel_fuzz
