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

}  // namespace
}  // namespace keelstone::testing
