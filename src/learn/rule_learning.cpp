#include "learn/rule_learning.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "learn/rule_classes.h"

namespace keelstone {

namespace {

/// The candidate at a place among those of a family: which kind, and by which of its tests.
struct Candidate {
  EnumRuleType type = kRuleTypeNone;
  bool isLessCount = false;
};

constexpr Candidate CandidateAt(EnumAlgType family, std::int8_t place) {
  for (const RuleKind& kind : kRuleKinds) {
    if (kind.family != family) continue;
    if (kind.candidate[0] == place) return {kind.type, kind.candidate[1] != 0};
    if (kind.candidate[1] == place) return {kind.type, false};
  }
  return {};
}

constexpr std::int8_t LastPlace(EnumAlgType family) {
  std::int8_t last = 0;
  while (CandidateAt(family, static_cast<std::int8_t>(last + 1)).type != kRuleTypeNone) ++last;
  return last;
}

static_assert(
    [] {
      for (const RuleKind& kind : kRuleKinds) {
        const bool isTwice = kind.candidate[1] > kind.candidate[0];
        for (const std::int8_t place : kind.candidate) {
          if (place < 0 || place > LastPlace(kind.family)) return false;
          if (place > 0 && CandidateAt(kind.family, place).type != kind.type) return false;
        }
        if (kind.candidate[1] != 0 && !isTwice) return false;
      }
      return true;
    }(),
    "the candidates of a family stand one behind the other, each at a place of its own");

template <EnumRuleType kType>
concept IsLearned = requires { typename RuleClass<kType, std::int64_t>::Case; };

constexpr auto kAreLearned = ForEachRuleType([]<EnumRuleType kType> { return IsLearned<kType>; });
static_assert(
    [] {
      for (const RuleKind& kind : kRuleKinds) {
        if (kAreLearned[static_cast<std::size_t>(kind.type)] != (kind.candidate[0] > 0))
          return false;
      }
      return true;
    }(),
    "what can be learned stands among the candidates");

/// Tests a candidate before it makes it: what CheckRuleWith of one rule after the other comes
/// to.
template <class Rule, class Feature, class History>
std::shared_ptr<IRuleBase> Try(const LearningMaterial& material, const Feature& feature,
                               const History* history, bool isLessCount) {
  if (!Rule::Fits({feature, history, material.settings, isLessCount})) return nullptr;
  auto rule = std::make_shared<Rule>();
  rule->setIsLessCountCondition(isLessCount);
  rule->SetHistoryAndDataFeature(material.ruleDefine, material.history, material.feature);
  rule->Accept(material.domainId);
  return rule;
}

/// All candidates of a family for values of type T look at the same feature and history.
template <class T, EnumAlgType kFamily>
std::shared_ptr<IRuleBase> FirstFitting(const LearningMaterial& material) {
  using First = RuleClass<CandidateAt(kFamily, 1).type, T>;
  if (!material.history || material.history->GetDataCount() == 0) return nullptr;
  const auto* const feature = First::AsFeature(material.feature.get());
  const auto* const history = First::AsHistory(material.history.get());
  if (feature == nullptr) return nullptr;
  std::shared_ptr<IRuleBase> rule;
  const auto fits = [&]<Candidate kCandidate>() {
    rule = Try<RuleClass<kCandidate.type, T>>(material, *feature, history, kCandidate.isLessCount);
    return rule != nullptr;
  };
  [&]<std::size_t... kPlaces>(std::index_sequence<kPlaces...>) {
    (... ||
     fits.template operator()<CandidateAt(kFamily, static_cast<std::int8_t>(kPlaces + 1))>());
  }(std::make_index_sequence<LastPlace(kFamily)>());
  return rule;
}

}  // namespace

std::shared_ptr<IRuleBase> LearnNumberRule(const LearningMaterial& material) {
  switch (material.dataType) {
    case KSDataInt64:
      return FirstFitting<std::int64_t, KSAlgNumerical>(material);
    case KSDataFloat:
      return FirstFitting<float, KSAlgNumerical>(material);
    case KSDataDouble:
      return FirstFitting<double, KSAlgNumerical>(material);
    default:
      return nullptr;
  }
}

std::shared_ptr<IRuleBase> LearnStringRule(const LearningMaterial& material) {
  return FirstFitting<std::string, KSAlgString>(material);
}

std::shared_ptr<IRuleBase> LearnTableRule(const LearningMaterial& material) {
  return FirstFitting<std::string, KSAlgTable>(material);
}

std::shared_ptr<IRuleBase> LearnRule(const LearningMaterial& material) {
  switch (AlgTypeOf(material.dataType)) {
    case KSAlgString:
      return LearnStringRule(material);
    case KSAlgTable:
      return LearnTableRule(material);
    default:
      return LearnNumberRule(material);
  }
}

}  // namespace keelstone
