#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "../support/streams.h"
#include "meridane/error.h"
#include "meridane/io/matrix.h"

namespace meridane {
namespace {

using testing::ThrowsMessage;

RowMatrix of_text(const std::string& text) {
  std::istringstream stream(text);
  return load_matrix_text(stream);
}

RowMatrix two_by_three() { return (RowMatrix(2, 3) << 1, 2, 3, 4, 5, 6).finished(); }

TEST(MatrixText, HasARowPerLine) {
  EXPECT_EQ(of_text("1 2 3\n4 5 6\n"), two_by_three());
  EXPECT_EQ(of_text("1 2 3\n4 5 6"), two_by_three());
  EXPECT_EQ(of_text("-0.5"), RowMatrix::Constant(1, 1, -0.5f));
}

TEST(MatrixText, IsSplitAtTabsBlanksAndCommas) {
  EXPECT_EQ(of_text("1\t2\t3\n4\t5\t6\n"), two_by_three());
  EXPECT_EQ(of_text("1,2,3\n4, 5,\t6\n"), two_by_three());
  EXPECT_EQ(of_text(" 1  2 3 \n\t4 5 6,\n"), two_by_three());
}

TEST(MatrixText, SkipsEmptyLinesAndComments) {
  EXPECT_EQ(of_text("\n# 7 8\n1 2 3\n\n#\n4 5 6\n\n"), two_by_three());
  EXPECT_EQ(of_text("#9\n1 2 3\n#no number\n4 5 6"), two_by_three());
  EXPECT_EQ(of_text("1 2 3\n   \n4 5 6\n\t"), two_by_three());  // blanks before the closing tag of an element
}

TEST(MatrixText, DropsACarriageReturnAtTheEndOfALine) { EXPECT_EQ(of_text("1 2 3\r\n\r\n4 5 6\r\n"), two_by_three()); }

TEST(MatrixText, CommentBeginsTheLine) {
  EXPECT_THAT([] { of_text("1 2\n # 3\n"); }, ThrowsMessage<BaseRuntimeError>(std::string("Invalid number \"#\"")));
  EXPECT_THAT([] { of_text("1 2 #3\n"); }, ThrowsMessage<BaseRuntimeError>(std::string("Invalid number \"#3\"")));
}

TEST(MatrixText, RefusesLinesOfAnotherLength) {
  for (const std::string text : {"1 2 3\n4 5\n", "1 2 3\n4 5 6 7\n", "1\n2\n3 4\n", "1 2 3\n4,5 6,7"}) {
    EXPECT_THAT([&] { of_text(text); }, ThrowsMessage<BaseRuntimeError>(std::string("Column-size error"))) << text;
  }
}

TEST(MatrixText, RefusesATextWithoutAnyNumber) {
  for (const std::string text : {"", "\n", "#1 2\n", " \t \n", ",\n", "\r\n"}) {
    EXPECT_THAT([&] { of_text(text); }, ThrowsMessage<BaseRuntimeError>(std::string("Empty matrix (ncol == 0)")));
  }
}

TEST(MatrixText, RefusesWhatIsNoNumber) {
  EXPECT_THAT([] { of_text("1 two 3\n"); }, ThrowsMessage<BaseRuntimeError>(std::string("Invalid number \"two\"")));
  EXPECT_THAT([] { of_text("1;2\n"); }, ThrowsMessage<BaseRuntimeError>(std::string("Invalid number \"1;2\"")));
  EXPECT_THROW(of_text(std::string("1\0002\n", 4)), BaseRuntimeError);
}

TEST(MatrixText, TellsOfALongWordWithinTheLimitOfMessages) {
  const std::string word(100'000, 'x');
  EXPECT_THAT([&] { of_text(word); },
              ThrowsMessage<BaseRuntimeError>(("Invalid number \"" + word).substr(0, kLongestMessage)));
}

TEST(MatrixText, ThatDoesNotEndIsRefused) {
  test::EndlessPipe pipe('\n');
  std::istream stream(&pipe);
  EXPECT_THAT([&] { load_matrix_text(stream); }, ThrowsMessage<BaseRuntimeError>(std::string("The text has no end")));
}

}  // namespace
}  // namespace meridane
