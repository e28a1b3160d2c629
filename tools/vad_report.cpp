#include "tools/vad_report.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

namespace ORVEL::TOOLS {
namespace {

std::string number(double value, int digits) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.*f", digits, value);
  return text.data();
}

std::string time(double seconds) { return number(seconds, 3); }
std::string shortScore(double score) { return number(score, 3); }
std::string fullScore(double score) { return number(score, 5); }

class TextReport : public VadReport {
 public:
  explicit TextReport(Write write) : write_(std::move(write)) {}
  void segment(const Segment& s) override {
    write_(time(s.start) + "  " + time(s.end) + "  " + shortScore(s.meanScore) + "\n");
  }
  void frame(double start, double score) override {
    write_(time(start) + "  " + fullScore(score) + "\n");
  }

 private:
  Write write_;
};

class CsvReport : public VadReport {
 public:
  explicit CsvReport(Write write) : write_(std::move(write)) {}
  void segment(const Segment& s) override {
    heading("start,end,mean_score\n");
    write_(time(s.start) + "," + time(s.end) + "," + shortScore(s.meanScore) + "\n");
  }
  void frame(double start, double score) override {
    heading("time,score\n");
    write_(time(start) + "," + fullScore(score) + "\n");
  }
  void end(double /*seconds*/) override { heading("start,end,mean_score\n"); }

 private:
  void heading(const char* line) {
    if (!std::exchange(begun_, true)) write_(line);
  }
  Write write_;
  bool begun_ = false;
};

// Tab-separated start, end and text: the label tracks of Audacity.
class LabelReport : public VadReport {
 public:
  explicit LabelReport(Write write) : write_(std::move(write)) {}
  void segment(const Segment& s) override {
    write_(time(s.start) + "\t" + time(s.end) + "\tspeech " + shortScore(s.meanScore) + "\n");
  }
  void frame(double start, double score) override {
    const double end = start + kScoreMs / 1000.0;
    write_(time(start) + "\t" + time(end) + "\t" + shortScore(score) + "\n");
  }

 private:
  Write write_;
};

class JsonReport : public VadReport {
 public:
  JsonReport(std::string input, Write write) : input_(std::move(input)), write_(std::move(write)) {}
  void begin() override {
    // A file name need not be UTF-8; the document has to be.
    const auto name =
        nlohmann::json(input_).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    write_("{\n  \"input\": " + name + ",\n");
  }
  void segment(const Segment& s) override {
    item("segments", "{\"start\": " + time(s.start) + ", \"end\": " + time(s.end) +
                         ", \"mean_score\": " + shortScore(s.meanScore) + "}");
  }
  void frame(double start, double score) override {
    item("frames", "{\"time\": " + time(start) + ", \"score\": " + fullScore(score) + "}");
  }
  void end(double seconds) override {
    if (!listed_) write_("  \"segments\": [");
    write_("\n  ],\n  \"duration\": " + time(seconds) + "\n}\n");
  }

 private:
  void item(const char* list, const std::string& text) {
    const bool first = !std::exchange(listed_, true);
    write_((first ? "  \"" + std::string(list) + "\": [" : std::string(",")) + "\n    " + text);
  }
  std::string input_;
  Write write_;
  bool listed_ = false;
};

}  // namespace

std::unique_ptr<VadReport> makeReport(ReportStyle style, const std::string& input,
                                      VadReport::Write write) {
  switch (style) {
    case ReportStyle::json:
      return std::make_unique<JsonReport>(input, std::move(write));
    case ReportStyle::csv:
      return std::make_unique<CsvReport>(std::move(write));
    case ReportStyle::labels:
      return std::make_unique<LabelReport>(std::move(write));
    default:
      return std::make_unique<TextReport>(std::move(write));
  }
}

}  // namespace ORVEL::TOOLS
