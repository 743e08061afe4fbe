#ifndef KEELSTONE_TESTS_SUPPORT_TEXT_SECOND_READING_H
#define KEELSTONE_TESTS_SUPPORT_TEXT_SECOND_READING_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// The rules of strings and tables read a second time: plain, slow code that shares nothing
/// with the library, to hold the library against.
namespace keelstone::testing::plain {

/// A string, or a table by its digest with what belongs to it.
struct SeenText {
  std::int64_t time = -1;
  std::string value;
  std::string table;  // its JSON text
  std::set<std::string> columns;
  bool sorted = false;
};

/// A domain's general settings of the rules of strings and tables.
struct TextSettings {
  struct Lasting {
    int dataCountMinLimit = 3;
    int valueStatusCount = 6;
    double changeFrequency = 0.33F;
    int countEqualValueLimit = 3;
    int timeIntervalLimit = 216000;
    int dataCountHistory = 30;
  } equal, table;
  struct Enum {
    int dataCountMinLimit = 10;
    int valueStatusCount = 6;
    double changeFrequency = 0.33F;
    double alertThreshold = 0.1F;
    int timeIntervalLimit = 216000;
    int dataCountHistory = 30;
  } enumeration;

  std::string ToJson() const;
};

/// A JSON string; bytes from U+0020 on stand as they are.
std::string Quote(const std::string& bytes);

/// The history text of strings.
std::string TextHistory(const std::vector<SeenText>& history);

struct TextStatistics {
  int count = 0;
  float changeFrequency = 0;
  std::map<std::string, int> occurrences;
};

TextStatistics ObserveTexts(const std::vector<SeenText>& history);

/// A rule by its number: 0 equal, 1 not equal, 2 enumeration, 3 regular expression, 12 table.
struct TextRule {
  int type = -1;
  std::string text;  // equal: the text, regular expression: the pattern, table: the digest
  std::set<std::string> texts;
  std::set<std::string> columns;
  bool sorted = false;
  SeenText golden;

  std::string ParamText() const;
  /// Of a table the JSON object that it is, with what identifies it added.
  std::string GoldenText() const;
  bool SameAs(const TextRule& other) const;
  bool Alerts(const std::string& value) const;
  /// Whether the value becomes the golden one.
  bool TakesAsGolden(const SeenText& seen);
};

struct LearnedText {
  TextRule rule;
  bool updated = false;  // the rule found its parameter and golden value
};

std::optional<LearnedText> LearnText(const std::vector<SeenText>& history, bool areTables,
                                     const TextSettings& settings);

/// One variable on one device through its runs, each of which is on disk before the next.
class TextVariable {
 public:
  struct Answer {
    std::optional<std::string> alert;   // the alert's text
    std::optional<std::string> golden;  // the golden value's text
    std::int64_t goldenTime = 0;
    std::optional<std::string> ruleParam;  // of a rule result
    int ruleType = -1;
  };

  TextVariable(TextSettings settings, bool isTable) : settings_(settings), isTable_(isTable) {}

  /// Prescribes a rule in the place of learning.
  void Prescribe(const TextRule& rule);
  /// `seen` is the value as the host hands it in.
  Answer See(SeenText seen, bool onDemand);

  const std::vector<SeenText>& history() const { return history_; }
  const std::optional<TextRule>& rule() const { return rule_; }

 private:
  TextSettings settings_;
  bool isTable_;
  bool prescribed_ = false;
  std::optional<TextRule> rule_;
  std::optional<TextRule> stored_;
  std::vector<SeenText> history_;
};

}  // namespace keelstone::testing::plain

#endif  // KEELSTONE_TESTS_SUPPORT_TEXT_SECOND_READING_H
