#include "utils/orvel_exception.h"

namespace ORVEL::UTILS {

ORVEL_Exception::ORVEL_Exception(const char* message, const char* file, int line,
                                 const char* function)
    : text_(std::string("ORVEL_Exeption in file ") + file + " Line " + std::to_string(line) +
            " Function " + function + "\n messege "),
      messageAt_(text_.size()) {
  text_ += message;
}

ORVEL_Exception::~ORVEL_Exception() = default;

}  // namespace ORVEL::UTILS
