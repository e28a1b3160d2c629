#include "tools/tuning_keys.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

constexpr const char* kAll = "_v0_0_1 _v0_0_2 _v0_0_3 _v0_0_4 _v0_0_5";
constexpr const char* kFirst = "_v0_0_1";
constexpr const char* kRescaled = "_v0_0_3 _v0_0_4 _v0_0_5";
constexpr const char* kLast = "_v0_0_5";

constexpr std::array kKeys = {
    TuningKey{
        "ORVEL_SMOOT_COEF", kAll, "0 < c <= 1, default 1",
        "Share of the new gains in each frame; the rest stays from the frame before. Lower is "
        "calmer and slower."},
    TuningKey{
        "ORVEL_SMOOT_RM_MODIFY", kAll, "TRUE or off, default off",
        "Leaves gains below 0.05 as they are instead of squaring them: weak speech is removed "
        "less."},
    TuningKey{
        "ORVEL_HIGH_FREQ_SMOOT", kAll, "TRUE or off, default off",
        "Squares the gains of the upper half of the band once more: less hiss, duller sound."},
    TuningKey{"ORVEL_ENABLE_WINDOW_AFTER", kFirst, "TRUE or off, default TRUE",
              "Windows the output frames instead of the input frames."},
    TuningKey{"ORVEL_WINDOW_AFTER", kFirst, "TRIANGL or HAMMING, default TRIANGL",
              "The window of the output frames, where they are windowed."},
    TuningKey{"ORVEL_ENABLE_CLIP_FIX", kAll, "TRUE or off, default off",
              "Lowers an output frame whose highest sample passes the clip fix point."},
    TuningKey{"ORVEL_CLIP_FIX_POINT", kAll, "1 to 32768, default 25000",
              "Highest sample that the clip fix lets through, in 16-bit steps."},
    TuningKey{"ORVEL_ENABLE_THRESH_CUT", kAll, "TRUE or off, default off",
              "Mutes stretches that are far quieter than the loud parts so far."},
    TuningKey{"ORVEL_THRESH_CUT_REF_EN", kAll, "1 to 1000, default 100",
              "Energy from which a frame counts as loud for the threshold cut."},
    TuningKey{"ORVEL_ENABLE_RM_THRESHOLD", kAll, "TRUE or off, default off",
              "Pushes gains below the RM threshold further down."},
    TuningKey{"ORVEL_RM_THRESHOLD", kAll, "0 to 1, default 0.5",
              "Gain below which the RM threshold acts."},
    TuningKey{"ORVEL_ENABLE_RESCALE", kRescaled, "TRUE or off, default TRUE",
              "Brings the level to a common one before the network looks at it."},
    TuningKey{"ORVEL_RESCALE_REF_AMPL", kRescaled,
              "a number, default 2000; read only with the RM threshold on",
              "Level that the network is shown, in 16-bit steps."},
    TuningKey{"ORVEL_RESCALE_REF_EN", kRescaled,
              "a number, default 100; read only with the RM threshold on",
              "Energy from which a frame counts for the level."},
    TuningKey{"ORVEL_COMPRESS_RATE", kLast,
              "a whole number, default 1 in version 0.0.4 and 2 in 0.0.5; must fit the weights",
              "How strongly bins are pooled into bands. Belongs to the weights; versions 0.0.4 and "
              "0.0.5 both read this name."},
    TuningKey{
        "ORVEL_SKIP_FRAME", kLast, "TRUE or off, default off",
        "Does not run the network on digital silence: saves time, and its memory stands still."},
    TuningKey{"ORVEL_VOLUME_UP", kLast, "TRUE or off, default off",
              "Amplifies the output; turns the clip fix on."},
    TuningKey{"ORVEL_VOLUME_UP_PERCENT", kLast, "0 < p < 200, default none",
              "By how much the output is amplified: 50 makes it 1.5 times as large."},
    TuningKey{"ORVEL_VAD_ENABLE_STATE_RESET", kFirst, "TRUE or off, default off",
              "Voice activity: forgets what it heard after a long time without a voice."},
};

}  // namespace

std::span<const TuningKey> tuningKeys() { return kKeys; }

bool isKnownTuningKey(const std::string& name) {
  return std::any_of(kKeys.begin(), kKeys.end(), [&](const TuningKey& key) {
    const std::string stem = key.stem;
    constexpr std::size_t kSuffixLength = 7;
    if (name.size() != stem.size() + kSuffixLength || !name.starts_with(stem)) return false;
    return std::string(key.suffixes).find(name.substr(stem.size())) != std::string::npos;
  });
}

Setting parseSetting(const std::string& argument) {
  const auto refuse = [&](const std::string& reason) {
    throw ToolError(ExitCode::usage, "--set '" + argument + "': " + reason);
  };
  const auto isSpace = [](unsigned char c) { return std::isspace(c) != 0; };
  const std::size_t equals = argument.find('=');
  if (equals == std::string::npos) refuse("is not KEY=VALUE");
  Setting setting{argument.substr(0, equals), argument.substr(equals + 1)};
  const auto& [key, value] = setting;
  if (key.empty() || key.front() == '#' || std::any_of(key.begin(), key.end(), isSpace)) {
    refuse("the key must be one word and must not begin with '#'");
  }
  if (key == "WEIGHT" || key == "CONTROLFILE") refuse("use --model to choose a model");
  if (std::all_of(value.begin(), value.end(), isSpace)) refuse("the value is empty");
  if (value.find_first_of("\r\n") != std::string::npos) refuse("the value has a line end");
  return setting;
}

}  // namespace ORVEL::TOOLS
