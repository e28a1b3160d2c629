/* Contexts and sessions of the C interface as objects; nothing here knows Python. */
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "functions.h"

namespace orvel::python {

/** The library refused a call; what() is its reason. */
struct Refused : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/** A context. close() ends it and every session that was opened with it. */
class Context {
 public:
  using Handler = std::function<void(int severity, const char* text)>;

  Context(const std::string& library, const std::string& models, Handler handler);
  ~Context() { close(); }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  void load(const std::string& control, const std::string& name);
  void loadBytes(const std::string& control, std::span<const char> weights,
                 const std::string& name);
  OrvModelInfo model(const std::string& name) const;
  void close() noexcept;

  const Functions& functions() const noexcept { return functions_; }
  void* handle() const noexcept { return handle_; }
  [[noreturn]] void refuse(const std::string& what) const;

 private:
  static void forward(void* context, int severity, const char* text) noexcept;

  Functions functions_;
  Handler handler_;
  void* handle_;
};

/** An open session that one thread at a time may use. */
class Session {
 public:
  using Close = int (*)(void*);

  Session(std::shared_ptr<Context> context, void* handle, Close closing, int rate, int frameMs);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  OrvSessionStatistics statistics();
  void close();

  Context& context() const noexcept { return *context_; }
  void* handle() const noexcept { return handle_; }
  std::size_t frame() const noexcept { return frame_; }

  /** Holds a session for one thread. @throws std::runtime_error when another one has it, Refused when the
   * session is closed. */
  class Use {
   public:
    explicit Use(Session& session);
    Use(Use&& other) noexcept : session_(std::exchange(other.session_, nullptr)) {}
    Use& operator=(Use&&) = delete;
    ~Use();

   private:
    Session* session_;
  };

 protected:
  void check(int status, const std::string& what) const {
    if (status != 0) context_->refuse(what);
  }

 private:
  std::shared_ptr<Context> context_;
  void* handle_;
  Close closing_;
  std::size_t frame_;
  std::atomic_flag busy_;
};

class Cleaner : public Session {
 public:
  Cleaner(std::shared_ptr<Context> context, int rate, int outputRate, int frameMs,
          const std::string& model);

  std::size_t outputFrame() const noexcept { return outputFrame_; }
  std::size_t latency() const noexcept { return latency_; }
  void limit(float decibels);
  void reset();

 private:
  std::size_t outputFrame_;
  std::size_t latency_;
};

/**
 * Cleans whole frames of several sessions, of any length each; those of one model share the reading of its
 * weights frame by frame.
 *
 * @throws std::invalid_argument when a length does not fit, and what Session::Use throws: nothing is done
 *         then. Refused for the first frame that fails.
 */
void clean(std::span<Cleaner* const> sessions, std::span<const std::span<const float>> inputs,
           std::span<const std::span<float>> outputs);

class Detector : public Session {
 public:
  Detector(std::shared_ptr<Context> context, int rate, int frameMs, const std::string& model);

  /** One score for each frame; errors as clean(). */
  void process(std::span<const float> input, std::span<float> scores);
  void reset();
};

}  // namespace orvel::python
