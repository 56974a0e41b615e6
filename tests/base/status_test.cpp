#include "base/status.h"

#include <gtest/gtest.h>

namespace sonivo {
namespace {

TEST(Status, NegativeIsAFailureAndAllElseASuccess) {
  EXPECT_TRUE(failed(kFail));
  EXPECT_TRUE(failed(-1));
  EXPECT_FALSE(failed(kOk));
  EXPECT_FALSE(failed(static_cast<Status>(error::kNotFound)));
}

TEST(Status, CarriesTheBitsOfTheMachinesFailures) {
  EXPECT_EQ(static_cast<std::uint32_t>(kFail), 0x80004005u);
  EXPECT_EQ(static_cast<std::uint32_t>(kNoInterface), 0x80004002u);
  EXPECT_EQ(static_cast<std::uint32_t>(kInvalidArgument), 0x80070057u);
}

TEST(StatusFromError, PutsTheNumberIntoTheFailedForm) {
  EXPECT_EQ(static_cast<std::uint32_t>(status_from_error(1168)), 0x80070490u);
  EXPECT_EQ(static_cast<std::uint32_t>(status_from_error(5023)), 0x8007139Fu);
  EXPECT_EQ(status_from_error(error::kInvalidParameter), kInvalidArgument);  // number 87
}

TEST(StatusFromError, NoErrorStaysSuccess) { EXPECT_EQ(status_from_error(error::kNone), kOk); }

}  // namespace
}  // namespace sonivo
