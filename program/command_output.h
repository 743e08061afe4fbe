#ifndef KEELSTONE_PROGRAM_COMMAND_OUTPUT_H
#define KEELSTONE_PROGRAM_COMMAND_OUTPUT_H

#include <cstddef>
#include <string>
#include <vector>

#include "keelstone/domain_edits.h"
#include "keelstone/json_value.h"
#include "program/evaluate/output_writer.h"

namespace CLI {
class App;
}

namespace keelstone::host {

/// Adds --format to a command.
void AddFormatOption(CLI::App& command, std::string& format);

/// What a command answers on standard output: a JSON object a line, or text. One thread.
class CommandOutput {
 public:
  /// `format` as given; empty: text on a terminal, else JSON.
  explicit CommandOutput(const std::string& format);

  bool isText() const noexcept { return isText_; }
  /// Whether what was handed over did not all get written: there is no use in more.
  bool hasFailed() const noexcept { return writer_.failure() != 0; }
  void Json(const JsonValue& object);
  /// A line of text, shown as a terminal can take it.
  void Line(std::string_view text);
  /// Lines of one table. The columns are as wide as the widest cell so far: what is handed
  /// over together stands aligned, and later parts do not shrink.
  void Rows(const std::vector<std::vector<std::string>>& rows);
  /// The exit code: kExitDone, or kExitBrokenOff and a message when not all could be
  /// written.
  int End(const std::string& command);
  /// Ends what a database cut short, and says why; the exit code: kExitUnusable when
  /// nothing had been listed, else kExitBrokenOff.
  int BreakOff(const std::string& command, const std::string& why, bool isFirst);

 private:
  bool isText_;
  OutputWriter writer_;
  std::vector<std::size_t> widths_;
};

/// What failed first in the databases; where that is not known, that the log says it.
std::string FirstFailureText();

/// Says why a command did not do its work, in printable text, and answers `code`.
int Fail(const std::string& command, const std::string& why, int code);
/// The same of an edit that was not done: kExitUnusable when it was refused, else
/// kExitBrokenOff.
int Fail(const std::string& command, const EditOutcome& outcome);

}  // namespace keelstone::host

#endif  // KEELSTONE_PROGRAM_COMMAND_OUTPUT_H
