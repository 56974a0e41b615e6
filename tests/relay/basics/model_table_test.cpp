#include "relay/model_table.h"

#include <gtest/gtest.h>

namespace sonivo {
namespace {

const std::filesystem::path kFolder = "/models";

TEST(ModelTable, RowOneHoldsTheLargestModels) {
  const ModelRow row = GetModelRow(kFolder, 1);
  EXPECT_EQ(row.speech_enhancement, "/models/model_se_streaming_RTF0.5_v2.bin");
  EXPECT_EQ(row.target_speaker, "/models/model_tsse_streaming_rtf0.5_v2.bin");
  EXPECT_EQ(row.speaker_encoder, "/models/model_spkenc_rtf0.5_v2.bin");
}

TEST(ModelTable, RowTwoHoldsTheMiddleModels) {
  const ModelRow row = GetModelRow(kFolder, 2);
  EXPECT_EQ(row.speech_enhancement, "/models/model_se_streaming_RTF0.25_v2.bin");
  EXPECT_EQ(row.target_speaker, "/models/model_tsse_streaming_rtf0.25_v2.bin");
  EXPECT_EQ(row.speaker_encoder, "/models/model_spkenc_rtf0.25_v2.bin");
}

TEST(ModelTable, RowThreeHoldsTheSmallestModels) {
  const ModelRow row = GetModelRow(kFolder, 3);
  EXPECT_EQ(row.speech_enhancement, "/models/model_se_streaming_RTF0.10_v2.bin");
  EXPECT_EQ(row.target_speaker, "/models/model_tsse_streaming_rtf0.10_v2.bin");
  EXPECT_EQ(row.speaker_encoder, "/models/model_spkenc_rtf0.10_v2.bin");
}

TEST(ModelTable, RowsAreNumberedOneToThree) {
  EXPECT_EQ(kFirstModelNo, 1);
  EXPECT_EQ(kLastModelNo, 3);
}

}  // namespace
}  // namespace sonivo
