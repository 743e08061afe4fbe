#include "program/commands/show_command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <vector>

#include "keelstone/object_listing.h"
#include "keelstone/rule_global_setting.h"
#include "keelstone/setting_paths.h"
#include "program/command_output.h"
#include "program/commands/object_view.h"
#include "program/exit_codes.h"
#include "program/report/sparkline.h"
#include "program/time_text.h"

namespace keelstone::host {

namespace {

constexpr const char* kName = "show";
constexpr std::size_t kShownBytes = 120;

constexpr const char* kHelpEnd =
    R"(Shown are the rule with its parameter; the reference, which is the newest value of the
history that fits the rule; when it learns next; the history as a line of bars (numbers) or
of letters (texts, and tables by their digests), with '!' below what breaks the rule as it
stands now; and the settings that apply, each with where it comes from: "default" (stored,
and as `keelstone init` makes it), "domain" (stored otherwise), "absent" (not stored: reads
as 0) or a file. With json an object a line. All that matches is shown.

Examples:
  keelstone show --device r1 --variable prefixes
  keelstone show --device r1 --source bgp --interface 10.0.12.2 --format json | jq .history

Exit codes: 0 done; 2 usage, nothing is known of it, or the root or a database cannot be
used; 3 broken off, or the output could not be written
)";

std::string ValueText(const ObjectView& object, const ShownPoint& point) {
  return ValueInWords(point.value, object.dataType);
}

std::string NamesOf(const ObjectView& object) {
  std::string names;
  for (const std::string& part : object.key) {
    if (!part.empty()) names.append(names.empty() ? "" : " ").append(part);
  }
  return names;
}

std::string RuleLine(const ObjectView& object) {
  if (!object.hasRule) return "none yet";
  const std::string type = RuleTypeName(object.ruleType);
  return (type.empty() ? "" : type + ": ") + object.expected.words +
         (object.isLearned ? " (learned)" : " (prescribed)");
}

std::string ReferenceLine(const ObjectView& object) {
  if (!object.hasRule) return {};
  if (!object.reference) return "none of the values that are kept";
  const ShownPoint& point = object.points[*object.reference];
  return ValueText(object, point) + " of " + UtcTimeText(point.time);
}

std::string HistoryLine(const ObjectView& object) {
  if (!object.isHistoryRead) return "what is stored cannot be read";
  const std::size_t count = object.points.size();
  if (count == 0) return "empty";
  return std::to_string(count) + (count == 1 ? " value, " : " values, ") +
         UtcTimeText(object.points.front().time) + " to " + UtcTimeText(object.points.back().time);
}

/// The marks below a line of one character a value; empty when all fit.
std::string Marks(const ObjectView& object) {
  std::string marks;
  for (const ShownPoint& point : object.points) marks += point.fits ? ' ' : '!';
  marks.erase(marks.find_last_not_of(' ') + 1);
  return marks;
}

void AddNumbers(const ObjectView& object, bool isUtf8, std::vector<std::string>& lines) {
  std::vector<double> values;
  for (const ShownPoint& point : object.points) values.push_back(point.value.asDouble());
  const auto [least, most] = std::minmax_element(values.begin(), values.end());
  const auto text = [&](std::vector<double>::iterator place) {
    return ValueText(object, object.points[static_cast<std::size_t>(place - values.begin())]);
  };
  lines.push_back(Sparkline(values, isUtf8));
  if (const std::string marks = Marks(object); !marks.empty()) lines.push_back(marks);
  lines.push_back(least == most || *least == *most
                      ? "all " + text(least)
                      : "least " + text(least) + ", greatest " + text(most) + ", newest " +
                            text(values.end() - 1));
}

void AddStates(const ObjectView& object, std::vector<std::string>& lines) {
  std::vector<std::string> values;
  for (const ShownPoint& point : object.points) values.push_back(ValueText(object, point));
  const StateStrip strip = MakeStateStrip(values);
  lines.push_back(strip.strip);
  if (const std::string marks = Marks(object); !marks.empty()) lines.push_back(marks);
  for (const StateStrip::State& state : strip.states) {
    lines.push_back(std::string(1, state.letter) + " = " + state.text + ", " +
                    std::to_string(state.count) + (state.count == 1 ? " time" : " times"));
  }
  for (std::size_t i = 1; object.dataType == KSDataTable && i < values.size(); ++i) {
    if (values[i] == values[i - 1]) continue;
    lines.push_back(UtcTimeText(object.points[i].time) + ": " + strip.strip[i - 1] + " became " +
                    strip.strip[i]);
  }
}

void Print(const ObjectView& object, bool isUtf8, CommandOutput& output) {
  std::vector<std::vector<std::string>> rows;
  const auto add = [&rows](const char* label, std::string text) {
    if (!text.empty()) rows.push_back({std::string("  ") + label, std::move(text)});
  };
  add("rule", RuleLine(object));
  add("parameter", CutText(object.parameter, kShownBytes));
  add("reference", ReferenceLine(object));
  add("learns", object.learning);
  if (object.blockedUntil) add("blocked", "until " + UtcTimeText(*object.blockedUntil));
  add("history", HistoryLine(object));
  std::vector<std::string> lines;
  if (!object.points.empty()) {
    if (object.points.front().value.isNumeric()) {
      AddNumbers(object, isUtf8, lines);
    } else {
      AddStates(object, lines);
    }
  }
  for (std::string& line : lines) add("", std::move(line));
  const char* label = "settings";
  for (const ShownSetting& setting : object.settings) {
    add(label, setting.path + " = " + SettingText(setting.value) + " (" + setting.from + ")");
    label = "";
  }
  output.Line(NamesOf(object));
  output.Rows(rows);
}

void Print(const DomainView& domain, const std::vector<StoredObject>& page, bool isUtf8,
           bool isFirst, CommandOutput& output) {
  for (const StoredObject& stored : page) {
    const ObjectView object = ViewObject(domain, stored);
    if (!output.isText()) {
      output.Json(JsonOf(domain, object));
    } else {
      if (!isFirst) output.Line("");
      Print(object, isUtf8, output);
    }
    isFirst = false;
  }
}

std::string Wanted(const ShowOptions& options) {
  std::string text = "device \"" + options.device + "\"";
  const auto add = [&text](const char* what, const std::optional<std::string>& name) {
    if (name) text.append(", ").append(what).append(" \"").append(*name).append("\"");
  };
  add("interface", options.interface);
  add("source", options.source);
  add("param", options.param);
  add("variable", options.variable);
  return text;
}

}  // namespace

void AddShowCommand(CLI::App& program, ShowOptions& options) {
  CLI::App& command = *program.add_subcommand(kName, "Show all that is known of an object");
  AddCommonOptions(command, options.common);
  AddFormatOption(command, options.format);
  command.add_option("--device", options.device, "The device")->type_name("NAME")->required();
  command.add_option("--interface", options.interface, "Only this interface")->type_name("VALUE");
  command.add_option("--source", options.source, "Only this source")->type_name("NAME");
  command.add_option("--param", options.param, "Only this param")->type_name("TEXT");
  command.add_option("--variable", options.variable, "Only this variable")->type_name("NAME");
  command.footer(kHelpEnd);
}

int RunShow(const ShowOptions& options) {
  const std::string fault = DomainFault(options.common.domain, false);
  if (!fault.empty()) return Fail(kName, fault, kExitUnusable);
  CommandOutput output(options.format);
  const bool isUtf8 = IsUtf8Locale();
  bool isFirst = true;
  DomainView domain;
  if (const std::string why = ViewDomain(options.common.domain, domain); !why.empty()) {
    return output.BreakOff(kName, why, isFirst);
  }
  if (!domain.data) return Fail(kName, "the domain cannot be loaded", kExitUnusable);
  ObjectListing listing(options.common.domain,
                        {.filter = {options.device, options.interface, options.source,
                                    options.param, options.variable},
                         .withHistories = true});
  std::vector<StoredObject> page;
  while (!output.hasFailed()) {
    if (const std::string why = listing.NextPage(page); !why.empty()) {
      return output.BreakOff(kName, why, isFirst);
    }
    if (page.empty()) break;
    Print(domain, page, isUtf8, isFirst, output);
    isFirst = false;
  }
  if (isFirst) {
    return Fail(kName,
                "nothing is known of " + Wanted(options) + " in domain \"" + options.common.domain +
                    "\"; `keelstone rules` lists what is",
                kExitUnusable);
  }
  return output.End(kName);
}

}  // namespace keelstone::host
