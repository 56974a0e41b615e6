// What each model declares: names, order, types, defaults, flags, valid values, help texts.

#include <gtest/gtest.h>

#include <limits>
#include <set>

#include "../support/messages.h"
#include "e2easr_model/se_model.h"
#include "e2easr_model/spkenc_model.h"
#include "e2easr_model/vad_model.h"

namespace sonivo::e2e::test {
namespace {

/// A variable's name, default as text, and flag: "overlap=0 (r)".
std::string line_of(const VariableBase& variable) {
  std::string text = variable.name() + "=";
  if (const auto* number = dynamic_cast<const Variable<int>*>(&variable)) {
    text += "int " + std::to_string(number->value());
  } else if (const auto* real = dynamic_cast<const Variable<float>*>(&variable)) {
    text += meridane::formatted("float %g", static_cast<double>(real->value()));
  } else if (const auto* flag = dynamic_cast<const Variable<bool>*>(&variable)) {
    text += flag->value() ? "true" : "false";
  } else if (const auto* word = dynamic_cast<const Variable<std::string>*>(&variable)) {
    text += "\"" + word->value() + "\"";
  }
  return text + (variable.read_only() ? " read-only" : "");
}

std::vector<std::string> lines_of(const Component::Variables& variables) {
  std::vector<std::string> lines;
  for (const auto& variable : variables) lines.push_back(line_of(*variable));
  return lines;
}

std::vector<std::string> feature_lines(const std::string& type) {
  return {"sample-frequency=float 16000",
          "frame-length=float 25",
          "frame-shift=float 10",
          "dither=float 1",
          "preemphasis-coefficient=float 0.97",
          "remove-dc-offset=true",
          "window-type=\"povey\"",
          "round-to-power-of-two=true",
          "blackman-coeff=float 0.42",
          "snip-edges=true",
          "allow-downsample=false",
          "allow-upsample=false",
          "max-feature-vectors=int -1",
          "num-mel-bins=int 23",
          "low-freq=float 20",
          "high-freq=float 0",
          "vtln-low=float 100",
          "vtln-high=float -500",
          "debug-mel=false",
          "htk-mode=false",
          "use-energy=false",
          "energy-floor=float 0",
          "raw-energy=true",
          "htk-compat=false",
          "use-log-fbank=true",
          "use-power=true",
          "min-f0=float 50",
          "max-f0=float 400",
          "soft-min-f0=float 10",
          "penalty-factor=float 0.1",
          "lowpass-cutoff=float 1000",
          "resample-frequency=float 4000",
          "delta-pitch=float 0.005",
          "nccf-ballast=float 7000",
          "lowpass-filter-width=int 1",
          "upsample-filter-width=int 5",
          "max-frames-latency=int 0",
          "frames-per-chunk=int 0",
          "simulate-first-pass-online=false",
          "recompute-frame=int 500",
          "nccf-ballast-online=false",
          "subtract-mean=false",
          "vtln-warp=float 1",
          "min-duration=float 0",
          "feature-extractor-type=\"" + type + "\""};
}

std::vector<std::string> with_features(std::vector<std::string> own, const std::string& type) {
  for (const std::string& line : feature_lines(type)) own.push_back(line);
  return own;
}

template <class T>
std::string setting(Component& component, const std::string& name, const std::type_identity_t<T>& value) {
  return message_of([&] { component.set<T>(name, value); });
}

TEST(FEManager, DeclaresTheOptionsOfFeatureExtraction) {
  const FEManager manager;
  EXPECT_EQ(lines_of(manager.variables()), feature_lines("default"));
  EXPECT_EQ(manager.variables().back()->description(), "特徴量抽出方式の指定、本バージョンではdefaultのみ実装");
}

TEST(SEModel, DeclaresItsVariablesAheadOfThoseOfTheFeatures) {
  const SEModel model;
  EXPECT_EQ(lines_of(model.variables()),
            with_features({"file-type=\"SE\" read-only", "file-version=\"20231004\" read-only",
                           "magic-number-bin=\"senb\" read-only", "magic-number-xml=\"senx\" read-only", "offline=true",
                           "chunk-size=int 80", "overlap=int 0 read-only", "reset-context=int 0", "num-channels=int 1",
                           "enhancement-strength=float 1", "switching-strength=float 1",
                           "is-switching-se=false read-only", "inverse-feature-extractor-type=\"none\""},
                          "none"));
}

TEST(SpkEncModel, DeclaresTheFileAndTheFeatures) {
  const SpkEncModel model;
  EXPECT_EQ(lines_of(model.variables()),
            with_features({"file-type=\"SPK-ENC\" read-only", "file-version=\"20231004\" read-only",
                           "magic-number-bin=\"spkb\" read-only", "magic-number-xml=\"spkx\" read-only"},
                          "default"));
}

TEST(VADModel, DeclaresItsVariablesAheadOfThoseOfTheFeatures) {
  const VADModel model;
  EXPECT_EQ(
      lines_of(model.variables()),
      with_features({"file-type=\"VAD\" read-only", "file-version=\"20231004\" read-only",
                     "magic-number-bin=\"vadb\" read-only", "magic-number-xml=\"vadx\" read-only", "thr-vad=float 0.5",
                     "head-margin=int 0", "tail-margin=int 0", "hangover=int 0", "chunk-size=int 80"},
                    "default"));
}

std::string description_of(const EncoderModel& model, const std::string& name) {
  for (const auto& variable : model.variables()) {
    if (variable->name() == name) return variable->description();
  }
  return "";
}

TEST(Models, HaveTheHelpTextsOfTheProgram) {
  const SEModel enhancement;
  EXPECT_EQ(description_of(enhancement, "offline"), "オフライン音声強調のON/OFF、指定しない場合はストリーミングとなる");
  EXPECT_EQ(description_of(enhancement, "chunk-size"), "音声強調用データの各チャンクのフレーム数");
  EXPECT_EQ(description_of(enhancement, "num-channels"), "チャネル数");
  const VADModel activity;
  EXPECT_EQ(description_of(activity, "thr-vad"), "有声判定の閾値");
  EXPECT_EQ(description_of(activity, "hangover"), "ハングオーバー区間(チャンク数)");
  EXPECT_EQ(description_of(activity, "chunk-size"), "単体動作時の入力チャンクサイズ");
  for (const auto& variable : enhancement.variables()) EXPECT_NE(variable->description(), "") << variable->name();
}

std::string out_of_range(const std::string& name) { return "変数\"" + name + "\"の設定値が有効範囲外. in base.h %d"; }

TEST(FEManager, ChecksWhatIsSet) {
  FEManager manager;
  for (const char* const name : {"sample-frequency", "frame-length", "frame-shift", "dither"}) {
    EXPECT_EQ(setting<float>(manager, name, 0.0f), "");
    EXPECT_THAT(setting<float>(manager, name, -0.1f), IsMessage(out_of_range(name)));
  }
  for (const char* const name : {"preemphasis-coefficient", "blackman-coeff"}) {
    EXPECT_EQ(setting<float>(manager, name, 0.0f), "");
    EXPECT_EQ(setting<float>(manager, name, 1.0f), "");
    EXPECT_THAT(setting<float>(manager, name, 1.01f), IsMessage(out_of_range(name)));
    EXPECT_THAT(setting<float>(manager, name, -0.01f), IsMessage(out_of_range(name)));
  }
  for (const char* const type : {"hamming", "hanning", "povey", "rectangle", "sine", "blackman"}) {
    EXPECT_EQ(setting<std::string>(manager, "window-type", type), "");
  }
  EXPECT_THAT(setting<std::string>(manager, "window-type", "rectangular"), IsMessage(out_of_range("window-type")));
  EXPECT_EQ(setting<int>(manager, "num-mel-bins", 1), "");
  EXPECT_THAT(setting<int>(manager, "num-mel-bins", 0), IsMessage(out_of_range("num-mel-bins")));
  for (const char* const type : {"none", "default", "lmfb"}) {
    EXPECT_EQ(setting<std::string>(manager, "feature-extractor-type", type), "");
  }
  EXPECT_THAT(setting<std::string>(manager, "feature-extractor-type", "mfcc"),
              IsMessage(out_of_range("feature-extractor-type")));
}

TEST(FEManager, TakesAnyValueOfAVariableWithoutBounds) {
  const std::set<std::string> bounded = {"sample-frequency",        "frame-length",   "frame-shift",  "dither",
                                         "preemphasis-coefficient", "blackman-coeff", "num-mel-bins", "window-type",
                                         "feature-extractor-type"};
  FEManager manager;
  std::size_t taken = 0;
  for (const auto& variable : manager.variables()) {
    const std::string& name = variable->name();
    if (bounded.contains(name)) continue;
    ++taken;
    if (dynamic_cast<const Variable<float>*>(variable.get()) != nullptr) {
      EXPECT_EQ(setting<float>(manager, name, std::numeric_limits<float>::lowest()), "") << name;
      EXPECT_EQ(setting<float>(manager, name, std::numeric_limits<float>::max()), "") << name;
    } else if (dynamic_cast<const Variable<int>*>(variable.get()) != nullptr) {
      EXPECT_EQ(setting<int>(manager, name, std::numeric_limits<int>::lowest()), "") << name;
      EXPECT_EQ(setting<int>(manager, name, std::numeric_limits<int>::max()), "") << name;
    } else {
      EXPECT_EQ(setting<bool>(manager, name, false), "") << name;
      EXPECT_EQ(setting<bool>(manager, name, true), "") << name;
    }
  }
  EXPECT_EQ(taken, 36u);
}

TEST(SEModel, ChecksWhatIsSet) {
  SEModelImpl model;
  for (const char* const name : {"chunk-size", "num-channels"}) {
    EXPECT_EQ(setting<int>(model, name, 1), "");
    EXPECT_THAT(setting<int>(model, name, 0), IsMessage(out_of_range(name)));
  }
  EXPECT_EQ(setting<int>(model, "reset-context", 0), "");
  EXPECT_THAT(setting<int>(model, "reset-context", -1), IsMessage(out_of_range("reset-context")));
  EXPECT_THAT(message_of([&] { model.set_from_text("overlap", "-1"); }), IsMessage(out_of_range("overlap")));
  for (const char* const name : {"enhancement-strength", "switching-strength"}) {
    EXPECT_EQ(setting<float>(model, name, 0.0f), "");
    EXPECT_EQ(setting<float>(model, name, 1.0f), "");
    EXPECT_THAT(setting<float>(model, name, -0.01f), IsMessage(out_of_range(name)));
    EXPECT_THAT(setting<float>(model, name, 1.01f), IsMessage(out_of_range(name)));
  }
  EXPECT_EQ(setting<std::string>(model, "inverse-feature-extractor-type", "none"), "");
  EXPECT_THAT(setting<std::string>(model, "inverse-feature-extractor-type", "default"),
              IsMessage(out_of_range("inverse-feature-extractor-type")));
}

TEST(VADModel, ChecksWhatIsSet) {
  VADModelImpl model;
  EXPECT_EQ(setting<float>(model, "thr-vad", 0.0f), "");
  EXPECT_EQ(setting<float>(model, "thr-vad", 1.0f), "");
  EXPECT_THAT(setting<float>(model, "thr-vad", 1.01f), IsMessage(out_of_range("thr-vad")));
  EXPECT_THAT(setting<float>(model, "thr-vad", -0.01f), IsMessage(out_of_range("thr-vad")));
  for (const char* const name : {"head-margin", "tail-margin", "hangover"}) {
    EXPECT_EQ(setting<int>(model, name, 0), "");
    EXPECT_THAT(setting<int>(model, name, -1), IsMessage(out_of_range(name)));
  }
  EXPECT_EQ(setting<int>(model, "chunk-size", 1), "");
  EXPECT_THAT(setting<int>(model, "chunk-size", 0), IsMessage(out_of_range("chunk-size")));
}

}  // namespace
}  // namespace sonivo::e2e::test
