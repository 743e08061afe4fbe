#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "runs/run_line.h"
#include "tests/support/temp_root.h"
#include "tests/support/text_second_reading.h"

// Digests of generated tables against the program md5sum, fed with row texts that are put
// together here.
namespace keelstone {
namespace {

using Random = std::mt19937;
using testing::plain::Quote;

constexpr int kTables = 1500;

/// A cell as an input may write it, and as a row's text writes it.
struct Cell {
  std::string written;
  std::string text;
};

const std::vector<Cell>& Scalars() {
  static const std::vector<Cell> cells = {
      {"null", "null"},
      {"true", "true"},
      {"false", "false"},
      {"0", "0"},
      {"-0", "0"},
      {"-7", "-7"},
      {"-9223372036854775808", "-9223372036854775808"},
      {"9223372036854775808", "9.223372036854776e+18"},
      {"-123456789012345678901234567890", "-1.2345678901234568e+29"},
      {"15.0", "15.0"},
      {"1.50", "1.5"},
      {"1E2", "100.0"},
      {"-0.0", "-0.0"},
      {"0.1000000000000000055511151231257827", "0.1"},
      {"0.0001", "0.0001"},
      {"0.00009999", "9.999e-05"},
      {"1e-7", "1e-07"},
      {"9999999999999998.0", "9999999999999998.0"},
      {"1e16", "1e+16"},
      {"12345678901234567890.0", "1.2345678901234567e+19"},
      {"5e-324", "5e-324"},
      {"1.7976931348623157e308", "1.7976931348623157e+308"},
      {"1e-999", "0.0"},
      {"\"\"", "\"\""},
      {"\"\\u00e9\\/\"", "\"\xc3\xa9/\""},
      {"\"\\ud83d\\udd25\"", "\"\xf0\x9f\x94\xa5\""},
      {"\"\\u0000\\u001f\\u007f\"", "\"\\u0000\\u001f\x7f\""},
      {"\"\\u000A\\u0009\\u000d\\u0008\\u000c\"", "\"\\n\\t\\r\\b\\f\""},
      {"\"\\u0022\\u005c\"", "\"\\\"\\\\\""},
      {"\"\xe2\x80\xa8<>&'\"", "\"\xe2\x80\xa8<>&'\""},
  };
  return cells;
}

Cell SomeCell(Random& random, int depth = 0) {
  const auto kind = random() % (depth < 3 ? 9 : 7);
  if (kind < 5) return Scalars()[random() % Scalars().size()];
  if (kind == 5) {
    const std::string number = std::to_string(static_cast<int>(random() % 2001) - 1000);
    return {number, number};
  }
  if (kind == 6) {
    std::string letters;
    for (auto n = random() % 70; n > 0; --n) letters += static_cast<char>('a' + random() % 3);
    return {Quote(letters), Quote(letters)};
  }
  Cell list;
  for (auto n = random() % 4; n > 0; --n) {
    Cell member = SomeCell(random, depth + 1);
    if (kind == 8) {
      const std::string name = std::to_string(n) + "\":";
      member = {"\"\\u006e" + name + " " + member.written, "\"n" + name + member.text};
    }
    list.written += (list.written.empty() ? "" : " ,\t") + member.written;
    list.text += (list.text.empty() ? "" : ",") + member.text;
  }
  if (kind == 7) return {"[ " + list.written + "]", "[" + list.text + "]"};
  return {"{" + list.written + " }", "{" + list.text + "}"};
}

struct Table {
  std::string members;   // of a variable, as JSON
  std::string digested;  // what MD5 is to be taken of
};

/// A table in one of its two shapes.
Table SomeTable(Random& random) {
  static const std::vector<std::string> names = {"a",        "B",  "ab", "a b",
                                                 "\xc3\xa9", "\"", "",   "z\n"};
  std::vector<std::string> columns = names;
  std::shuffle(columns.begin(), columns.end(), random);
  columns.resize(random() % columns.size() + 1);
  const bool isShaped = random() % 2 == 0;
  const bool isSorted = random() % 3 != 0;

  std::vector<std::map<std::string, Cell>> rows(random() % 6);
  std::string written;
  std::set<std::string> present;
  for (auto& row : rows) {
    std::string cells;
    for (const std::string& column : columns) {
      if (!isShaped && random() % 4 == 0) continue;  // an object may lack it
      const Cell cell = SomeCell(random);
      row[column] = cell;
      present.insert(column);
      cells += (cells.empty() ? "" : ", ") + (isShaped ? "" : Quote(column) + ":") + cell.written;
    }
    cells = isShaped ? "[" + cells + "]" : "{" + cells + "}";
    written += (written.empty() ? "" : ",") + cells;
  }
  written = "[" + written + "]";
  if (isShaped) {
    std::string list;
    for (const std::string& column : columns) list += (list.empty() ? "" : ",") + Quote(column);
    written = "{\"columns\":[" + list + "],\"rows\":" + written + "}";
    present.insert(columns.begin(), columns.end());
  }

  Table table{"\"value\":" + written, {}};
  std::set<std::string> keys = present;
  if (!present.empty() && random() % 2 == 0) {
    std::string list;
    for (auto key = keys.begin(); key != keys.end();) {
      if (random() % 2 == 0) {
        key = keys.erase(key);
      } else {
        list = Quote(*key++) + (list.empty() ? "" : ",") + list;
      }
    }
    table.members += ",\"keys\":[" + list + "]";
  }
  if (!isSorted || random() % 2 == 0) {
    table.members += std::string(",\"sort\":") + (isSorted ? "true" : "false");
  }

  std::vector<std::string> texts;
  for (const auto& row : rows) {
    std::string text;
    for (const std::string& key : keys) {
      const auto cell = row.find(key);
      text += (key == *keys.begin() ? "" : ",") + (cell == row.end() ? "null" : cell->second.text);
    }
    texts.push_back("[" + text + "]");
  }
  if (isSorted) std::sort(texts.begin(), texts.end());
  for (std::size_t i = 0; i < texts.size(); ++i) {
    table.digested += (i == 0 ? "" : "\n") + texts[i];
  }
  return table;
}

std::string DigestOf(const std::string& members) {
  RunLineReader reader("");
  ParsedRun run;
  const bool done = reader.Read(
      R"({"time":1,"device":"","source":"","variables":[{"name":"t",)" + members + "}]}", run);
  return done ? run.variables.at(0).valueText : "refused: " + reader.fault();
}

/// What md5sum says of each text, in order; empty when there is no such program.
std::vector<std::string> Md5Sums(const std::vector<std::string>& texts) {
  const testing::TempRoot root;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    std::ofstream(root.path() / std::to_string(100000 + i), std::ios::binary) << texts[i];
  }
  std::FILE* const sums = ::popen(
      ("cd '" + root.path().string() + "' && command -v md5sum > /dev/null && md5sum *").c_str(),
      "r");
  std::vector<std::string> digests;
  char line[256];
  while (sums != nullptr && std::fgets(line, sizeof line, sums) != nullptr) {
    digests.push_back(std::string(line).substr(0, 32));
  }
  if (sums != nullptr) ::pclose(sums);
  return digests;
}

TEST(TableDigest, IsWhatMd5sumSaysOfTheRowTexts) {
  Random random(19920401);
  std::vector<Table> tables;
  for (int i = 0; i < kTables; ++i) tables.push_back(SomeTable(random));
  // Texts of every length about MD5's block.
  for (int length = 0; length <= 130; ++length) {
    const std::string text = Quote(std::string(static_cast<std::size_t>(length), 'x'));
    tables.push_back({"\"value\":[{\"c\":" + text + "}]", "[" + text + "]"});
  }
  std::vector<std::string> texts;
  for (const Table& table : tables) texts.push_back(table.digested);
  const std::vector<std::string> expected = Md5Sums(texts);
  if (expected.empty()) GTEST_SKIP() << "there is no program md5sum to compare with";
  ASSERT_EQ(expected.size(), tables.size());
  for (std::size_t i = 0; i < tables.size(); ++i) {
    ASSERT_EQ(DigestOf(tables[i].members), expected[i]) << tables[i].members << "\n"
                                                        << tables[i].digested;
  }
}

}  // namespace
}  // namespace keelstone
