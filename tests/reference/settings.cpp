#include "tests/reference/settings.h"

#include <cstdlib>

#include "tests/support/versions.h"

namespace orvel_test {

Settings::Settings(int generation, const Keys& keys) {
  const std::string suffix = noiseCleaners().at(generation - 1)->keySuffix;
  const auto text = [&](const std::string& name) {
    const auto found = keys.find(name);
    return found == keys.end() ? std::string() : found->second;
  };
  const auto flag = [&](const std::string& stem, bool& value) {
    const std::string word = text(stem + suffix);
    if (!word.empty()) value = word == "TRUE";
    return value;
  };
  const auto real = [&](const std::string& stem, double& value) {
    const std::string word = text(stem + suffix);
    if (!word.empty()) value = static_cast<float>(std::atof(word.c_str()));
  };
  const auto number = [&](const std::string& stem, double& value) {
    const std::string word = text(stem + suffix);
    if (generation >= 3) return real(stem, value);
    if (!word.empty()) value = std::atoi(word.c_str());
  };
  const auto check = [&](double& value, bool good, double fallback, const std::string& warning) {
    if (good) return;
    value = fallback;
    printed += warning;
  };

  real("ORVEL_SMOOT_COEF", smooth);
  check(smooth, smooth > 0 && smooth <= 1, 1.0,
        "WARNING OF SMOOTH COEF NUMBER VALUE. IT MUST BE iIN INTERVALK (0,1] \n"
        " DEFAULT VALUE 1.f");
  flag("ORVEL_SMOOT_RM_MODIFY", softModify);
  flag("ORVEL_HIGH_FREQ_SMOOT", highFrequency);
  if (generation == 1 && flag("ORVEL_ENABLE_WINDOW_AFTER", windowAfter)) {
    hammingAfter = text("ORVEL_WINDOW_AFTER" + suffix) == "HAMMING";
  }
  if (flag("ORVEL_ENABLE_CLIP_FIX", clipFix) || generation >= 3) {
    number("ORVEL_CLIP_FIX_POINT", clipPoint);
    check(clipPoint, clipPoint >= 1 && clipPoint <= 32768, 25000.0,
          "WARNING OF CLIP_FIX_POINT NUMBER VALUE. IT MUST BE IN INTERVALK (1,32768) \n"
          " DEFAULT VALUE 25000");
  }
  if (generation == 5) {
    skipSilence = text("ORVEL_SKIP_FRAME" + suffix) == "TRUE";
    double percent = 0.0;
    if (text("ORVEL_VOLUME_UP" + suffix) == "TRUE") real("ORVEL_VOLUME_UP_PERCENT", percent);
    if (percent > 0 && percent < 200) {
      volume = percent / 100.0 + 1.0;
      if (!clipFix) printed += "WARNING: Enabled Clip fix, because VolumeUp is Enabled\n";
      clipFix = true;
    }
  }
  if (flag("ORVEL_ENABLE_THRESH_CUT", cut)) {
    number("ORVEL_THRESH_CUT_REF_EN", cutReference);
    check(cutReference, cutReference >= 1 && cutReference <= 1000, 100.0,
          "WARNING OF THRESH_CUT_REF VALUE. IT MUST BE iIN INTERVALK [1,1000] \n"
          " DEFAULT VALUE 100");
  }
  if (flag("ORVEL_ENABLE_RM_THRESHOLD", threshold)) {
    real("ORVEL_RM_THRESHOLD", thresholdAt);
    const bool zeroIsFine = generation >= 3;
    check(thresholdAt, (thresholdAt > 0 || (zeroIsFine && thresholdAt == 0)) && thresholdAt <= 1,
          0.5,
          "WARNING OF RM_THRESHOLD VALUE. IT MUST BE iIN INTERVALK [0.0,1.0] \n"
          " DEFAULT VALUE 0.5");
  }
  if (generation < 3) {
    rescale = false;
    return;
  }
  flag("ORVEL_ENABLE_RESCALE", rescale);
  if (threshold) {  // the references follow the threshold's switch, not the rescale one
    real("ORVEL_RESCALE_REF_AMPL", rescaleAmplitude);
    real("ORVEL_RESCALE_REF_EN", rescaleEnergy);
  }
  if (generation >= 4) {  // one key for both generations
    const std::string word = text("ORVEL_COMPRESS_RATE_v0_0_5");
    compress = word.empty() ? generation - 3 : std::atoi(word.c_str());
  }
}

}  // namespace orvel_test
