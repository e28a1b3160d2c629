#include "tools/vad_report.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "tools/tool_error.h"

namespace ORVEL::TOOLS {
namespace {

std::string number(double value, int digits) { return formatText("%.*f", digits, value); }

std::string time(double seconds) { return number(seconds, 3); }
std::string meanScore(const Segment& segment) { return number(segment.meanScore, 3); }
std::string frameScore(double score) { return number(score, 5); }

std::string quotedForCsv(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) {
    return text;
  }
  std::string quoted(1, '"');
  for (char c : text) {
    quoted.append(c == '"' ? 2 : 1, c);
  }
  quoted.push_back('"');
  return quoted;
}

// Columns of plain text and of CSV.
class ColumnReport : public VadReport {
 public:
  ColumnReport(const std::string& file, const char* gap, Write write)
      : gap_(gap), front_(file.empty() ? "" : file + gap), write_(std::move(write)) {}
  void segment(const Segment& s) override {
    write_(front_ + time(s.start) + gap_ + time(s.end) + gap_ + meanScore(s) + "\n");
  }
  void frame(double start, double score) override {
    write_(front_ + time(start) + gap_ + frameScore(score) + "\n");
  }

 private:
  std::string gap_;
  std::string front_;
  Write write_;
};

// Tab-separated start, end and text: the label tracks of Audacity.
class LabelReport : public VadReport {
 public:
  explicit LabelReport(Write write) : write_(std::move(write)) {}
  void segment(const Segment& s) override {
    write_(time(s.start) + "\t" + time(s.end) + "\tspeech " + meanScore(s) + "\n");
  }
  void frame(double start, double score) override {
    write_(time(start) + "\t" + time(start + kScoreMs / 1000.0) + "\t" + number(score, 3) + "\n");
  }

 private:
  Write write_;
};

// NIST's rich transcription time marks; a file is called by its name without folder and extension.
class RttmReport : public VadReport {
 public:
  RttmReport(const std::string& input, Write write)
      : file_(std::filesystem::path(input).stem().string()), write_(std::move(write)) {
    std::replace_if(
        file_.begin(), file_.end(), [](unsigned char c) { return std::isspace(c) != 0; }, '_');
  }
  void segment(const Segment& s) override {
    write_("SPEAKER " + file_ + " 1 " + time(s.start) + " " + time(s.end - s.start) +
           " <NA> <NA> speech <NA> <NA>\n");
  }
  void frame(double /*start*/, double /*score*/) override {}

 private:
  std::string file_;
  Write write_;
};

class JsonReport : public VadReport {
 public:
  JsonReport(std::string input, const char* list, Write write)
      : input_(std::move(input)), list_(list), write_(std::move(write)) {}
  void begin() override {
    // A file name need not be UTF-8; the document has to be.
    const auto name =
        nlohmann::json(input_).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    write_("{\n  \"input\": " + name + ",\n  \"" + list_ + "\": [");
  }
  void segment(const Segment& s) override {
    item("{\"start\": " + time(s.start) + ", \"end\": " + time(s.end) +
         ", \"mean_score\": " + meanScore(s) + "}");
  }
  void frame(double start, double score) override {
    item("{\"time\": " + time(start) + ", \"score\": " + frameScore(score) + "}");
  }
  void end(double seconds) override {
    write_("\n  ],\n  \"duration\": " + time(seconds) + "\n}\n");
  }

 private:
  void item(const std::string& text) {
    write_((std::exchange(listed_, true) ? ",\n    " : "\n    ") + text);
  }
  std::string input_;
  std::string list_;
  Write write_;
  bool listed_ = false;
};

}  // namespace

std::unique_ptr<VadReport> makeReport(const ReportOptions& options, const std::string& input,
                                      VadReport::Write write) {
  const std::string file = options.several ? input : "";
  switch (options.style) {
    case ReportStyle::kJson:
      return std::make_unique<JsonReport>(input, options.frames ? "frames" : "segments",
                                          std::move(write));
    case ReportStyle::kCsv:
      return std::make_unique<ColumnReport>(quotedForCsv(file), ",", std::move(write));
    case ReportStyle::kLabels:
      return std::make_unique<LabelReport>(std::move(write));
    case ReportStyle::kRttm:
      return std::make_unique<RttmReport>(input, std::move(write));
    default:
      return std::make_unique<ColumnReport>(file, "  ", std::move(write));
  }
}

OrderedOutput::OrderedOutput(const ReportOptions& options, std::size_t inputs, Print print)
    : print_(std::move(print)), waiting_(inputs), finished_(inputs) {
  if (options.style == ReportStyle::kCsv) {
    before_ = std::string(options.several ? "file," : "") +
              (options.frames ? "time,score\n" : "start,end,mean_score\n");
    end_ = before_;
  } else if (options.style == ReportStyle::kJson && options.several) {
    before_ = "[\n";
    separator_ = ",\n";
    end_ = "[\n]\n";
  }
}

void OrderedOutput::write(std::size_t input, const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (input == turn_) {
    print(text);
  } else {
    waiting_[input] += text;
  }
}

void OrderedOutput::finish(std::size_t input) {
  const std::lock_guard lock(mutex_);
  finished_[input] = true;
  while (turn_ < finished_.size() && finished_[turn_]) {
    ++turn_;
    begun_ = false;
    if (turn_ < waiting_.size()) {
      print(std::exchange(waiting_[turn_], {}));
    }
  }
}

void OrderedOutput::end() {
  const std::lock_guard lock(mutex_);
  if (!end_.empty()) {
    print_(end_);
  }
}

void OrderedOutput::print(const std::string& text) {
  if (text.empty()) {
    return;
  }
  if (!std::exchange(begun_, true)) {
    if (!before_.empty()) {
      print_(before_);
      // The heading has been printed: what is left at the end is the list's bracket.
      end_ = separator_.empty() ? "" : "]\n";
    }
    before_ = separator_;
  }
  print_(text);
}

}  // namespace ORVEL::TOOLS
