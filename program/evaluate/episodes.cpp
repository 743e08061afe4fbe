#include "program/evaluate/episodes.h"

#include <algorithm>
#include <tuple>

namespace keelstone::host {

EpisodeStep Episodes::Note(const ObjectKey& key, std::int64_t time, bool isAlert,
                           std::string_view note, Episode* episode) {
  if (!isAlert && open_.empty()) return EpisodeStep::kNone;
  auto place = open_.find(key);
  if (!isAlert) {
    if (place == open_.end()) return EpisodeStep::kNone;
    if (episode != nullptr) *episode = std::move(place->second);
    open_.erase(place);
    return EpisodeStep::kCleared;
  }
  const bool isNew = place == open_.end();
  if (isNew) place = open_.try_emplace(OwnObjectKey(key)).first;
  Episode& open = place->second;
  if (isNew) open.first = time;
  open.last = time;
  ++open.count;
  open.note = note;
  if (episode != nullptr) *episode = open;
  return isNew ? EpisodeStep::kOpened : EpisodeStep::kContinued;
}

std::vector<std::pair<ObjectKey, Episode>> Episodes::Open() const {
  std::vector<std::pair<ObjectKey, Episode>> open;
  open.reserve(open_.size());
  for (const auto& [key, episode] : open_) open.emplace_back(key.view(), episode);
  std::sort(open.begin(), open.end(), [](const auto& a, const auto& b) {
    return std::tie(a.second.first, a.first) < std::tie(b.second.first, b.first);
  });
  return open;
}

}  // namespace keelstone::host
