#include "meridane/framescore/rbm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "gmm_samples.h"
#include "meridane/error.h"

namespace meridane {
namespace {

using test::Bytes;
using test::dumped;
using test::kBinary;
using test::kXml;
using test::loaded;
using test::vector;
using testing::ThrowsMessage;

Bytes machine() {
  Bytes file;
  file.text("MeRBMpar").matrix(2, 3, {1, 2, 3, -4, 5, 6}).matrix(3, 1, {7, 8, 9}).matrix(2, 1, {0.5f, -1});
  return file;
}

TEST(RBM, HasABinaryFormAndADocument) {
  const auto rbm = loaded<RBMParameter>(machine().str());
  EXPECT_EQ(rbm.weight()(1, 0), -4);
  EXPECT_EQ(rbm.vbias(), vector({7, 8, 9}));
  EXPECT_EQ(rbm.hbias(), vector({0.5f, -1}));
  EXPECT_EQ(dumped(rbm), machine().str());
  EXPECT_EQ(dumped(loaded<RBMParameter>(dumped(rbm, kXml), kXml)), machine().str());
  const char* document =
      "<RBM magic=\"MeRBMpar\"><weight>1 2 3\n-4 5 6</weight><vbias>7 8 9</vbias><hbias>0.5\n-1</hbias></RBM>";
  EXPECT_EQ(dumped(loaded<RBMParameter>(document, kXml)), machine().str());
  for (const char* mime : {kBinary, "text/xml; charset=utf-8"}) {
    std::stringstream stream;
    rbm.dump(stream, mime);
    RBMParameter again;
    again.load(stream, mime);
    EXPECT_EQ(dumped(again), machine().str()) << mime;
  }
}

TEST(RBM, TellsHowLikelyEachHiddenUnitIs) {
  const auto rbm = loaded<RBMParameter>(machine().str());
  const Vector p = rbm.hidden(vector({1, 0, 1}));
  ASSERT_EQ(p.size(), 2);
  EXPECT_FLOAT_EQ(p(0), static_cast<float>(1 / (1 + std::exp(-4.5))));
  EXPECT_FLOAT_EQ(p(1), static_cast<float>(1 / (1 + std::exp(-1.0))));
  EXPECT_EQ(rbm.hidden(vector({-200, 0, 0}))(0), 0);
  EXPECT_THAT(
      [&] {
        rbm.hidden(vector({1, 0}));
      },
      ThrowsMessage<BaseRuntimeError>(std::string("number of dimentions of input data does not accord")));
}

TEST(RBM, RefusesWhatIsNone) {
  const auto message = ThrowsMessage<InvalidFormat>(std::string("invalid format (expected \"RBM parameter\")"));
  EXPECT_THAT([] { loaded<RBMParameter>("MeGMMpar"); }, message);
  EXPECT_THAT([] { loaded<RBMParameter>("<RBM magic=\"MeGMMpar\"/>", kXml); },
              ThrowsMessage<InvalidFormat>(std::string("illegal magic number \"MeGMMpar\"")));
  EXPECT_THAT([] { loaded<RBMParameter>("<NN magic=\"MeRBMpar\"/>", kXml); },
              ThrowsMessage<MissingTagError>(std::string("couldn't find \"RBM\" tag")));
  EXPECT_THAT(
      [] {
        loaded<RBMParameter>(Bytes().text("MeRBMpar").matrix(1, 2, {1, 2}).matrix(1, 1, {1}).matrix(1, 1, {1}).str());
      },
      message);
  EXPECT_THAT(
      [] {
        loaded<RBMParameter>(Bytes().text("MeRBMpar").matrix(1, 1, {1}).matrix(1, 1, {1}).matrix(2, 1, {1, 2}).str());
      },
      message);
  EXPECT_THAT(
      [] {
        loaded<RBMParameter>(Bytes().text("MeRBMpar").matrix(1, 1, {NAN}).matrix(1, 1, {1}).matrix(1, 1, {1}).str());
      },
      message);
  const std::string bytes = machine().str();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_THROW(loaded<RBMParameter>(bytes.substr(0, length)), BaseRuntimeError) << length;
  }
  EXPECT_THAT([] { loaded<RBMParameter>("<RBM magic=\"MeRBMpar\"><weight>1</weight><vbias>1</vbias></RBM>", kXml); },
              ThrowsMessage<MissingTagError>(std::string("couldn't find \"hbias\" tag")));
}

}  // namespace
}  // namespace meridane
