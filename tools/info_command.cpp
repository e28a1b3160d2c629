#include "tools/info_command.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "orvel/orv_sdk_ext.h"
#include "tools/control_override.h"
#include "tools/engine.h"
#include "tools/model_catalog.h"
#include "tools/model_report.h"
#include "tools/tuning_keys.h"

namespace ORVEL::TOOLS {
namespace {

namespace fs = std::filesystem;

// What the library itself says about the model: its latency, or why it refuses it.
struct SessionReport {
  std::optional<std::uint32_t> latency;
  std::string refusal;
};

bool isVoiceActivity(const ModelReport& model) {
  return model.version.find("VAD") != std::string::npos;
}

ModelSet loadable(const ModelReport& model, const PrivateDirectory& scratch) {
  if (!model.controlFile.empty()) {
    const fs::path directory = fs::absolute(model.controlFile).parent_path();
    return {directory, {model.controlFile.filename().string()}, false};
  }
  const fs::path directory = fs::canonical(fs::absolute(model.weightFile).parent_path());
  const fs::path control = fs::canonical(scratch.path()) / "weights-only.ctl";
  std::ofstream(control) << "WEIGHT " << model.weightFile.filename().string() << '\n';
  return {directory, {fs::relative(control, directory).string()}, false};
}

SessionReport trySession(const ModelReport& model, Console& console) {
  SessionReport report;
  try {
    const PrivateDirectory scratch;
    Engine engine(loadable(model, scratch), {}, console);
    if (isVoiceActivity(model)) {
      engine.openVoiceSession();
    } else {
      const auto sessions = engine.openNoiseSessions(model.sampleRate, 1);
      std::uint32_t latency = 0;
      if (Orv_NC_GetLatency(sessions.front().handle(), &latency) == 0) report.latency = latency;
    }
  } catch (const ToolError& error) {
    report.refusal = error.what();
  }
  return report;
}

std::string latencyText(const ModelReport& model, const SessionReport& session) {
  if (!session.refusal.empty()) return "usable        no: " + session.refusal + "\n";
  if (!session.latency) return "usable        yes\n";
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "latency       %u samples (%.4g ms) with %d ms frames\n",
                *session.latency, *session.latency * 1000.0 / model.sampleRate, kFrameMs);
  return text.data();
}

}  // namespace

ExitCode info(const std::string& file, bool json, const StandardOutput& standardOutput,
              Console& console) {
  const ModelReport model = reportModel(file);
  const SessionReport session = trySession(model, console);
  if (json) {
    nlohmann::json document = toJson(model);
    document["usable"] = session.refusal.empty();
    if (!session.refusal.empty()) document["refusal"] = session.refusal;
    if (session.latency) document["latency"] = *session.latency;
    standardOutput.write(document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) +
                         "\n");
  } else {
    std::string text = toText(model);
    text.insert(text.find("parameters "), latencyText(model, session));
    standardOutput.write(text);
  }
  return session.refusal.empty() ? ExitCode::ok : ExitCode::model;
}

ExitCode listModels(const std::optional<std::string>& directory, bool json,
                    const StandardOutput& standardOutput, Console& console) {
  const fs::path folder = findModelDirectory(directory);
  ExitCode code = ExitCode::ok;
  nlohmann::json list = nlohmann::json::array();
  std::string text = folder.string() + "\n";
  for (const std::string& file : controlFilesIn(folder)) {
    try {
      const ModelReport model = reportModel(folder / file);
      const std::string name = fs::path(file).stem().string();
      std::array<char, 160> line{};
      std::snprintf(line.data(), line.size(), "  %-20s %-10s %6d Hz %9llu parameters\n",
                    name.c_str(), model.version.c_str(), model.sampleRate,
                    static_cast<unsigned long long>(model.parameters));
      text += line.data();
      list.push_back({{"name", name},
                      {"version", model.version},
                      {"sample_rate", model.sampleRate},
                      {"parameters", model.parameters}});
    } catch (const ToolError& error) {
      console.error(error.what());
      code = error.code();
    }
  }
  standardOutput.write(
      json ? list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n" : text);
  return code;
}

ExitCode listKeys(bool json, const StandardOutput& standardOutput) {
  nlohmann::json list = nlohmann::json::array();
  std::string text;
  for (const TuningKey& key : tuningKeys()) {
    list.push_back({{"stem", key.stem},
                    {"suffixes", key.suffixes},
                    {"values", key.values},
                    {"meaning", key.meaning}});
    text += std::string(key.stem) + "  " + key.suffixes + "\n    " + key.values + "\n    " +
            key.meaning + "\n";
  }
  standardOutput.write(json ? list.dump(2) + "\n" : text);
  return ExitCode::ok;
}

}  // namespace ORVEL::TOOLS
