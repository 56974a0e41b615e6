#include "e2easr_model/spkenc_model.h"

#include <iterator>
#include <string>
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
  const bool is_waveform = get<std::string>("feature-extractor-type") == "none";
  const std::shared_ptr<FEStream> stream = fe_manager_->open_stream(std::move(input));

  start_preprocessor();
  meridane::FrameSequence frames;
  const auto append = [&](meridane::FrameSequence more) {
    std::move(more.begin(), more.end(), std::back_inserter(frames));
  };
  std::vector<float> frame;
  bool has_frames = false;
  while (stream->has_next()) {
    stream->next(frame);
    append(preprocessed(frame));
    has_frames = true;
  }
  if (!has_frames) raise("特徴量が取得できない. in %s %d");
  append(preprocessor_rest());
  if (frames.empty()) raise("前処理に必要な特徴量が取得できない. in %s %d");

  reset();  // one recording has nothing to do with another
  const Matrix& encoded = nn().process(network_input(frames, is_waveform));
  if (encoded.cols() == 0) raise("特徴量が取得できない. in %s %d");
  E2EResult result;
  result.add<Matrix>("embed", encoded.cast<double>().rowwise().mean().cast<float>());
  return result;
}

}  // namespace sonivo::e2e
