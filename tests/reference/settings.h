// Tuning keys of one noise cleaner as its users meet them: values in force and texts printed.
#pragma once

#include <string>

#include "tests/support/test_model.h"

namespace orvel_test {

struct Settings {
  Settings(int generation, Keys keys);

  double smooth = 1.0;
  bool softModify = false, highFrequency = false, windowAfter = true, hammingAfter = false;
  bool clipFix = false, cut = false, threshold = false, rescale = false, skipSilence = false;
  double clipPoint = 25000.0, cutReference = 100.0, thresholdAt = 0.5;
  double rescaleAmplitude = 2000.0, rescaleEnergy = 100.0;
  int compress = 0;
  double volume = 1.0;
  std::string printed;  // what construction writes to standard output
};

}  // namespace orvel_test
