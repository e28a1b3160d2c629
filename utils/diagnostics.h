#pragma once

#include <iostream>
#include <string>
#include <string_view>

namespace ORVEL::UTILS {

/**
 * Where the texts of one instance of the library go. Each text is handed on whole: what ends a line
 * holds its line end. Not for frames: a text is put together on the heap.
 */
class Diagnostics {
 public:
  Diagnostics() = default;
  Diagnostics(const Diagnostics&) = delete;
  Diagnostics& operator=(const Diagnostics&) = delete;
  virtual ~Diagnostics() = default;

  /** A line that the loader echoes: nothing is wrong. */
  template <class... Parts>
  void note(const Parts&... parts) {
    onNote(line(parts...));
  }
  /** A line on something that is ignored or replaced by a default. */
  template <class... Parts>
  void warnLine(const Parts&... parts) {
    onWarning(line(parts...));
  }
  /** The same as it stands, without a line end of ours. */
  void warn(std::string_view text) { onWarning(text); }
  /** A line on something that is wrong. */
  template <class... Parts>
  void error(const Parts&... parts) {
    onError(line(parts...));
  }

 protected:
  virtual void onNote(std::string_view text) = 0;
  virtual void onWarning(std::string_view text) = 0;
  virtual void onError(std::string_view text) = 0;

 private:
  template <class... Parts>
  static std::string line(const Parts&... parts) {
    std::string text;
    (text += ... += parts);
    return text += '\n';
  }
};

/** The process's standard streams: notes and warnings on standard output, errors on standard error. */
class StandardStreams final : public Diagnostics {
 public:
  /** The line in one piece, without the heap: for frames and for want of memory. `text` ends its line. */
  static void printError(std::string_view text) { write(std::cerr, text); }

 protected:
  void onNote(std::string_view text) override { write(std::cout, text); }
  void onWarning(std::string_view text) override { write(std::cout, text); }
  void onError(std::string_view text) override { write(std::cerr, text); }

 private:
  static void write(std::ostream& stream, std::string_view text) {
    stream.write(text.data(), static_cast<std::streamsize>(text.size())).flush();
  }
};

inline Diagnostics& standardStreams() {
  static StandardStreams streams;
  return streams;
}

}  // namespace ORVEL::UTILS
