// Values with a name, their validators, and the texts that numbers are read from.

#include "e2easr_model/variable.h"

#include <gtest/gtest.h>

#include <Eigen/Core>
#include <limits>
#include <set>

#include "../support/messages.h"
#include "e2easr_model/numbers_of_text.h"
#include "e2easr_model/result.h"

namespace sonivo::e2e::test {
namespace {

template <class T>
Variable<T> variable(T value) {
  return Variable<T>("name", value, false, "text", VariableAny());
}

TEST(Variable, IsAssignedWithAllThatItHolds) {
  Variable<int> a("a", 1, false, "first", VariableAny());
  const Variable<int> b("b", 2, true, "second", VariableGreaterEqual<int>{2});
  static_cast<VariableBase&>(a).assign(b);
  EXPECT_EQ(a.name(), "b");
  EXPECT_TRUE(a.read_only());
  EXPECT_EQ(a.description(), "second");
  EXPECT_EQ(a.value(), 2);
  EXPECT_FALSE(a.accepts(1));
}

TEST(Variable, OfAnotherTypeIsNotAssigned) {
  Variable<int> a = variable(1);
  EXPECT_THROW(a.assign(variable(2.0f)), std::bad_cast);
  EXPECT_EQ(a.value(), 1);
}

TEST(Variable, EqualsOneOfTheSameTypeAndValue) {
  EXPECT_TRUE(variable(1).equals(Variable<int>("other", 1, true, "", nullptr)));
  EXPECT_FALSE(variable(1).equals(variable(2)));
  EXPECT_FALSE(variable(1).equals(variable(1.0f)));
  EXPECT_TRUE(variable(std::vector<short>{1, 2}).equals(variable(std::vector<short>{1, 2})));
}

TEST(Variable, MatricesOfDifferentSizesDiffer) {
  const Eigen::MatrixXf matrix = Eigen::MatrixXf::Constant(2, 3, 1.0f);
  EXPECT_TRUE(variable(matrix).equals(variable(matrix)));
  EXPECT_FALSE(variable(matrix).equals(variable<Eigen::MatrixXf>(Eigen::MatrixXf::Constant(3, 2, 1.0f))));
  EXPECT_FALSE(variable(matrix).equals(variable<Eigen::MatrixXf>(Eigen::MatrixXf::Constant(2, 3, 2.0f))));
}

TEST(Variable, ItsCloneIsAnother) {
  Variable<std::string> original = variable<std::string>("x");
  const std::shared_ptr<VariableBase> copy = original.clone();
  EXPECT_TRUE(copy->equals(original));
  EXPECT_EQ(copy->description(), "text");
  original.value() = "y";
  EXPECT_FALSE(copy->equals(original));
}

TEST(Variable, TypesHaveNamesOfTheirOwn) {
  EXPECT_EQ(variable(1).type_name(), variable(2).type_name());
  const std::set<std::string> names = {variable(1).type_name(),
                                       variable(1.0f).type_name(),
                                       variable(true).type_name(),
                                       variable(std::string()).type_name(),
                                       variable(std::vector<short>()).type_name(),
                                       variable(E2EResult()).type_name(),
                                       variable(Eigen::MatrixXf()).type_name()};
  EXPECT_EQ(names.size(), 7u);
}

TEST(Validator, GreaterEqualIncludesItsBound) {
  const VariableGreaterEqual<int> at_least_one{1};
  EXPECT_FALSE(at_least_one(0));
  EXPECT_TRUE(at_least_one(1));
  EXPECT_TRUE(at_least_one(2));
}

TEST(Validator, RangeIncludesBothEndsAndNoNaN) {
  const VariableRange<float> unit{0.0f, 1.0f};
  EXPECT_TRUE(unit(0.0f));
  EXPECT_TRUE(unit(1.0f));
  EXPECT_FALSE(unit(-1e-7f));
  EXPECT_FALSE(unit(1.0000002f));
  EXPECT_FALSE(unit(std::numeric_limits<float>::quiet_NaN()));
  EXPECT_FALSE(VariableGreaterEqual<float>{0.0f}(std::numeric_limits<float>::quiet_NaN()));
}

TEST(Validator, AnyOfComparesWholeWords) {
  const VariableAnyOf<std::string> words{{"none", "lmfb"}};
  EXPECT_TRUE(words("lmfb"));
  EXPECT_FALSE(words("lmf"));
  EXPECT_FALSE(words(""));
}

TEST(NumbersOfText, AreThoseThatTheTextBeginsWith) {
  EXPECT_EQ(stoi(" 20231004"), 20231004);
  EXPECT_EQ(stoi("7 frames"), 7);
  EXPECT_EQ(stol("-9"), -9);
  EXPECT_EQ(stof("0.25"), 0.25f);
  EXPECT_EQ(stod("1e-300"), 1e-300);
}

TEST(NumbersOfText, OthersAreErrorsWithTheNameOfTheFunction) {
  EXPECT_EQ(message_of([] { stoi("x"); }), "invalid stoi argument");
  EXPECT_EQ(message_of([] { stol(""); }), "invalid stol argument");
  EXPECT_EQ(message_of([] { stof("."); }), "invalid stof argument");
  EXPECT_EQ(message_of([] { stod("-"); }), "invalid stod argument");
  EXPECT_EQ(message_of([] { stoi("2147483648"); }), "stoi argument out of range");
  EXPECT_EQ(message_of([] { stol("9223372036854775808"); }), "stol argument out of range");
  EXPECT_EQ(message_of([] { stof("1e39"); }), "stof argument out of range");
  EXPECT_EQ(message_of([] { stod("1e309"); }), "stod argument out of range");
  EXPECT_THROW(stoi("x"), std::invalid_argument);
  EXPECT_THROW(stoi("2147483648"), std::out_of_range);
}

TEST(E2EResult, GivesWhatWasAdded) {
  E2EResult result;
  result.add("active", true);
  result.add("input", std::vector<short>{1, -1});
  EXPECT_TRUE(result.get<bool>("active"));
  EXPECT_EQ(result.get<std::vector<short>>("input"), (std::vector<short>{1, -1}));
  EXPECT_TRUE(result.has("input"));
  EXPECT_FALSE(result.has("enhanced"));
}

TEST(E2EResult, NamesWhatIsNotThere) {
  E2EResult result;
  result.add("active", true);
  EXPECT_THAT(message_of([&] { result.get<bool>("vad"); }), IsMessage("変数\"vad\"は存在しない. in result.h %d"));
  EXPECT_THAT(message_of([&] { result.get<int>("active"); }),
              IsMessage("変数\"active\"の型が取得値と一致しない. in result.h %d"));
}

TEST(E2EResult, ACopyHasItsValuesInCommon) {
  E2EResult result;
  result.add<std::string>("vad", "speech");
  E2EResult copy = result;
  EXPECT_EQ(&copy.get<std::string>("vad"), &result.get<std::string>("vad"));
  copy.add<std::string>("vad", "noise");
  EXPECT_EQ(result.get<std::string>("vad"), "speech");
}

TEST(E2EResult, HoldsOthersAndIsComparedByValue) {
  E2EResult inner;
  inner.add("hangover", false);
  E2EResult a;
  a.add("vad", inner);
  E2EResult b;
  EXPECT_FALSE(a == b);
  E2EResult same;
  same.add("hangover", false);
  b.add("vad", same);
  EXPECT_TRUE(a == b);
  E2EResult other;
  other.add("hangover", true);
  b.add("vad", other);
  EXPECT_FALSE(a == b);
}

}  // namespace
}  // namespace sonivo::e2e::test
