// A pattern in the first line, the value behind it. Costly searches end by themselves, or
// libFuzzer's time limit makes a finding of them.
#include "model/ksstrregexrule.h"
#include "tests/fuzz/fuzz_target.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  keelstone::fuzz::QuietLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  keelstone::fuzz::Input input(data, size);
  const std::string pattern = input.Line();
  const std::string value = input.Rest();
  const bool isMatch = keelstone::KSStrRegexRule::StrIsMatch(value, pattern);
  KS_PROMISE(isMatch == keelstone::KSStrRegexRule::StrIsMatch(value, pattern));
  return 0;
}
