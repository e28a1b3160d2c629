// The exported functions with a model directory of their own, for tests that run whole sessions.
#pragma once

#include <gtest/gtest.h>
#include <orvel/orv_sdk.h>
#include <orvel/orv_sdk_ext.h>

#include <string>
#include <vector>

#include "tests/support/capture.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_model.h"

namespace orvel_test {

inline int clean(void* session, const int16_t* in, size_t inCount, int16_t* out, size_t outCount) {
  return Orv_NC_CleanAmbientNoiseInt16(session, in, static_cast<uint32_t>(inCount), out,
                                       static_cast<uint32_t>(outCount));
}
inline int clean(void* session, const float* in, size_t inCount, float* out, size_t outCount) {
  return Orv_NC_CleanAmbientNoiseFloat(session, in, static_cast<uint32_t>(inCount), out,
                                       static_cast<uint32_t>(outCount));
}

// Initialised while it lives. Relative names are looked up in its directory.
class Sdk {
 public:
  Sdk() { EXPECT_EQ(Orv_SDK_GlobalInit(dir_.path().c_str()), 0); }
  ~Sdk() { Orv_SDK_GlobalDestroy(); }
  Sdk(const Sdk&) = delete;
  Sdk& operator=(const Sdk&) = delete;

  const TempDir& dir() const { return dir_; }

  // Writes NAME-weights.bin and NAME.ctl and loads them as NAME; returns the status.
  int load(const std::string& name, const std::string& weights, const Keys& keys = {}) {
    std::string control = "WEIGHT " + name + "-weights.bin\n";
    for (const auto& [key, value] : keys)
      control.append(key + " " + value + "\n");
    dir_.write(name + "-weights.bin", weights);
    dir_.write(name + ".ctl", control);
    Capture capture;
    return Orv_SDK_SetModel((name + ".ctl").c_str(), name.c_str());
  }
  int load(const std::string& name, const TestModel& model, const Keys& keys = {}) {
    return load(name, model.weights().bytes(), keys);
  }

 private:
  TempDir dir_;
};

// Runs a stream through a session in whole frames; samples behind the last one are left out.
template <class Sample>
std::vector<Sample> cleanStream(void* session, const std::vector<Sample>& in, size_t inSize,
                                size_t outSize) {
  std::vector<Sample> out;
  std::vector<Sample> frame(outSize);
  for (size_t at = 0; at + inSize <= in.size(); at += inSize) {
    const int status = clean(session, in.data() + at, inSize, frame.data(), outSize);
    if (status != 0) {
      ADD_FAILURE() << "status " << status << " at sample " << at;
      break;
    }
    out.insert(out.end(), frame.begin(), frame.end());
  }
  return out;
}

inline size_t samplesPerFrame(int rate, int ms) { return static_cast<size_t>(rate) * ms / 1000; }

}  // namespace orvel_test
