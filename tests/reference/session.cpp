#include "tests/reference/session.h"

#if defined(ORVEL_RESAMPLER_SPEEXDSP)
#include <speex/speex_resampler.h>
#else
#include <libresample.h>
#endif

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace orvel_test {
namespace {

Signal clamped(Signal samples) {
  for (double& sample : samples)
    sample = std::clamp(sample, -32768.0, 32767.0);
  return samples;
}

}  // namespace

#if defined(ORVEL_RESAMPLER_SPEEXDSP)
// Zeros stand in front until the filter's lag is a whole number of outputs; what they give is dropped.
RateChange::RateChange(double inSize, double outSize) : factor_(outSize / inSize) {
  if (factor_ == 1.0) return;
  auto* state = speex_resampler_init(1, static_cast<unsigned>(inSize),
                                     static_cast<unsigned>(outSize), 3, nullptr);
  handle_.reset(state, speex_resampler_destroy);
  double lag = speex_resampler_get_input_latency(state);
  for (; std::abs(std::remainder(lag * factor_, 1.0)) > 1e-9; lag += 1.0)
    convert({0.0F});
}

Signal RateChange::process(const Signal& in) {
  return handle_ ? convert(Floats(in.begin(), in.end())) : in;
}

Signal RateChange::convert(const Floats& in) {
  Floats room(1024 + static_cast<size_t>(static_cast<double>(in.size()) * factor_));
  auto used = static_cast<unsigned>(in.size()), got = static_cast<unsigned>(room.size());
  speex_resampler_process_float(static_cast<SpeexResamplerState*>(handle_.get()), 0, in.data(),
                                &used, room.data(), &got);
  return Signal(room.begin(), room.begin() + got);
}
#else
RateChange::RateChange(double inSize, double outSize) : factor_(outSize / inSize) {
  if (factor_ != 1.0) handle_.reset(resample_open(1, factor_, factor_), resample_close);
}

Signal RateChange::process(const Signal& in) {
  if (!handle_) return in;
  const auto outSize = static_cast<size_t>(static_cast<double>(in.size()) * factor_);
  Floats source(in.begin(), in.end());
  Signal produced;
  for (int consumed = 0;;) {
    Floats room(1024 + outSize);
    int used = 0;
    const int got = resample_process(handle_.get(), factor_, source.data() + consumed,
                                     static_cast<int>(source.size()) - consumed, 0, &used,
                                     room.data(), static_cast<int>(room.size()));
    consumed += used;
    if (got < 0) throw std::runtime_error("resampler refused its input");
    produced.insert(produced.end(), room.begin(), room.begin() + got);
    if (got == 0 && consumed == static_cast<int>(source.size())) break;
  }
  // One sample stays behind the first frame, so that later frames never run short.
  if (delivered_ == 0) stream_.assign(outSize + 1 - produced.size(), 0.0);
  stream_.insert(stream_.end(), produced.begin(), produced.end());
  delivered_ += outSize;
  if (stream_.size() < delivered_) throw std::runtime_error("resampler ran short");
  return Signal(stream_.begin() + static_cast<long>(delivered_ - outSize),
                stream_.begin() + static_cast<long>(delivered_));
}
#endif

Signal Vad::features() const {
  const size_t length = model_.frameLength;
  Signal frame(length, 0.0);
  const size_t have = std::min(length, levelled_.size());
  std::copy(levelled_.end() - static_cast<long>(have), levelled_.end(),
            frame.end() - static_cast<long>(have));
  const Spectrum spectrum = forwardReal(multiplied(frame, hamming(model_.frameLength)));
  // 121 bins: DC and 30 single bins, then 15 pairs, then 15 groups of four.
  Signal result;
  const auto group = [&](int from, int to, int width) {
    for (int k = from; k < to; k += width) {
      double power = 0.0;
      for (int i = k; i < k + width; ++i)
        power += std::norm(spectrum[i]);
      result.push_back(std::log(power / width + 1.0));
    }
  };
  group(0, 31, 1);
  group(31, 61, 2);
  group(61, 121, 4);
  return result;
}

double Vad::score(const Signal& samples) {
  const double energy = meanSquare(samples);
  const double attack = std::pow(0.01, 1.0 / 100.0), decay = std::pow(0.01, 1.0 / 300.0);
  if (energy < 10000.0) {
    level_ *= decay;
  } else if (energy <= 2.0 * level_) {
    level_ = attack * level_ + (1.0 - attack) * energy;
  } else {
    level_ = attack * energy + (1.0 - attack) * level_;
  }
  const double gain = 2000.0 / (std::sqrt(level_) + 1e-7);
  for (const double sample : samples)
    levelled_.push_back(gain * sample);

  const auto normalised = [&](Signal f) {
    for (size_t i = 0; i < model_.mu.size(); ++i)
      f[i] = (f[i] - model_.mu[i]) / std::sqrt(model_.sd[i] + 1e-7);
    return f;
  };
  history_.push_back(normalised(features()));
  Signal x;
  for (int back = 3; back >= 0; --back) {
    const bool known = history_.size() > static_cast<size_t>(back);
    const Signal past = known ? history_[history_.size() - 1 - back]
                              : normalised(Signal(history_.back().size(), 0.0));
    x.insert(x.end(), past.begin(), past.end());
  }
  const double raw = network_.raw(x);
  if (model_.minMax.size() < 2 || model_.bestF1.empty()) return raw;
  const double low = model_.minMax[0], best = model_.bestF1[0], high = model_.minMax[1];
  const double s =
      raw < best ? (raw - low) * 0.5 / (best - low) : (raw - best) * 0.5 / (high - best) + 0.5;
  return std::clamp(s, 0.00001, 0.99999);
}

Session::Session(const TestModel& model, const Keys& keys, int inRate, int outRate, int frameMs)
    : inputSize_(inRate * frameMs / 1000),
      outputSize_(outRate * frameMs / 1000),
      in_(inRate * frameMs / 1000, model.rate * frameMs / 1000),
      out_(model.rate * frameMs / 1000, outRate * frameMs / 1000) {
  if (model.generation() == 0) {
    vad_ = std::make_unique<Vad>(model);
  } else {
    cleaner_ = std::make_unique<Cleaner>(model, keys, frameMs);
  }
}

Signal Session::toModelRate(const Signal& samples) { return clamped(in_.process(samples)); }

Signal Session::clean(const Signal& samples) {
  return clamped(out_.process(cleaner_->process(toModelRate(samples))));
}

double Session::vad(const Signal& samples) { return vad_->score(toModelRate(samples)); }

}  // namespace orvel_test
