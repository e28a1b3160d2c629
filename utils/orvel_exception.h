#pragma once

#include <exception>
#include <string>

namespace ORVEL::UTILS {

/** The library's one exception type; `what()` gives place and message in one text. */
class ORVEL_Exception : public std::exception {
 public:
  /** `file` is the throwing unit without its extension, `line` 0 where no line is meaningful. */
  ORVEL_Exception(const char* message, const char* file, int line, const char* function)
      : text_(std::string("ORVEL_Exeption in file ") + file + " Line " + std::to_string(line) +
              " Function " + function + "\n messege "),
        messageAt_(text_.size()) {
    text_ += message;
  }

  const char* what() const noexcept override { return text_.c_str(); }
  /** The message without the place. */
  const char* message() const noexcept { return text_.c_str() + messageAt_; }

 private:
  std::string text_;
  std::size_t messageAt_;
};

}  // namespace ORVEL::UTILS
