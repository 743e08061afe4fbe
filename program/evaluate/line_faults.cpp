#include "program/evaluate/line_faults.h"

namespace keelstone::host {

std::string TooLongText(std::size_t maxLine) {
  return "the line is longer than " + std::to_string(maxLine) + " bytes (--max-line)";
}

}  // namespace keelstone::host
