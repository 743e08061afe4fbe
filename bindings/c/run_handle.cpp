#include "bindings/c/run_handle.h"

#include <utility>

#include "host/append_value.h"
#include "keelstone/expectation.h"
#include "keelstone/json_reader.h"
#include "keelstone/json_value.h"

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

// As the domain takes its values when the run starts.
RunHandle::RunHandle(ParsedRun run, std::shared_ptr<DomainHandle> domain)
    : run_(std::move(run)), domain_(std::move(domain)), reader_(run_.domain) {
  how_.store = false;
  how_.explain = false;
  how_.enroll = domain_->domain.enrolls();
  how_.stages = domain_->domain.stages();
}

void RunHandle::RequireNotEvaluated() const {
  if (isEvaluated_) throw Failure(KS_ERROR_STATE, "the run has been evaluated");
}

void RunHandle::Add(RunValue value) {
  RequireNotEvaluated();
  AppendValue(std::move(value), run_);
}

void RunHandle::AddJson(std::string_view json) {
  RequireNotEvaluated();
  if (!reader_.ReadVariables(json, run_)) {
    throw Failure(KS_ERROR_INPUT, reader_.fault());
  }
}

void RunHandle::Explain() {
  RequireNotEvaluated();
  how_.explain = true;
}

void RunHandle::Evaluate() {
  RequireNotEvaluated();
  Findings found = domain_->domain.Evaluate(run_, how_);
  Require(found.fault());
  found_ = std::move(found);
  isEvaluated_ = true;
}

const Findings& RunHandle::Found() const {
  if (!isEvaluated_) throw Failure(KS_ERROR_STATE, "the run has not been evaluated");
  return found_;
}

ks_refusal RunHandle::Refusal(std::size_t index) const {
  const RefusedVariable& value = At(Found().refused(), index);
  return {run_.device.c_str(), run_.source.c_str(), value.interfaceValue.c_str(),
          value.name.c_str(), value.reason.c_str()};
}

void RunHandle::Store() {
  Found();
  Require(found_.Store());
}

void RunHandle::Discard() {
  Found();
  found_.Discard();
}

const std::string& RunHandle::ResultJson() {
  Found();
  if (json_.empty()) json_ = found_.ToJsonString();
  return json_;
}

const std::string& RunHandle::ExplanationsJson() {
  Found();
  if (!how_.explain) throw Failure(KS_ERROR_STATE, "the run was not told to explain");
  if (explanationsJson_.empty()) explanationsJson_ = found_.ExplanationsToJsonString();
  return explanationsJson_;
}

const RunHandle::AlertTexts& RunHandle::TextsOfAlert(std::size_t index) {
  const auto& alerts = Found().results().GetKSAlertResults();
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
