#include "keelstone/rule_records.h"

#include <gtest/gtest.h>

namespace keelstone::testing {
namespace {

TEST(RuleDefinition, IsEnabledByStateOrElseByFlag) {
  RuleDefinitionData definition;
  EXPECT_FALSE(definition.IsEnable());
  for (const bool flag : {false, true}) {
    definition.enableFlag = flag;
    for (const auto& [state, enabled] :
         {std::pair{0, flag}, std::pair{1, true}, std::pair{2, false}, std::pair{-1, false}}) {
      definition.enableState = state;
      EXPECT_EQ(definition.IsEnable(), enabled) << flag << " " << state;
    }
  }
}

TEST(UnitKeyText, IsReadBackOnlyWithThreePieces) {
  UnitKey key("r1", "p", "x");
  EXPECT_EQ(key.GetKeyString(), "r1$$$p$$$x");
  for (const char* text : {"", "a", "a$$$b", "a$$$b$$$c$$$d", "r$$$1$$$p$$$x"}) {
    EXPECT_FALSE(key.LoadKeyString(text)) << text;
    EXPECT_EQ(key.deviceName, "r1");
  }
  UnitKey read;
  EXPECT_TRUE(read.LoadKeyString("a$$b$$$$$$c"));
  EXPECT_EQ(read.deviceName, "a$$b");
  EXPECT_EQ(read.variableSource, "");
  EXPECT_EQ(read.variableParam, "c");
}

}  // namespace
}  // namespace keelstone::testing
