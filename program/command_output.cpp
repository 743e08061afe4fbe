#include "program/command_output.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>

#include "keelstone/filesystem.h"
#include "keelstone/first_failure.h"
#include "keelstone/text_escape.h"
#include "program/console.h"
#include "program/exit_codes.h"

namespace keelstone::host {

namespace {

constexpr std::string_view kColumnGap = "  ";

/// Characters of a text in UTF-8.
std::size_t WidthOf(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
  }));
}

}  // namespace

void AddFormatOption(CLI::App& command, std::string& format) {
  command
      .add_option("--format", format,
                  "json: one object a line; text: for a person (default: text on a terminal, else "
                  "json)")
      ->check(CLI::IsMember({"json", "text"}));
}

CommandOutput::CommandOutput(const std::string& format)
    : isText_(format.empty() ? ::isatty(STDOUT_FILENO) == 1 : format == "text"),
      writer_(STDOUT_FILENO) {}

void CommandOutput::Json(const JsonValue& object) {
  writer_.Write(object.toString({.replaceInvalidUtf8 = true}));
  writer_.Write("\n");
}

void CommandOutput::Line(std::string_view text) {
  writer_.Write(Printable(text));
  writer_.Write("\n");
}

void CommandOutput::Rows(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::vector<std::string>> shown(rows.size());
  for (std::size_t row = 0; row < rows.size(); ++row) {
    widths_.resize(std::max(widths_.size(), rows[row].size()));
    for (std::size_t column = 0; column < rows[row].size(); ++column) {
      shown[row].push_back(Printable(rows[row][column]));
      widths_[column] = std::max(widths_[column], WidthOf(shown[row][column]));
    }
  }
  for (const std::vector<std::string>& row : shown) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      line += row[column];
      if (column + 1 == row.size()) break;
      line.append(widths_[column] - WidthOf(row[column]), ' ').append(kColumnGap);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    writer_.Write(line);
    writer_.Write("\n");
  }
}

int CommandOutput::End(const std::string& command) {
  if (writer_.Flush()) return kExitDone;
  return Fail(command, std::string("standard output: ") + std::strerror(writer_.failure()),
              kExitBrokenOff);
}

int CommandOutput::BreakOff(const std::string& command, const std::string& why, bool isFirst) {
  const int written = End(command);
  return Fail(command, why, isFirst && written == kExitDone ? kExitUnusable : kExitBrokenOff);
}

std::string FirstFailureText() {
  std::string first = FirstFailure();
  if (!first.empty()) return first;
  return VXFileSystem::GetSystemRootFolder() + "log/keelstone.log says why";
}

int Fail(const std::string& command, const std::string& why, int code) {
  Console(false).Say("keelstone " + command + ": " + Printable(why));
  return code;
}

int Fail(const std::string& command, const EditOutcome& outcome) {
  const bool isRefused = outcome.kind == EditOutcome::Kind::kRefused;
  return Fail(command, outcome.why, isRefused ? kExitUnusable : kExitBrokenOff);
}

}  // namespace keelstone::host
