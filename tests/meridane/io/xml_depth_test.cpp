// The depth that is found without recursion is that of what the parser makes of the text.

#include "lib/io/xml_depth.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <random>
#include <rapidxml/rapidxml.hpp>
#include <string>
#include <vector>

namespace meridane {
namespace {

std::size_t depth_of(const rapidxml::xml_node<char>& node) {
  std::size_t deepest = 0;
  for (const auto* child = node.first_node(); child != nullptr; child = child->next_sibling()) {
    if (child->type() == rapidxml::node_element) deepest = std::max(deepest, 1 + depth_of(*child));
  }
  return deepest;
}

/// Depth of the parsed document, if the parser takes the text.
std::optional<std::size_t> parsed_depth(std::string text) {
  rapidxml::xml_document<char> document;
  try {
    document.parse<rapidxml::parse_validate_closing_tags>(text.data());
  } catch (const rapidxml::parse_error&) {
    return std::nullopt;
  }
  return depth_of(document);
}

void expect_parsed(const std::string& text, std::size_t depth) {
  ASSERT_EQ(parsed_depth(text), depth) << text;
  EXPECT_EQ(xml_depth(text), depth) << text;
}

TEST(XmlDepth, CountsElementsInOneAnother) {
  expect_parsed("", 0);
  expect_parsed("<a/>", 1);
  expect_parsed("<a></a>", 1);
  expect_parsed("<a><b/><c><d/></c></a>", 3);
  expect_parsed("<a><b></b></a><c><d><e></e></d></c>", 3);
  expect_parsed(" <?xml version='1.0'?> <a \n> <b /></a >\n", 2);
}

TEST(XmlDepth, IsNotFooledByWhatLooksLikeTags) {
  expect_parsed("<a><!-- <b><c> --></a>", 1);
  expect_parsed("<a><!-- </a> --><b/></a>", 2);
  expect_parsed("<a><!--></a>--><b/></a>", 2);
  expect_parsed("<a><!---></a>--><b/></a>", 2);
  expect_parsed("<a><![CDATA[<b></a>]]><b/></a>", 2);
  expect_parsed("<a><![CDATA[]]]]><b/></a>", 2);
  expect_parsed("<a><?pi </a> ?><b/></a>", 2);
  expect_parsed("<a><?xml </a> ?><b/></a>", 2);
  expect_parsed("<a><?></a>?><b/></a>", 2);
  expect_parsed("<a b='</a>' c=\"<d>\"><b/></a>", 2);
  expect_parsed("<a b='\"' c='\"><b>'><b/></a>", 2);
  expect_parsed("<a>&lt;/a&gt;<b/></a>", 2);
  expect_parsed("<a>' \" = > ] --> ?><b/></a>", 2);
  expect_parsed("<!DOCTYPE a [ <!ELEMENT <b><c> [>] ]><a/>", 1);
  expect_parsed("<!DOCTYPE a [[]<b><c>]><a/>", 1);
  expect_parsed("<!DOCTYPE a ] ><a><b/></a>", 2);
  expect_parsed("<a><!DOCTYPE a [</a>]></a>", 1);
  expect_parsed("<a><!DOCTYPE></a>", 1);
  expect_parsed("<a><!x </a><b/></a>", 2);
  expect_parsed("<a><!-x </a><b/></a>", 2);
  expect_parsed("<a><![CDAT[</a><b/></a>", 2);
}

TEST(XmlDepth, TakesNamesAsTheParserDoes) {
  expect_parsed("<a<b><c/></a<b>", 2);
  expect_parsed("<a'><c/></a'>", 2);
  expect_parsed("<a'='><c'><c/></c'></a'='>", 3);
  expect_parsed("<a \"='>'><c/></a>", 2);
  expect_parsed("<a=><c/></a=>", 2);
}

TEST(XmlDepth, EndsWhereTheTextDoesForTheParser) {
  expect_parsed(std::string("<a/>\0<b><c><d>", 14), 1);
  EXPECT_EQ(xml_depth(std::string("<a><b>\0<c><d>", 13)), 2);
}

TEST(XmlDepth, OfABrokenTextIsThatUpToTheBreak) {
  EXPECT_EQ(xml_depth("<a><b><c"), 2);
  EXPECT_EQ(xml_depth("<a><b x><c><d>"), 1);
  EXPECT_EQ(xml_depth("<a><!-- <b><c>"), 1);
  EXPECT_EQ(xml_depth("</a><b><c>"), 0);
}

/// A document at random, with every trap that the grammar has, and its depth.
class Writer {
 public:
  explicit Writer(std::uint32_t seed) : generator_(seed) {}

  std::string element(std::size_t levels) {
    const std::string name = pick({"a", "b", "a<b", "a'", "a=", "<", "!"}, "n");
    std::string text = "<" + name + pick({"", " ", "\n\t"}, "");
    for (std::size_t i = upto(2); i > 0; --i) {
      if (text.back() != ' ' && text.back() != '\t') text += ' ';
      text += pick({"x", "'", "\"y", "]]", "--"}, "") + pick({"=", " = "}, "") +
              pick({"'</a>'", "\"<b>\"", "'>\">'", "\"&quot;'<\"", "'/>'"}, "") + pick({"", " ", "\n\t"}, "");
    }
    if (levels == 1 && upto(1) == 0) return text + "/>";
    text += ">";
    for (std::size_t i = upto(3); i > 0; --i) text += filler();
    if (levels > 1) text += element(levels - 1);
    for (std::size_t i = upto(2); i > 0; --i) text += filler();
    if (levels > 1 && upto(1) == 0) text += element(1 + upto(levels - 2));
    return text + "</" + name + pick({"", " ", "\n"}, "") + ">";
  }

  std::string soup(std::size_t pieces) {
    std::string text;
    for (std::size_t i = 0; i < pieces; ++i) {
      text += pick({"<a>",       "</a>", "<a/>", "<b>",  "</b>",       "<a", ">", "/>", "<!--", "-->",
                    "<![CDATA[", "]]>",  "<?",   "?>",   "<!DOCTYPE ", "<!", "[", "]",  "'",    "\"",
                    "=",         " x='", "' ",   "&#0;", "&lt;",       "<",  "/", "t",  " "},
                   "");
    }
    return text;
  }

  std::size_t upto(std::size_t most) { return std::uniform_int_distribution<std::size_t>(0, most)(generator_); }

 private:
  std::string filler() {
    return pick({"text > ' \" ", "<!-- </a> <b> -->", "<!--></a>-->", "<![CDATA[ </b> ]] <c>]]>", "<?pi </a> <b>?>",
                 "<?></a>?>", "<!DOCTYPE x [ </a> [ ] > ]>", "<!x </a>", "&lt;/a&gt;", "&#60;", "\n", "<!-x </a>"},
                "");
  }

  std::string pick(std::vector<std::string> choices, const std::string& prefix) {
    return prefix + choices[upto(choices.size() - 1)];
  }

  std::mt19937 generator_;
};

TEST(XmlDepth, IsThatOfRandomDocuments) {
  Writer writer(1);
  for (int i = 0; i < 5000; ++i) {
    const std::size_t levels = 1 + writer.upto(9);
    const std::string text = writer.element(levels);
    ASSERT_EQ(parsed_depth(text), levels) << text;  // the writer knows its grammar
    ASSERT_EQ(xml_depth(text), levels) << text;
  }
}

TEST(XmlDepth, IsThatOfWhateverTheParserTakes) {
  Writer writer(2);
  int taken = 0;
  for (int i = 0; i < 300'000; ++i) {
    const std::string text = writer.soup(1 + writer.upto(7));
    const auto depth = parsed_depth(text);
    if (!depth) continue;
    ++taken;
    ASSERT_EQ(xml_depth(text), *depth) << text;
  }
  EXPECT_GT(taken, 1000);
}

}  // namespace
}  // namespace meridane
