#include "e2easr_model/se_model.h"

#include <algorithm>
#include <string>
#include <utility>
#include <variant>

#include "e2easr_model/vad_model.h"
#include "e2easr_model/waveform.h"

namespace sonivo::e2e {

using meridane::FrameSequence;
using meridane::Vector;

namespace {

E2EResult enhanced_result(Matrix enhanced) {
  E2EResult result;
  result.add<Matrix>("enhanced", std::move(enhanced));
  return result;
}

}  // namespace

SEModelImpl::SEModelImpl() : EncoderModelImpl("SE", "senb", "senx"), fe_manager_(std::make_shared<FEManager>()) {
  const VariableGreaterEqual<int> from_zero{0};
  const VariableGreaterEqual<int> from_one{1};
  const VariableRange<float> unit{0.0f, 1.0f};
  add_variable<bool>("offline", true, false, "オフライン音声強調のON/OFF、指定しない場合はストリーミングとなる",
                     VariableAny());
  add_variable<int>("chunk-size", 80, false, "音声強調用データの各チャンクのフレーム数", from_one);
  add_variable<int>("overlap", 0, true, "frames of overlap between chunks", from_zero);
  add_variable<int>("reset-context", 0, false, "frames between resets of the network's state; 0: never", from_zero);
  add_variable<int>("num-channels", 1, false, "チャネル数", from_one);
  add_variable<float>("enhancement-strength", 1.0f, false, "0.0: the input as it is, 1.0: all of the enhancement",
                      unit);
  add_variable<float>("switching-strength", 1.0f, false, "0.0: the first of two enhancements, 1.0: the second", unit);
  add_variable<bool>("is-switching-se", false, true, "the network has two enhancements", VariableAny());
  add_variable<std::string>("inverse-feature-extractor-type", "none", false, "not implemented",
                            VariableAnyOf<std::string>{{"none"}});
  take_over(*fe_manager_, false);
  set<std::string>("feature-extractor-type", "none");
  save_defaults();
}

SEModelImpl::~SEModelImpl() = default;

void SEModelImpl::unload() {
  EncoderModelImpl::unload();
  vad_model_.reset();
  previous_chunk_.reset();
  chunk_index_ = 0;
  context_position_ = 0;
}

void SEModelImpl::reset_network() {
  nn().reset();
  context_position_ = 0;
}

void SEModelImpl::begin_run() {
  check_loaded();
  end_run();
  reset();
  context_position_ = 0;
  chunk_index_ = 0;
  has_input_ = false;
}

void SEModelImpl::end_run() {
  stream_.reset();
  previous_chunk_.reset();
  vad_buffer_.reset();
  vad_has_ended_ = false;
  const auto vad = std::exchange(running_vad_, nullptr);
  if (vad != nullptr && vad->is_loaded()) vad->stopVAD();
}

void SEModelImpl::startEnhancement(std::shared_ptr<Input<short>> input) {
  if (vad_model_ == nullptr || get<bool>("offline") || input == nullptr) return start_ungated(std::move(input));
  begin_run();
  auto speech = std::make_shared<BufferMem>();
  auto stream = fe_manager_->open_stream(speech);
  vad_model_->startVAD(std::move(input));
  running_vad_ = vad_model_;
  vad_buffer_ = std::move(speech);
  stream_ = std::move(stream);
}

void SEModelImpl::start_ungated(std::shared_ptr<Input<short>> input) {
  begin_run();
  if (input != nullptr) stream_ = fe_manager_->open_stream(std::move(input));
}

void SEModelImpl::stopEnhancement() {
  check_loaded();
  end_run();
}

void SEModelImpl::check_started() const {
  check_loaded();
  if (stream_ == nullptr) raise("音声強調開始処理が実行されていない. in %s %d");
}

E2EResult SEModelImpl::getEnhancedResult(std::uint32_t& state) {
  check_started();
  return get<bool>("offline") ? get_all(state) : get_chunk(state);
}

E2EResult SEModelImpl::get_all(std::uint32_t& state) {
  start_preprocessor();
  Chunk chunk;
  bool has_frames = false;
  while (stream_->has_next()) {
    take_frame(chunk);
    has_frames = true;
  }
  if (!has_frames) raise("音声強調に必要なデータが取得できない. in %s %d");
  append_rest(chunk);
  state = 1;
  return enhanced_result(enhance(*chunk.frames));
}

Matrix SEModelImpl::enhance_available() {
  check_started();
  if (chunk_index_++ == 0) start_preprocessor();
  Chunk chunk;
  while (stream_->has_next()) take_frame(chunk);
  return enhance(*chunk.frames);
}

E2EResult SEModelImpl::get_chunk(std::uint32_t& state) {
  if (chunk_index_ == 0) start_preprocessor();
  const auto chunk = std::make_shared<Chunk>(
      Chunk{.index = chunk_index_, .chunk_size = get<int>("chunk-size"), .overlap = get<int>("overlap")});
  bool has_ended = false;
  bool is_silence = false;
  while (!chunk->is_full() && !has_ended && !is_silence) {
    if (stream_->has_next()) {
      take_frame(*chunk);
    } else if (running_vad_ == nullptr || vad_has_ended_) {
      has_ended = true;
    } else {
      is_silence = !take_speech();
    }
  }
  if (has_ended || is_silence) append_rest(*chunk);
  has_input_ = has_input_ || !chunk->frames->empty();
  if (!has_input_ && running_vad_ == nullptr) {
    raise("音声強調に必要なデータが取得できない. in %s %d");
  }
  if (!chunk->frames->empty()) ++chunk_index_;
  if (chunk->is_full()) previous_chunk_ = chunk;
  Matrix enhanced = enhance(*chunk->frames);
  if (is_silence) {
    skip_silence();
    has_ended = vad_has_ended_;
  }
  state = has_ended && !chunk->is_full() ? 1 : 0;
  return enhanced_result(std::move(enhanced));
}

void SEModelImpl::take_frame(Chunk& chunk) {
  stream_->next(frame_);
  FrameSequence frames;
  preprocess(frame_, frames);
  append(chunk, std::move(frames));
}

void SEModelImpl::append_rest(Chunk& chunk) {
  FrameSequence frames;
  finish_preprocessing(frames);
  append(chunk, std::move(frames));
}

void SEModelImpl::append(Chunk& chunk, FrameSequence frames) const {
  if (frames.empty()) return;
  if (chunk.frames->empty() && previous_chunk_ != nullptr && chunk.overlap > 0) {
    *chunk.frames = overlap_frames(chunk, std::get<Vector>(frames.front()).size());
  }
  std::move(frames.begin(), frames.end(), std::back_inserter(*chunk.frames));
}

FrameSequence SEModelImpl::overlap_frames(const Chunk& chunk, Eigen::Index rows) const {
  const FrameSequence& before = *previous_chunk_->frames;
  const auto overlap = static_cast<std::size_t>(chunk.overlap);
  const std::size_t kept = std::min(overlap, before.size());
  FrameSequence frames(overlap - kept, Vector(Vector::Zero(rows)));
  frames.insert(frames.end(), before.end() - static_cast<std::ptrdiff_t>(kept), before.end());
  return frames;
}

bool SEModelImpl::take_speech() {
  std::uint32_t state = 0;
  const auto vad = running_vad_->getVADResult(state).get<E2EResult>("vad");
  vad_has_ended_ = state == 1;
  const auto& input = vad.get<std::vector<short>>("input");
  const bool is_speech = vad.get<bool>("active") || vad.get<bool>("hangover");
  if (is_speech) {
    vad_buffer_->append(input);
  } else {
    silence_ = input;
  }
  return is_speech;
}

void SEModelImpl::skip_silence() {
  // What frames at the start of the next segment reach back to.
  const double samples = static_cast<double>(get<float>("sample-frequency")) *
                         (get<float>("frame-length") - get<float>("frame-shift")) / 1000.0;
  const auto most = static_cast<double>(silence_.size());
  vad_buffer_->restart(silence_, samples > 0 ? static_cast<std::size_t>(std::min(samples, most)) : 0);
  stream_ = fe_manager_->open_stream(vad_buffer_);
  start_preprocessor();
  reset_network();
  previous_chunk_.reset();
}

E2EResult SEModelImpl::execute(const Matrix& input) {
  check_loaded();
  return enhanced_result(enhance(frames_of(input)));
}

Matrix SEModelImpl::enhance(Frames frames) {
  if (frames.empty()) return {};
  check_loaded();  // while the input was awaited, the model may have gone
  const bool is_waveform = takes_samples();
  const auto context = static_cast<std::size_t>(get<int>("reset-context"));
  const Mix mix = {.is_switching = get<bool>("is-switching-se"),
                   .strength = current<float>("enhancement-strength"),
                   .switching = current<float>("switching-strength")};
  const auto run = [&](Frames piece) { blend(nn().process(network_input(piece, is_waveform)), mix); };
  const Eigen::Index frame_rows = is_waveform ? 1 : std::get<Vector>(frames.front()).size();

  enhanced_.clear();
  if (get<bool>("offline") || context == 0) {
    run(frames);
  } else {
    while (!frames.empty()) {
      const auto position = std::min(static_cast<std::size_t>(context_position_), context);
      const Frames piece = frames.first(std::min(frames.size(), context - position));
      if (!piece.empty()) run(piece);
      frames = frames.subspan(piece.size());
      context_position_ = static_cast<std::int32_t>(position + piece.size());
      if (position + piece.size() == context) reset_network();
    }
  }
  if (is_waveform) std::transform(enhanced_.begin(), enhanced_.end(), enhanced_.begin(), sixteen_bit_scale);
  const auto length = static_cast<Eigen::Index>(enhanced_.size());
  const Eigen::Index rows = frame_rows > 0 && length % frame_rows == 0 ? frame_rows : 1;
  return Eigen::Map<const Matrix>(enhanced_.data(), rows, length / rows);
}

void SEModelImpl::blend(const Matrix& channels, const Mix& mix) {
  const Eigen::Index rows = channels.rows();
  if (mix.is_switching ? rows != 3 : rows != 1 && rows != 2) raise("音声強調モデルの出力チャネル数が不正. in %s %d");
  enhanced_.reserve(enhanced_.size() + static_cast<std::size_t>(channels.cols()));
  // At the ends nothing of the other comes in, whatever it is: 0 times what is no number would be none.
  const auto mixed = [](float share, float a, float b) {
    if (share == 0.0f) return b;
    return share == 1.0f ? a : share * a + (1.0f - share) * b;
  };
  for (Eigen::Index t = 0; t < channels.cols(); ++t) {
    const float* const x = channels.col(t).data();
    float y = x[0];
    if (rows == 2) y = mixed(mix.strength, x[1], x[0]);
    if (rows == 3) y = mixed(mix.strength, mixed(mix.switching, x[2], x[1]), x[0]);
    enhanced_.push_back(y);
  }
}

void SEModelImpl::set_vad(VADModelInt model) {
  if (!model->is_loaded()) raise("設定するVADモデルが読み込まれていない. in %s %d");
  if (model->se_model() == this) raise("the models would run each other. in %s %d");
  vad_model_ = std::move(model);
}

void SEModel::set_vad(const VADModel& model) { model_->set_vad(model.model()); }

}  // namespace sonivo::e2e
