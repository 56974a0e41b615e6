// What every operation of the classic chains answers, in the order of its checks.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "chain_params.h"
#include "classic/beam_forming_key_cancel.h"
#include "classic/key_cancel.h"

namespace sonivo {
namespace {

constexpr int kVersion = 2;
constexpr int kSamplingRate = 3;
constexpr int kChannelNum = 4;
constexpr int kInvalidArg = 6;
constexpr int kDataLength = 7;

auto params_for(const CKeyCancel&, std::uint16_t id = 7) { return classic::test::key_cancel_params(id); }
auto params_for(const CBeamFormingKeyCancel&, std::uint16_t id = 8) { return classic::test::beam_forming_params(id); }

template <class Chain>
class OpenChain : public testing::Test {
 protected:
  OpenChain() { EXPECT_EQ(chain_.Open(&params_, 48000.0f, 2, 480), 0); }

  Chain chain_;
  decltype(params_for(chain_)) params_ = params_for(chain_);
};
using Chains = testing::Types<CKeyCancel, CBeamFormingKeyCancel>;
TYPED_TEST_SUITE(OpenChain, Chains);

TYPED_TEST(OpenChain, TellsWhatItWasOpenedWith) {
  std::uint16_t number = 0;
  float rate = 0;
  EXPECT_EQ(this->chain_.GetChannel(&number), 0);
  EXPECT_EQ(number, 2);
  EXPECT_EQ(this->chain_.GetDataLength(&number), 0);
  EXPECT_EQ(number, 480);
  EXPECT_EQ(this->chain_.GetSamplingRate(&rate), 0);
  EXPECT_EQ(rate, 48000.0f);
  EXPECT_EQ(this->chain_.GetParamID(&number), 0);
  EXPECT_EQ(number, this->params_.paramID);
  EXPECT_EQ(this->chain_.GetKeyReductionActive(&number), 0);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(this->chain_.GetNoiseReductionActive(&number), 0);
  EXPECT_EQ(number, 1);
}

TYPED_TEST(OpenChain, ChecksTheArgumentsOfOpenInOrderAndIsClosedAfterAFailure) {
  auto& chain = this->chain_;
  auto wrong = this->params_;
  wrong.version_major = static_cast<std::uint16_t>(wrong.version_major ^ 1u);
  const float bad_rates[] = {0.0f, 47999.99f, 44100.01f, 96000.0f, std::numeric_limits<float>::quiet_NaN()};
  EXPECT_EQ(chain.Open(nullptr, 0.0f, 0, 0), kInvalidArg);
  EXPECT_EQ(chain.Close(), kInvalidArg);
  for (const float rate : bad_rates) EXPECT_EQ(chain.Open(&wrong, rate, 0, 0), kSamplingRate) << rate;
  EXPECT_EQ(chain.Open(&wrong, 44100.0f, 0, 0), kChannelNum);
  EXPECT_EQ(chain.Open(&wrong, 44100.0f, 5, 0), kChannelNum);
  EXPECT_EQ(chain.Open(&wrong, 44100.0f, 4, 0), kDataLength);
  EXPECT_EQ(chain.Open(&wrong, 44100.0f, 4, 1), kVersion);
  EXPECT_EQ(chain.Close(), kInvalidArg);
  EXPECT_EQ(chain.Open(&this->params_, 44100.0f, 1, 65535), 0);
  EXPECT_EQ(chain.Close(), 0);
}

TYPED_TEST(OpenChain, RefusesABlobThatLeadsOutsideOfItsArrays) {
  auto bad = this->params_;
  bad.head.syk2.nbin = 61;
  EXPECT_EQ(this->chain_.SetParam(&bad), kVersion);
  EXPECT_EQ(this->chain_.Open(&bad, 48000.0f, 2, 480), kVersion);
  EXPECT_EQ(this->chain_.Close(), kInvalidArg);
}

TYPED_TEST(OpenChain, RefusesABlobWithANumberThatIsNone) {
  auto bad = this->params_;
  bad.noise.pwr_bf.PWCup = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(this->chain_.SetParam(&bad), kVersion);
  std::uint16_t id = 0;
  EXPECT_EQ(this->chain_.GetParamID(&id), 0);
  EXPECT_EQ(id, this->params_.paramID);
  EXPECT_EQ(this->chain_.Open(&bad, 48000.0f, 2, 480), kVersion);
  EXPECT_EQ(this->chain_.Close(), kInvalidArg);
}

TYPED_TEST(OpenChain, RefusesABlobWithAGainOf700Decibels) {
  auto bad = this->params_;
  bad.ns_nr.common.vol = 1e35f;
  EXPECT_EQ(this->chain_.SetParam(&bad), kVersion);
  EXPECT_EQ(this->chain_.Open(&bad, 48000.0f, 2, 480), kVersion);
}

TYPED_TEST(OpenChain, DoesNotLookAtTheMinorVersionWord) {
  this->params_.version_minor = 4711;
  EXPECT_EQ(this->chain_.SetParam(&this->params_), 0);
  EXPECT_EQ(this->chain_.Open(&this->params_, 48000.0f, 2, 480), 0);
}

TYPED_TEST(OpenChain, TakesABlobAtAnyAddress) {
  std::vector<std::byte> bytes(sizeof this->params_ + 3);
  std::memcpy(bytes.data() + 3, &this->params_, sizeof this->params_);
  EXPECT_EQ(this->chain_.Open(bytes.data() + 3, 48000.0f, 2, 480), 0);
  EXPECT_EQ(this->chain_.SetParam(bytes.data() + 3), 0);
}

TYPED_TEST(OpenChain, OpensAgainWithoutAClose) {
  EXPECT_EQ(this->chain_.Open(&this->params_, 44100.0f, 1, 100), 0);
  std::uint16_t number = 0;
  EXPECT_EQ(this->chain_.GetDataLength(&number), 0);
  EXPECT_EQ(number, 100);
}

TYPED_TEST(OpenChain, RefusesNullPointers) {
  auto& chain = this->chain_;
  EXPECT_EQ(chain.Execute(nullptr), kInvalidArg);
  EXPECT_EQ(chain.SetParam(nullptr), kInvalidArg);
  EXPECT_EQ(chain.GetParamID(nullptr), kInvalidArg);
  EXPECT_EQ(chain.GetParamSize(nullptr), kInvalidArg);
  EXPECT_EQ(chain.GetVersion(nullptr, nullptr), kInvalidArg);
  EXPECT_EQ(chain.GetKeyReductionActive(nullptr), kInvalidArg);
  EXPECT_EQ(chain.GetNoiseReductionActive(nullptr), kInvalidArg);
  EXPECT_EQ(chain.GetSamplingRate(nullptr), kInvalidArg);
  EXPECT_EQ(chain.GetChannel(nullptr), kInvalidArg);
  EXPECT_EQ(chain.GetDataLength(nullptr), kInvalidArg);
  EXPECT_EQ(chain.GetLatency(nullptr), kInvalidArg);
}

TYPED_TEST(OpenChain, KeepsItsValuesWhenASetterFails) {
  auto& chain = this->chain_;
  EXPECT_EQ(chain.SetKeyReductionActive(2), kInvalidArg);
  EXPECT_EQ(chain.SetNoiseReductionActive(65535), kInvalidArg);
  EXPECT_EQ(chain.SetSamplingRate(32000.0f), kSamplingRate);
  EXPECT_EQ(chain.SetChannel(0), kChannelNum);
  EXPECT_EQ(chain.SetChannel(5), kChannelNum);
  EXPECT_EQ(chain.SetDataLength(0), kDataLength);
  std::uint16_t number = 0;
  float rate = 0;
  EXPECT_EQ(chain.GetKeyReductionActive(&number), 0);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(chain.GetNoiseReductionActive(&number), 0);
  EXPECT_EQ(number, 1);
  EXPECT_EQ(chain.GetSamplingRate(&rate), 0);
  EXPECT_EQ(rate, 48000.0f);
  EXPECT_EQ(chain.GetChannel(&number), 0);
  EXPECT_EQ(number, 2);
  EXPECT_EQ(chain.GetDataLength(&number), 0);
  EXPECT_EQ(number, 480);
}

TYPED_TEST(OpenChain, SetsEachValue) {
  auto& chain = this->chain_;
  std::uint16_t number = 9;
  float rate = 0;
  for (const std::uint16_t active : {std::uint16_t{0}, std::uint16_t{1}}) {
    EXPECT_EQ(chain.SetKeyReductionActive(active), 0);
    EXPECT_EQ(chain.GetKeyReductionActive(&number), 0);
    EXPECT_EQ(number, active);
    EXPECT_EQ(chain.SetNoiseReductionActive(active), 0);
    EXPECT_EQ(chain.GetNoiseReductionActive(&number), 0);
    EXPECT_EQ(number, active);
  }
  EXPECT_EQ(chain.SetSamplingRate(44100.0f), 0);
  EXPECT_EQ(chain.GetSamplingRate(&rate), 0);
  EXPECT_EQ(rate, 44100.0f);
  EXPECT_EQ(chain.SetChannel(4), 0);
  EXPECT_EQ(chain.GetChannel(&number), 0);
  EXPECT_EQ(number, 4);
  EXPECT_EQ(chain.SetDataLength(1), 0);
  EXPECT_EQ(chain.GetDataLength(&number), 0);
  EXPECT_EQ(number, 1);
}

TYPED_TEST(OpenChain, TellsTheNumberOfTheBlobThatIsInUse) {
  const auto other = params_for(this->chain_, 4711);
  EXPECT_EQ(this->chain_.SetParam(&other), 0);
  std::uint16_t id = 0;
  EXPECT_EQ(this->chain_.GetParamID(&id), 0);
  EXPECT_EQ(id, 4711);
}

TYPED_TEST(OpenChain, KeepsItsBlobWhenAnotherIsRefused) {
  auto wrong = params_for(this->chain_, 4711);
  wrong.version_major = 2;
  EXPECT_EQ(this->chain_.SetParam(&wrong), kVersion);
  std::uint16_t id = 0;
  EXPECT_EQ(this->chain_.GetParamID(&id), 0);
  EXPECT_EQ(id, this->params_.paramID);
}

TYPED_TEST(OpenChain, AnswersInvalidArgumentOnceItIsClosed) {
  auto& chain = this->chain_;
  EXPECT_EQ(chain.Close(), 0);
  float block[960] = {};
  std::uint16_t number = 77;
  EXPECT_EQ(chain.Close(), kInvalidArg);
  EXPECT_EQ(chain.Execute(block), kInvalidArg);
  EXPECT_EQ(chain.SetParam(&this->params_), kInvalidArg);
  EXPECT_EQ(chain.SetSamplingRate(1.0f), kInvalidArg);
  EXPECT_EQ(chain.SetChannel(0), kInvalidArg);
  EXPECT_EQ(chain.SetDataLength(0), kInvalidArg);
  EXPECT_EQ(chain.GetDataLength(&number), kInvalidArg);
  EXPECT_EQ(number, 77);
  std::uint32_t size = 0;
  EXPECT_EQ(chain.GetLatency(&size), kInvalidArg);
  EXPECT_EQ(chain.GetParamSize(&size), 0);
  EXPECT_EQ(size, sizeof this->params_);
}

TEST(BeamFormingKeyCancel, SwitchesItsBeams) {
  CBeamFormingKeyCancel chain;
  std::uint16_t active = 77;
  EXPECT_EQ(chain.SetBeamFormingActive(1), kInvalidArg);
  EXPECT_EQ(chain.GetBeamFormingActive(&active), kInvalidArg);
  const auto params = classic::test::beam_forming_params();
  ASSERT_EQ(chain.Open(&params, 48000.0f, 2, 480), 0);
  EXPECT_EQ(chain.GetBeamFormingActive(nullptr), kInvalidArg);
  EXPECT_EQ(chain.GetBeamFormingActive(&active), 0);
  EXPECT_EQ(active, 1);
  EXPECT_EQ(chain.SetBeamFormingActive(2), kInvalidArg);
  EXPECT_EQ(chain.SetBeamFormingActive(0), 0);
  EXPECT_EQ(chain.GetBeamFormingActive(&active), 0);
  EXPECT_EQ(active, 0);
  ASSERT_EQ(chain.SetParam(&params), 0);
  EXPECT_EQ(chain.GetBeamFormingActive(&active), 0);
  EXPECT_EQ(active, 0) << "the flags survive SetParam";
  ASSERT_EQ(chain.Open(&params, 48000.0f, 2, 480), 0);
  EXPECT_EQ(chain.GetBeamFormingActive(&active), 0);
  EXPECT_EQ(active, 1) << "Open clears them";
}

}  // namespace
}  // namespace sonivo
