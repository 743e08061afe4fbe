#include "keelstone/rule_records.h"

#include <array>
#include <cstddef>
#include <utility>

#include "base/text/strings.h"

namespace keelstone {

namespace {

constexpr std::string_view kUnitKeySeparator = "$$$";

// Enough that two threads seldom meet, few enough to stay in the cache.
constexpr std::size_t kDefinitionMutexes = 256;

struct alignas(64) PaddedMutex {
  Mutex mutex;
};

PaddedMutex& DefinitionMutex(const RuleDefinitionData& record) {
  static auto* const mutexes = new std::array<PaddedMutex, kDefinitionMutexes>;
  // Allocations are 16 bytes apart at least; records are far larger.
  const auto address = reinterpret_cast<std::uintptr_t>(&record);
  return (*mutexes)[(address >> 4U ^ address >> 12U) % kDefinitionMutexes];
}

}  // namespace

RuleDefinitionData::RuleDefinitionData(int type, int generateType, const std::string& param)
    : ruleType(type), ruleParam(param), ruleGenerateType(generateType) {}

RuleDefinitionData::RuleDefinitionData(int type, int sourceType, const std::string& param,
                                       const std::string& source, const std::string& name,
                                       int valueType, const std::string& parserParam)
    : ruleType(type),
      ruleParam(param),
      variableSourceType(sourceType),
      variableSource(source),
      variableName(name),
      variableType(valueType),
      variableParam(parserParam) {}

DefinitionLock::DefinitionLock(const RuleDefinitionData& record)
    : mutex_(DefinitionMutex(record).mutex) {
  mutex_.Lock();
}

DefinitionLock::~DefinitionLock() { mutex_.Unlock(); }

UnitKey::UnitKey(std::string device, std::string source, std::string param)
    : deviceName(std::move(device)),
      variableSource(std::move(source)),
      variableParam(std::move(param)) {}

std::string UnitKey::GetKeyString() const {
  std::string key;
  key.reserve(deviceName.size() + variableSource.size() + variableParam.size() +
              2 * kUnitKeySeparator.size());
  key.append(deviceName).append(kUnitKeySeparator).append(variableSource);
  return key.append(kUnitKeySeparator).append(variableParam);
}

bool UnitKey::LoadKeyString(const std::string& text) {
  std::vector<std::string> pieces = Split(text, kUnitKeySeparator);
  if (pieces.size() != 3) return false;
  deviceName = std::move(pieces[0]);
  variableSource = std::move(pieces[1]);
  variableParam = std::move(pieces[2]);
  return true;
}

BlockSettingItem::BlockSettingItem(std::set<std::string> names, std::int64_t from, std::int64_t to)
    : devices(std::move(names)), start(from), end(to) {}

}  // namespace keelstone
