#include "intake/table_value.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "keelstone/run_line.h"

namespace keelstone {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

struct Outcome {
  VarInfo variable;
  std::string fault;
};

/// Reads a variable whose members besides the name are given.
Outcome ReadVariable(const std::string& members) {
  RunLineReader reader("");
  ParsedRun run;
  const bool done = reader.Read(
      R"({"time":1,"device":"","source":"","variables":[{"name":"t",)" + members + "}]}", run);
  return done ? Outcome{run.variables.at(0), ""} : Outcome{{}, reader.fault()};
}

TEST(TableValue, DigestsWhatTheTableSays) {
  struct Case {
    const char* members;
    const char* digest;  // MD5 of the text beside it
  };
  const std::vector<Case> cases = {
      // the empty text
      {R"("value":{"columns":["a"],"rows":[]})", "d41d8cd98f00b204e9800998ecf8427e"},
      // ["10.1.0.0/16","10.0.12.2"]
      {R"("value":{"columns":["prefix","via"],"rows":[["10.1.0.0/16","10.0.12.2"]]})",
       "1e174ca41642ab99a19bf39041dd31f6"},
      // the same: cells stand in the order of the columns' names
      {R"("value":{"columns":["via","prefix"],"rows":[["10.0.12.2","10.1.0.0/16"]]})",
       "1e174ca41642ab99a19bf39041dd31f6"},
      {R"("value":[{"via":"10.0.12.2","x":1,"prefix":"10.1.0.0/16"}],"keys":["via","prefix"])",
       "1e174ca41642ab99a19bf39041dd31f6"},
      // [1,"b"] [2,"a"], sorted
      {R"("value":{"columns":["a","b"],"rows":[[2,"a"],[1,"b"]]})",
       "0c100a92a403f40b3b021e482c199953"},
      // [2,"a"] [1,"b"], as they stand
      {R"("value":{"columns":["a","b"],"rows":[[2,"a"],[1,"b"]]},"sort":false)",
       "ae8b1358383186ae2a04b5bf73404cfd"},
      // [10] [9]: texts are sorted, not numbers
      {R"("value":[{"n":9},{"n":10}])", "5002fc8a9d164dfa6b8265a1b036f2fa"},
      // ["Z"] ["a"] ["é"]: bytes are sorted
      {R"("value":[{"n":"é"},{"n":"a"},{"n":"Z"}])", "382e24def6b7ce925f6b96ecf55d7357"},
      // [1,null] [null,2]: a cell that is missing
      {R"("value":[{"a":1},{"b":2}])", "952325781f38372d3903a8d1ffbd91bf"},
      // [] []: no column enters
      {R"("value":[{"a":1},{"b":2}],"keys":[])", "d3223ad77e6c4958d2ee8f908488d54c"},
      // [3,4]: of members with one name the last counts, and its place is the first
      {R"("value":[{"a":1,"b":4,"a":3}])", "b814fa889082069ffb727ee1623c0944"},
      // ["q\"b\\s/\n\t\r\b\f\u0001\u001f…"] with U+007F and é as they are
      {R"("value":[{"a":"q\"b\\s\/\n\t\r\b\f\u0001\u001F\u007f\u00e9"}])",
       "5c29bd5eddf2ebecccf1d3cdc7f8c30c"},
      // [0,1.2345678901234568e+22,1.8446744073709552e+19,15.0,0.1,1e-07,1e+16,…]
      {R"("value":{"columns":["a","b","c","d","e","f","g","h","i","j","k"],"rows":[[-0,)"
       R"(12345678901234567890123,18446744073709551615,15.00,1e-1,0.0000001,1E16,1e15,)"
       R"(0.0001,-0.0,1e-400]]})",
       "7b3b5a42f4d978a08bec76f575a6c4d6"},
  };
  for (const Case& c : cases) {
    const auto outcome = ReadVariable(c.members);
    ASSERT_EQ(outcome.fault, "") << c.members;
    EXPECT_EQ(outcome.variable.valueText, c.digest) << c.members;
    EXPECT_EQ(outcome.variable.dataType, KSDataTable);
  }
}

TEST(TableValue, HandsOneShapeToTheEngine) {
  const auto objects =
      ReadVariable(R"("value":[{"b":1,"a":{"k":[1.5]}},{"c":"x"}],"keys":["c","b"],"sort":false)");
  EXPECT_EQ(objects.variable.value.toString(),
            R"({"columns":["b","a","c"],"rows":[[1,{"k":[1.5]},null],[null,null,"x"]]})");
  EXPECT_THAT(objects.variable.tableKeys, ElementsAre("b", "c"));
  EXPECT_EQ(objects.variable.tableFlag, 0);

  const auto shaped =
      ReadVariable(R"("value":{"rows":[[1,2]],"note":"","columns":["y","x"]},"digest":"given")");
  EXPECT_EQ(shaped.variable.value.toString(), R"({"columns":["y","x"],"rows":[[1,2]]})");
  EXPECT_EQ(shaped.variable.valueText, "given");
  EXPECT_EQ(shaped.variable.tableFlag, 1);

  const auto empty = ReadVariable(R"("value":[],"keys":["b","a"])");
  EXPECT_EQ(empty.variable.value.toString(), R"({"columns":["b","a"],"rows":[]})");
  EXPECT_THAT(empty.variable.tableKeys, ElementsAre("a", "b"));
}

TEST(TableValue, RefusesObjectsThatWouldFillTheMemoryWithNulls) {
  std::string value = R"("value":[)";
  for (int i = 0; i < 5000; ++i) {
    value += (i == 0 ? "{\"c" : ",{\"c") + std::to_string(i) + "\":1}";
  }
  EXPECT_THAT(ReadVariable(value + "]").fault, HasSubstr("5000 columns is too large"));
}

}  // namespace
}  // namespace keelstone
