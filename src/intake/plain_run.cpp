#include "intake/plain_run.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <optional>

#include "base/text/utf8.h"
#include "intake/used_run.h"

namespace keelstone {

namespace {

constexpr std::uint32_t kMostPasses = 15;
constexpr std::uint64_t kOnes = 0x0101010101010101U;
constexpr std::uint64_t kTops = 0x8080808080808080U;

enum RunMember : std::size_t {
  kTime,
  kDevice,
  kSource,
  kVariables,
  kParam,
  kDomain,
  kNodeId,
  kNodePathSchema,
  kStructureId,
  kOnDemand,
};
constexpr std::array<std::string_view, 10> kRunNames = {
    "time",   "device", "source",         "variables",   "param",
    "domain", "nodeId", "nodePathSchema", "structureId", "onDemand"};

enum VariableMember : std::size_t {
  kName,
  kInterface,
  kValue,
  kType,
  kTypeCode,
  kInterfacePath,
  kKeys,
  kSort,
  kDigest,
};
constexpr std::array<std::string_view, 9> kVariableNames = {
    "name", "interface", "value", "type", "typeCode", "interfacePath", "keys", "sort", "digest"};

/// The top bit of each byte that is smaller than `bound`, at most 128; right up to the lowest.
constexpr std::uint64_t BytesBelow(std::uint64_t eight, std::uint64_t bound) noexcept {
  return (eight - kOnes * bound) & ~eight & kTops;
}

/// Likewise of each quotation mark, backslash and control character.
constexpr std::uint64_t Special(std::uint64_t eight) noexcept {
  return BytesBelow(eight, 0x20) | BytesBelow(eight ^ kOnes * '"', 1) |
         BytesBelow(eight ^ kOnes * '\\', 1);
}

template <class Integer>
bool ReadInteger(std::string_view text, Integer& out) {
  const auto read = std::from_chars(text.data(), text.data() + text.size(), out);
  return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

/// A value that is no container.
struct Scalar {
  enum class Kind : std::uint8_t { kNull, kFalse, kTrue, kInteger, kReal, kString };
  Kind kind = Kind::kNull;
  std::string_view text;
};

/// The data type by the value; of an integer beyond 64 bits a double.
EnumKSDataType TypeOf(const Scalar& value) {
  std::int64_t ignored = 0;
  switch (value.kind) {
    case Scalar::Kind::kInteger:
      return ReadInteger(value.text, ignored) ? KSDataInt64 : KSDataDouble;
    case Scalar::Kind::kReal:
      return KSDataDouble;
    default:
      return KSDataString;
  }
}

std::optional<EnumKSDataType> TypeNamed(std::string_view name) {
  if (name == "int64") return KSDataInt64;
  if (name == "float") return KSDataFloat;
  if (name == "double") return KSDataDouble;
  if (name == "string") return KSDataString;
  return std::nullopt;
}

/// Gives the variable a value of its data type; false where the two need a closer look.
bool TakeValue(const Scalar& value, VarInfo& variable) {
  const bool isNumeric = variable.dataType != KSDataString;
  std::int64_t ignored = 0;
  switch (value.kind) {
    case Scalar::Kind::kInteger:
      if (variable.dataType == KSDataInt64 && !ReadInteger(value.text, ignored)) return false;
      break;
    case Scalar::Kind::kReal:
      break;
    case Scalar::Kind::kFalse:
      variable.valueText = isNumeric ? "0" : "false";
      return true;
    case Scalar::Kind::kTrue:
      variable.valueText = isNumeric ? "1" : "true";
      return true;
    case Scalar::Kind::kString:
      if (isNumeric) return false;
      break;
    case Scalar::Kind::kNull:
      return false;
  }
  variable.valueText = value.text;
  return true;
}

}  // namespace

/// A place in the line; what it reads is false when something else stands there.
class PlainRun::Cursor {
 public:
  explicit Cursor(std::string_view text) : at_(text.data()), end_(at_ + text.size()) {}

  bool IsAtEnd() const noexcept { return at_ == end_; }
  bool IsAt(char c) const noexcept { return at_ != end_ && *at_ == c; }
  bool Take(char c) noexcept {
    if (!IsAt(c)) return false;
    ++at_;
    return true;
  }
  void SkipSpace() noexcept {
    while (at_ != end_ && *at_ <= ' ' &&
           (*at_ == ' ' || *at_ == '\t' || *at_ == '\r' || *at_ == '\n')) {
      ++at_;
    }
  }
  /// What stands between two values: goes on behind a comma (true), or behind `close`.
  bool TakeCommaOr(char close, bool& isClosed) noexcept {
    SkipSpace();
    isClosed = Take(close);
    if (isClosed) return true;
    if (!Take(',')) return false;
    SkipSpace();
    return true;
  }
  bool TakeString(std::string_view& text) noexcept {
    if (!Take('"')) return false;
    const char* const begin = at_;
    SkipPlain();
    text = {begin, static_cast<std::size_t>(at_ - begin)};
    return Take('"');
  }
  bool TakeNumber(Scalar& value) noexcept {
    const char* const begin = at_;
    value.kind = Scalar::Kind::kInteger;
    Take('-');
    if (!Take('0') && !SkipDigits()) return false;
    if (Take('.')) {
      value.kind = Scalar::Kind::kReal;
      if (!SkipDigits()) return false;
    }
    if (Take('e') || Take('E')) {
      value.kind = Scalar::Kind::kReal;
      if (!Take('+')) Take('-');
      if (!SkipDigits()) return false;
    }
    value.text = {begin, static_cast<std::size_t>(at_ - begin)};
    return true;
  }
  bool TakeScalar(Scalar& value) noexcept {
    if (at_ == end_) return false;
    switch (*at_) {
      case '"':
        value.kind = Scalar::Kind::kString;
        return TakeString(value.text);
      case 'n':
        value.kind = Scalar::Kind::kNull;
        return TakeWord("null");
      case 'f':
        value.kind = Scalar::Kind::kFalse;
        return TakeWord("false");
      case 't':
        value.kind = Scalar::Kind::kTrue;
        return TakeWord("true");
      default:
        return TakeNumber(value);
    }
  }
  /// A member's name, up to its value: its number among the names, or as many as there are.
  template <std::size_t N>
  bool TakeName(const std::array<std::string_view, N>& names, std::size_t place, Guess& guess,
                std::size_t& member) noexcept {
    std::string_view name;
    if (!TakeString(name)) return false;
    SkipSpace();
    if (!Take(':')) return false;
    SkipSpace();
    member = guess[std::min(place, guess.size() - 1)];
    if (names[member] == name) return true;
    member = static_cast<std::size_t>(std::find(names.begin(), names.end(), name) - names.begin());
    if (member < N && place < guess.size()) guess[place] = static_cast<std::uint8_t>(member);
    return true;
  }

 private:
  /// Up to the first quotation mark, backslash or control character.
  void SkipPlain() noexcept {
    std::uint64_t eight = 0;
    if constexpr (std::endian::native == std::endian::little) {
      for (; end_ - at_ >= static_cast<std::ptrdiff_t>(sizeof eight); at_ += sizeof eight) {
        std::memcpy(&eight, at_, sizeof eight);
        const std::uint64_t special = Special(eight);
        if (special == 0) continue;
        at_ += std::countr_zero(special) / 8;
        return;
      }
    }
    while (at_ != end_ && *at_ != '"' && *at_ != '\\' && static_cast<unsigned char>(*at_) >= 0x20) {
      ++at_;
    }
  }
  bool SkipDigits() noexcept {
    const char* const begin = at_;
    while (at_ != end_ && *at_ >= '0' && *at_ <= '9') ++at_;
    return at_ != begin;
  }
  bool TakeWord(std::string_view word) noexcept {
    if (static_cast<std::size_t>(end_ - at_) < word.size()) return false;
    if (std::memcmp(at_, word.data(), word.size()) != 0) return false;
    at_ += word.size();
    return true;
  }

  const char* at_;
  const char* const end_;
};

bool PlainRun::Read(std::string_view line, const std::string& defaultDomain, ParsedRun& run) {
  if (passes_ > 0) {
    --passes_;
    return false;
  }
  Renew(run);
  run.domain = defaultDomain;
  Cursor at(line);
  if (FirstInvalidUtf8(line) == line.size() && ReadRun(at, run)) {
    givenUp_ = 0;
    return true;
  }
  givenUp_ = std::min(2 * givenUp_ + 1, kMostPasses);
  passes_ = givenUp_ - 1;
  return false;
}

bool PlainRun::ReadRun(Cursor& at, ParsedRun& run) {
  constexpr std::size_t kRequired = 1U << kTime | 1U << kDevice | 1U << kSource | 1U << kVariables;
  at.SkipSpace();
  if (!at.Take('{')) return false;
  at.SkipSpace();
  std::size_t seen = 0;
  bool isClosed = false;
  for (std::size_t place = 0; !isClosed; ++place) {
    std::size_t member = 0;
    if (!at.TakeName(kRunNames, place, runGuess_, member)) return false;
    const std::size_t bit = std::size_t{1} << member;
    if (member < kRunNames.size() && (seen & bit) != 0) return false;  // the last one counts
    seen |= bit;
    if (!ReadRunMember(at, member, run) || !at.TakeCommaOr('}', isClosed)) return false;
  }
  at.SkipSpace();
  return at.IsAtEnd() && (seen & kRequired) == kRequired;
}

bool PlainRun::ReadRunMember(Cursor& at, std::size_t member, ParsedRun& run) {
  if (member == kVariables) return ReadVariables(at, run);
  Scalar value;
  if (!at.TakeScalar(value)) return false;
  const auto takeText = [&](std::string& text) {
    text = value.text;
    return value.kind == Scalar::Kind::kString;
  };
  switch (member) {
    case kTime:
      return value.kind == Scalar::Kind::kInteger && ReadInteger(value.text, run.time);
    case kDevice:
      return takeText(run.device);
    case kSource:
      return takeText(run.source);
    case kParam:
      return takeText(run.param);
    case kDomain:
      return takeText(run.domain);
    case kNodeId:
      return takeText(run.nodeId);
    case kNodePathSchema:
      return takeText(run.nodePathSchema);
    case kStructureId:
      return takeText(run.structureId);
    case kOnDemand:
      run.onDemand = value.kind == Scalar::Kind::kTrue;
      return run.onDemand || value.kind == Scalar::Kind::kFalse;
    default:
      return true;  // no member of a run
  }
}

bool PlainRun::ReadVariables(Cursor& at, ParsedRun& run) {
  if (!at.Take('[')) return false;
  at.SkipSpace();
  std::size_t count = 0;
  bool isClosed = at.Take(']');
  while (!isClosed) {
    if (!ReadVariable(at, run, count) || !at.TakeCommaOr(']', isClosed)) return false;
  }
  run.variables.resize(count);
  return true;
}

bool PlainRun::ReadVariable(Cursor& at, ParsedRun& run, std::size_t& count) {
  constexpr std::size_t kRequired = 1U << kName | 1U << kValue;
  if (!at.Take('{')) return false;
  at.SkipSpace();
  VarInfo& variable = PlaceFor(run, count);
  Scalar value;
  std::optional<EnumKSDataType> type;
  std::size_t seen = 0;
  bool isClosed = false;
  for (std::size_t place = 0; !isClosed; ++place) {
    std::size_t member = 0;
    Scalar read;
    if (!at.TakeName(kVariableNames, place, variableGuess_, member)) return false;
    if (!at.TakeScalar(read)) return false;
    const std::size_t bit = std::size_t{1} << member;
    if (member < kVariableNames.size() && (seen & bit) != 0) return false;  // the last one counts
    seen |= bit;
    const bool isText = read.kind == Scalar::Kind::kString;
    bool isTaken = true;
    switch (member) {
      case kName:
        variable.variableName = read.text;
        isTaken = isText;
        break;
      case kInterface:
        variable.interfaceValue = read.text;
        isTaken = isText;
        break;
      case kInterfacePath:
        variable.interfacePath = read.text;
        isTaken = isText;
        break;
      case kValue:
        value = read;
        break;
      case kType:
        type = TypeNamed(read.text);
        isTaken = isText && type.has_value();
        break;
      case kTypeCode:
        isTaken =
            read.kind == Scalar::Kind::kInteger && ReadInteger(read.text, variable.variableType);
        break;
      case kKeys:
      case kSort:
      case kDigest:
        return false;
      default:  // no member of a variable
        break;
    }
    if (!isTaken || !at.TakeCommaOr('}', isClosed)) return false;
  }
  if ((seen & kRequired) != kRequired) return false;
  if (value.kind == Scalar::Kind::kNull) {  // not read: it is no part of the run
    run.unread.push_back(count + run.unread.size());
    return true;
  }
  variable.dataType = type ? *type : TypeOf(value);
  if ((seen & std::size_t{1} << kTypeCode) == 0) {
    variable.variableType =
        RunLineReader::DefaultTypeCode(static_cast<EnumKSDataType>(variable.dataType));
  }
  if (!TakeValue(value, variable)) return false;
  ++count;
  return true;
}

}  // namespace keelstone
