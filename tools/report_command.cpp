#include <fcntl.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <utility>

#include "orvel/orv_version.h"
#include "tools/aligned_cleaner.h"
#include "tools/commands.h"
#include "tools/pending_file.h"
#include "tools/report_figures.h"
#include "tools/report_page.h"
#include "tools/voice_scorer.h"

namespace ORVEL::TOOLS {
namespace {

constexpr std::size_t kBlockFrames = 4096;
// What a page may hold: 5 minutes at 48 kHz are 34 to 68 MB of it, and 420 MB of memory.
constexpr int kMostSeconds = 300;
// Words begin and end softer than the detector finds them: what lies this near is not between them.
constexpr int kPaddingMs = 150;
// Rates that browsers play.
constexpr int kLeastRate = 8000;
constexpr int kMostRate = 48000;

// A recording on its way into the page: the mean of its channels at the page's rate, and its loudness.
class Track {
 public:
  explicit Track(const AudioSpec& spec)
      : spec_(spec), rate_(std::clamp(spec.sampleRate, kLeastRate, kMostRate)), loudness_(spec) {
    if (rate_ != spec.sampleRate) {
      converter_.emplace(spec.sampleRate, rate_, 1);
    }
  }

  void push(std::span<const float> interleaved) {
    loudness_.push(interleaved);
    mean_.clear();
    appendMean(interleaved, spec_.channels, mean_);
    if (converter_) {
      converter_->push(mean_, samples_);
    } else {
      samples_.insert(samples_.end(), mean_.begin(), mean_.end());
    }
  }
  void finish() {
    if (converter_) {
      converter_->finish(samples_);
    }
  }
  int rate() const noexcept { return rate_; }
  std::vector<float>& samples() noexcept { return samples_; }

  nlohmann::json figures(const std::vector<Segment>& speech) const {
    nlohmann::json all = levels(samples_, rate_, speech);
    all.update(loudness_.figures());
    return all;
  }

 private:
  AudioSpec spec_;
  int rate_;
  LoudnessMeter loudness_;
  std::optional<RateConverter> converter_;
  std::vector<float> mean_;
  std::vector<float> samples_;
};

// The part of a sound file that is shown.
class Part {
 public:
  Part(const std::string& path, const ReportCommandOptions& options)
      : source_(openSource(path, {})), left_(0) {
    const AudioSpec spec = source_->spec();
    auto skip = static_cast<std::uint64_t>(options.start * spec.sampleRate);
    left_ = static_cast<std::uint64_t>(options.duration.value_or(kMostSeconds) * spec.sampleRate);
    wholeRest_ = !options.duration;
    block_.resize(kBlockFrames * static_cast<std::size_t>(spec.channels));
    while (skip > 0) {
      const std::size_t frames = take(skip);
      if (frames == 0) {
        throw ToolError(ExitCode::kInput, name() + ": ends before --start");
      }
      skip -= frames;
    }
  }

  AudioSpec spec() const { return source_->spec(); }
  const std::string& name() const { return source_->name(); }
  AudioSource& source() { return *source_; }

  /** The next interleaved frames; none at the end. */
  std::span<const float> read() {
    const std::size_t frames = take(left_);
    left_ -= frames;
    if (left_ == 0 && wholeRest_ && take(1) > 0) {
      throw ToolError(ExitCode::kUsage, name() + ": longer than " + std::to_string(kMostSeconds) +
                                            " s; choose a part with --start and --duration");
    }
    return std::span(block_).first(frames * static_cast<std::size_t>(spec().channels));
  }

 private:
  std::size_t take(std::uint64_t most) {
    throwIfInterrupted();
    const std::size_t frames = std::min<std::uint64_t>(most, kBlockFrames);
    return frames == 0 ? 0
                       : source_->read(std::span(block_).first(
                             frames * static_cast<std::size_t>(spec().channels)));
  }

  std::unique_ptr<AudioSource> source_;
  std::uint64_t left_;
  bool wholeRest_ = false;
  std::vector<float> block_;
};

void readCleaned(Part& cleaned, Track& after) {
  for (auto block = cleaned.read(); !block.empty(); block = cleaned.read()) {
    after.push(block);
  }
  after.finish();
}

void requireSameShape(const Part& noisy, const Part& cleaned) {
  const auto shape = [](const Part& part) {
    return std::to_string(part.spec().sampleRate) + " Hz";
  };
  if (noisy.spec().sampleRate != cleaned.spec().sampleRate) {
    throw ToolError(ExitCode::kInput, cleaned.name() + ": has " + shape(cleaned) + ", " +
                                          noisy.name() + " " + shape(noisy));
  }
}

std::string fileName(const std::string& path) {
  return std::filesystem::path(path).filename().string();
}

void writePage(const ReportCommandOptions& options, const std::string& text) {
  if (isStream(options.output)) {
    const UniqueFd descriptor = openPath(options.output, O_WRONLY);
    writeAll(descriptor.get(), text.data(), text.size(), options.output);
    return;
  }
  PendingFile pending(options.output, options.force);
  writeAll(pending.descriptor(), text.data(), text.size(), options.output);
  pending.commit();
}

void refuseExisting(const ReportCommandOptions& options) {
  std::error_code ignored;
  for (const std::string& input : {options.noisy, options.cleaned.value_or(options.noisy)}) {
    if (std::filesystem::equivalent(input, options.output, ignored)) {
      throw ToolError(ExitCode::kUsage, input + ": is input and output at once");
    }
  }
  if (!isStream(options.output)) {
    const PendingFile tried(options.output, options.force);  // before the work, not after it
  }
}

}  // namespace

ExitCode report(const ReportCommandOptions& options, Console& console) {
  refuseExisting(options);
  if (options.cleaned && (options.attenuationLimitDb || options.model.model)) {
    throw ToolError(ExitCode::kUsage,
                    "--attenuation-limit and --model: nothing is cleaned where CLEANED is given");
  }
  Part noisy(options.noisy, options);
  const AudioSpec spec = noisy.spec();
  const ModelSet detectors({std::nullopt, options.model.directory, {}},
                           orvel::ModelKind::voiceActivity, console);
  Progress progress(console, "reporting on " + options.noisy, std::nullopt);

  ReportPage page;
  std::vector<Segment> speech;
  SegmentOptions wide;
  wide.paddingMs = kPaddingMs;
  Segmenter segmenter(wide, [&](const Segment& segment) { speech.push_back(segment); });
  VoiceScorer scorer(detectors, spec, [&](double score) {
    page.scores.push_back(static_cast<float>(score));
    segmenter.push(score);
  });
  Track before(spec);
  std::unique_ptr<Track> after;
  std::optional<ModelSet> cleaners;
  std::optional<AlignedCleaner> cleaner;
  std::string by;
  if (!options.cleaned) {
    after = std::make_unique<Track>(spec);
    cleaners.emplace(options.model, orvel::ModelKind::noiseCleaning, console);
    by = cleaners->forRate(spec.sampleRate).name;
    cleaner.emplace(cleaners->library(), CleanerSetup{spec, by, options.attenuationLimitDb});
  }
  std::vector<float> cleaned;
  for (auto block = noisy.read(); !block.empty(); block = noisy.read()) {
    before.push(block);
    scorer.push(block);
    if (cleaner) {
      cleaned.clear();
      orvel::StreamCleaner::Block pushed[] = {cleaner->push(block)};
      orvel::StreamCleaner::process(pushed);
      cleaner->collect(cleaned);
      after->push(cleaned);
    }
    progress.add(static_cast<double>(block.size()) / spec.channels / spec.sampleRate);
  }
  if (scorer.seconds() <= 0.0) {
    const std::string shortfall = noisy.source().shortfall();
    throw ToolError(ExitCode::kInput,
                    noisy.name() + ": " + (shortfall.empty() ? "holds no samples" : shortfall));
  }
  scorer.finish();
  segmenter.finish(scorer.seconds());
  before.finish();
  if (cleaner) {
    cleaned.clear();
    cleaner->finish(cleaned);
    after->push(cleaned);
    after->finish();
  } else {
    Part other(*options.cleaned, options);
    requireSameShape(noisy, other);
    after = std::make_unique<Track>(other.spec());
    readCleaned(other, *after);
    if (after->samples().size() != before.samples().size()) {
      throw ToolError(ExitCode::kInput,
                      other.name() +
                          formatText(": has %.3f s, ",
                                     static_cast<double>(after->samples().size()) / after->rate()) +
                          noisy.name() + formatText(" %.3f s", scorer.seconds()));
    }
  }

  double spoken = 0.0;
  for (const Segment& segment : speech) {
    spoken += segment.end - segment.start;
  }
  page.title = fileName(noisy.name());
  page.figures = {{"program", "orvel " ORV_VERSION_STRING},
                  {"noisy", fileName(noisy.name())},
                  {"cleaned", options.cleaned ? fileName(*options.cleaned) : ""},
                  {"model", by},
                  {"rate", spec.sampleRate},
                  {"channels", spec.channels},
                  {"start", options.start},
                  {"duration", scorer.seconds()},
                  {"speech_seconds", spoken},
                  {"before", before.figures(speech)},
                  {"after", after->figures(speech)}};
  page.rate = before.rate();
  page.before = std::move(before.samples());
  page.after = std::move(after->samples());
  writePage(options, pageText(page));

  const std::string shortfall = noisy.source().shortfall();
  // What lies behind the part that was asked for is not missing.
  if (!shortfall.empty() && !options.duration) {
    console.error(noisy.name() + ": " + shortfall + "; reported on what there is");
    return ExitCode::kInput;
  }
  return ExitCode::kOk;
}

}  // namespace ORVEL::TOOLS
