// Tuning keys of one noise cleaner as its users meet them: values in force and texts printed.
#pragma once

#include <string>

#include "tests/support/test_model.h"

namespace orvel_test {

struct Settings {
  Settings(int generation, const Keys& keys);

  double smooth = 1.0;
  bool softModify = false, highFrequency = false;
  bool windowAfter = true, hammingAfter = false;
  bool clipFix = false;
  double clipPoint = 25000.0;
  bool cut = false;
  double cutReference = 100.0;
  bool threshold = false;
  double thresholdAt = 0.5;
  bool rescale = true;
  double rescaleAmplitude = 2000.0, rescaleEnergy = 100.0;
  int compress = 0;
  bool skipSilence = false;
  double volume = 1.0;
  std::string printed;  // what construction writes to standard output
};

}  // namespace orvel_test
