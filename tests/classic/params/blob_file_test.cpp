#include "classic/blob_file.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <vector>

#include "test_files.h"

namespace sonivo::classic {
namespace {

template <typename Param>
class BlobFile : public testing::Test {
 protected:
  BlobFile() {
    auto* const bytes = reinterpret_cast<unsigned char*>(param_.get());
    for (std::size_t i = 0; i < sizeof(Param); ++i) bytes[i] = static_cast<unsigned char>(i * 31 + i / 256);
  }

  std::string path() const { return folder_ / "tuning.blob"; }

  const TemporaryFolder folder_;
  const std::unique_ptr<Param> param_ = std::make_unique<Param>();
};

using Params = testing::Types<KeyCancelParam, BeamFormingKeyCancelParam>;
TYPED_TEST_SUITE(BlobFile, Params);

TYPED_TEST(BlobFile, HoldsTheRecordAndNothingElse) {
  EXPECT_EQ(store_blob(this->path(), *this->param_), BlobFileResult::done);
  EXPECT_EQ(read_file(this->path()), bytes_of(*this->param_));
}

TYPED_TEST(BlobFile, IsLoadedVerbatim) {
  write_file(this->path(), bytes_of(*this->param_));
  const auto loaded = std::make_unique<TypeParam>();
  EXPECT_EQ(load_blob(this->path(), *loaded), BlobFileResult::done);
  EXPECT_EQ(bytes_of(*loaded), bytes_of(*this->param_));
}

TYPED_TEST(BlobFile, ReplacesALongerFile) {
  write_file(this->path(), std::string(sizeof(TypeParam) + 1000, 'x'));
  EXPECT_EQ(store_blob(this->path(), *this->param_), BlobFileResult::done);
  EXPECT_EQ(read_file(this->path()), bytes_of(*this->param_));
}

TYPED_TEST(BlobFile, OfAnotherSizeIsRefusedAndChangesNothing) {
  const std::string before = bytes_of(*this->param_);
  for (const std::size_t size : {std::size_t{0}, sizeof(TypeParam) - 1, sizeof(TypeParam) + 1}) {
    write_file(this->path(), std::string(size, 'x'));
    EXPECT_EQ(load_blob(this->path(), *this->param_), BlobFileResult::wrong_size) << size;
    EXPECT_EQ(bytes_of(*this->param_), before);
  }
}

TYPED_TEST(BlobFile, HasToBeThereAndNoFolder) {
  EXPECT_EQ(load_blob(this->path(), *this->param_), BlobFileResult::not_opened);
  EXPECT_EQ(load_blob(this->folder_ / "", *this->param_), BlobFileResult::not_opened);
  EXPECT_EQ(store_blob(this->folder_ / "none/tuning.blob", *this->param_), BlobFileResult::not_opened);
}

TYPED_TEST(BlobFile, SaysWhenTheDiskIsFull) {
  EXPECT_EQ(store_blob("/dev/full", *this->param_), BlobFileResult::not_written);
  std::FILE* const full = std::fopen("/dev/full", "wb");
  ASSERT_NE(full, nullptr);
  std::vector<char> buffer(2 * sizeof(TypeParam));  // so that nothing is written before the flush
  std::setvbuf(full, buffer.data(), _IOFBF, buffer.size());
  EXPECT_EQ(store_blob(full, *this->param_), BlobFileResult::not_written);
  std::fclose(full);
}

TYPED_TEST(BlobFile, IsCopiedVerbatim) {
  const auto copy = std::make_unique<TypeParam>();
  copy_blob(*this->param_, *copy);
  EXPECT_EQ(bytes_of(*copy), bytes_of(*this->param_));
}

}  // namespace
}  // namespace sonivo::classic
