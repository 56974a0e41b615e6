#include "meridane/builder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <iostream>
#include <vector>

#include "meridane/framescore/nn.h"

namespace meridane {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::ThrowsMessage;

struct Product {
  int value;
  std::string text;
};
using Factory = std::function<std::shared_ptr<Product>(int, const std::string&)>;
using First = Builder<struct FirstTag, Product, Factory>;
using Second = Builder<struct SecondTag, Product, Factory>;

std::shared_ptr<Product> make(int value, const std::string& text) {
  return std::make_shared<Product>(Product{value, text});
}

[[maybe_unused]] const bool registered = First::regist("early", make);

TEST(Builder, HoldsWhatWasRegisteredBeforeMain) {
  EXPECT_TRUE(registered);
  EXPECT_TRUE(First::has("early"));
  const std::shared_ptr<Product> product = First::build("early", 3, "text");
  EXPECT_EQ(product->value, 3);
  EXPECT_EQ(product->text, "text");
  EXPECT_EQ(First::get("early")(4, "")->value, 4);
}

/// Nothing else of this program refers to networks, so that the table would stay out of it.
TEST(TheParameterTable, IsThereForAProgramThatAsksForIt) {
  ensure_parameter_table();
  EXPECT_TRUE(FrameScoreParameterBuilder::has("MerNNpar"));
}

TEST(Builder, HasATablePerTag) {
  EXPECT_FALSE(Second::has("early"));
  EXPECT_TRUE(Second::regist("other", make));
  EXPECT_FALSE(First::has("other"));
}

TEST(Builder, TellsANameThatIsNotThere) {
  EXPECT_FALSE(First::has("late"));
  constexpr char kMessage[] = "late is not registered in the builder";
  EXPECT_THAT([] { First::get("late"); }, ThrowsMessage<BuilderNotFound>(std::string(kMessage)));
  EXPECT_THAT([] { First::build("late", 1, ""); }, ThrowsMessage<BuilderNotFound>(std::string(kMessage)));
  EXPECT_THAT([] { First::get(""); }, ThrowsMessage<BuilderNotFound>(std::string(" is not registered in the builder")));
  EXPECT_FALSE(First::has("late"));  // looking does not enter it
}

TEST(Builder, TakesTheLatestFactoryOfANameAndSaysThatThereWasOne) {
  using Table = Builder<struct LatestTag, Product, Factory>;
  EXPECT_TRUE(Table::regist("name", make));
  EXPECT_FALSE(Table::regist("name", [](int value, const std::string& text) { return make(-value, text); }));
  EXPECT_EQ(Table::build("name", 5, "")->value, -5);
}

TEST(Builder, LogsARegistrationAtLevel1) {
  using Table = Builder<struct LoggedTag, Product, Factory>;
  std::vector<std::string> lines;
  set_log_sink([&](const std::string& line) { lines.push_back(line); });
  log_threshold() = 2;
  Table::regist("silent", make);
  log_threshold() = 1;
  Table::regist("loud", make);
  log_threshold() = kLogInfo;
  set_log_sink([](const std::string& line) { std::clog << line << '\n'; });
  EXPECT_THAT(lines, ElementsAre(EndsWith(")]  Factory for \"loud\" is registered")));
}

}  // namespace
}  // namespace meridane
