#include "meridane/error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "../support/whole_names.h"

namespace meridane {

/// A place with a name of its own.
struct Raiser {
  static constexpr unsigned kLine = __LINE__ + 1;
  static void fail() { raise("%s is not %d", "three", 4); }
};

namespace {

TEST(Formatted, IsTheTextOfPrintf) {
  EXPECT_EQ(formatted("%04d|%-4s|%.2f|%%", 7, "ab", 0.125), "0007|ab  |0.12|%");
  EXPECT_EQ(formatted("%s", ""), "");
}

TEST(Formatted, IsCutAfter8192Characters) {
  for (const std::size_t size : {8190u, 8191u, 8192u}) {
    const std::string text(size, 'a');
    EXPECT_EQ(formatted("%s", text.c_str()), text);
  }
  EXPECT_EQ(formatted("%s", std::string(8193, 'a').c_str()), std::string(8192, 'a'));
  EXPECT_EQ(formatted("%sbc", std::string(8191, 'a').c_str()), std::string(8191, 'a') + 'b');
  EXPECT_EQ(formatted("%s", std::string(1'000'000, 'a').c_str()).size(), 8192);
}

TEST(BaseName, IsWhatFollowsTheLastSlash) {
  EXPECT_EQ(base_name("/a/b/c.cpp"), "c.cpp");
  EXPECT_EQ(base_name("c.cpp"), "c.cpp");
  EXPECT_EQ(base_name("a/"), "");
  EXPECT_EQ(base_name(""), "");
}

TEST(QualifiedName, IsASignatureWithoutWhatStandsAroundTheName) {
  EXPECT_EQ(qualified_name("virtual void meridane::A::f(int, char) const"), "meridane::A::f");
  EXPECT_EQ(qualified_name("meridane::A::A()"), "meridane::A::A");
  EXPECT_EQ(qualified_name("static const F& meridane::B<T, P, F>::get(const S&) [with T = X; P = Y]"),
            "meridane::B<T, P, F>::get");
  EXPECT_EQ(qualified_name("std::map<int, int> f(T) [with T = int]"), "f");
  EXPECT_EQ(qualified_name("auto f()::<lambda(int)>"), "f");
  EXPECT_EQ(qualified_name("f"), "f");
  EXPECT_EQ(qualified_name(""), "");
}

TEST(Raise, TellsTheMessageAndThePlace) {
  try {
    Raiser::fail();
    FAIL() << "nothing was thrown";
  } catch (const BaseRuntimeError& error) {
    EXPECT_STREQ(error.what(), "three is not 4");
    EXPECT_EQ(error.file(), "error_test.cpp");
    EXPECT_EQ(error.line(), Raiser::kLine);
    EXPECT_EQ(error.function(), kTellsWholeNames ? "meridane::Raiser::fail" : "fail");
  }
}

TEST(Raise, CutsALongMessage) {
  const std::string text(10'000, 'x');
  EXPECT_THAT([&] { raise("%s", text.c_str()); },
              testing::ThrowsMessage<BaseRuntimeError>(std::string(kLongestMessage, 'x')));
}

template <class Error>
class RaisedError : public testing::Test {};

using Errors = testing::Types<DimensionMismatchError, TypeMismatchError, MissingTagError, InvalidFormat,
                              BuilderNotFound, InvalidOutportError>;
TYPED_TEST_SUITE(RaisedError, Errors);

TYPED_TEST(RaisedError, CanBeCaughtAsItselfAsAnEngineErrorAndAsARuntimeError) {
  const auto fail = [] { raise<TypeParam>("no %c", 'x'); };
  EXPECT_THAT(fail, testing::ThrowsMessage<TypeParam>(std::string("no x")));
  EXPECT_THROW(fail(), BaseRuntimeError);
  EXPECT_THROW(fail(), std::runtime_error);
}

}  // namespace
}  // namespace meridane
