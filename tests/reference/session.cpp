#include "tests/reference/session.h"

#include <libresample.h>

#include <stdexcept>

namespace orvel_test {
namespace {

Signal clamped(Signal samples) {
  for (double& sample : samples)
    sample = std::clamp(sample, -32768.0, 32767.0);
  return samples;
}

}  // namespace

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
