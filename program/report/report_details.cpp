#include "program/report/report_details.h"

#include <algorithm>
#include <utility>

namespace keelstone::host {

namespace {

constexpr std::size_t kSharedBytes = 48U << 20U;  // set aside for all variables together
constexpr std::size_t kLeastShare = 1024;
constexpr std::string_view kCut = "…";

constexpr std::size_t kTextsSearched = 64;
constexpr std::size_t kTextBytes = 256U << 10U;  // of one variable, before long texts are cut
constexpr std::size_t kShortText = 1000;

/// How much is kept of a variable.
struct Bounds {
  std::size_t episodes;
  std::size_t firstAlerts;  // of an episode
  std::size_t newestAlerts;
  std::size_t changes;  // of its rule, of its golden value
};
constexpr Bounds kAmple = {100, 40, 40, 200};
// When the budget is used up.
constexpr Bounds kScarce = {4, 2, 2, 4};
constexpr std::size_t kScarceText = 100;
constexpr std::size_t kScarceTexts = 16;

std::size_t BytesOf(const FoundAlert& alert) noexcept {
  return sizeof alert + alert.explanation.size();
}

std::size_t BytesOf(const FoundEpisode& episode) noexcept {
  std::size_t bytes = sizeof episode;
  for (const FoundAlert& alert : episode.first) bytes += BytesOf(alert);
  for (const FoundAlert& alert : episode.newest) bytes += BytesOf(alert);
  return bytes;
}

}  // namespace

DetailBudget::DetailBudget(std::size_t variables)
    : share_(std::max(kSharedBytes / std::max<std::size_t>(variables, 1), kLeastShare)) {}

TextPlace VariableFindings::Text(std::string_view text, DetailBudget& budget) {
  const bool isScarce = !budget.Allows(held_, sizeof(std::string) + text.size());
  std::size_t limit = textBytes_ > kTextBytes ? kShortText : kTextBytes;
  if (isScarce) limit = kScarceText;
  std::string cut;
  if (text.size() > limit) {
    cut.assign(text.substr(0, limit)).append(kCut);
    text = cut;
  }
  const std::size_t oldest = texts.size() > kTextsSearched ? texts.size() - kTextsSearched : 0;
  for (std::size_t i = texts.size(); i > oldest; --i) {
    if (texts[i - 1] == text) return static_cast<TextPlace>(i - 1);
  }
  if (isScarce && texts.size() >= kScarceTexts) {
    const auto known = std::find(texts.begin(), texts.end(), kCut);
    if (known != texts.end()) return static_cast<TextPlace>(known - texts.begin());
    text = kCut;
  }
  textBytes_ += text.size();
  budget.Take(held_, sizeof(std::string) + text.size());
  texts.emplace_back(text);
  return static_cast<TextPlace>(texts.size() - 1);
}

void VariableFindings::DropExplanation(FoundAlert& alert, DetailBudget& budget) {
  budget.Return(held_, alert.explanation.size());
  std::string().swap(alert.explanation);
}

void VariableFindings::BeginEpisode(std::int64_t time, DetailBudget& budget) {
  const bool isAmple = budget.Allows(held_, sizeof(FoundEpisode));
  const std::size_t limit = isAmple ? kAmple.episodes : kScarce.episodes;
  while (episodes.size() >= limit) {
    budget.Return(held_, BytesOf(episodes.front()));
    episodes.erase(episodes.begin());
    ++episodesDropped;
  }
  budget.Take(held_, sizeof(FoundEpisode));
  episodes.emplace_back().opened = time;
}

void VariableFindings::AddAlert(FoundAlert alert, bool opens, DetailBudget& budget) {
  if (opens || episodes.empty()) BeginEpisode(alert.time, budget);
  FoundEpisode& episode = episodes.back();
  episode.last = alert.time;
  ++episode.count;
  ++alerts;
  // An explanation is long: the first and the newest of an episode keep theirs.
  if (!episode.newest.empty()) DropExplanation(episode.newest.back(), budget);
  if (episode.first.size() > 1) DropExplanation(episode.first.back(), budget);
  const bool isAmple = budget.Allows(held_, BytesOf(alert));
  const Bounds& bounds = isAmple ? kAmple : kScarce;
  if (!isAmple) std::string().swap(alert.explanation);
  budget.Take(held_, BytesOf(alert));
  if (episode.newest.empty() && episode.first.size() < bounds.firstAlerts) {
    episode.first.push_back(std::move(alert));
    return;
  }
  while (episode.newest.size() >= bounds.newestAlerts) {
    budget.Return(held_, BytesOf(episode.newest.front()));
    episode.newest.erase(episode.newest.begin());
  }
  episode.newest.push_back(std::move(alert));
}

template <class Item>
void VariableFindings::AppendBounded(std::vector<Item>& items, const Item& item,
                                     DetailBudget& budget) {
  const Bounds& bounds = budget.Allows(held_, sizeof item) ? kAmple : kScarce;
  while (items.size() >= bounds.changes) {
    budget.Return(held_, sizeof item);
    items.erase(items.begin());
  }
  budget.Take(held_, sizeof item);
  items.push_back(item);
}

void VariableFindings::AddRule(const FoundRule& rule, DetailBudget& budget) {
  AppendBounded(rules, rule, budget);
}

void VariableFindings::AddGoldenValue(const FoundGoldenValue& golden, DetailBudget& budget) {
  AppendBounded(goldenValues, golden, budget);
}

}  // namespace keelstone::host
