#include <array>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/cases.h"
#include "bench/json_round_trip.h"
#include "bench/learned_device.h"

namespace keelstone::bench {

namespace {

/// What ProcessVariable does for every variable of a device, without making the instance
/// and loading it, over a JSON round trip of the same history texts.
Rounds EvaluationRounds(const BenchSettings& settings, const std::string& name,
                        LearnedDevice::Shape shape, Moment moment) {
  if (settings.brief) shape.variables = 20;
  std::string domainId = name;
  domainId.replace(domainId.find('/'), 1, "-");
  const auto device = std::make_shared<const LearnedDevice>(settings, domainId, shape);
  const auto round = [device, moment] {
    // An evaluation changes what was loaded: every round has an instance of its own.
    const auto instance = device->Load(moment);
    std::size_t processed = 0;
    std::size_t written = 0;
    const Sample sample = TimeInTurn(
        Clock::kProcessor, device->variables().size(),
        [&] {
          for (const VarInfo& variable : device->variables()) {
            processed += instance->ProcessVariable(variable) ? 1U : 0U;
          }
        },
        [&] { written = JsonRoundTrip(device->histories()); });
    if (processed != device->variables().size() || written == 0) {
      throw std::runtime_error("not evaluated");
    }
    return sample;
  };
  return {.round = round, .finish = [device, moment] { device->Verify(moment); }};
}

BenchCase EvaluationCase(const char* number, const std::string& verb, LearnedDevice::Shape shape,
                         Moment moment) {
  const std::string name = verb + "/" + NameOfType(shape.dataType);
  return {.number = number,
          .name = name,
          .ours = verb + " a value, 30 of " + NameOfType(shape.dataType) + " stored",
          .reference = "RapidJSON parse + write of the history",
          .unit = "ns/value",
          .repeat = true,
          .make = [=](const BenchSettings& settings) {
            return EvaluationRounds(settings, name, shape, moment);
          }};
}

}  // namespace

void AddEvaluationCases(BenchCases& cases) {
  constexpr std::size_t kVariables = 100;  // of one parser on one device
  const std::array kTypes = {KSDataDouble, KSDataInt64, KSDataString, KSDataFloat};
  for (const EnumKSDataType dataType : kTypes) {
    const LearnedDevice::Shape shape = {.dataType = dataType, .variables = kVariables};
    cases.push_back(EvaluationCase("1", "relearn", shape, Moment::kHistoryOld));
    cases.back().goal = 0.8;
    cases.back().beyond = 0.6;
  }
  // The first rule of a variable, which is reported besides.
  cases.push_back(EvaluationCase(
      "1", "learn", {.dataType = KSDataDouble, .variables = kVariables, .hasRules = false},
      Moment::kHistoryOld));
  for (const EnumKSDataType dataType : kTypes) {
    const LearnedDevice::Shape shape = {.dataType = dataType, .variables = kVariables};
    cases.push_back(EvaluationCase("2", "check", shape, Moment::kHistoryYoung));
    cases.back().goal = 0.15;
    cases.back().beyond = 0.08;
  }
}

}  // namespace keelstone::bench
