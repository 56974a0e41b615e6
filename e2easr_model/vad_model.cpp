#include "e2easr_model/vad_model.h"

#include <algorithm>
#include <utility>

namespace sonivo::e2e {

VADModelImpl::VADModelImpl() : EncoderModelImpl("VAD", "vadb", "vadx"), fe_manager_(std::make_shared<FEManager>()) {
  const VariableGreaterEqual<int> from_zero{0};
  add_variable<float>("thr-vad", 0.5f, false, "有声判定の閾値", VariableRange<float>{0.0f, 1.0f});
  add_variable<int>("head-margin", 0, false, "chunks of margin ahead of an utterance", from_zero);
  add_variable<int>("tail-margin", 0, false, "chunks of margin behind an utterance", from_zero);
  add_variable<int>("hangover", 0, false, "ハングオーバー区間(チャンク数)", from_zero);
  add_variable<int>("chunk-size", 80, false, "単体動作時の入力チャンクサイズ", VariableGreaterEqual<int>{1});
  take_over(*fe_manager_, false);
  save_defaults();
}

VADModelImpl::~VADModelImpl() = default;

void VADModelImpl::unload() {
  EncoderModelImpl::unload();
  se_model_.reset();
  chunk_index_ = 0;
  hangover_ = false;
  hangover_count_ = 0;
}

E2EResult VADModelImpl::execute(const Matrix& input) {
  check_loaded();
  if (takes_samples()) return classify(network_input(frames_of(input), true));
  return classify(input);
}

E2EResult VADModelImpl::classify(Matrix network_input) {
  E2EResult result;
  if (network_input.cols() == 0) {
    result.add<Matrix>("prob", Matrix());
    result.add("active", false);
    result.add("hangover", false);
    return result;
  }
  Matrix prob = nn().process(std::move(network_input)).topRows(1);
  const int hangover = get<int>("hangover");
  const bool active = (prob.array() > get<float>("thr-vad")).count() != prob.size();
  if (active) {
    hangover_count_ = 0;
    hangover_ = hangover_count_ < hangover;
  } else if (hangover_) {
    hangover_ = ++hangover_count_ < hangover;
    if (!hangover_) hangover_count_ = 0;
  }
  result.add<Matrix>("prob", std::move(prob));
  result.add("active", active);
  result.add("hangover", hangover_);
  return result;
}

void VADModelImpl::startVAD(std::shared_ptr<Input<short>> input) {
  check_loaded();
  end_run();
  reset();
  chunk_index_ = 0;
  has_ended_ = false;
  tail_ = 0;
  hangover_ = false;
  hangover_count_ = 0;
  if (input == nullptr) return;
  auto samples = std::make_shared<InputSampleWrapper>(std::move(input));
  auto stream = fe_manager_->open_stream(samples);
  if (se_model_ != nullptr) {
    auto buffer = std::make_shared<BufferMem>();
    se_model_->start_ungated(buffer);
    running_se_ = se_model_;
    se_buffer_ = std::move(buffer);
  }
  samples_ = std::move(samples);
  stream_ = std::move(stream);
}

void VADModelImpl::stopVAD() {
  check_loaded();
  end_run();
}

void VADModelImpl::end_run() {
  stream_.reset();
  samples_.reset();
  waiting_.clear();
  se_buffer_.reset();
  const auto se = std::exchange(running_se_, nullptr);
  if (se != nullptr && se->is_loaded()) se->stopEnhancement();
}

void VADModelImpl::read_segment() {
  if (chunk_index_ == 0) start_preprocessor();
  const auto frames_of_chunk = static_cast<std::size_t>(get<int>("chunk-size"));
  meridane::FrameSequence frames;
  std::vector<float> frame;
  while (frames.size() < frames_of_chunk && !has_ended_) {
    if (stream_->has_next()) {
      stream_->next(frame);
      preprocess(frame, frames);
    } else {
      has_ended_ = true;
      finish_preprocessing(frames);
    }
  }
  if (frames.empty()) return;
  ++chunk_index_;
  const E2EResult result = classify(network_input(frames, takes_samples()));
  waiting_.push_back({.input = samples_->samples(),
                      .active = result.get<bool>("active"),
                      .hangover = result.get<bool>("hangover"),
                      .enhanced = std::nullopt});
  samples_->clear();
  if (running_se_ == nullptr) return;
  se_buffer_->append(waiting_.back().input);
  waiting_.back().enhanced = running_se_->enhance_available();
}

bool VADModelImpl::is_released(const Segment& segment) {
  if (segment.is_speech()) {
    tail_ = get<int>("tail-margin");
    return segment.active;
  }
  const bool speech_follows =
      std::any_of(waiting_.begin(), waiting_.end(), [](const Segment& later) { return later.is_speech(); });
  const bool speech_was = tail_ > 0;
  if (speech_was) --tail_;
  return speech_follows || speech_was;
}

E2EResult VADModelImpl::getVADResult(std::uint32_t& state) {
  check_loaded();
  if (stream_ == nullptr) raise("音声区間検出開始処理が実行されていない. in %s %d");
  const auto head_margin = static_cast<std::size_t>(get<int>("head-margin"));
  while (!has_ended_ && waiting_.size() <= head_margin) read_segment();
  if (chunk_index_ == 0 && waiting_.empty()) raise("VADに必要な特徴量が取得できない. in %s %d");

  Segment segment;
  if (!waiting_.empty()) {
    segment = std::move(waiting_.front());
    waiting_.pop_front();
    segment.active = is_released(segment);
  }
  state = has_ended_ && waiting_.empty() ? 1 : 0;
  E2EResult vad;
  vad.add("input", std::move(segment.input));
  vad.add("active", segment.active);
  vad.add("hangover", segment.hangover);
  E2EResult result;
  result.add("vad", std::move(vad));
  if (running_se_ != nullptr) result.add<Matrix>("enhanced", std::move(segment.enhanced).value_or(Matrix()));
  return result;
}

void VADModelImpl::set_se_model(SEModelInt model) {
  if (!model->is_loaded()) raise("設定するSEモデルが読み込まれていない. in %s %d");
  for (const char* const name : {"sample-frequency", "frame-length", "frame-shift"}) {
    if (get<float>(name) != model->get<float>(name)) {
      raise("分析条件が適合しないモデルを設定することはできない. in %s %d");
    }
  }
  if (model->get<int>("overlap") > 0) raise("overlapが1以上のSEモデルをセットすることはできない. in %s %d");
  if (model->vad_model() == this) raise("the models would run each other. in %s %d");
  se_model_ = std::move(model);
}

void VADModel::set_se_model(const SEModel& model) { model_->set_se_model(model.model()); }

}  // namespace sonivo::e2e
