#include "bindings/c/run_handle.h"

#include <new>
#include <utility>

#include "keelstone/domain.h"
#include "keelstone/expectation.h"
#include "keelstone/json_reader.h"
#include "keelstone/json_value.h"
#include "keelstone/write_behind.h"

namespace keelstone::c {

namespace {

std::string MemberText(const JsonValue& object, const char* name) {
  const JsonValue* const member = object.find(name);
  return member != nullptr && member->isString() ? member->stringRef() : std::string();
}

RunHandle::AlertTexts ReadAlert(const KSAlertData& alert) {
  RunHandle::AlertTexts texts;
  JsonValue info;
  if (JsonReader::Parse(alert.GetAlertInfo(), info) && info.isObject()) {
    const JsonValue* const type = info.find("_t");
    if (type != nullptr && type->isInt()) texts.ruleType = type->asInt();
    texts.parameter = MemberText(info, "_p");
    texts.expected =
        KSExpectation::Of(static_cast<EnumRuleType>(texts.ruleType), texts.parameter).words;
    texts.hasValue = info.isMember("_v");
    texts.value = MemberText(info, "_v");
  }
  const JsonValue& param = alert.GetParserParam();
  if (param.isString()) texts.parserParam = param.stringRef();
  return texts;
}

}  // namespace

RunHandle::RunHandle(ParsedRun run, const DomainHandle& domain)
    : run_(std::move(run)),
      enrolls_(domain.enrolls.load()),
      stages_(domain.Stages()),
      judged_(domain.judged),
      reader_(run_.domain) {}

void RunHandle::RequireNotEvaluated() const {
  if (isEvaluated_) throw Failure(KS_ERROR_STATE, "the run has been evaluated");
}

void RunHandle::Add(VarInfo variable) {
  RequireNotEvaluated();
  run_.variables.push_back(std::move(variable));
}

void RunHandle::AddJson(std::string_view json) {
  RequireNotEvaluated();
  if (!reader_.ReadVariables(json, run_)) {
    throw Failure(KS_ERROR_INPUT, reader_.fault());
  }
}

void RunHandle::Explain() {
  RequireNotEvaluated();
  explains_ = true;
}

void RunHandle::Enroll(const Domain& domain) const {
  const auto missing = MissingDefinitions(run_, *domain.data);
  if (!missing.empty() && !domain.data->AddRuleDefinitions(missing)) {
    throw Failure(KS_ERROR_WRITE, "the variable rules of domain \"" + run_.domain +
                                      "\" cannot be written; the log says why");
  }
}

void RunHandle::Evaluate() {
  RequireNotEvaluated();
  const Domain domain = Domain::Of(run_.domain);
  if (!domain.usable) {
    throw Failure(KS_ERROR_DATABASE, "a database of domain \"" + run_.domain +
                                         "\" cannot be used; the log says which and why");
  }
  if (enrolls_) Enroll(domain);
  // A look-up finds the oldest pending row of a variable: the values of the run before
  // would be missing in the history.
  DBWriteWrapper& cache = *DBWriteWrapper::Instance();
  if (domain.engineOn && cache.HasPendingRows(run_.domain, run_.device)) {
    cache.WriteDomain(run_.domain);
  }
  RunRequest request;
  request.onDemand = run_.onDemand;
  request.explain = explains_;
  request.stages = stages_;
  request.judged = judged_->Of(run_);
  outcome_ = EvaluateRun(run_, domain, request);
  if (outcome_.lacksMemory) throw std::bad_alloc();
  isEvaluated_ = true;
  isEngineOn_ = domain.engineOn;
  if (outcome_.results) return;
  outcome_.results = std::make_shared<KSRuleUpdateResultData>();
  if (domain.engineOn) throw Failure(KS_ERROR_INTERNAL, "nothing was evaluated; the log says why");
}

const RunOutcome& RunHandle::Outcome() const {
  if (!isEvaluated_) throw Failure(KS_ERROR_STATE, "the run has not been evaluated");
  return outcome_;
}

ks_refusal RunHandle::Refusal(std::size_t index) const {
  const auto& refused = Outcome().refused;
  if (index >= refused.size()) {
    throw Failure(KS_ERROR_ARGUMENT, "index " + std::to_string(index) + " is beyond the " +
                                         std::to_string(refused.size()) + " items that there are");
  }
  const VarInfo& variable = run_.variables[refused[index].variable];
  return {run_.device.c_str(), run_.source.c_str(), variable.interfaceValue.c_str(),
          variable.variableName.c_str(), refused[index].reason.c_str()};
}

void RunHandle::Store() {
  Outcome();
  if (isStored_) throw Failure(KS_ERROR_STATE, "the run has been stored");
  isStored_ = true;
  outcome_.Store();
  if (outcome_.lacksMemory) throw std::bad_alloc();
}

const std::string& RunHandle::ResultJson() {
  const RunOutcome& outcome = Outcome();
  if (json_.empty()) json_ = outcome.results->ToJsonString();
  return json_;
}

const std::string& RunHandle::ExplanationsJson() {
  const RunOutcome& outcome = Outcome();
  if (!explains_) throw Failure(KS_ERROR_STATE, "the run was not told to explain");
  if (explanationsJson_.empty()) {
    JsonValue list(JsonType::Array);
    for (const KSAlertExplanation& explanation : outcome.explanations) {
      list.append(explanation.ToJsonValue());
    }
    explanationsJson_ = list.toString();
  }
  return explanationsJson_;
}

const RunHandle::AlertTexts& RunHandle::TextsOfAlert(std::size_t index) {
  const auto& alerts = Outcome().results->GetKSAlertResults();
  if (alertTexts_.empty()) {
    std::vector<AlertTexts> texts;
    texts.reserve(alerts.size());
    for (const auto& alert : alerts) texts.push_back(ReadAlert(*alert));
    alertTexts_ = std::move(texts);
  }
  return alertTexts_.at(index);
}

RunEntry::RunEntry(const ks_run* handle) : run_(RunTable::Instance().Find(handle)) {
  if (run_->busy_.exchange(true, std::memory_order_acquire)) {
    run_.reset();
    throw Failure(KS_ERROR_BUSY, "another call is inside the run");
  }
}

}  // namespace keelstone::c
