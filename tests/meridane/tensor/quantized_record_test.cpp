// Stored forms of the 8-bit matrices.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <rapidxml/rapidxml.hpp>
#include <sstream>

#include "meridane/error.h"
#include "meridane/quantized_matrix.h"

namespace meridane {
namespace {

using testing::ThrowsMessage;

constexpr char kNoMatrix[] = "invalid format (expected \"QuantizedMatrix\")";
constexpr char kNoVector[] = "invalid format (expected \"QuantizedVector\")";

Matrix random(Eigen::Index rows, Eigen::Index cols, std::uint32_t seed) {
  std::mt19937 generator(seed);
  std::normal_distribution<float> normal;
  return Matrix::NullaryExpr(rows, cols, [&] { return normal(generator); });
}

void expect_same(const QuantizedMatrix& a, const QuantizedMatrix& b) {
  EXPECT_EQ(a.quantized_param, b.quantized_param);
  EXPECT_EQ(a.qvector, b.qvector);
  EXPECT_EQ(a.rqpmin, b.rqpmin);
  EXPECT_EQ(a.sumqp, b.sumqp);
  EXPECT_EQ(a.size_major, b.size_major);
  EXPECT_EQ(a.size_minor, b.size_minor);
  EXPECT_EQ(a.align_size_major, b.align_size_major);
  EXPECT_EQ(a.align_size_minor, b.align_size_minor);
  const Matrix x = random(a.size_minor, 2, 99);
  EXPECT_EQ(a.multiply(x), b.multiply(x));
}

std::string binary(const QuantizedMatrix& matrix) {
  std::ostringstream stream;
  matrix.dump_binary(stream);
  return stream.str();
}

QuantizedMatrix of_binary(const std::string& bytes) {
  std::istringstream stream(bytes);
  return QuantizedMatrix::load_binary(stream);
}

/// The element that dump_xml of the object fills, written and read again.
template <class Quantized>
XmlFile document_of(const Quantized& quantized) {
  XmlFile file;
  quantized.dump_xml(append_element(file.document(), file.document(), "weight"), file.document());
  std::stringstream stream;
  file.write(stream);
  return XmlFile(stream);
}

/// Little-endian values, one after the other.
class Record {
 public:
  template <class Number>
  Record& add(std::initializer_list<Number> numbers) {
    for (const Number number : numbers) bytes_.append(reinterpret_cast<const char*>(&number), sizeof number);
    return *this;
  }
  Record& i32(std::initializer_list<std::int32_t> numbers) { return add(numbers); }
  Record& i64(std::initializer_list<std::int64_t> numbers) { return add(numbers); }
  Record& f32(std::initializer_list<float> numbers) { return add(numbers); }
  Record& u8(std::initializer_list<std::uint8_t> numbers) { return add(numbers); }
  Record& zeros(std::size_t count) {
    bytes_.append(count, '\0');
    return *this;
  }
  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

/// Lines {0, 2, 255} and {-1, 254, -1}, whose scales are 1.
Matrix small() { return (Matrix(2, 3) << 0, 2, 255, -1, 254, -1).finished(); }

std::string small_record() {
  Record record;
  record.i32({2, 3, 4, 16}).i64({2, 1}).f32({1, 1}).i64({2}).i32({0, -1}).i64({2}).i32({257, 255});
  record.u8({0, 2, 255}).zeros(13).u8({0, 255, 0}).zeros(13).zeros(32);
  return record.bytes();
}

// Where the fields of the small record begin.
enum Place : std::size_t {
  kSizeMajor = 0,
  kSizeMinor = 4,
  kAlignMajor = 8,
  kAlignMinor = 12,
  kScaleRows = 16,
  kScaleColumns = 24,
  kZeroCount = 40,
  kSumCount = 56,
  kSums = 64,
  kCodes = 72,
};

template <class Number>
std::string with(std::string record, std::size_t place, Number value) {
  std::memcpy(record.data() + place, &value, sizeof value);
  return record;
}

TEST(QuantizedRecord, HoldsItsFieldsInOrder) { EXPECT_EQ(binary(QuantizedMatrix(small(), 'l')), small_record()); }

TEST(QuantizedRecord, ReadsAsItWasWritten) {
  expect_same(of_binary(small_record()), QuantizedMatrix(small(), 'l'));
  for (const auto& [rows, cols] : {std::pair{1, 1}, {4, 16}, {5, 17}, {33, 100}, {3, 0}}) {
    const QuantizedMatrix matrix(random(rows, cols, 1), 'l');
    const std::string bytes = binary(matrix);
    const QuantizedMatrix read = of_binary(bytes);
    expect_same(read, matrix);
    EXPECT_EQ(binary(read), bytes);
  }
}

/// Three columns or five have no lines that pad; of four, both operands look alike.
TEST(QuantizedRecord, MayBeARightOperand) {
  for (const Eigen::Index cols : {1, 3, 5, 4, 0}) {
    const QuantizedMatrix matrix(random(7, cols, 1), 'r');
    const QuantizedMatrix read = of_binary(binary(matrix));
    EXPECT_EQ(binary(read), binary(matrix));
    const XmlFile file = document_of(matrix);
    EXPECT_EQ(binary(QuantizedMatrix::load_xml(*file.root())), binary(matrix));
    EXPECT_FALSE(matrix.is_left());
    EXPECT_EQ(read.is_left(), cols % 4 == 0);
  }
  EXPECT_THAT([] { of_binary(binary(QuantizedMatrix(Matrix::Ones(7, 3), 'r'))).multiply(Matrix(Matrix::Ones(7, 1))); },
              ThrowsMessage<BaseRuntimeError>(std::string("A right operand can't stand on the left of a product")));
}

TEST(QuantizedRecord, LeavesTheStreamBehindItself) {
  std::istringstream stream(small_record() + "next");
  QuantizedMatrix::load_binary(stream);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(stream), {}), "next");
}

TEST(QuantizedRecord, CutAnywhereIsAnEndOfTheStream) {
  const std::string record = small_record();
  for (std::size_t size = 0; size < record.size(); ++size) {
    std::istringstream stream(record.substr(0, size));
    EXPECT_THAT([&] { QuantizedMatrix::load_binary(stream); },
                ThrowsMessage<BaseRuntimeError>(std::string("Unexpected end of the stream")))
        << size;
    std::istringstream strict(record.substr(0, size));
    strict.exceptions(std::ios_base::failbit | std::ios_base::eofbit);
    EXPECT_THROW(QuantizedMatrix::load_binary(strict), std::ios_base::failure) << size;
  }
}

TEST(QuantizedRecord, WithSizesThatContradictEachOtherIsRefused) {
  const std::string record = small_record();
  for (const std::string& wrong : {
           with(record, kSizeMajor, -1),
           with(record, kSizeMajor, 5),
           with(record, kSizeMinor, -1),
           with(record, kSizeMinor, 17),
           with(record, kAlignMajor, 3),
           with(record, kAlignMajor, 8),
           with(record, kAlignMajor, -4),
           with(record, kAlignMinor, 3),
           with(record, kAlignMinor, 32),
           with(record, kScaleRows, std::int64_t{1}),
           with(record, kScaleRows, std::int64_t{-1}),
           with(record, kScaleRows, (std::int64_t{1} << 32) + 2),
           with(record, kScaleColumns, std::int64_t{2}),
           with(record, kScaleColumns, std::int64_t{0}),
           with(record, kZeroCount, std::int64_t{3}),
           with(record, kZeroCount, std::int64_t{-2}),
           with(record, kSumCount, std::int64_t{1}),
           with(record, kSumCount, std::int64_t{1} << 62),
           with(record, kSizeMajor, 0x7fffffff),
           with(record, kSizeMinor, 0x7fffffff),
       }) {
    EXPECT_THAT([&] { of_binary(wrong); }, ThrowsMessage<InvalidFormat>(std::string(kNoMatrix)));
  }
}

TEST(QuantizedRecord, WhosePaddingOrSumsAreNotThoseOfItsCodesIsRefused) {
  const std::string record = small_record();
  for (const std::string& wrong : {
           with(record, kSums, 258),
           with(record, kSums + 4, 0),
           with(record, kCodes + 1, std::uint8_t{3}),
           with(record, kCodes + 3, std::uint8_t{1}),        // behind the first line
           with(record, kCodes + 16 + 15, std::uint8_t{1}),  // behind the second
           with(record, kCodes + 32, std::uint8_t{1}),       // a line of padding
           with(record, kCodes + 63, std::uint8_t{1}),
       }) {
    EXPECT_THAT([&] { of_binary(wrong); }, ThrowsMessage<InvalidFormat>(std::string(kNoMatrix)));
  }
}

TEST(QuantizedRecord, ThatClaimsMoreThanThereIsTakesNoMemory) {
  // 2^31 - 32 lines of 2^31 - 32 codes, in 32 bytes.
  constexpr std::int32_t kHuge = 0x7fffffe0;
  const std::string record = Record().i32({kHuge, kHuge, kHuge, kHuge}).i64({kHuge, 1}).bytes();
  EXPECT_THAT([&] { of_binary(record); }, ThrowsMessage<BaseRuntimeError>(std::string("Unexpected end of the stream")));
  // No lines to speak of, but codes.
  Record wide;
  wide.i32({1, kHuge, 4, kHuge}).i64({1, 1}).f32({1}).i64({1}).i32({0}).i64({1}).i32({0}).zeros(100);
  EXPECT_THAT([&] { of_binary(wide.bytes()); },
              ThrowsMessage<BaseRuntimeError>(std::string("Unexpected end of the stream")));
}

TEST(QuantizedRecord, MayHoldScalesThatAreNoNumbers) {
  // Whatever they are, a product reads no memory by them.
  QuantizedMatrix matrix = of_binary(with(small_record(), kScaleColumns + 8, std::numeric_limits<float>::quiet_NaN()));
  EXPECT_TRUE(std::isnan(matrix.multiply(Vector(Vector::Ones(3)))(0)));
  matrix = of_binary(with(small_record(), kScaleColumns + 8, 0.0f));
  EXPECT_TRUE(std::isinf(matrix.multiply(Vector(Vector::Ones(3)))(0)));
}

template <class Quantized>
std::string text_of(const Quantized& quantized) {
  std::ostringstream stream;
  document_of(quantized).write(stream);
  return stream.str();
}

XmlFile document(const std::string& text) {
  std::istringstream stream(text);
  return XmlFile(stream);
}

std::string small_codes() {
  std::string codes = "0 2 255";
  for (int i = 0; i < 13; ++i) codes += " 0";
  codes += " 0 255 0";
  for (int i = 0; i < 13 + 32; ++i) codes += " 0";
  return codes;
}

std::string small_element() {
  return "<weight size_major=\"2\" size_minor=\"3\" align_size_major=\"4\" align_size_minor=\"16\">"
         "<qvector>1 1</qvector><rqpmin>0 -1</rqpmin><sumqp>257 255</sumqp><quantized_param>" +
         small_codes() + "</quantized_param></weight>";
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t at = text.find(what);
  if (at == text.npos) throw std::invalid_argument(what);
  return text.replace(at, what.size(), by);
}

TEST(QuantizedMatrixElement, HoldsSizesAsAttributesAndValuesAsText) {
  const XmlFile file = document_of(QuantizedMatrix(small(), 'l'));
  const XmlElement& element = *file.root();
  EXPECT_EQ(find_attribute(element, "size_major"), "2");
  EXPECT_EQ(find_attribute(element, "size_minor"), "3");
  EXPECT_EQ(find_attribute(element, "align_size_major"), "4");
  EXPECT_EQ(find_attribute(element, "align_size_minor"), "16");
  EXPECT_EQ(element_text(*find_child(element, "qvector")), "1 1");
  EXPECT_EQ(element_text(*find_child(element, "rqpmin")), "0 -1");
  EXPECT_EQ(element_text(*find_child(element, "sumqp")), "257 255");
  EXPECT_EQ(element_text(*find_child(element, "quantized_param")), small_codes());
}

TEST(QuantizedMatrixElement, ReadsAsItWasWritten) {
  expect_same(QuantizedMatrix::load_xml(*document(small_element()).root()), QuantizedMatrix(small(), 'l'));
  for (const auto& [rows, cols] : {std::pair{1, 1}, {4, 16}, {5, 17}, {33, 100}, {3, 0}}) {
    const QuantizedMatrix matrix(random(rows, cols, 2), 'l');
    const XmlFile file = document_of(matrix);
    const QuantizedMatrix read = QuantizedMatrix::load_xml(*file.root());
    expect_same(read, matrix);
    EXPECT_EQ(binary(read), binary(matrix));
    EXPECT_EQ(text_of(read), text_of(matrix));
  }
}

TEST(QuantizedMatrixElement, MayBeReadBeforeItIsWritten) {
  XmlFile file;
  const QuantizedMatrix matrix(small(), 'l');
  XmlElement& element = append_element(file.document(), file.document(), "weight");
  matrix.dump_xml(element, file.document());
  expect_same(QuantizedMatrix::load_xml(element), matrix);
}

TEST(QuantizedMatrixElement, TellsWhatIsMissing) {
  for (const std::string name : {"size_major", "size_minor", "align_size_major", "align_size_minor"}) {
    const XmlFile file = document(replaced(small_element(), " " + name + "=", " other="));
    EXPECT_THAT([&] { QuantizedMatrix::load_xml(*file.root()); },
                ThrowsMessage<std::runtime_error>("\"<" + name + ">\" not found in \"QuantizedMatrix\" "));
  }
  for (const std::string name : {"qvector", "rqpmin", "quantized_param"}) {
    const XmlFile file =
        document(replaced(replaced(small_element(), "<" + name + ">", "<other>"), "</" + name + ">", "</other>"));
    EXPECT_THAT([&] { QuantizedMatrix::load_xml(*file.root()); },
                ThrowsMessage<std::runtime_error>("\"<" + name + ">\" not found in \"QuantizedMatrix\" "));
  }
}

TEST(QuantizedMatrixElement, NeedsNoSums) {
  const XmlFile file = document(replaced(small_element(), "<sumqp>257 255</sumqp>", ""));
  expect_same(QuantizedMatrix::load_xml(*file.root()), QuantizedMatrix(small(), 'l'));
}

TEST(QuantizedMatrixElement, MayHaveItsValuesOnSeveralLines) {
  const XmlFile file = document(replaced(small_element(), "<rqpmin>0 -1<", "<rqpmin>\n\t0\r\n\t-1\n<"));
  expect_same(QuantizedMatrix::load_xml(*file.root()), QuantizedMatrix(small(), 'l'));
}

TEST(QuantizedMatrixElement, WhoseSizesOrValuesContradictEachOtherIsRefused) {
  const std::string element = small_element();
  for (const std::string& wrong : {
           replaced(element, "size_major=\"2\"", "size_major=\"1\""),
           replaced(element, "size_major=\"2\"", "size_major=\"-2\""),
           replaced(element, "size_minor=\"3\"", "size_minor=\"17\""),
           replaced(element, "size_minor=\"3\"", "size_minor=\"2\""),  // then 255 is padding
           replaced(element, "align_size_major=\"4\"", "align_size_major=\"8\""),
           replaced(element, "align_size_minor=\"16\"", "align_size_minor=\"3\""),
           replaced(element, "1 1</q", "1</q"),
           replaced(element, "1 1</q", "1 1 1</q"),
           replaced(element, "1 1</q", "</q"),
           replaced(element, "0 -1", "0 -1 -1"),
           replaced(element, "0 -1", "0"),
           replaced(element, "257 255<", "257<"),
           replaced(element, "257 255<", "257 254<"),
           replaced(element, "0 2 255", "0 2 256"),
           replaced(element, "0 2 255", "-1 2 255"),
           replaced(element, "0 2 255", "0 3 255"),
           replaced(element, " 0</quantized_param>", "</quantized_param>"),
           replaced(element, " 0</quantized_param>", " 0 0</quantized_param>"),
           replaced(element, " 0</quantized_param>", " 1</quantized_param>"),
       }) {
    const XmlFile file = document(wrong);
    EXPECT_THAT([&] { QuantizedMatrix::load_xml(*file.root()); }, ThrowsMessage<InvalidFormat>(std::string(kNoMatrix)))
        << wrong;
  }
}

TEST(QuantizedMatrixElement, ThatClaimsMoreThanItHoldsTakesNoMemory) {
  const std::string huge = "2147483616";
  std::string element = replaced(small_element(), "size_major=\"2\"", "size_major=\"" + huge + "\"");
  element = replaced(element, "align_size_major=\"4\"", "align_size_major=\"" + huge + "\"");
  EXPECT_THAT([&] { QuantizedMatrix::load_xml(*document(element).root()); },
              ThrowsMessage<InvalidFormat>(std::string(kNoMatrix)));
  element = replaced(small_element(), "size_minor=\"3\"", "size_minor=\"" + huge + "\"");
  element = replaced(element, "align_size_minor=\"16\"", "align_size_minor=\"" + huge + "\"");
  EXPECT_THAT([&] { QuantizedMatrix::load_xml(*document(element).root()); },
              ThrowsMessage<InvalidFormat>(std::string(kNoMatrix)));
}

TEST(QuantizedMatrixElement, RefusesWhatIsNoNumber) {
  for (const auto& [what, by] : {std::pair{"size_major=\"2\"", "size_major=\"two\""},
                                 {"0 -1", "0 two"},
                                 {"1 1</q", "1 two</q"},
                                 {"0 2 255", "0 two 255"}}) {
    const XmlFile file = document(replaced(small_element(), what, by));
    EXPECT_THAT([&] { QuantizedMatrix::load_xml(*file.root()); },
                ThrowsMessage<BaseRuntimeError>(std::string("Invalid number \"two\"")));
  }
}

std::string vector_element() {
  return "<x size_minor=\"3\" align_size_minor=\"16\" qparam=\"1\" rqpmin=\"-1\" sumqp=\"255\">"
         "<quantized_param>0 255 0 0 0 0 0 0 0 0 0 0 0 0 0 0</quantized_param></x>";
}

void expect_same(const QuantizedVector& a, const QuantizedVector& b) {
  EXPECT_EQ(a.quantized_param, b.quantized_param);
  EXPECT_EQ(a.qparam, b.qparam);
  EXPECT_EQ(a.rqpmin, b.rqpmin);
  EXPECT_EQ(a.sumqp, b.sumqp);
  EXPECT_EQ(a.size_minor, b.size_minor);
  EXPECT_EQ(a.align_size_minor, b.align_size_minor);
}

TEST(QuantizedVectorElement, HoldsAllButItsCodesAsAttributes) {
  const XmlFile file = document_of(QuantizedVector(Vector(small().row(1).transpose())));
  EXPECT_EQ(find_attribute(*file.root(), "size_minor"), "3");
  EXPECT_EQ(find_attribute(*file.root(), "align_size_minor"), "16");
  EXPECT_EQ(find_attribute(*file.root(), "qparam"), "1");
  EXPECT_EQ(find_attribute(*file.root(), "rqpmin"), "-1");
  EXPECT_EQ(find_attribute(*file.root(), "sumqp"), "255");
  EXPECT_EQ(element_text(*find_child(*file.root(), "quantized_param")), "0 255 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
}

TEST(QuantizedVectorElement, ReadsAsItWasWritten) {
  expect_same(QuantizedVector(*document(vector_element()).root()), QuantizedVector(Vector(small().row(1).transpose())));
  for (const int size : {0, 1, 16, 17, 100}) {
    const QuantizedVector vector(Vector(random(size, 1, 3).col(0)));
    expect_same(QuantizedVector(*document_of(vector).root()), vector);
  }
}

TEST(QuantizedVectorElement, TellsWhatIsMissing) {
  for (const std::string name : {"size_minor", "align_size_minor", "qparam", "rqpmin", "sumqp"}) {
    const XmlFile file = document(replaced(vector_element(), " " + name + "=", " other="));
    EXPECT_THAT([&] { const QuantizedVector vector(*file.root()); },
                ThrowsMessage<std::runtime_error>("\"<" + name + ">\" not found in \"QuantizedVector\" "));
  }
  const XmlFile file = document("<x size_minor=\"0\" align_size_minor=\"0\" qparam=\"1\" rqpmin=\"0\" sumqp=\"0\"/>");
  EXPECT_THAT(
      [&] { const QuantizedVector vector(*file.root()); },
      ThrowsMessage<std::runtime_error>(std::string("\"<quantized_param>\" not found in \"QuantizedVector\" ")));
}

TEST(QuantizedVectorElement, WhoseSizesOrValuesContradictEachOtherIsRefused) {
  const std::string element = vector_element();
  for (const std::string& wrong : {
           replaced(element, "size_minor=\"3\"", "size_minor=\"-1\""),
           replaced(element, "size_minor=\"3\"", "size_minor=\"17\""),
           replaced(element, "size_minor=\"3\"", "size_minor=\"1\""),
           replaced(element, "align_size_minor=\"16\"", "align_size_minor=\"32\""),
           replaced(element, "sumqp=\"255\"", "sumqp=\"254\""),
           replaced(element, "0 255", "0 256"),
           replaced(element, "0 255", "255"),
           replaced(element, "0 255", "0 0 255"),
       }) {
    EXPECT_THAT([&] { const QuantizedVector vector(*document(wrong).root()); },
                ThrowsMessage<InvalidFormat>(std::string(kNoVector)))
        << wrong;
  }
}

}  // namespace
}  // namespace meridane
