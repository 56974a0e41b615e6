#include "flow_samples.h"

namespace meridane {
namespace {

std::string mapping(const std::string& attributes, const std::string& entries) {
  return "<mapping " + attributes + ">" + entries + "</mapping>";
}

std::string entry(const std::string& word, const std::string& vec) {
  return "<entry word=\"" + word + "\"><vec>" + vec + "</vec></entry>";
}

std::string charset(const std::string& name) { return "charset=\"" + name + "\" dim=\"2\" entrysize=\"2\""; }

Matrix vectors_of(Flow& flow, const std::vector<std::string>& words) {
  flow.start();
  for (const std::string& word : words) flow.feed(word);
  flow.end();
  return flow.take();
}

TEST(WordEmbeddingNode, GivesTheVectorOfAWordAndZerosWithout) {
  for (const std::string name : {"UTF-8", "utf-8"}) {
    Flow flow =
        flow_of(one_node("WordEmbeddingNode", mapping(charset(name), entry("声", "1 -2") + entry("a&lt;b", "3\n4"))));
    EXPECT_EQ(flow.input_type(), PortType::word);
    EXPECT_EQ(vectors_of(flow, {"a<b", "声", "雑音", "声"}), (Matrix(2, 4) << 3, 1, 0, 1, 4, -2, 0, -2).finished());
  }
}

TEST(WordEmbeddingNode, ReadsAMappingInShiftJIS) {
  const std::string voice = "\x90\xba";  // 声
  const std::string table = "\x95\x5c";  // 表, whose second byte is that of a backslash
  for (const std::string name : {"SJIS", "sjis", "shift-jis"}) {
    const std::string document =
        one_node("WordEmbeddingNode", mapping(charset(name), entry(voice, "1 2") + entry(table, "3 4")));
    Flow flow = flow_of(document);
    EXPECT_EQ(vectors_of(flow, {"声", "表", voice}), (Matrix(2, 3) << 1, 3, 0, 2, 4, 0).finished());
    EXPECT_NE(document_of(flow).find("word=\"" + table + "\""), std::string::npos);
    EXPECT_EQ(document_of(flow_of(document_of(flow))), document_of(flow));
  }
  expect_load_error(one_node("WordEmbeddingNode", mapping(charset("SJIS"), entry("\x90", "1 2") + entry("b", "3 4"))),
                    "\"\x90\" is not Shift-JIS", "meridane::utf8_of_sjis");
}

TEST(WordEmbeddingNode, WritesAWordThatIsThereTwiceAsItWasRead) {
  const std::string entries = entry("a", "1 2") + entry("a", "3 4") + entry("b", "5 6");
  const std::string document = document_of(flow_of(one_node("WordEmbeddingNode", mapping(charset("UTF-8"), entries))));
  Flow again = flow_of(document);
  EXPECT_EQ(document_of(again), document);
  EXPECT_EQ(vectors_of(again, {"a", "b"}), (Matrix(2, 2) << 1, 5, 2, 6).finished()) << "the first one counts";
}

TEST(WordEmbeddingNode, RefusesElementsThatItDoesNotKnow) {
  const auto expect = [](const std::string& entries, const std::string& message, const std::string& where) {
    expect_load_error(one_node("WordEmbeddingNode", mapping(charset("UTF-8"), entries)), message, where);
  };
  const std::string vec = "<vec>1 2</vec>";
  expect("<word/>", "Unknown element \"word\" in mapping", "meridane::expect_children");
  expect("<entry word=\"a\">" + vec + "<count/></entry>", "Unknown element \"count\" in entry",
         "meridane::expect_children");
  expect("<entry word=\"a\">" + vec + vec + "</entry>", "Setting \"vec\" is given twice", "meridane::expect_settings");
}

TEST(WordEmbeddingNode, TellsWhatIsWrongWithItsMapping) {
  const std::string where = "meridane::WordEmbeddingNode::load_settings";
  const std::string entries = entry("a", "1 2") + entry("b", "3 4");
  const auto expect = [&](const std::string& attributes, const std::string& message, const std::string& content) {
    expect_load_error(one_node("WordEmbeddingNode", mapping(attributes, content)), message, where);
  };
  for (const std::string name : {"", "charset=\"\" ", "charset=\"EUC-JP\" ", "charset=\"Utf-8\" "}) {
    expect(name + "dim=\"2\" entrysize=\"2\"", "Incorrect format for attribute \"charset\".", entries);
  }
  for (const std::string dim : {"", "dim=\"\" ", "dim=\"two\" ", "dim=\"0\" ", "dim=\"-2\" ", "dim=\"16777217\" "}) {
    expect("charset=\"UTF-8\" " + dim + "entrysize=\"2\"", "Incorrect format for attribute \"dim\".", entries);
  }
  for (const std::string size : {"", "entrysize=\"\"", "entrysize=\"2.0\"", "entrysize=\"-1\""}) {
    expect("charset=\"UTF-8\" dim=\"2\" " + size, "Incorrect format for attribute \"entrysize\".", entries);
  }
  const std::string mismatch = "\"entrysize\" does not match the number of entries actually registered.";
  for (const std::string size : {"0", "1", "3"}) {
    expect("charset=\"UTF-8\" dim=\"2\" entrysize=\"" + size + "\"", mismatch, entries);
  }
  expect(charset("UTF-8"), mismatch, entry("a", "1 2") + entry("a", "3 4"));  // one word is registered once
  const auto expect_entry = [&](const std::string& vec) {
    expect_load_error<DimensionMismatchError>(
        one_node("WordEmbeddingNode", mapping(charset("UTF-8"), entry("a", vec) + entry("b", "3 4"))),
        "The vector of \"a\" does not have 2 values", "meridane::WordEmbeddingNode::add_entry");
  };
  expect_entry("1");
  expect_entry("1 2\n3 4");
  expect_load_error(one_node("WordEmbeddingNode", ""), "couldn't find \"mapping\" tag", "meridane::expect_child");
}

TEST(WordEmbeddingNode, IsFedWithWordsAlone) {
  const std::string node = "<node type=\"WordEmbeddingNode\" id=\"n\">" +
                           mapping(charset("UTF-8"), entry("a", "1 2") + entry("b", "3 4")) + "</node>";
  const std::string softmax = "<node type=\"SoftmaxNode\" id=\"s\"/>";
  const std::string where = "meridane::expect_same_type";
  Flow flow = flow_of("<flow>" + node + link_text("_input", "n") + link_text("n", "_output", "_output") + "</flow>");
  flow.start();
  expect_error<TypeMismatchError>([&] { flow.feed(Vector(Vector::Zero(2))); },
                                  "Flow types are mismatched (expected=word;expected=vector)", where);
  Flow vectors = flow_of(one_node("SoftmaxNode", ""));
  vectors.start();
  expect_error<TypeMismatchError>([&] { vectors.feed(std::string("a")); },
                                  "Flow types are mismatched (expected=vector;expected=word)", where);
  expect_load_error<TypeMismatchError>("<flow>" + node + softmax + link_text("s", "n") + "</flow>",
                                       "Flow types are mismatched (expected=word;expected=vector)", where);
  expect_load_error<TypeMismatchError>(
      "<flow>" + node + softmax + link_text("_input", "n") + link_text("_input", "s") + "</flow>",
      "Flow types are mismatched (expected=vector;expected=word)", where);
}

}  // namespace
}  // namespace meridane
