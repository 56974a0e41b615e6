#include "e2easr_model/spkenc_model.h"

#include <utility>

namespace sonivo::e2e {

SpkEncModelImpl::SpkEncModelImpl()
    : EncoderModelImpl("SPK-ENC", "spkb", "spkx"), fe_manager_(std::make_shared<FEManager>()) {
  take_over(*fe_manager_, false);
  save_defaults();
}

SpkEncModelImpl::~SpkEncModelImpl() = default;

E2EResult SpkEncModelImpl::encode(std::shared_ptr<Input<short>> input) {
  check_loaded();
  if (input == nullptr) raise("入力クラスのインスタンスが不正. in %s %d");
  const bool is_waveform = takes_samples();
  const std::shared_ptr<FEStream> stream = fe_manager_->open_stream(std::move(input));

  start_preprocessor();
  meridane::FrameSequence frames;
  std::vector<float> frame;
  bool has_frames = false;
  while (stream->has_next()) {
    stream->next(frame);
    preprocess(frame, frames);
    has_frames = true;
  }
  if (!has_frames) raise("特徴量が取得できない. in %s %d");
  finish_preprocessing(frames);
  if (frames.empty()) raise("前処理に必要な特徴量が取得できない. in %s %d");

  reset();  // one recording has nothing to do with another
  const Matrix& encoded = nn().process(network_input(frames, is_waveform));
  if (encoded.cols() == 0) raise("特徴量が取得できない. in %s %d");
  E2EResult result;
  result.add<Matrix>("embed", encoded.cast<double>().rowwise().mean().cast<float>());
  return result;
}

}  // namespace sonivo::e2e
