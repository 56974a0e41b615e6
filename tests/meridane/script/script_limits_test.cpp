// Scripts come with documents from anywhere: whatever they do ends, in a value or in an error.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "lib/script/engine.h"

namespace meridane {
namespace {

using std::chrono::milliseconds;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;
using testing::ThrowsMessage;

constexpr ScriptLimits kShort{.time = milliseconds(100)};

std::string value_of(const std::string& expression, const ScriptLimits& limits = {}) {
  return ScriptEngine({}, limits).evaluate(expression);
}

void expect_error(const std::string& expression, const ScriptLimits& limits, const std::string& message) {
  ScriptEngine engine({}, limits);
  EXPECT_THAT([&] { engine.evaluate(expression); }, ThrowsMessage<ScriptError>(StartsWith(message))) << expression;
}

/// The time within which a script must have been given up that is allowed 100 ms: sanitizers and busy machines are
/// slow.
constexpr milliseconds kGivenUp(8000);

void expect_over_time(const std::string& expression) {
  const auto start = std::chrono::steady_clock::now();
  expect_error(expression, kShort, "script runs for more than 100 ms in __EVAL__ \"");
  EXPECT_LT(std::chrono::steady_clock::now() - start, kGivenUp) << expression;
}

TEST(ScriptLimits, EndLoops) {
  expect_over_time("while (true) {}");
  expect_over_time("for (;;) { try { while (true) {} } catch (e) {} }");
  expect_over_time("var f = function() { try { f() } finally { f() } }; f()");
  expect_over_time("var o = {toString: function() { while (true) {} }}; o");
  expect_over_time("throw {toString: function() { while (true) {} }}");
}

TEST(ScriptLimits, EndLoopsOfTheLibrary) {
  expect_over_time("new Array(4294967295).join(\"\")");
  expect_over_time("Array.prototype.indexOf.call({length: 2147483647}, 1)");
  expect_over_time("new Array(2147483647).sort()");
  expect_over_time("Array.prototype.reverse.call({length: 2147483647})");
  expect_over_time("/^(a+)+$/.test(\"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab\")");
  // A tower of loops in which nothing is called but the library's own.
  expect_over_time(
      "var a = []; for (var i = 0; i < 100; ++i) a.push(i); var f = Math.abs; var each = Array.prototype.forEach;"
      "for (var i = 0; i < 8; ++i) f = each.bind(a, f); f()");
}

TEST(ScriptLimits, EndLongStepsInLongTexts) {
  expect_over_time("var s = \" \".repeat(200000), n = 0; for (var i = 0; i < 100000000; ++i) n += +s; n");
  expect_over_time(
      "var s = \"a\".repeat(200000), p = \"a\".repeat(20000) + \"b\"; for (var i = 0; i < 1000000; ++i) s.indexOf(p)");
}

TEST(ScriptLimits, AreOfTheDocumentAsAWhole) {
  ScriptEngine engine({}, kShort);
  const auto count = [&] {
    for (int i = 0; i < 100000; ++i) engine.evaluate("for (var i = 0; i < 20000; ++i) {} 1");
  };
  EXPECT_THAT(count, ThrowsMessage<ScriptError>(StartsWith("script runs for more than 100 ms")));
  EXPECT_THROW(engine.evaluate("1"), ScriptError);
}

TEST(ScriptLimits, CountMemory) {
  const std::string message = "script needs more than 1048576 bytes of memory in __EVAL__ \"";
  expect_error("var s = \"x\"; while (true) s += s", {}, message);
  expect_error("var a = []; while (true) a.push({})", {}, message);
  expect_error("new Uint8Array(1048576)", {}, message);
  expect_error("\"x\".repeat(4294967295)", {}, "");
  EXPECT_EQ(value_of("var s = \"x\"; while (s.length < 262144) s += s; s.length"), "262144");
}

TEST(ScriptLimits, GiveMemoryBack) {
  // 100 times a tenth of what there is
  EXPECT_EQ(value_of("for (var i = 0; i < 100; ++i) { var s = \"x\".repeat(100000 + i) } s.length"), "100099");
  ScriptEngine engine({}, {});
  EXPECT_THROW(engine.evaluate("var a = []; while (true) a.push({})"), ScriptError);
  EXPECT_EQ(engine.evaluate("a = null; 1"), "1");
  EXPECT_EQ(engine.evaluate("\"x\".repeat(300000).length"), "300000");
}

TEST(ScriptLimits, LeaveAScriptThatLivesWithTooLittleMemory) {
  EXPECT_EQ(value_of("try { new Uint8Array(10000000); 1 } catch (e) { 2 }"), "2");
}

TEST(ScriptLimits, CountTheStack) {
  expect_error("var f = function() { return f() + 1 }; f()", {}, "");
  expect_error("var f = function() { return [1].map(f) }; f()", {}, "RangeError: ");
  expect_error(std::string(100000, '(') + "1" + std::string(100000, ')'), {}, "");
  expect_error("JSON.parse(\"[\".repeat(100000))", {}, "RangeError: ");
  expect_error("/" + std::string(20000, '(') + "/", {}, "");
}

TEST(ScriptLimits, CountValues) {
  ScriptEngine engine({}, {.value_bytes = 10});
  EXPECT_EQ(engine.evaluate("\"12345\""), "12345");
  EXPECT_EQ(engine.evaluate("\"12345\""), "12345");
  EXPECT_THAT([&] { engine.evaluate("6"); },
              ThrowsMessage<ScriptError>(std::string("values of scripts have more than 10 bytes")));
}

TEST(ScriptLimits, LeaveNeitherFilesNorClockNorChance) {
  for (const char* name : {"Duktape", "Date", "performance", "require", "print", "Math.random", "load"}) {
    EXPECT_EQ(value_of(std::string("typeof ") + name), "undefined") << name;
  }
  EXPECT_EQ(value_of("Math.max(1, 2)"), "2");
}

TEST(ScriptEngine, TellsTheBeginningOfALongExpression) {
  EXPECT_THAT([] { value_of("nothing;" + std::string(10000, ' ')); },
              ThrowsMessage<ScriptError>("ReferenceError: identifier 'nothing' undefined in __EVAL__ \"nothing;" +
                                         std::string(192, ' ') + "\""));
}

TEST(ScriptEngine, ValuesAreUtf8) {
  const std::string clef = "\xF0\x9D\x84\x9E";  // U+1D11E
  EXPECT_EQ(value_of("\"" + clef + "\""), clef);
  EXPECT_EQ(value_of("\"<\\ud834\\udd1e>\""), "<" + clef + ">");
  EXPECT_EQ(value_of("String.fromCharCode(0xd834, 0xdd1e) + \"\\u00e4\""), clef + "\xC3\xA4");
  EXPECT_EQ(ScriptEngine({{"clef", clef}}).evaluate("clef"), clef);
  EXPECT_EQ(value_of("\"\\udbff\\udfff\""), "\xF4\x8F\xBF\xBF");  // U+10FFFF
  EXPECT_EQ(value_of("\"a\\u0000b\""), std::string("a\0b", 3));
}

TEST(ScriptEngine, FailsWithTheErrorThatAScriptThrows) {
  expect_error("throw new Error(\"no \\ud834\\udd1e\")", {}, "Error: no \xF0\x9D\x84\x9E in __EVAL__ \"");
  expect_error("throw {toString: function() { throw 1 }}", {}, "");
  expect_error("throw Symbol(\"x\")", {}, "");
}

TEST(ScriptEngine, ComputesInDoubles) {
  EXPECT_EQ(value_of("5 / 2"), "2.5");
  EXPECT_EQ(value_of("0.1 + 0.2"), "0.30000000000000004");
  EXPECT_EQ(value_of("Math.pow(2, 53)"), "9007199254740992");
}

}  // namespace
}  // namespace meridane
