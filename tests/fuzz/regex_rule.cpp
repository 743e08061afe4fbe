// A pattern in the first line, the value behind it. Whatever they are, the search ends
// within a bound of processor time, here that of an unoptimised build with sanitizers.
#include "model/rules/regex_rule.h"

#include <ctime>

#include "tests/fuzz/fuzz_target.h"

namespace keelstone::fuzz {
namespace {

constexpr double kMostSeconds = 40;

double ProcessorSeconds() {
  timespec now = {};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void Search(Input input) {
  const std::string pattern = input.Line();
  const std::string value = input.Rest();
  const double begin = ProcessorSeconds();
  KSStrRegexRule::StrIsMatch(value, pattern);
  KS_PROMISE(ProcessorSeconds() - begin < kMostSeconds);
}

}  // namespace
}  // namespace keelstone::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  keelstone::fuzz::QuietLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  keelstone::fuzz::Search({data, size});
  return 0;
}
