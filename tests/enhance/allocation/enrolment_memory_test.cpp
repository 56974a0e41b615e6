// An enrolment where memory ends before the encoder begins.

#include <gmock/gmock.h>

#include "../../relay/allocation/count_allocations.h"
#include "../enrolment/enrolment_bench.h"

namespace sonivo::test {
namespace {

TEST_F(Enrolment, SaysThatItHasNoMemory) {
  ASSERT_EQ(open(), 0);
  const std::string silence = folder_.write("silence.wav", wav(std::vector<std::int16_t>(4800)).text());
  set_log_hook(nullptr);  // which allocates
  int missing = 0;
  for (std::uint64_t nth = 1;; ++nth) {
    fail_allocation(nth);
    const int code = make(silence);
    if (!allocation_failed()) {
      EXPECT_EQ(code, ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL);
      break;
    }
    // A file needs memory to be opened; it is read without if there must be.
    EXPECT_THAT(code, testing::AnyOf(ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY, ERROR_AI_SPEECH_ENHANCE_FILE_OPEN,
                                     ERROR_AI_SPEECH_ENHANCE_LEVEL_TOO_SMALL))
        << nth;
    if (code == ERROR_AI_SPEECH_ENHANCE_MEMORY_EMPTY) ++missing;
    EXPECT_FALSE(has_result());
    float sample = 0;
    EXPECT_EQ(enhancer_.Execute(&sample), ERROR_AI_SPEECH_ENHANCE_STOPPED) << "not busy";
  }
  EXPECT_GE(missing, 4) << "the samples as they are, as floats, and the two copies";
}

}  // namespace
}  // namespace sonivo::test
