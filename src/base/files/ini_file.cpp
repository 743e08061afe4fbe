#include "base/files/ini_file.h"

#include <ini.h>

#include <algorithm>
#include <optional>

#include "base/text/strings.h"

namespace keelstone {

namespace {

constexpr std::string_view kBlanks = " \t\v\f\r\n";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kMostSectionBytes = 49;  // the parser cuts longer names

/// The name in a section's head, as the parser takes it: closed before a comment begins.
std::optional<std::string_view> SectionName(std::string_view line) {
  const std::size_t end = line.find(']');
  if (!line.starts_with('[') || end == std::string_view::npos) return std::nullopt;
  const std::string_view name = line.substr(1, end - 1);
  for (std::size_t i = 1; i < name.size(); ++i) {
    if (name[i] == ';' && kBlanks.find(name[i - 1]) != std::string_view::npos) return std::nullopt;
  }
  return name.substr(0, kMostSectionBytes);
}

}  // namespace

IniFile::IniFile(std::string text) : text_(std::move(text)) {
  SplitLines();
  // A line that is no entry is passed over by the parser; nothing else can fail.
  ini_parse_stream(&IniFile::ReadLine, this, &IniFile::TakeEntry, this);
  if (failure_) std::rethrow_exception(failure_);
}

void IniFile::SplitLines() {
  std::size_t begin = text_.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
  while (begin < text_.size()) {
    const std::size_t end = std::min(text_.find_first_of("\r\n", begin), text_.size());
    const std::size_t width = text_.compare(end, 2, "\r\n") == 0 ? 2 : 1;
    const std::size_t next = std::min(end + width, text_.size());
    lines_.push_back({begin, end, next});
    begin = next;
  }
}

std::string_view IniFile::Content(std::size_t line) const {
  const Line& bounds = lines_[line];
  return std::string_view(text_).substr(bounds.begin, bounds.end - bounds.begin);
}

/// The next line for the parser, at most `limit` bytes. Blanks in front are left out,
/// because the parser takes an indented line for more of the value before; so are lines
/// that do not fit its buffer, which it would cut into two.
std::string_view IniFile::TakeLine(std::size_t limit) {
  const std::size_t line = nextLine_++;
  const std::string_view content = Trim(Content(line), kBlanks);
  if (content.size() > limit || content.find('\0') != std::string_view::npos) {
    skipped_.push_back(line + 1);
    return {};
  }
  if (const auto name = SectionName(content)) {
    lastLineOf_[AsciiLower(Trim(*name, kBlanks))] = line;
  }
  return content;
}

char* IniFile::ReadLine(char* buffer, int size, void* self) {
  auto& file = *static_cast<IniFile*>(self);
  if (file.nextLine_ == file.lines_.size()) return nullptr;
  try {
    const std::string_view content = file.TakeLine(static_cast<std::size_t>(size) - 2);
    char* const end = buffer + content.copy(buffer, content.size());
    end[0] = '\n';
    end[1] = '\0';
    return buffer;
  } catch (...) {
    file.failure_ = std::current_exception();
    return nullptr;
  }
}

void IniFile::AddEntry(std::string_view section, std::string_view key, std::string_view value) {
  const std::size_t line = nextLine_ - 1;
  const std::string name = AsciiLower(Trim(section, kBlanks));
  Entry& entry = entries_[{name, AsciiLower(key)}];
  entry.value = Trim(value, kBlanks);
  entry.line = line;
  lastLineOf_[name] = line;
}

int IniFile::TakeEntry(void* self, const char* section, const char* key, const char* value) {
  auto& file = *static_cast<IniFile*>(self);
  try {
    file.AddEntry(section, key, value);
  } catch (...) {
    file.failure_ = std::current_exception();
  }
  return 1;
}

const IniFile::Entry* IniFile::Find(std::string_view section, std::string_view key) const {
  const auto found = entries_.find({AsciiLower(section), AsciiLower(key)});
  return found != entries_.end() ? &found->second : nullptr;
}

/// What ends that line, or, when nothing does, what ends the first.
std::string IniFile::LineEndAt(std::size_t line) const {
  for (const std::size_t candidate : {line, std::size_t{0}}) {
    if (candidate >= lines_.size()) continue;
    const Line& bounds = lines_[candidate];
    if (bounds.next > bounds.end) return text_.substr(bounds.end, bounds.next - bounds.end);
  }
  return "\n";
}

std::string IniFile::WithValue(std::string_view section, std::string_view key,
                               std::string_view value) const {
  std::string text = text_;
  if (const Entry* const entry = Find(section, key)) {
    const std::size_t separator = text.find_first_of("=:", lines_[entry->line].begin);
    if (entry->value.empty()) return text.insert(separator + 1, std::string(" ").append(value));
    const std::size_t old = text.find_first_not_of(kBlanks, separator + 1);
    return text.replace(old, entry->value.size(), value);
  }
  const std::string assignment = std::string(key) + " = " + std::string(value);
  if (const auto last = lastLineOf_.find(AsciiLower(section)); last != lastLineOf_.end()) {
    return text.insert(lines_[last->second].end, LineEndAt(last->second) + assignment);
  }
  const std::string lineEnd = LineEndAt(0);
  if (!lines_.empty() && lines_.back().next == lines_.back().end) text += lineEnd;
  text.append("[").append(section).append("]").append(lineEnd);
  return text.append(assignment).append(lineEnd);
}

}  // namespace keelstone
