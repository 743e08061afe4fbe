#include "keelstone/findings.h"

#include <new>
#include <utility>

#include "host/call_guard.h"
#include "host/findings_state.h"
#include "keelstone/json_value.h"

namespace keelstone {

namespace {

const KSRuleUpdateResultData& Nothing() {
  static const KSRuleUpdateResultData& nothing = *new KSRuleUpdateResultData;
  return nothing;
}

}  // namespace

void Findings::State::Take(const ParsedRun& run, DomainSession::Evaluated evaluated) {
  done = std::move(evaluated);
  refused.reserve(done.outcome.refused.size());
  for (RefusedValue& value : done.outcome.refused) {
    const VarInfo& variable = run.variables[value.variable];
    refused.push_back({variable.interfaceValue, variable.variableName, std::move(value.reason)});
  }
  if (!done.outcome.mayHavePending) LetGo();
}

void Findings::State::Store() {
  if (isOver) {
    throw HostFailure(DomainFault::Kind::kState, "the run has been stored or discarded");
  }
  isOver = true;
  if (session->IsInherited()) {
    throw HostFailure(DomainFault::Kind::kForked, "the run was evaluated before fork()");
  }
  done.outcome.Store();
  LetGo();
  if (done.outcome.lacksMemory) throw std::bad_alloc();
  session->NoteStored();
}

void Findings::State::LetGo() noexcept {
  done.outcome.instance.reset();
  done.outcome.noted.clear();
  done.turn.GiveBack();
}

Findings::Findings() noexcept = default;
Findings::Findings(std::unique_ptr<State> state, DomainFault fault) noexcept
    : state_(std::move(state)), fault_(std::move(fault)) {}
Findings::Findings(Findings&&) noexcept = default;

Findings& Findings::operator=(Findings&& other) noexcept {
  const ForkGate::Inside inside;
  state_ = std::move(other.state_);
  fault_ = std::move(other.fault_);
  return *this;
}

Findings::~Findings() {
  if (!state_) return;
  const ForkGate::Inside inside;
  state_.reset();
}

const KSRuleUpdateResultData& Findings::results() const noexcept {
  return state_ && state_->done.outcome.results ? *state_->done.outcome.results : Nothing();
}

const std::vector<KSAlertExplanation>& Findings::explanations() const noexcept {
  static const auto& none = *new std::vector<KSAlertExplanation>;
  return state_ ? state_->done.outcome.explanations : none;
}

const std::vector<RefusedVariable>& Findings::refused() const noexcept {
  static const auto& none = *new std::vector<RefusedVariable>;
  return state_ ? state_->refused : none;
}

std::uint64_t Findings::variables() const noexcept {
  return state_ ? state_->done.outcome.variables : 0;
}

std::uint64_t Findings::repeated() const noexcept {
  return state_ ? state_->done.outcome.repeated : 0;
}

bool Findings::isBlocked() const noexcept { return state_ && state_->done.outcome.blocked; }
bool Findings::isEngineOn() const noexcept { return !state_ || state_->done.isEngineOn; }

std::string Findings::ToJsonString() const { return results().ToJsonString(); }

std::string Findings::ExplanationsToJsonString() const {
  JsonValue list(JsonType::Array);
  for (const KSAlertExplanation& explanation : explanations()) {
    list.append(explanation.ToJsonValue());
  }
  return list.toString();
}

DomainFault Findings::Store() noexcept {
  return Guarded([this] {
    if (!state_) throw HostFailure(DomainFault::Kind::kState, "the run has not been evaluated");
    state_->Store();
  });
}

void Findings::Discard() noexcept {
  if (!state_) return;
  const ForkGate::Inside inside;
  state_->isOver = true;
  state_->LetGo();
}

}  // namespace keelstone
