// Matrices of elements: inline and by reference.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <sstream>

#include "../../support/temporary_folder.h"
#include "meridane/error.h"
#include "meridane/io/matrix.h"

namespace meridane {
namespace {

using sonivo::test::TemporaryFolder;
using testing::ThrowsMessage;

/// The standard input holds the text meanwhile.
class StandardInput {
 public:
  explicit StandardInput(const std::string& text) : text_(text), before_(std::cin.rdbuf(text_.rdbuf())) {}
  ~StandardInput() {
    std::cin.rdbuf(before_);
    std::cin.clear();
  }
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;

 private:
  std::istringstream text_;
  std::streambuf* before_;
};

RowMatrix of_element(const std::string& element) {
  std::istringstream stream(element);
  const XmlFile file(stream);
  return load_matrix_xml(*file.root());
}

RowMatrix matrix() { return (RowMatrix(2, 2) << 1, 2, 3, 4).finished(); }

std::string matrix_bytes() {
  std::ostringstream stream;
  dump_matrix_bin(stream, matrix());
  return stream.str();
}

TEST(MatrixElement, HoldsItsText) {
  EXPECT_EQ(of_element("<weight>1 2\n3 4</weight>"), matrix());
  EXPECT_EQ(of_element("<weight>\n  1 2\n  3 4\n</weight>"), matrix());
  EXPECT_EQ(of_element("<weight type=\"text/plain\">1,2\n3,4</weight>"), matrix());
  EXPECT_EQ(of_element("<weight type=\"text/tab-separated-values\">1\t2\n3\t4</weight>"), matrix());
  EXPECT_EQ(of_element("<weight>1 2\n<![CDATA[3 4]]></weight>"), matrix());
}

TEST(MatrixElement, WithoutTextAndReferenceIsEmpty) {
  for (const std::string element :
       {"<weight/>", "<weight></weight>", "<weight> \n </weight>", "<weight><a>1</a></weight>"}) {
    EXPECT_THAT([&] { of_element(element); }, ThrowsMessage<BaseRuntimeError>(std::string("Empty matrix (ncol == 0)")));
  }
}

TEST(MatrixElement, RefersToATextFile) {
  const TemporaryFolder folder;
  const std::string path = folder.write("m.txt", "# a matrix\r\n1 2\r\n3 4\r\n");
  EXPECT_EQ(of_element("<weight ref=\"" + path + "\"/>"), matrix());
  EXPECT_EQ(of_element("<weight type=\"text/plain\" ref=\"" + path + "\">5 6 7</weight>"), matrix());
  EXPECT_EQ(of_element("<weight type=\"text/tab-separated-values\" ref=\"" + path + "\"/>"), matrix());
}

TEST(MatrixElement, RefersToABinaryFileUnderAnyOtherType) {
  const TemporaryFolder folder;
  const std::string path = folder.write("m.bin", matrix_bytes());
  for (const std::string type : {"application/meridane-bin", "text/html", ""}) {
    EXPECT_EQ(of_element("<weight type=\"" + type + "\" ref=\"" + path + "\"/>"), matrix());
  }
  folder.write("m.bin", matrix_bytes().substr(0, 20));
  EXPECT_THAT([&] { of_element("<weight type=\"x\" ref=\"" + path + "\"/>"); },
              ThrowsMessage<BaseRuntimeError>(std::string("Unexpected end of the stream")));
}

TEST(MatrixElement, OfAnotherTypeHasABinaryText) {
  EXPECT_THAT([] { of_element("<weight type=\"x\">1 2</weight>"); },
              ThrowsMessage<BaseRuntimeError>(std::string("Unexpected end of the stream")));
  // "0000000000000000" is 3472328296227680304 rows and as many columns.
  EXPECT_THAT([] { of_element("<weight type=\"x\">0000000000000000</weight>"); },
              ThrowsMessage<BaseRuntimeError>(std::string("Failed to read matrix binary")));
}

TEST(MatrixElement, RefersToTheStandardInput) {
  const StandardInput input("1 2\n3 4\n");
  EXPECT_EQ(of_element("<weight ref=\"-\"/>"), matrix());
}

TEST(MatrixElement, TellsAFileThatIsNotThere) {
  const TemporaryFolder folder;
  const std::string path = folder / "none";
  EXPECT_THAT([&] { of_element("<weight ref=\"" + path + "\"/>"); },
              ThrowsMessage<BaseRuntimeError>("resource not found: " + path));
  EXPECT_THAT([&] { of_element("<weight ref=\"\">1 2</weight>"); },
              ThrowsMessage<BaseRuntimeError>(std::string("resource not found: ")));
}

TEST(MatrixElement, ExpandsExpressions) {
  EXPECT_EQ(of_element("<weight>1 ${1 + 1}\n3 4</weight>"), matrix());
  const TemporaryFolder folder;
  const std::string path = folder.write("m3", "1 2\n3 4");
  EXPECT_EQ(of_element("<weight ref='" + path.substr(0, path.size() - 1) + "${1 + 2}'/>"), matrix());
  EXPECT_THAT([] { of_element("<weight ref=\"/none/${1 + 2}\"/>"); },
              ThrowsMessage<BaseRuntimeError>(std::string("resource not found: /none/3")));
  // Neither of these is one.
  EXPECT_THAT([] { of_element("<weight ref=\"/none/$x\"/>"); },
              ThrowsMessage<BaseRuntimeError>(std::string("resource not found: /none/$x")));
  EXPECT_THAT([] { of_element("<weight ref=\"/none/{x}\"/>"); },
              ThrowsMessage<BaseRuntimeError>(std::string("resource not found: /none/{x}")));
}

TEST(MatrixElement, LeavesTheFileItRefersToAsItIs) {
  const TemporaryFolder folder;
  const std::string path = folder.write("m.txt", "1 ${2}\n");
  EXPECT_THAT([&] { of_element("<weight ref=\"" + path + "\"/>"); },
              ThrowsMessage<BaseRuntimeError>(std::string("Invalid number \"${2}\"")));
}

TEST(RefInput, ReadsAFileByteForByte) {
  const TemporaryFolder folder;
  const std::string bytes("a\r\n\0\xff", 5);
  RefInput input = ref_input_open(folder.write("f", bytes));
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(input.stream()), {}), bytes);
}

TEST(RefInput, OfADashIsTheStandardInput) {
  const StandardInput text("from outside");
  RefInput input = ref_input_open("-");
  EXPECT_EQ(&input.stream(), &std::cin);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(input.stream()), {}), "from outside");
}

TEST(RefInput, TellsAFileThatIsNotThere) {
  const TemporaryFolder folder;
  EXPECT_THAT([&] { ref_input_open(folder / "none"); },
              ThrowsMessage<BaseRuntimeError>("resource not found: " + folder / "none"));
}

TEST(RefInput, TellsAFolder) {
  const TemporaryFolder folder;
  const std::string message = "resource not found: " + folder.path().string();
  EXPECT_THAT([&] { ref_input_open(folder.path().string()); }, ThrowsMessage<BaseRuntimeError>(message));
  for (const std::string type : {"text/plain", "application/octet-stream"}) {
    EXPECT_THAT([&] { of_element("<weight type='" + type + "' ref='" + folder.path().string() + "'/>"); },
                ThrowsMessage<BaseRuntimeError>(message));
  }
}

TEST(RefOutput, WritesAFileByteForByte) {
  const TemporaryFolder folder;
  const std::string path = folder.write("f", "something longer from before");
  ref_output_open(path).stream() << "a\r\n" << '\0';
  std::ifstream file(path, std::ios_base::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), std::string("a\r\n\0", 4));
}

TEST(RefOutput, OfADashIsTheStandardOutput) {
  RefOutput output = ref_output_open("-");
  EXPECT_EQ(&output.stream(), &std::cout);
}

TEST(RefOutput, TellsAFileThatCannotBeOpened) {
  const TemporaryFolder folder;
  const std::string path = folder / "none/f";
  EXPECT_THAT([&] { ref_output_open(path); }, ThrowsMessage<BaseRuntimeError>("resource cannot be opened: " + path));
}

}  // namespace
}  // namespace meridane
