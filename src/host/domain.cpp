#include "keelstone/domain.h"

#include <new>
#include <utility>

#include "host/append_value.h"
#include "host/call_guard.h"
#include "host/domain_session.h"
#include "host/findings_state.h"
#include "host/shared_store.h"

namespace keelstone {

namespace {

using Kind = DomainFault::Kind;

DomainSession& Opened(const std::shared_ptr<DomainSession>& session) {
  if (!session) throw HostFailure(Kind::kState, "no domain is open");
  return *session;
}

ParsedRun RunOf(const RunSubject& subject, std::span<const RunValue> values,
                const std::string& domainId) {
  for (const auto& [name, text] : {std::pair{"device", &subject.device},
                                   {"source", &subject.source},
                                   {"param", &subject.param},
                                   {"nodeId", &subject.nodeId},
                                   {"nodePathSchema", &subject.nodePathSchema},
                                   {"structureId", &subject.structureId}}) {
    RequireUtf8(*text, name);
  }
  ParsedRun run;
  run.domain = domainId;
  run.device = subject.device;
  run.source = subject.source;
  run.param = subject.param;
  run.time = subject.time;
  run.onDemand = subject.onDemand;
  run.nodeId = subject.nodeId;
  run.nodePathSchema = subject.nodePathSchema;
  run.structureId = subject.structureId;
  run.variables.reserve(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) {
    try {
      AppendValue(values[i], run);
    } catch (const HostFailure& failure) {
      throw HostFailure(failure.kind(), "values[" + std::to_string(i) + "]: " + failure.what());
    }
  }
  return run;
}

}  // namespace

Domain::Domain() noexcept = default;
Domain::Domain(Domain&&) noexcept = default;

Domain& Domain::operator=(Domain&& other) noexcept {
  if (this == &other) return *this;
  static_cast<void>(Close());
  Release();
  session_ = std::move(other.session_);
  return *this;
}

Domain::~Domain() {
  static_cast<void>(Close());
  Release();
}

DomainFault Domain::Open(const DomainOptions& options) noexcept {
  return Guarded([&] {
    if (session_ && session_->IsOpen()) throw HostFailure(Kind::kState, "a domain is open");
    session_ = std::make_shared<DomainSession>(options);
  });
}

const std::string& Domain::id() const noexcept {
  static const std::string& none = *new std::string;
  return session_ ? session_->id() : none;
}

void Domain::SetEnroll(bool on) noexcept {
  if (session_) session_->SetEnroll(on);
}

void Domain::SetStages(const IntakeStages& stages) noexcept {
  const ForkGate::Inside inside;
  if (session_) session_->SetStages(stages);
}

bool Domain::enrolls() const noexcept { return session_ && session_->enrolls(); }

IntakeStages Domain::stages() const noexcept {
  const ForkGate::Inside inside;
  return session_ ? session_->stages() : IntakeStages();
}

DomainFault Domain::Define(const std::string& source, const std::string& name, EnumKSDataType type,
                           std::int32_t typeCode) noexcept {
  return Guarded([&] {
    VarInfo variable;
    const std::int32_t usual = RunLineReader::DefaultTypeCode(type);
    if (usual == 0) throw HostFailure(Kind::kInput, "type is none that a variable has");
    variable.variableType = typeCode != 0 ? typeCode : usual;
    variable.variableName = name;
    Opened(session_).Define(source, variable);
  });
}

template <class Read>
Findings Domain::EvaluateRead(const Read& read, const RunOptions& how) noexcept {
  std::unique_ptr<Findings::State> state;
  DomainFault fault = Guarded([&] {
    DomainSession& session = Opened(session_);
    session.RequireOpen();
    const ParsedRun& run = read(session.id());
    auto made = std::make_unique<Findings::State>();
    made->session = session_;
    made->Take(run, session.Evaluate(run, how));
    state = std::move(made);
    if (how.store) state->Store();
  });
  return {std::move(state), std::move(fault)};
}

Findings Domain::Evaluate(const RunSubject& subject, std::span<const RunValue> values,
                          const RunOptions& how) noexcept {
  ParsedRun run;
  return EvaluateRead(
      [&](const std::string& id) -> const ParsedRun& { return run = RunOf(subject, values, id); },
      how);
}

Findings Domain::Evaluate(const RunSubject& subject, std::initializer_list<RunValue> values,
                          const RunOptions& how) noexcept {
  return Evaluate(subject, std::span<const RunValue>(values.begin(), values.size()), how);
}

Findings Domain::EvaluateLine(std::string_view line, const RunOptions& how) noexcept {
  ParsedRun run;
  return EvaluateRead(
      [&](const std::string& id) -> const ParsedRun& {
        RunLineReader reader(id);
        if (!reader.Read(line, run)) throw HostFailure(Kind::kInput, reader.fault());
        return run;
      },
      how);
}

Findings Domain::Evaluate(const ParsedRun& run, const RunOptions& how) noexcept {
  return EvaluateRead([&](const std::string&) -> const ParsedRun& { return run; }, how);
}

DomainFault Domain::Flush() noexcept {
  return Guarded([this] {
    DomainSession& session = Opened(session_);
    session.RequireOpen();
    session.Flush();
  });
}

DomainFault Domain::Reload() noexcept {
  return Guarded([this] { Opened(session_).Reload(); });
}

DomainFault Domain::Close() noexcept {
  return Guarded([this] {
    if (session_) session_->Close();
  });
}

void Domain::Release() noexcept {
  static_cast<void>(Guarded([this] {
    if (session_) session_->Release();
  }));
}

void Domain::SetMemory(std::size_t bytes) noexcept {
  static_cast<void>(Guarded([&] { SharedStore::Instance().SetBudget(bytes); }));
}

}  // namespace keelstone
