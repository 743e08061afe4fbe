#include "intake/run_screen.h"

#include <algorithm>
#include <bit>
#include <cinttypes>
#include <limits>

#include "intake/stored_history.h"
#include "keelstone/clock.h"
#include "keelstone/ini_reader.h"
#include "keelstone/logger.h"

namespace keelstone {

namespace {

constexpr std::int32_t kIntervalTime = 1800;  // s, where the configuration has none
// Before 1973: times that a device counts from its start. Only for these is the configuration
// looked at.
constexpr std::int64_t kEarlyTimes = 100'000'000;
// A device's clock that is ahead by less shows a time like any other.
constexpr std::int64_t kClockSkew = 300;  // s
// So many values in order of time take the place of a history that is ahead of the clock.
constexpr std::size_t kValuesInOrder = 3;
constexpr std::uint32_t kNone = std::numeric_limits<std::uint32_t>::max();

bool IsSameVariable(const VarInfo& a, const VarInfo& b) {
  return a.variableName == b.variableName && a.interfaceValue == b.interfaceValue;
}

/// How many points up to `count` follow each other in order of time, counted from the last.
std::size_t CountInOrder(const std::vector<NewestValue>& points, std::size_t count) {
  std::size_t inOrder = count > 0 ? 1 : 0;
  while (inOrder < count && inOrder < kValuesInOrder &&
         points[count - inOrder - 1].time < points[count - inOrder].time) {
    ++inOrder;
  }
  return inOrder;
}

}  // namespace

std::optional<std::string> TimeFault(std::int64_t time, const IntakeStages& stages) {
  if (stages.maxAhead <= 0) return std::nullopt;
  const std::string told = "the time " + std::to_string(time);
  if (time < 0) return told + " is no device's time: it lies before 1970";
  if (time < kEarlyTimes) {
    const std::int64_t interval =
        IniReader::GetInt("Keelstone", "IntervalTime", kIntervalTime, "fix_frontserver.ini");
    if (time > interval) return std::nullopt;
    return told + " is no device's time: it is not later than IntervalTime (" +
           std::to_string(interval) + " s) after 1970";
  }
  const std::int64_t ahead = time - std::max<std::int64_t>(Clock::NowSeconds(), 0);
  if (ahead <= stages.maxAhead) return std::nullopt;
  return told + " is ahead of the clock by more than " + std::to_string(stages.maxAhead) + " s";
}

RunScreen::RunScreen(const ParsedRun& run, const IntakeStages& stages,
                     const JudgedValues::Place& place, KSRuleInstance& instance, bool isLasting,
                     bool mayLearn)
    : run_(run),
      stages_(stages),
      place_(place),
      instance_(instance),
      looksBack_(isLasting && stages.LooksBack()),
      mayLearn_(mayLearn),
      plausible_(stages.maxAhead > 0 ? Clock::NowSeconds() + std::min(stages.maxAhead, kClockSkew)
                                     : std::numeric_limits<std::int64_t>::max()) {
  if (!looksBack_ && stages_.allowDuplicates) return;
  keys_.reserve(run_.variables.size());
  for (const VarInfo& variable : run_.variables) keys_.push_back(VariableKeyOf(variable));
  if (!stages_.allowDuplicates) FindDuplicates();
  if (!looksBack_) return;
  if (place_.unit) known_ = place_.unit->Look(keys_, place_.position);
  known_.resize(keys_.size());
  judged_.reserve(keys_.size());
}

void RunScreen::FindDuplicates() {
  const std::size_t count = keys_.size();
  if (count < 2 || count >= kNone) return;
  const std::size_t size = std::bit_ceil(2 * count);
  std::vector<std::uint32_t> slots(size, kNone);  // open addressing by key
  for (std::size_t i = 0; i < count; ++i) {
    std::size_t slot = keys_[i] & (size - 1);
    while (slots[slot] != kNone &&
           (keys_[slots[slot]] != keys_[i] ||
            !IsSameVariable(run_.variables[slots[slot]], run_.variables[i]))) {
      slot = (slot + 1) & (size - 1);
    }
    if (slots[slot] == kNone) {
      slots[slot] = static_cast<std::uint32_t>(i);
      continue;
    }
    if (firsts_.empty()) firsts_.resize(count, kNone);
    firsts_[i] = slots[slot];
  }
}

std::optional<std::size_t> RunScreen::DuplicateOf(std::size_t variable) const {
  if (firsts_.empty() || firsts_[variable] == kNone) return std::nullopt;
  return firsts_[variable];
}

bool RunScreen::IsRepeated(std::size_t variable) {
  if (!looksBack_) return false;
  const VarInfo& value = run_.variables[variable];
  const UnitMemory::Known& known = known_[variable];
  candidate_ = {keys_[variable], {run_.time, IdentityOf(value)}, UnitMemory::Step::kNewest};
  const std::optional<NewestValue> newest = NewestOf(value, known);
  if (!newest || run_.time > newest->time) return false;
  const bool isAhead = newest->time > plausible_ && run_.time <= plausible_;
  return (isAhead ? IsBehindSound(value, known) : IsBehind(*newest)) && !stages_.judgeRepeated;
}

/// What memory knows, else the newest value of the history, if it is not earlier than the run.
std::optional<NewestValue> RunScreen::NewestOf(const VarInfo& variable,
                                               const UnitMemory::Known& known) const {
  if (known.isKnown) return known.newest;
  const std::optional<std::int64_t> guess =
      instance_.GuessNewestTime(variable.interfaceValue, variable.variableName);
  if (guess && *guess < run_.time) return std::nullopt;
  const std::string* const text =
      instance_.GetLoadedHistory(variable.interfaceValue, variable.variableName);
  if (text == nullptr || text->empty()) return std::nullopt;
  const auto stored = StoredHistory::Read(static_cast<EnumKSDataType>(variable.dataType), *text);
  if (!stored) return std::nullopt;
  return stored->points().back();
}

bool RunScreen::IsBehind(const NewestValue& newest) const {
  const NewestValue& value = candidate_.value;
  return value.time < newest.time ||
         (value.time == newest.time && value.identity == newest.identity);
}

/// For a value behind a newest one that is ahead of the clock: whether it is behind the
/// newest sound one of the history, too. If not, it is judged, and with enough values in
/// order the ones ahead are dropped.
bool RunScreen::IsBehindSound(const VarInfo& variable, const UnitMemory::Known& known) {
  const std::string* const text =
      instance_.GetLoadedHistory(variable.interfaceValue, variable.variableName);
  std::optional<StoredHistory> stored;
  if (text != nullptr) {
    stored = StoredHistory::Read(static_cast<EnumKSDataType>(variable.dataType), *text);
  }
  std::size_t sound = 0;
  std::size_t ahead = 0;
  if (stored) {
    const auto& points = stored->points();
    const auto isAhead = [this](const NewestValue& point) { return point.time > plausible_; };
    sound = static_cast<std::size_t>(std::find_if(points.begin(), points.end(), isAhead) -
                                     points.begin());
    ahead = points.size() - sound;
    if (sound > 0 && IsBehind(points[sound - 1])) return true;
  }
  const bool isInOrder = known.behindCount > 0 && run_.time > known.behindTime;
  const std::size_t before =
      (isInOrder ? known.behindCount : 0) + (stored ? CountInOrder(stored->points(), sound) : 0);
  candidate_.step = UnitMemory::Step::kBehind;
  if (before + 1 < kValuesInOrder || !mayLearn_) return false;
  candidate_.step = UnitMemory::Step::kReset;
  if (ahead > 0) Repair(variable, *stored, ahead);
  return false;
}

void RunScreen::Repair(const VarInfo& variable, const StoredHistory& stored, std::size_t ahead) {
  KS_LOG("FS_Host", "RunScreen::Repair", "run_screen", kLogNotice,
         "History of variable:%s is repaired, values ahead of the clock are dropped (%zu, up to "
         "%" PRId64 "), device:%s, source:%s, interface:%s.",
         variable.variableName.c_str(), ahead, stored.points().back().time, run_.device.c_str(),
         run_.source.c_str(), variable.interfaceValue.c_str());
  instance_.ReplaceHistory(variable.interfaceValue, variable.variableName,
                           stored.TextUntil(run_.time));
}

void RunScreen::NoteJudged() {
  if (looksBack_) judged_.push_back(candidate_);
}

}  // namespace keelstone
