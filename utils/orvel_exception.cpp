#include "utils/orvel_exception.h"

#include <sstream>

namespace ORVEL::UTILS {

ORVEL_Exception::ORVEL_Exception(const char* message, const char* file, int line,
                                 const char* function)
    : message_(message), file_(file), function_(function), line_(line) {
  std::ostringstream text;
  text << "ORVEL_Exeption in file " << file_ << " Line " << line_ << " Function " << function_
       << "\n messege " << message_;
  message_ = text.str();
}

ORVEL_Exception::~ORVEL_Exception() = default;

}  // namespace ORVEL::UTILS
