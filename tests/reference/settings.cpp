#include "tests/reference/settings.h"

#include <cstdlib>

#include "tests/support/versions.h"

namespace orvel_test {

Settings::Settings(int generation, Keys keys) {
  const auto text = [&](const std::string& stem) {
    return keys["ORVEL_" + stem + noiseCleaners().at(generation - 1)->keySuffix];
  };
  const auto flag = [&](const std::string& stem, bool& value) {
    if (!text(stem).empty()) value = text(stem) == "TRUE";
    return value;
  };
  const auto real = [&](const std::string& stem, double& value) {
    if (!text(stem).empty()) value = static_cast<float>(std::atof(text(stem).c_str()));
  };
  const auto number = [&](const std::string& stem, double& value) {
    if (generation >= 3) return real(stem, value);
    if (!text(stem).empty()) value = std::atoi(text(stem).c_str());
  };
  const auto check = [&](double& value, bool good, double fallback, const std::string& warning) {
    if (good) return;
    value = fallback;
    printed += warning;
  };

  real("SMOOT_COEF", smooth);
  check(smooth, smooth > 0 && smooth <= 1, 1.0,
        "WARNING OF SMOOTH COEF NUMBER VALUE. IT MUST BE iIN INTERVALK (0,1] \n"
        " DEFAULT VALUE 1.f");
  flag("SMOOT_RM_MODIFY", softModify);
  flag("HIGH_FREQ_SMOOT", highFrequency);
  if (generation == 1 && flag("ENABLE_WINDOW_AFTER", windowAfter))
    hammingAfter = text("WINDOW_AFTER") == "HAMMING";
  if (flag("ENABLE_CLIP_FIX", clipFix) || generation >= 3) {
    number("CLIP_FIX_POINT", clipPoint);
    check(clipPoint, clipPoint >= 1 && clipPoint <= 32768, 25000.0,
          "WARNING OF CLIP_FIX_POINT NUMBER VALUE. IT MUST BE IN INTERVALK (1,32768) \n"
          " DEFAULT VALUE 25000");
  }
  if (generation == 5) {
    skipSilence = text("SKIP_FRAME") == "TRUE";
    double percent = 0.0;
    if (text("VOLUME_UP") == "TRUE") real("VOLUME_UP_PERCENT", percent);
    if (percent > 0 && percent < 200) {
      volume = percent / 100.0 + 1.0;
      if (!clipFix) printed += "WARNING: Enabled Clip fix, because VolumeUp is Enabled\n";
      clipFix = true;
    }
  }
  if (flag("ENABLE_THRESH_CUT", cut)) {
    number("THRESH_CUT_REF_EN", cutReference);
    check(cutReference, cutReference >= 1 && cutReference <= 1000, 100.0,
          "WARNING OF THRESH_CUT_REF VALUE. IT MUST BE iIN INTERVALK [1,1000] \n"
          " DEFAULT VALUE 100");
  }
  if (flag("ENABLE_RM_THRESHOLD", threshold)) {
    real("RM_THRESHOLD", thresholdAt);
    const bool zeroIsFine = generation >= 3 && thresholdAt == 0;
    check(thresholdAt, (thresholdAt > 0 || zeroIsFine) && thresholdAt <= 1, 0.5,
          "WARNING OF RM_THRESHOLD VALUE. IT MUST BE iIN INTERVALK [0.0,1.0] \n"
          " DEFAULT VALUE 0.5");
  }
  rescale = generation >= 3;
  if (rescale) flag("ENABLE_RESCALE", rescale);
  if (generation >= 3 && threshold) {  // they follow the threshold's switch, not the rescale one
    real("RESCALE_REF_AMPL", rescaleAmplitude);
    real("RESCALE_REF_EN", rescaleEnergy);
  }
  if (generation >= 4) {  // one key for both generations
    const std::string word = keys["ORVEL_COMPRESS_RATE_v0_0_5"];
    compress = word.empty() ? generation - 3 : std::atoi(word.c_str());
  }
}

}  // namespace orvel_test
