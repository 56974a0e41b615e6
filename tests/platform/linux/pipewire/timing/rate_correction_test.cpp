#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "virtual_pair_bench.h"

namespace sonivo::test {
namespace {

constexpr std::size_t kSettle = kRate / 2;  // until what was on its way has gone
constexpr std::size_t kListen = 5 * kRate / 2;
constexpr int kAttempts = 3;  // a busy machine loses frames now and then

/// Whether the frame's place in the counting signal can be read off: an interpolation rings where the counting begins
/// anew, and is right to a part in 3000.
bool tells_its_place(const StereoFrame& frame) { return frame[0] > 1000 && frame[0] < 2500 && frame[1] == -frame[0]; }

/// Counting frames that went by for each thousand of these, beyond the thousand; none where too few tell.
std::optional<double> beyond_a_thousand(const std::vector<StereoFrame>& frames) {
  const auto first = std::find_if(frames.begin(), frames.end(), tells_its_place);
  const auto last = std::find_if(frames.rbegin(), frames.rend(), tells_its_place);
  if (first == frames.end()) return std::nullopt;
  const auto passed = static_cast<double>(last.base() - 1 - first);
  if (passed < 30000) return std::nullopt;
  return 1000 * std::remainder((*last)[0] - (*first)[0] - passed, 30000) / passed;
}

/// One slip at either end, of which there is one for each thousand frames.
constexpr double kTolerance = 0.04;

class RateCorrectionTest : public VirtualPairTest {
 protected:
  /// Whether feedback has the transfers run ahead of the graph, or behind it, by so many in a thousand frames.
  template <class Listen>
  bool leads_to(Device& device, std::int32_t feedback, double beyond, Listen listen) {
    std::uint32_t transferred = 0;
    EXPECT_EQ(device.control_now(kTrim, std::as_bytes(std::span(&feedback, 1)), {}, transferred), error::kNone);
    for (int i = 0; i < kAttempts; ++i) {
      const auto heard = beyond_a_thousand(listen());
      if (heard && std::fabs(*heard - beyond) < kTolerance) return true;
    }
    return false;
  }
};

// Each frame that an application records has taken a thousandth more, or less, of the transfers in.
TEST_F(RateCorrectionTest, FeedbackHasTheTransfersOfTheMicrophoneGoAThousandthFasterOrSlower) {
  const auto device = open(kMicPath);
  const std::string wav = server_->folder() / "heard.wav";
  const auto recorder = server_->record(kVirtualMic, wav);
  WAVEFORMATEXTENSIBLE format;
  ASSERT_EQ(wait_stream(*device, format), error::kNone);
  Transfers transfers(*device, true);
  const auto listen = [&] {
    transfers.move(kSettle);
    const std::size_t before = frames_of_wav(wav).size();
    transfers.move(kListen);
    return frames_of_wav(wav, before);
  };
  EXPECT_TRUE(leads_to(*device, 1, 1, listen));
  EXPECT_TRUE(leads_to(*device, 0, 0, listen));
  EXPECT_TRUE(leads_to(*device, -1, -1, listen));
}

// Each frame of a transfer has taken a thousandth less, or more, of what an application plays in.
TEST_F(RateCorrectionTest, FeedbackHasTheTransfersOfTheSpeakerGoAThousandthFasterOrSlower) {
  const auto device = open(kSpeakerPath);
  const auto player = server_->play(kVirtualSpeaker, server_->folder().write("music.wav", counting_wav(60 * kRate)));
  WAVEFORMATEXTENSIBLE format;
  ASSERT_EQ(wait_stream(*device, format), error::kNone);
  Transfers transfers(*device, false);
  const auto listen = [&] {
    transfers.move(kSettle);
    return transfers.move(kListen);
  };
  EXPECT_TRUE(leads_to(*device, 1, -1, listen));
  EXPECT_TRUE(leads_to(*device, 0, 0, listen));
  EXPECT_TRUE(leads_to(*device, -1, 1, listen));
}

}  // namespace
}  // namespace sonivo::test
