#include "host/episodes.h"

#include <algorithm>
#include <tuple>

namespace keelstone::host {

Episodes::Texts::Texts(const EpisodeKey& key)
    : domain(key.domain),
      device(key.device),
      source(key.source),
      param(key.param),
      interface(key.interface),
      variable(key.variable) {}

EpisodeKey Episodes::Texts::view() const {
  return {domain, device, source, param, interface, variable};
}

std::size_t Episodes::Hash::operator()(const EpisodeKey& key) const noexcept {
  std::size_t hash = 0;
  for (const std::string_view part :
       {key.domain, key.device, key.source, key.param, key.interface, key.variable}) {
    hash = hash * 1099511628211U + std::hash<std::string_view>{}(part);
  }
  return hash;
}

EpisodeStep Episodes::Note(const EpisodeKey& key, std::int64_t time, bool isAlert,
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
  if (isNew) place = open_.try_emplace(Texts(key)).first;
  Episode& open = place->second;
  if (isNew) open.first = time;
  open.last = time;
  ++open.count;
  open.note = note;
  if (episode != nullptr) *episode = open;
  return isNew ? EpisodeStep::kOpened : EpisodeStep::kContinued;
}

std::vector<std::pair<EpisodeKey, Episode>> Episodes::Open() const {
  std::vector<std::pair<EpisodeKey, Episode>> open;
  open.reserve(open_.size());
  for (const auto& [key, episode] : open_) open.emplace_back(key.view(), episode);
  std::sort(open.begin(), open.end(), [](const auto& a, const auto& b) {
    return std::tie(a.second.first, a.first) < std::tie(b.second.first, b.first);
  });
  return open;
}

}  // namespace keelstone::host
