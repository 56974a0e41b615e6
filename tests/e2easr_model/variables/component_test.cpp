// Named options that are declared once and set by name.

#include <gtest/gtest.h>

#include "../support/messages.h"
#include "e2easr_model/base.h"

namespace sonivo::e2e::test {
namespace {

using testing::ElementsAre;

struct Bench : Component {
  using Component::add_variable;
  using Component::restore_defaults;
  using Component::save_defaults;
  using Component::take_over;

  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& variable : variables()) found.push_back(variable->name());
    return found;
  }
};

struct ComponentTest : testing::Test {
  ComponentTest() {
    bench.add_variable<int>("chunk-size", 80, false, "frames", VariableGreaterEqual<int>{1});
    bench.add_variable<float>("strength", 1.0f, false, "", VariableRange<float>{0.0f, 1.0f});
    bench.add_variable<bool>("switching", false, true, "", VariableAny());
    bench.add_variable<std::string>("window", "povey", false, "", VariableAnyOf<std::string>{{"povey", "sine"}});
    bench.add_variable<int>("bare", 1, false, "");
    bench.save_defaults();
  }

  Bench bench;
};

TEST_F(ComponentTest, KeepsTheOrderOfDeclaration) {
  EXPECT_THAT(bench.names(), ElementsAre("chunk-size", "strength", "switching", "window", "bare"));
}

TEST_F(ComponentTest, GivesWhatWasSet) {
  EXPECT_EQ(bench.get<int>("chunk-size"), 80);
  bench.set<int>("chunk-size", 5);
  bench.set<float>("strength", 0.5f);
  bench.set<std::string>("window", "sine");
  EXPECT_EQ(bench.get<int>("chunk-size"), 5);
  EXPECT_EQ(bench.get<float>("strength"), 0.5f);
  EXPECT_EQ(bench.get<std::string>("window"), "sine");
}

TEST_F(ComponentTest, ANameIsDeclaredOnce) {
  EXPECT_THAT(message_of([&] { bench.add_variable<float>("window", 1.0f, false, "", VariableAny()); }),
              IsMessage("同名の変数\"window\"は定義できない. in base.h %d"));
  EXPECT_EQ(bench.get<std::string>("window"), "povey");
}

TEST_F(ComponentTest, RefusesUnknownNames) {
  EXPECT_THAT(message_of([&] { bench.get<int>("chunk"); }), IsMessage("変数\"chunk\"は存在しない. in base.cpp %d"));
  EXPECT_THAT(message_of([&] { bench.set<int>("chunk", 1); }), IsMessage("変数\"chunk\"は存在しない. in base.cpp %d"));
  EXPECT_THAT(message_of([&] { bench.set_from_text("chunk", "1"); }),
              IsMessage("変数\"chunk\"は存在しない. in base.cpp %d"));
}

TEST_F(ComponentTest, ConvertsNoTypes) {
  EXPECT_THAT(message_of([&] { bench.get<float>("chunk-size"); }),
              IsMessage("変数\"chunk-size\"の型が取得値と一致しない. in base.h %d"));
  EXPECT_THAT(message_of([&] { bench.set<float>("chunk-size", 1.0f); }),
              IsMessage("変数\"chunk-size\"の型が設定値と一致しない. in base.h %d"));
}

TEST_F(ComponentTest, RefusesValuesOutOfRange) {
  EXPECT_THAT(message_of([&] { bench.set<int>("chunk-size", 0); }),
              IsMessage("変数\"chunk-size\"の設定値が有効範囲外. in base.h %d"));
  EXPECT_THAT(message_of([&] { bench.set<float>("strength", 1.5f); }),
              IsMessage("変数\"strength\"の設定値が有効範囲外. in base.h %d"));
  EXPECT_EQ(bench.get<int>("chunk-size"), 80);
}

TEST_F(ComponentTest, ChecksTheTypeBeforeTheFlagAndTheFlagBeforeTheRange) {
  bench.add_variable<int>("overlap", 0, true, "", VariableGreaterEqual<int>{0});
  EXPECT_THAT(message_of([&] { bench.set<float>("overlap", -1.0f); }),
              IsMessage("変数\"overlap\"の型が設定値と一致しない. in base.h %d"));
  EXPECT_THAT(message_of([&] { bench.set<int>("overlap", -1); }),
              IsMessage("変数\"overlap\"は読み取り専用. in base.h %d"));
}

TEST_F(ComponentTest, AReadOnlyVariableIsSetByTextOnly) {
  EXPECT_THAT(message_of([&] { bench.set<bool>("switching", true); }),
              IsMessage("変数\"switching\"は読み取り専用. in base.h %d"));
  EXPECT_FALSE(bench.get<bool>("switching"));
  bench.set_from_text("switching", "true");
  EXPECT_TRUE(bench.get<bool>("switching"));
  EXPECT_THAT(message_of([&] { bench.set<bool>("switching", false); }),
              IsMessage("変数\"switching\"は読み取り専用. in base.h %d"));
}

TEST_F(ComponentTest, AFailureLeavesTheFlagAsItWas) {
  EXPECT_THAT(message_of([&] { bench.set_from_text("switching", "maybe"); }),
              IsMessage("変数\"switching\"の設定値が有効範囲外. in base.cpp %d"));
  EXPECT_THAT(message_of([&] { bench.set<bool>("switching", true); }),
              IsMessage("変数\"switching\"は読み取り専用. in base.h %d"));
}

TEST_F(ComponentTest, WithoutAValidatorNothingCanBeSet) {
  EXPECT_THROW(bench.set<int>("bare", 2), std::bad_function_call);
  EXPECT_EQ(bench.get<int>("bare"), 1);
}

TEST_F(ComponentTest, ReadsTextByType) {
  bench.add_variable<long>("long", 0, false, "", VariableAny());
  bench.add_variable<double>("double", 0, false, "", VariableAny());
  bench.set_from_text("chunk-size", "5");
  bench.set_from_text("strength", "0.25");
  bench.set_from_text("window", "sine");
  bench.set_from_text("long", "5000000000");
  bench.set_from_text("double", "0.1");
  bench.set_from_text("switching", "true");
  EXPECT_EQ(bench.get<int>("chunk-size"), 5);
  EXPECT_EQ(bench.get<float>("strength"), 0.25f);
  EXPECT_EQ(bench.get<std::string>("window"), "sine");
  EXPECT_EQ(bench.get<long>("long"), 5000000000);
  EXPECT_EQ(bench.get<double>("double"), 0.1);
  bench.set_from_text("switching", "false");
  EXPECT_FALSE(bench.get<bool>("switching"));
}

TEST_F(ComponentTest, TextIsCheckedLikeAValue) {
  EXPECT_EQ(message_of([&] { bench.set_from_text("chunk-size", "many"); }), "invalid stoi argument");
  EXPECT_EQ(message_of([&] { bench.set_from_text("chunk-size", "99999999999"); }), "stoi argument out of range");
  EXPECT_EQ(message_of([&] { bench.set_from_text("strength", "full"); }), "invalid stof argument");
  EXPECT_THAT(message_of([&] { bench.set_from_text("chunk-size", "0"); }),
              IsMessage("変数\"chunk-size\"の設定値が有効範囲外. in base.h %d"));
  EXPECT_THAT(message_of([&] { bench.set_from_text("window", "round"); }),
              IsMessage("変数\"window\"の設定値が有効範囲外. in base.h %d"));
}

TEST_F(ComponentTest, ATypeWithoutTextIsNotSetByText) {
  bench.add_variable<std::vector<short>>("input", {}, false, "", VariableAny());
  EXPECT_THAT(message_of([&] { bench.set_from_text("input", "1"); }),
              IsMessage("変数\"input\"の型が設定値と一致しない. in base.h %d"));
}

TEST_F(ComponentTest, GoesBackToItsDefaults) {
  bench.set<int>("chunk-size", 5);
  bench.set_from_text("switching", "true");
  bench.add_variable<int>("later", 1, false, "", VariableAny());
  bench.set<int>("later", 2);
  bench.restore_defaults();
  EXPECT_EQ(bench.get<int>("chunk-size"), 80);
  EXPECT_FALSE(bench.get<bool>("switching"));
  EXPECT_EQ(bench.get<int>("later"), 2) << "not there when the defaults were saved";
  bench.set<int>("chunk-size", 7);
  bench.restore_defaults();
  EXPECT_EQ(bench.get<int>("chunk-size"), 80) << "a second time";
}

TEST_F(ComponentTest, SavedDefaultsReplaceThoseBefore) {
  bench.set<int>("chunk-size", 5);
  bench.save_defaults();
  bench.set<int>("chunk-size", 6);
  bench.restore_defaults();
  EXPECT_EQ(bench.get<int>("chunk-size"), 5);
}

TEST_F(ComponentTest, TakesOverAnothersVariablesAndHasThemInCommon) {
  Bench features;
  features.add_variable<float>("frame-shift", 10.0f, false, "", VariableAny());
  bench.take_over(features, false);
  EXPECT_EQ(bench.names().back(), "frame-shift");
  bench.set<float>("frame-shift", 20.0f);
  EXPECT_EQ(features.get<float>("frame-shift"), 20.0f);
}

TEST_F(ComponentTest, TakesOverAllOrNothing) {
  Bench features;
  features.add_variable<float>("frame-shift", 10.0f, false, "", VariableAny());
  features.add_variable<int>("window", 1, false, "", VariableAny());
  EXPECT_THAT(message_of([&] { bench.take_over(features, false); }),
              IsMessage("同名の変数\"window\"は追加できない. in base.cpp %d"));
  EXPECT_THAT(bench.names(), ElementsAre("chunk-size", "strength", "switching", "window", "bare"));
}

TEST_F(ComponentTest, TakesTextAsItStands) {
  bench.add_variable<std::string>("title", "", false, "", VariableAny());
  for (const std::string& text : {std::string(" two words "), std::string(), std::string("a\0b", 3)}) {
    bench.set_from_text("title", text);
    EXPECT_EQ(bench.get<std::string>("title"), text);
  }
}

TEST_F(ComponentTest, TakesOverNoNameTwiceUnlessToldTo) {
  Bench features;
  features.add_variable<int>("window", 1, false, "", VariableAny());
  EXPECT_THAT(message_of([&] { bench.take_over(features, false); }),
              IsMessage("同名の変数\"window\"は追加できない. in base.cpp %d"));
  bench.take_over(features, true);
  EXPECT_EQ(bench.get<int>("window"), 1);
  bench.set<int>("window", 2);
  EXPECT_EQ(features.get<int>("window"), 2);
  EXPECT_THAT(bench.names(), ElementsAre("chunk-size", "strength", "switching", "window", "bare"));
}

}  // namespace
}  // namespace sonivo::e2e::test
