// Flags, then either a line of key columns and a table as the input of `evaluate` gives it,
// or the raw size and the stored text of a compressed golden table.
#include <charconv>
#include <memory>
#include <vector>

#include "base/text/utf8.h"
#include "intake/table_value.h"
#include "keelstone/compressor.h"
#include "keelstone/raw_json.h"
#include "keelstone/text_rule_data.h"
#include "tests/fuzz/fuzz_target.h"

namespace keelstone::fuzz {
namespace {

enum Flag : unsigned { kGolden = 1, kSorted = 2, kKeys = 4, kDigest = 8 };

/// Whether there may be an integer beyond 64 bits: the digest takes its digits as they
/// stand, the table's document has the nearest double.
bool MayHoldHugeInteger(const std::string& text) {
  std::size_t digits = 0;
  for (const char c : text) {
    digits = c >= '0' && c <= '9' ? digits + 1 : 0;
    if (digits == 19) return true;
  }
  return false;
}

void ReadTableText(unsigned flags, Input& input) {
  TableDigestOptions options;
  options.sort = (flags & kSorted) != 0;
  if ((flags & kDigest) != 0) options.digest = "0123";
  const std::string keys = input.Line();
  // What comes from an input line is valid UTF-8.
  if ((flags & kKeys) != 0 && FirstInvalidUtf8(keys) == keys.size()) {
    auto& names = options.keys.emplace(1);
    for (const char c : keys) {
      if (c == ',') {
        names.emplace_back();
      } else {
        names.back() += c;
      }
    }
  }
  const std::string text = input.Rest();
  RawJson json;
  JsonParseError error;
  if (!json.Parse(text, error)) return;
  VarInfo variable;
  if (const auto fault = ReadTable(json.root(), options, variable)) {
    KS_PROMISE(!fault->text.empty());
    return;
  }
  KS_PROMISE(variable.valueText.size() == (options.digest ? 4U : 32U));
  const std::string written = variable.value.toString();
  // The table's own document is a table with the same digest.
  VarInfo again;
  RawJson writtenJson;
  KS_PROMISE(writtenJson.Parse(written, error));
  options.keys.emplace(variable.tableKeys.begin(), variable.tableKeys.end());
  KS_PROMISE(!ReadTable(writtenJson.root(), options, again));
  KS_PROMISE(again.valueText == variable.valueText || MayHoldHugeInteger(text));
  KS_PROMISE(again.value.toString() == written);

  std::string packed = written;
  KS_PROMISE(CompressString(packed));
  KS_PROMISE(DecompressString(packed, static_cast<std::int64_t>(written.size())));
  KS_PROMISE(packed == written);
}

void ReadGolden(Input& input) {
  auto content = std::make_shared<TableContent>();
  const std::string size = input.Line();
  std::from_chars(size.data(), size.data() + size.size(), content->rawValueSize);
  content->encodedTable = input.Rest();
  const auto text = content->GetTableText();
  KS_PROMISE(!text || static_cast<std::int64_t>(text->size()) == content->rawValueSize);
  TablMd5EqualData data;
  data.golden.content = content;
  const std::string golden = data.GetGlodenValue();
  JsonValue document;
  KS_PROMISE(golden.empty() || JsonReader::Parse(golden, document));
}

}  // namespace
}  // namespace keelstone::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  keelstone::fuzz::QuietLog();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  keelstone::fuzz::Input input(data, size);
  const unsigned flags = input.Byte();
  if ((flags & keelstone::fuzz::kGolden) != 0) {
    keelstone::fuzz::ReadGolden(input);
  } else {
    keelstone::fuzz::ReadTableText(flags, input);
  }
  return 0;
}
