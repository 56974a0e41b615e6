#include "meridane/io/xml.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <rapidxml/rapidxml.hpp>
#include <sstream>

#include "meridane/error.h"
#include "meridane/io/streamable.h"

namespace meridane {
namespace {

using testing::ThrowsMessage;

XmlFile document(const std::string& text) {
  std::istringstream stream(text);
  return XmlFile(stream);
}

std::string nested(std::size_t levels, const std::string& innermost = "") {
  std::string text;
  for (std::size_t i = 0; i < levels; ++i) text += "<a>";
  text += innermost;
  for (std::size_t i = 0; i < levels; ++i) text += "</a>";
  return text;
}

constexpr char kFailed[] = "Failed to parse xml";

TEST(XmlFile, RefusesWhatIsNoDocument) {
  for (const std::string text :
       {"text", "<", "<a", "<a>", "<a></b>", "<a b></a>", "<a b=c></a>", "<a b=\"></a>", "</a>", "<>", "<a><!-- </a>",
        "<a><![CDATA[</a>", "<?xml", "<!DOCTYPE [", "<a/>text", "<a>&#x110000;</a>", "<a>&#5</a>"}) {
    EXPECT_THAT([&] { document(text); }, ThrowsMessage<BaseRuntimeError>(std::string(kFailed))) << text;
  }
}

TEST(XmlFile, HasNoRootWithoutAnElement) {
  for (const std::string text : {"", " \n", "<?xml version=\"1.0\"?>", "<!-- nothing -->"}) {
    EXPECT_EQ(document(text).root(), nullptr) << text;
  }
  EXPECT_EQ(XmlFile().root(), nullptr);
}

TEST(XmlFile, FindsItsRootBehindDeclarationsAndComments) {
  const XmlFile file =
      document("\xef\xbb\xbf<?xml version=\"1.0\"?><!DOCTYPE a [<!ELEMENT a>]><!-- <b/> --><?go on?><a c=\"1\"/>");
  ASSERT_NE(file.root(), nullptr);
  EXPECT_EQ(element_name(*file.root()), "a");
}

TEST(XmlFile, TakesElementsUpToADepthOf64) {
  EXPECT_NE(document(nested(64)).root(), nullptr);
  EXPECT_NE(document(nested(63, "<b/>")).root(), nullptr);
  EXPECT_THAT([] { document(nested(65)); }, ThrowsMessage<BaseRuntimeError>(std::string(kFailed)));
  EXPECT_THAT([] { document(nested(64, "<b/>")); }, ThrowsMessage<BaseRuntimeError>(std::string(kFailed)));
}

TEST(XmlFile, IsSafeFromAMillionElementsInOneAnother) {
  for (const std::string piece : {"<a>", "<a b=\"</a>\">", "<a><!--</a>-->", "<a><![CDATA[</a>]]>", "<a><?p </a>?>",
                                  "<a<b>", "<a><!x </a>", "<a>&lt;/a&gt;"}) {
    std::string text;
    for (int i = 0; i < 1'000'000; ++i) text += piece;
    EXPECT_THAT([&] { document(text); }, ThrowsMessage<BaseRuntimeError>(std::string(kFailed))) << piece;
  }
}

TEST(XmlFile, StaysTheSameWhenItIsMoved) {
  for (const std::string text : {"<a b=\"c\">d</a>", "<a b=\"c\">a text that is longer than a short string</a>"}) {
    XmlFile first = document(text);
    XmlFile second = std::move(first);
    first = document("<x/>");
    XmlFile third;
    third = std::move(second);
    second = document("<yyyyyy/>");
    EXPECT_EQ(element_name(*third.root()), "a");
    EXPECT_EQ(find_attribute(*third.root(), "b"), "c");
    EXPECT_EQ(element_text(*third.root()), text.substr(9, text.size() - 13));
  }
}

TEST(XmlElement, KnowsItsChildrenByName) {
  const XmlFile file = document("<a>text<b n=\"1\"/><!-- --><c/><b n=\"2\"/><bb/></a>");
  const XmlElement& root = *file.root();
  const XmlElement* const b = find_child(root, "b");
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(find_attribute(*b, "n"), "1");
  const XmlElement* const next = next_of_name(*b);
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(find_attribute(*next, "n"), "2");
  EXPECT_EQ(next_of_name(*next), nullptr);
  EXPECT_EQ(find_child(root), b);  // text is no element
  EXPECT_EQ(find_child(root, "B"), nullptr);
  EXPECT_EQ(find_child(root, "d"), nullptr);
  EXPECT_EQ(find_child(*b), nullptr);
}

TEST(XmlElement, HasTheTextDirectlyInIt) {
  EXPECT_EQ(element_text(*document("<a>one <b>two</b>three<![CDATA[ <4>]]></a>").root()), "one three <4>");
  EXPECT_EQ(element_text(*document("<a>&lt;&amp;&#65;&gt;</a>").root()), "<&A>");
  EXPECT_EQ(element_text(*document("<a>x&#0;y</a>").root()), std::string("x\0y", 3));
  EXPECT_EQ(element_text(*document("<a/>").root()), "");
}

TEST(XmlElement, TellsAnAttributeThatIsMissing) {
  const XmlFile file = document("<layer id=\"x\" empty=\"\"/>");
  const XmlElement& root = *file.root();
  EXPECT_EQ(fetch_attribute(root, "id"), "x");
  EXPECT_EQ(fetch_attribute(root, "empty"), "");
  EXPECT_EQ(find_attribute(root, "type"), std::nullopt);
  EXPECT_EQ(find_attribute(root, "ID"), std::nullopt);
  EXPECT_EQ(find_attribute(root, "i"), std::nullopt);
  EXPECT_EQ(find_attribute(root, ""), std::nullopt);
  EXPECT_THAT([&] { fetch_attribute(root, "type"); },
              ThrowsMessage<MissingTagError>(std::string("\"type\" i mandatory in layer")));
}

TEST(XmlFile, WritesWhatWasAppended) {
  XmlFile file;
  XmlElement& root = append_element(file.document(), file.document(), "a");
  append_attribute(root, file.document(), "b", "1 < \"2\" & '3'");
  append_attribute(root, file.document(), "empty", std::string_view());
  append_element(root, file.document(), "c", "x < y & \"z\"");
  append_element(root, file.document(), "d");
  EXPECT_EQ(element_text(*find_child(root, "c")), "x < y & \"z\"");

  std::ostringstream stream;
  file.write(stream);
  EXPECT_EQ(stream.str().substr(0, 21), "<?xml version=\"1.0\"?>");
  const XmlFile back = document(stream.str());
  EXPECT_EQ(find_attribute(*back.root(), "b"), "1 < \"2\" & '3'");
  EXPECT_EQ(find_attribute(*back.root(), "empty"), "");
  EXPECT_EQ(element_text(*find_child(*back.root(), "c")), "x < y & \"z\"");
  EXPECT_EQ(element_text(*find_child(*back.root(), "d")), "");
  EXPECT_EQ(next_of_name(*find_child(*back.root(), "d")), nullptr);
}

TEST(XmlFile, HoldsItsOwnCopyOfWhatWasAppended) {
  XmlFile file;
  {
    const std::string name = "name", value = "value";
    append_attribute(append_element(file.document(), file.document(), name, value), file.document(), name, value);
  }
  EXPECT_EQ(element_name(*file.root()), "name");
  EXPECT_EQ(element_text(*file.root()), "value");
  EXPECT_EQ(find_attribute(*file.root(), "name"), "value");
}

/// A number with both stored forms.
struct Number : BinaryStreamableImpl<Number>, XmlStorableImpl<Number> {
  std::string text;
};

}  // namespace

template <>
struct BinaryStreamTraits<Number> {
  static void load(Number& number, std::istream& stream) { stream >> number.text; }
  static void dump(const Number& number, std::ostream& stream) { stream << number.text; }
};

template <>
struct XmlStoreTraits<Number> {
  static void load(Number& number, const XmlFile& file) { number.text = element_text(*file.root()); }
  static void dump(const Number& number, XmlFile& file) {
    append_element(file.document(), file.document(), "number", number.text);
  }
};

namespace {

TEST(Streamable, ForwardsToTheTraitsOfItsType) {
  Number number;
  std::stringstream binary("12"), xml("<number>34</number>");
  BinaryStreamable& binary_form = number;
  binary_form.load_binary_stream(binary);
  EXPECT_EQ(number.text, "12");
  XmlStorable& xml_form = number;
  xml_form.load_xml_stream(xml);
  EXPECT_EQ(number.text, "34");
  std::ostringstream binary_out, xml_out;
  binary_form.dump_binary_stream(binary_out);
  EXPECT_EQ(binary_out.str(), "34");
  xml_form.dump_xml_stream(xml_out);
  EXPECT_EQ(element_text(*document(xml_out.str()).root()), "34");
}

TEST(Streamable, ParsesTheWholeDocumentFirst) {
  Number number;
  number.text = "before";
  std::istringstream stream("<number>34</number><cut");
  EXPECT_THAT([&] { number.load_xml_stream(stream); }, ThrowsMessage<BaseRuntimeError>(std::string(kFailed)));
  EXPECT_EQ(number.text, "before");
}

}  // namespace
}  // namespace meridane
