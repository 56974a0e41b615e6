#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <thread>
#include <vector>

#include "meridane/framescore/nn.h"
#include "meridane/io/matrix.h"
#include "meridane/io/script.h"

namespace meridane {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::ThrowsMessage;

/// A variable of the host, for as long as this lives.
class Variable {
 public:
  Variable(std::string name, ScriptVariables::mapped_type value) : name_(std::move(name)) {
    ScriptEnv::instance()->set(name_, std::move(value));
  }
  ~Variable() { ScriptEnv::instance()->remove(name_); }
  Variable(const Variable&) = delete;
  Variable& operator=(const Variable&) = delete;

 private:
  std::string name_;
};

TEST(ScriptEnv, LeavesATextWithoutAnExpressionAsItIs) {
  for (const char* text : {"", "$", "{", "$x", "a $ b", "$ {1}", "{1}", "$$", "}{$"}) {
    EXPECT_EQ(expand_script(text), text);
  }
}

TEST(ScriptEnv, PutsTheValueInPlaceOfTheExpression) {
  EXPECT_EQ(expand_script("${1 + 2}"), "3");
  EXPECT_EQ(expand_script("a ${1 + 2} b"), "a 3 b");
  EXPECT_EQ(expand_script("${1}${2}"), "12");
  EXPECT_EQ(expand_script("${1} and ${\"two\"}\n"), "1 and two\n");
  EXPECT_EQ(expand_script("$${7}$"), "$7$");
  EXPECT_EQ(expand_script("${true}"), "true");
  EXPECT_EQ(expand_script("${0.5 - 1}"), "-0.5");
  EXPECT_EQ(expand_script("${[1, 2, 3].join(\" \")}"), "1 2 3");
}

TEST(ScriptEnv, KeepsBytesThatAreNoText) {
  EXPECT_EQ(expand_script(std::string("\0\xff${1}\0", 7)), std::string("\0\xff\x31\0", 4));
}

TEST(ScriptEnv, DoesNotExpandAValueAgain) { EXPECT_EQ(expand_script("${\"$\" + \"{1}\"}"), "${1}"); }

TEST(ScriptEnv, GoesToTheBraceThatBelongsToTheFirst) {
  EXPECT_EQ(expand_script("${\"}\"}"), "}");
  EXPECT_EQ(expand_script("${\"\\\"}\"}"), "\"}");
  EXPECT_EQ(expand_script("${\"{\"}!"), "{!");
  EXPECT_EQ(expand_script("${var s = 0; for (var i = 1; i <= 4; ++i) { s += i } s}!"), "10!");
  EXPECT_EQ(expand_script("${({a: {b: 2}}).a.b}}"), "2}");
}

TEST(ScriptEnv, KnowsDoubleQuotesOnly) {
  EXPECT_THAT([] { expand_script("${'}'}"); },
              ThrowsMessage<ScriptError>(AllOf(HasSubstr("SyntaxError: "), EndsWith(" in __EVAL__ \"'\""))));
  EXPECT_EQ(expand_script("${'a'}"), "a");
  EXPECT_EQ(expand_script("${'\"}\"'}"), "\"}\"");
  EXPECT_THROW(expand_script("${'\"'}"), ScriptError);  // the quotes have no end, so the expression has none
}

TEST(ScriptEnv, CallsTheScriptByItsName) {
  EXPECT_EQ(expand_script("${try { nothing } catch (e) { e.fileName }}"), "__EVAL__");
}

TEST(ScriptEnv, RefusesAnExpressionWithoutAnEnd) {
  const auto message = ThrowsMessage<ScriptError>(std::string("\"${\" without its \"}\" in __EVAL__"));
  for (const char* text : {"${", "a ${1", "${1} ${", "${\"}", "${\"\\\"}", "${ {1}"}) {
    EXPECT_THAT([text] { expand_script(text); }, message) << text;
  }
}

TEST(ScriptEnv, PassesOnWhatTheScriptFailsWith) {
  EXPECT_THAT(
      [] { expand_script("1 ${two}"); },
      ThrowsMessage<ScriptError>(std::string("ReferenceError: identifier 'two' undefined in __EVAL__ \"two\"")));
  EXPECT_THAT([] { expand_script("${1 +}"); },
              ThrowsMessage<ScriptError>(AllOf(HasSubstr("SyntaxError: "), EndsWith(" in __EVAL__ \"1 +\""))));
  EXPECT_THAT([] { expand_script("${throw 5}"); },
              ThrowsMessage<ScriptError>(std::string("5 in __EVAL__ \"throw 5\"")));
  for (const char* text : {"${}", "${undefined}", "${var x = 1;}"}) {
    EXPECT_THAT([text] { expand_script(text); },
                ThrowsMessage<ScriptError>(HasSubstr("TypeError: expression without a value in __EVAL__")))
        << text;
  }
}

TEST(ScriptEnv, IsOneForTheProcess) {
  EXPECT_EQ(ScriptEnv::instance(), ScriptEnv::instance());
  EXPECT_EQ(ScriptEnv::instance()->expand("${2 * 3}"), "6");
}

TEST(ScriptEnv, ShowsTheVariablesOfTheHost) {
  const Variable folder("folder", "/models/\xC3\xA4"), dimension("dimension", 40.0);
  EXPECT_EQ(expand_script("${folder}/w${dimension / 2}"), "/models/\xC3\xA4/w20");
  EXPECT_EQ(expand_script("${folder.length}"), "9");  // of characters
  ScriptEnv::instance()->set("dimension", 0.1);
  EXPECT_EQ(expand_script("${dimension}"), "0.1");
  ScriptEnv::instance()->remove("dimension");
  EXPECT_THROW(expand_script("${dimension}"), ScriptError);
}

TEST(ScriptEnv, ForgetsWhatATextHasDefined) {
  const Variable base("base", 1.0);
  EXPECT_EQ(expand_script("${var n = 5; n} ${base = n + 1; n * base}"), "5 30");
  EXPECT_THROW(expand_script("${n}"), ScriptError);
  EXPECT_EQ(expand_script("${base}"), "1");
}

TEST(ScriptEnv, RemembersThroughADocument) {
  const ScriptDocument document;
  EXPECT_EQ(expand_script("${var n = 5; n}"), "5");
  EXPECT_THROW(expand_script("${nothing}"), ScriptError);
  {
    const ScriptDocument part_of_it;
    EXPECT_EQ(expand_script("${n + 1}"), "6");
  }
  EXPECT_EQ(expand_script("${n + 2}"), "7");
}

TEST(ScriptEnv, SharesNothingBetweenThreads) {
  const Variable size("size", 3.0);
  const ScriptDocument document;
  EXPECT_EQ(expand_script("${size = 7}"), "7");
  std::vector<std::thread> threads;
  std::vector<std::string> found(4);
  for (std::size_t i = 0; i < found.size(); ++i) {
    threads.emplace_back([&found, i] {
      const ScriptDocument other;
      const std::string number = std::to_string(i);
      for (int k = 0; k < 20; ++k) found[i] = expand_script("${size += " + number + "}");
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t i = 0; i < found.size(); ++i) EXPECT_EQ(found[i], std::to_string(3 + 20 * i));
  EXPECT_EQ(expand_script("${size}"), "7");
}

TEST(ScriptEnv, ExpandsTheMatricesOfANetwork) {
  const Variable scale("scale", 4.0);
  std::istringstream text(
      "<NN magic=\"MerNNpar\" ninput=\"2\" noutput=\"1\"><layers><layer type=\"FullyConnected\" id=\"a\">"
      "<weight>${var half = scale / 2; half} ${half * half}</weight><bias>${half + 1}</bias></layer></layers>"
      "<links><link from_id=\"_input\" to_id=\"a\"/><link from_id=\"a\" to_id=\"_output\"/></links></NN>");
  NNParameter network;
  network.load(text, "text/xml");
  const auto scorer = network.create_scorer();
  Vector x(2);
  x << 1, 10;
  scorer->set_input(std::make_shared<FrameSequence>(FrameSequence{x}));
  EXPECT_EQ(scorer->score(0, 0), 2.f * 1 + 4.f * 10 + 3);
}

TEST(ScriptEnv, EndsTheLoadOfANetworkWithItsError) {
  std::istringstream text(
      "<NN magic=\"MerNNpar\" ninput=\"2\" noutput=\"1\"><layers><layer type=\"Bias\" id=\"a\">"
      "<bias>${b}</bias></layer></layers></NN>");
  NNParameter network;
  EXPECT_THAT([&] { network.load(text, "text/xml"); },
              ThrowsMessage<ScriptError>(std::string("ReferenceError: identifier 'b' undefined in __EVAL__ \"b\"")));
}

}  // namespace
}  // namespace meridane
