// The binary form of models: what loads, what doesn't, and what is left then.

#include <gtest/gtest.h>

#include <cstdio>
#include <new>
#include <streambuf>

#include "../../support/temporary_folder.h"
#include "../support/messages.h"
#include "../support/models.h"
#include "e2easr_model/se_model.h"
#include "e2easr_model/spkenc_model.h"
#include "e2easr_model/vad_model.h"

namespace sonivo::e2e::test {
namespace {

const std::string kFlow = flow_text("BufferingNode", "<frame>1</frame>");

std::string loading(SEModel& model, const std::string& bytes) {
  return message_of([&] { load_bytes(model, bytes); });
}

/// What loading says, after which the model must be unloaded, with its defaults.
std::string failed_loading(const ModelParts& parts) {
  SEModel model;
  const std::string message = loading(model, model_bytes(parts));
  EXPECT_FALSE(model.is_loaded());
  EXPECT_TRUE(model.symbols().empty());
  EXPECT_EQ(model.preprocessor(), nullptr);
  EXPECT_FALSE(model.get<bool>("is-switching-se"));
  EXPECT_EQ(model.get<int>("chunk-size"), 80);
  return message;
}

TEST(LoadModel, OfEachKindByItsMagic) {
  SEModel enhancement;
  load_bytes(enhancement, model_bytes({.magic = "senb"}));
  EXPECT_TRUE(enhancement.is_loaded());
  SpkEncModel encoder;
  load_bytes(encoder, model_bytes({.magic = "spkb"}));
  EXPECT_TRUE(encoder.is_loaded());
  VADModel activity;
  load_bytes(activity, model_bytes({.magic = "vadb"}));
  EXPECT_TRUE(activity.is_loaded());
}

TEST(LoadModel, NotOfAnotherKind) {
  SpkEncModel encoder;
  EXPECT_THAT(message_of([&] { load_bytes(encoder, model_bytes({.magic = "senb"})); }),
              IsMessage("E2E用モデルではない(senb). in encoder_model.cpp %d. in encoder_model.cpp %d"));
}

TEST(LoadModel, AFileOfThreeBytesIsTooShort) {
  SEModel model;
  EXPECT_THAT(loading(model, "sen"), IsMessage("error reading stream. in encoder_model.cpp %d"));
}

TEST(LoadModel, OnceUntilItIsUnloaded) {
  SEModel model;
  load_bytes(model, model_bytes({.symbols = {{"chunk-size", "5"}}}));
  EXPECT_THAT(loading(model, model_bytes({})), IsMessage("モデルが既に読み込まれている. in encoder_model.cpp %d"));
  EXPECT_TRUE(model.is_loaded()) << "the model that was there stays";
  EXPECT_EQ(model.get<int>("chunk-size"), 5);
  model.unload();
  EXPECT_FALSE(model.is_loaded());
  load_bytes(model, model_bytes({}));
  EXPECT_TRUE(model.is_loaded());
}

TEST(LoadModel, SetsVariablesReadOnlyOnesToo) {
  SEModel model;
  load_bytes(model, model_bytes({.symbols = {{"is-switching-se", "true"}, {"frame-length", "10"}, {"overlap", "2"}}}));
  EXPECT_TRUE(model.get<bool>("is-switching-se"));
  EXPECT_EQ(model.get<float>("frame-length"), 10.0f);
  EXPECT_EQ(model.get<int>("overlap"), 2);
  EXPECT_EQ(model.symbols(), (Symbols{{"frame-length", "10"}, {"is-switching-se", "true"}, {"overlap", "2"}}));
}

TEST(LoadModel, UnloadingGoesBackToTheDefaults) {
  SEModel model;
  load_bytes(model, model_bytes({.symbols = {{"frame-length", "10"}, {"overlap", "2"}}}));
  model.set<float>("enhancement-strength", 0.5f);
  model.unload();
  EXPECT_EQ(model.get<float>("frame-length"), 25.0f);
  EXPECT_EQ(model.get<int>("overlap"), 0);
  EXPECT_EQ(model.get<float>("enhancement-strength"), 1.0f);
  EXPECT_EQ(model.get<std::string>("feature-extractor-type"), "none");
  EXPECT_TRUE(model.symbols().empty());
}

template <class Model>
void expect_defaults_after_unloading(const std::string& magic) {
  Model model;
  const auto defaults = [] {
    Model fresh;
    return fresh.variables();
  }();
  load_bytes(model, model_bytes({.magic = magic, .symbols = {{"frame-length", "10"}, {"file-type", "X"}}}));
  model.template set<float>("frame-shift", 5.0f);
  model.template set<std::string>("feature-extractor-type", "lmfb");
  model.unload();
  ASSERT_EQ(model.variables().size(), defaults.size());
  for (std::size_t i = 0; i < defaults.size(); ++i) {
    EXPECT_TRUE(model.variables()[i]->equals(*defaults[i])) << magic << ' ' << defaults[i]->name();
    EXPECT_EQ(model.variables()[i]->read_only(), defaults[i]->read_only()) << defaults[i]->name();
  }
}

TEST(LoadModel, UnloadingGoesBackToAllDefaultsOfEachKind) {
  expect_defaults_after_unloading<SEModel>("senb");
  expect_defaults_after_unloading<SpkEncModel>("spkb");
  expect_defaults_after_unloading<VADModel>("vadb");
}

TEST(LoadModel, AnythingButZeroSaysThatThereIsAPreprocessor) {
  for (const std::uint32_t flag : {1u, 2u, 0xffffffffu}) {
    SEModel model;
    load_bytes(model, model_bytes({.has_preprocessor = flag, .preprocessor = kFlow}));
    EXPECT_NE(model.preprocessor(), nullptr) << flag;
  }
}

TEST(EncoderModel, GivesWhatTheNetworkGivesUntilItForgets) {
  SpkEncModelImpl model;
  std::istringstream stream(model_bytes({.magic = "spkb", .network = memory_network()}));
  model.load(stream, false);
  const auto next = [&] { return model.execute(Matrix::Constant(1, 1, 3.0f)).get<Matrix>("encoded"); };
  const Matrix first = next();
  ASSERT_EQ(first.rows(), 2);
  ASSERT_EQ(first.cols(), 1);
  EXPECT_EQ(first(1, 0), 3.0f);
  EXPECT_EQ(next()(1, 0), 6.0f) << "with the sample before";
  model.reset();
  EXPECT_EQ(next()(1, 0), 3.0f);
}

TEST(EncoderModel, GivesNothingWithoutANetwork) {
  SpkEncModelImpl model;
  const char* const not_loaded = "モデルが読み込まれていない. in encoder_model.cpp %d";
  EXPECT_THAT(message_of([&] { model.check_loaded(); }), IsMessage(not_loaded));
  EXPECT_THAT(message_of([&] { model.execute(Matrix::Ones(1, 1)); }), IsMessage(not_loaded));
  EXPECT_THAT(message_of([&] { model.reset(); }), IsMessage(not_loaded));
  EXPECT_THAT(message_of([&] { model.network(); }), IsMessage(not_loaded));
}

TEST(LoadModel, AVersionBelowOneHasNoSymbols) {
  SEModel model;
  std::string bytes = model_bytes({.version = "0.9", .symbols = {{"chunk-size", "5"}}});
  load_bytes(model, bytes);
  EXPECT_EQ(model.get<int>("chunk-size"), 80) << "what follows is no symbol table";
}

TEST(LoadModel, OfAVersionOnlyTheFirstNumberCounts) {
  for (const char* const version : {"1", "1.x", "2.0.1", "20231004"}) {
    SEModel model;
    load_bytes(model, model_bytes({.version = version, .symbols = {{"chunk-size", "5"}}}));
    EXPECT_EQ(model.get<int>("chunk-size"), 5) << version;
  }
}

TEST(LoadModel, AVersionWithoutADigitFails) {
  for (const char* const version : {"", "version", ".1"}) {
    EXPECT_THAT(failed_loading({.version = version}),
                IsMessage("モデルの読み込みに失敗した(invalid stoi argument). in encoder_model.cpp %d. "
                          "in encoder_model.cpp %d"))
        << version;
  }
}

TEST(LoadModel, AnUnknownPreprocessorFails) {
  EXPECT_THAT(
      failed_loading({.has_preprocessor = 1, .preprocessor_kind = 7, .preprocessor = kFlow}),
      IsMessage("モデルの読み込みに失敗した(モデルに不明な構成要素(7)が格納されている. in encoder_model.cpp %d). "
                "in encoder_model.cpp %d. in encoder_model.cpp %d"));
}

TEST(LoadModel, AnUnknownNetworkKindFails) {
  EXPECT_THAT(failed_loading({.network_kind = 0}),
              IsMessage("モデルの読み込みに失敗した(モデルに不明な構成要素が格納されている. in encoder_model.cpp %d). "
                        "in encoder_model.cpp %d. in encoder_model.cpp %d"));
}

TEST(LoadModel, ABadFlowFails) {
  EXPECT_THAT(failed_loading({.has_preprocessor = 1, .preprocessor = "<flow"}),
              IsMessage("Flowノード読み込み中にエラーが発生した(Failed to parse xml). in encoder_model.cpp %d. "
                        "in encoder_model.cpp %d"));
}

TEST(LoadModel, ABadNetworkFails) {
  EXPECT_THAT(failed_loading({.network = "MerNNpax"}),
              IsMessage("meridaneモデル読み込み中にエラーが発生した(invalid format (expected \"NN parameter\")). "
                        "in encoder_model.cpp %d. in encoder_model.cpp %d"));
  EXPECT_THAT(
      failed_loading({.network = gains_network({1.0f}) + "x"}),
      IsMessage("meridaneモデル読み込み中にエラーが発生した(more follows the network than its section may hold). "
                "in encoder_model.cpp %d. in encoder_model.cpp %d"));
}

TEST(LoadModel, ALayerThatNobodyKnowsIsNamed) {
  const std::string network =
      network_bytes(1, 1, {layer_bytes("a", "Wavelet", "Wavelet")}, {{"_input", "a"}, {"a", "_output"}});
  EXPECT_THAT(failed_loading({.network = network}),
              IsMessage("現バージョンでは対応していないレイヤを含むモデルはロードできない("
                        "Wavelet is not registered in the builder). in encoder_model.cpp %d. in encoder_model.cpp %d"));
}

TEST(LoadModel, ASymbolThatDoesNotExistFails) {
  EXPECT_THAT(failed_loading({.symbols = {{"chunk-size", "5"}, {"chunk-sise", "5"}}}),
              IsMessage("シンボルテーブル読み込み中にエラーが発生した(変数\"chunk-sise\"は存在しない. in base.cpp %d). "
                        "in encoder_model.cpp %d. in encoder_model.cpp %d"));
}

TEST(LoadModel, ASymbolOfTheWrongValueFails) {
  EXPECT_THAT(failed_loading({.symbols = {{"chunk-size", "many"}}}),
              IsMessage("シンボルテーブル読み込み中にエラーが発生した(invalid stoi argument). "
                        "in encoder_model.cpp %d. in encoder_model.cpp %d"));
  EXPECT_THAT(failed_loading({.symbols = {{"is-switching-se", "true"}, {"chunk-size", "0"}}}),
              IsMessage("シンボルテーブル読み込み中にエラーが発生した(変数\"chunk-size\"の設定値が有効範囲外. "
                        "in base.h %d). in encoder_model.cpp %d. in encoder_model.cpp %d"));
}

TEST(LoadModel, SizesThatTheFileDoesNotHoldTakeNoMemory) {
  std::string head = "senb20231004" + bytes_of<std::uint32_t>(0) + bytes_of<std::uint32_t>(1);
  SEModel model;
  EXPECT_THAT(loading(model, head + bytes_of<std::uint32_t>(0xffffffffu) + "MerNNpar"),
              IsMessage("モデルの読み込みに失敗した(error reading stream). in encoder_model.cpp %d. "
                        "in encoder_model.cpp %d"));
  EXPECT_THAT(failed_loading({.symbol_count = 0xffffffffu}),
              IsMessage("シンボルテーブル読み込み中にエラーが発生した(error reading stream). "
                        "in encoder_model.cpp %d. in encoder_model.cpp %d"));
}

TEST(LoadModel, AFileCutAnywhereFailsAndLeavesTheModelUnloaded) {
  const std::string whole = model_bytes({.has_preprocessor = 1, .preprocessor = kFlow, .symbols = {{"overlap", "1"}}});
  for (std::size_t size = 0; size < whole.size(); ++size) {
    SEModel model;
    ASSERT_NE(loading(model, whole.substr(0, size)), "") << size;
    ASSERT_FALSE(model.is_loaded()) << size;
    ASSERT_EQ(model.get<int>("overlap"), 0) << size;
  }
  SEModel model;
  EXPECT_EQ(loading(model, whole), "");
}

TEST(LoadModel, AnyByteMayBeWrong) {
  const std::string whole = model_bytes({.has_preprocessor = 1, .preprocessor = kFlow, .symbols = {{"overlap", "1"}}});
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (const int flipped : {0x01, 0x20, 0x80, 0xff}) {
      std::string damaged = whole;
      damaged[i] = static_cast<char>(damaged[i] ^ flipped);
      SEModel model;
      const std::string message = loading(model, damaged);
      ASSERT_EQ(model.is_loaded(), message.empty()) << i;
      if (!model.is_loaded()) {
        ASSERT_EQ(model.get<int>("overlap"), 0) << i;
      }
    }
  }
}

/// A source for which there is no memory, behind the magic.
class NoMemory : public std::streambuf {
 public:
  NoMemory() { setg(magic_, magic_, magic_ + 4); }

 protected:
  int_type underflow() override { throw std::bad_alloc(); }

 private:
  char magic_[4] = {'s', 'e', 'n', 'b'};
};

TEST(LoadModel, WithoutMemoryIsTold) {
  NoMemory source;
  std::istream stream(&source);
  stream.exceptions(std::ios_base::badbit);
  SEModel model;
  EXPECT_THAT(message_of([&] { model.load(stream, false); }), IsMessage("メモリ不足 in encoder_model.cpp %d"));
  EXPECT_FALSE(model.is_loaded());
}

TEST(LoadModel, FromAPath) {
  const sonivo::test::TemporaryFolder folder;
  const std::string path = (folder.path() / "model.bin").string();
  SEModel model;
  EXPECT_THAT(message_of([&] { model.load(path, false); }),
              IsMessage("ファイル(" + path + ")が開けない. in encoder_model.cpp %d"));
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  const std::string bytes = model_bytes({});
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  std::fclose(file);
  model.load(path, false);
  EXPECT_TRUE(model.is_loaded());
}

TEST(LoadModel, FromAnOpenFile) {
  SEModel model;
  EXPECT_THAT(message_of([&] { model.load(static_cast<std::FILE*>(nullptr), false); }),
              IsMessage("ファイルポインタが不正です. in encoder_model.cpp %d"));
  std::FILE* const file = std::tmpfile();
  const std::string bytes = "ahead of it" + model_bytes({.symbols = {{"overlap", "1"}}});
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  std::fseek(file, 11, SEEK_SET);
  model.load(file, false);
  std::fclose(file);
  EXPECT_EQ(model.get<int>("overlap"), 1);
}

TEST(LoadModel, FromMemory) {
  const std::string bytes = model_bytes({});
  SEModel model;
  EXPECT_THAT(message_of([&] { model.load(bytes.data(), std::size_t{3}, false); }),
              IsMessage("指定したメモリ領域が不正です(error reading stream. in encoder_model.cpp %d). "
                        "in encoder_model.cpp %d"));
  EXPECT_THAT(message_of([&] { model.load(static_cast<const void*>(nullptr), std::size_t{16}, false); }),
              IsMessage("指定したメモリ領域が不正です(error reading stream. in encoder_model.cpp %d). "
                        "in encoder_model.cpp %d"));
  model.load(bytes.data(), bytes.size(), false);
  EXPECT_TRUE(model.is_loaded());
}

TEST(LoadModel, WithSharedMemoryAllowedItIsTheSameModel) {
  SEModel model;
  std::istringstream stream(model_bytes({}));
  model.load(stream, true);
  EXPECT_TRUE(model.is_loaded());
}

TEST(SaveModel, GivesTheBytesThatWereLoaded) {
  const std::string bytes = model_bytes(
      {.has_preprocessor = 1, .preprocessor = kFlow, .symbols = {{"frame-length", "10"}, {"overlap", "1"}}});
  SEModel model;
  load_bytes(model, bytes);
  const std::string saved = saved_bytes(model);
  SEModel again;
  load_bytes(again, saved);
  EXPECT_EQ(saved_bytes(again), saved);
  const ModelParts plain = {.symbols = {{"frame-length", "10"}, {"overlap", "1"}}};
  SEModel without;
  load_bytes(without, model_bytes(plain));
  EXPECT_EQ(saved_bytes(without), model_bytes(plain));
}

TEST(SaveModel, SortsTheSymbolsAndKeepsTheLastOfEachName) {
  SEModel model;
  load_bytes(model, model_bytes({.symbols = {{"overlap", "1"}, {"chunk-size", "5"}, {"overlap", "2"}}}));
  EXPECT_EQ(saved_bytes(model), model_bytes({.symbols = {{"chunk-size", "5"}, {"overlap", "2"}}}));
}

TEST(SaveModel, WritesNothingThatTheApplicationHasSet) {
  SEModel model;
  load_bytes(model, model_bytes({}));
  model.set<int>("chunk-size", 5);
  EXPECT_EQ(saved_bytes(model), model_bytes({}));
}

TEST(SaveModel, WritesTheVersionThatTheClassOrTheFileDeclares) {
  SEModel model;
  load_bytes(model, model_bytes({.version = "1.0"}));
  EXPECT_EQ(saved_bytes(model), model_bytes({}));
  model.unload();
  load_bytes(model, model_bytes({.symbols = {{"file-version", "0.5"}}}));
  const std::string saved = saved_bytes(model);
  EXPECT_EQ(saved.substr(4, 8), std::string("0.5\0\0\0\0\0", 8));
  EXPECT_EQ(saved.size(), model_bytes({}).size() - 4) << "such a version has no symbol table";
}

TEST(SaveModel, WritesNothingForAVersionThatIsNone) {
  SEModel model;
  load_bytes(model, model_bytes({.symbols = {{"file-version", "draft"}}}));
  std::ostringstream stream;
  EXPECT_EQ(message_of([&] { model.save(stream); }), "invalid stoi argument");
  EXPECT_EQ(stream.str(), "");
}

TEST(SaveModel, NeedsALoadedModel) {
  const SEModel model;
  EXPECT_THAT(message_of([&] { saved_bytes(model); }),
              IsMessage("モデルが読み込まれていない. in encoder_model.cpp %d"));
}

}  // namespace
}  // namespace sonivo::e2e::test
