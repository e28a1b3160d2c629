// A noise cleaner of any generation over a stream that is kept whole: frames are cut from all
// samples so far by index, and every frame's output is added at its place in the whole output.
#pragma once

#include <optional>

#include "tests/reference/network.h"
#include "tests/reference/settings.h"

namespace orvel_test {

class Cleaner {
 public:
  Cleaner(const TestModel& model, const Keys& keys, int frameMs);
  // Takes the samples of one call and gives the samples that this call returns.
  Signal process(const Signal& samples);
  void setFloor(double gain) { floor_ = gain; }

 private:
  Signal frame(const Signal& x);
  Signal features(const Spectrum& spectrum, double scale) const;
  Signal mask(bool silent);
  void shape(Signal& gains, double gate) const;

  TestModel model_;
  Settings settings_;
  int generation_;
  size_t step_, perCall_, delay_;
  Signal analysis_, synthesis_;
  std::optional<Energies> gate_, loud_;
  Network network_;

  Signal input_, output_;         // whole streams
  size_t frames_ = 0, read_ = 0;  // frames done, samples returned
  std::vector<Signal> history_;   // features of every frame
  std::vector<Signal> removed_;   // what the gains took away, per frame
  Signal previous_;
  double floor_ = 0.0;
  bool silent_ = false;
};

// First and last index of each band after compression of n bins.
std::vector<std::pair<int, int>> compressedBands(int n, int compress);

}  // namespace orvel_test
