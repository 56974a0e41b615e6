// The text form of models: a magic and a document.

#include <gtest/gtest.h>

#include <fstream>

#include "../../support/temporary_folder.h"
#include "../support/messages.h"
#include "../support/models.h"
#include "e2easr_model/se_model.h"

namespace sonivo::e2e::test {
namespace {

constexpr const char* kBadFormat = "モデルフォーマットが不正. in encoder_model.cpp %d. in encoder_model.cpp %d";

/// The document of a network that doubles.
std::string doubling(const std::string& type = "FullyConnected") {
  return "<NN magic=\"MerNNpar\" ninput=\"1\" noutput=\"1\"><layers><layer type=\"" + type +
         "\" id=\"a\"><weight>2</weight><bias>0</bias></layer></layers><links><link from_id=\"_input\" to_id=\"a\"/>"
         "<link from_id=\"a\" to_id=\"_output\"/></links></NN>";
}

std::string document(const std::string& content, const std::string& root = "SE version=\"1\"") {
  return "senx<" + root + ">" + content + "</" + root.substr(0, root.find(' ')) + ">";
}

std::string encoder(const std::string& content = doubling()) { return "<encoder>" + content + "</encoder>"; }

std::string failure(const std::string& bytes) {
  SEModel model;
  const std::string message = message_of([&] { load_bytes(model, bytes); });
  EXPECT_FALSE(model.is_loaded());
  EXPECT_EQ(model.get<int>("chunk-size"), 80);
  return message;
}

float doubled(SEModel& model) { return model.execute(Matrix::Ones(1, 1)).get<Matrix>("enhanced")(0, 0); }

struct TextForm : testing::Test {
  std::string write(const std::string& name, const std::string& bytes) const {
    const std::string path = (folder.path() / name).string();
    std::ofstream(path, std::ios_base::binary) << bytes;
    return path;
  }

  sonivo::test::TemporaryFolder folder;
};

TEST_F(TextForm, HoldsTheNetworkAndOptions) {
  SEModel model;
  load_bytes(model, document(encoder() + "<option name=\"chunk-size\" value=\"5\"/>"
                                         "<option name=\"is-switching-se\" value=\"false\"/>"));
  EXPECT_EQ(doubled(model), 2.0f);
  EXPECT_EQ(model.get<int>("chunk-size"), 5);
  EXPECT_EQ(model.symbols(), (Symbols{{"chunk-size", "5"}, {"is-switching-se", "false"}}));
}

TEST_F(TextForm, ExpandsTheExpressionsOfTheNetwork) {
  std::string network = doubling();
  network.replace(network.find(">2<"), 3, ">${1 + 1}<");
  SEModel model;
  load_bytes(model, document(encoder(network)));
  EXPECT_EQ(doubled(model), 2.0f);
}

TEST_F(TextForm, IsSavedInTheBinaryForm) {
  SEModel model;
  load_bytes(model, document(encoder() + "<option name=\"chunk-size\" value=\"5\"/>"));
  EXPECT_EQ(saved_bytes(model), model_bytes({.network = gains_network({2.0f}), .symbols = {{"chunk-size", "5"}}}));
}

TEST_F(TextForm, MayReferToTheNetworksFile) {
  const std::string text = write("net.xml", doubling());
  const std::string binary = write("net.nn", gains_network({2.0f}));
  for (const std::string& ref : {"<ref>" + text + "</ref>", "<ref format=\"text/xml\">" + text + "</ref>",
                                 "<ref format=\"application/meridane-bin\">" + binary + "</ref>"}) {
    SEModel model;
    load_bytes(model, document(encoder(ref)));
    EXPECT_EQ(doubled(model), 2.0f) << ref;
  }
}

TEST_F(TextForm, TheNetworksFileMustBeThereAndOfItsFormat) {
  EXPECT_THAT(failure(document(encoder("<ref>/nowhere/at/all</ref>"))),
              IsMessage("ファイル(/nowhere/at/all)が開けない. in encoder_model.cpp %d. in encoder_model.cpp %d"));
  const std::string text = write("net.xml", doubling());
  EXPECT_THAT(failure(document(encoder("<ref format=\"text/json\">" + text + "</ref>"))),
              IsMessage("meridaneモデル読み込み中にエラーが発生した(\"text/json\" format does not support). "
                        "in encoder_model.cpp %d. in encoder_model.cpp %d"));
  EXPECT_THAT(failure(document(encoder("<ref>" + write("empty.xml", "") + "</ref>"))),
              IsMessage("meridaneモデル読み込み中にエラーが発生した(Failed to parse xml). in encoder_model.cpp %d. "
                        "in encoder_model.cpp %d"));
}

TEST_F(TextForm, HoldsAFlowOrRefersToOne) {
  const std::string flow = flow_text("AffineTransformNode", "<scale>3\n3</scale>");
  const std::string path = write("flow.xml", flow);
  for (const std::string& preproc : {flow, "<ref>" + path + "</ref>", "<ref format=\"text/xml\">" + path + "</ref>"}) {
    SEModel model;
    load_bytes(model, document("<preproc>" + preproc + "</preproc>" + encoder()));
    EXPECT_NE(model.preprocessor(), nullptr) << preproc;
    SEModel again;
    load_bytes(again, saved_bytes(model));
    EXPECT_EQ(saved_bytes(again), saved_bytes(model));
  }
}

TEST_F(TextForm, OtherPreprocessorsFail) {
  EXPECT_THAT(failure(document("<preproc/>" + encoder())), IsMessage(kBadFormat));
  EXPECT_THAT(failure(document("<preproc><ref format=\"text/json\">x</ref></preproc>" + encoder())),
              IsMessage("Flowのファイル形式が未対応.(text/json). in encoder_model.cpp %d"));
  EXPECT_THAT(failure(document("<preproc><ref>/nowhere</ref></preproc>" + encoder())),
              IsMessage("ファイル(/nowhere)が開けない. in encoder_model.cpp %d. in encoder_model.cpp %d"));
  EXPECT_THAT(failure(document("<preproc>" + flow_text("Wavelet", "") + "</preproc>" + encoder())),
              IsMessage("Flowノード読み込み中にエラーが発生した(Wavelet is not registered in the builder). "
                        "in encoder_model.cpp %d. in encoder_model.cpp %d"));
}

TEST_F(TextForm, HasTheKindOfTheModelAsItsRoot) {
  const char* const message =
      "不正なモデルファイルを読み込もうとした. in encoder_model.cpp %d. in encoder_model.cpp %d";
  EXPECT_THAT(failure(document(encoder(), "VAD version=\"1\"")), IsMessage(message));
  EXPECT_THAT(failure("senx<?xml version=\"1.0\"?>"), IsMessage(message));
}

TEST_F(TextForm, HasAVersionAndANetwork) {
  EXPECT_THAT(failure(document(encoder(), "SE")), IsMessage(kBadFormat));
  EXPECT_THAT(failure(document("")), IsMessage(kBadFormat));
  EXPECT_THAT(failure(document("<encoder/>")), IsMessage(kBadFormat));
  EXPECT_THAT(failure(document(encoder() + "<option name=\"chunk-size\"/>")), IsMessage(kBadFormat));
  EXPECT_THAT(failure(document(encoder() + "<option value=\"5\"/>")), IsMessage(kBadFormat));
}

TEST_F(TextForm, IsADocument) {
  EXPECT_THAT(failure("senx<SE"), IsMessage("Failed to parse xml. in encoder_model.cpp %d"));
}

TEST_F(TextForm, ALayerThatNobodyKnowsIsNamed) {
  EXPECT_THAT(failure(document(encoder(doubling("Wavelet")))),
              IsMessage("現バージョンでは対応していないレイヤを含むモデルはロードできない("
                        "Wavelet is not registered in the builder). in encoder_model.cpp %d. in encoder_model.cpp %d"));
}

TEST_F(TextForm, AnOptionThatDoesNotExistFails) {
  EXPECT_THAT(failure(document(encoder() + "<option name=\"chunk-size\" value=\"5\"/><option name=\"x\" value=\"\"/>")),
              IsMessage("変数\"x\"は存在しない. in base.cpp %d. in encoder_model.cpp %d"));
}

}  // namespace
}  // namespace sonivo::e2e::test
