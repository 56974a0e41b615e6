#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "e2easr_model/se_model.h"

namespace sonivo::e2e {

/// Voice activity of a stream, chunk by chunk. The network tells for each frame how probable it is that nobody speaks;
/// a chunk is silent if all its frames are above `thr-vad`.
class VADModelImpl : public EncoderModelImpl {
 public:
  VADModelImpl();
  ~VADModelImpl() override;

  /// Of the frames in the columns: `prob`, a row with a value per frame, `active` and `hangover`.
  E2EResult execute(const Matrix& input) override;
  void unload() override;

  void startVAD(std::shared_ptr<Input<short>> input);
  void stopVAD();
  E2EResult getVADResult(std::uint32_t& state);

  void set_se_model(SEModelInt model);
  const SEModelImpl* se_model() const { return se_model_.get(); }

 private:
  /// What was read and classified, and waits for what follows.
  struct Segment {
    std::vector<short> input;
    bool active = false;
    bool hangover = false;
    std::optional<Matrix> enhanced;

    bool is_speech() const { return active || hangover; }
  };

  void end_run();
  /// Reads `chunk-size` frames, or those that are left.
  void read_segment();
  /// Also true for the margins around speech.
  bool is_released(const Segment& segment);
  E2EResult classify(Matrix network_input);

  std::shared_ptr<FEManager> fe_manager_;
  SEModelInt se_model_;
  std::shared_ptr<InputSampleWrapper> samples_;
  std::shared_ptr<FEStream> stream_;  // empty outside a run
  std::int32_t chunk_index_ = 0;      // chunks read in this run
  SEModelInt running_se_;             // of a run with an SE model
  std::shared_ptr<BufferMem> se_buffer_;
  bool has_ended_ = false;
  std::deque<Segment> waiting_;
  std::int32_t tail_ = 0;  // segments that are still released behind the speech
  bool hangover_ = false;
  std::int32_t hangover_count_ = 0;
};

/// How another model holds a VAD model.
using VADModelInt = std::shared_ptr<VADModelImpl>;

/// Handle on a voice-activity model.
class VADModel : public EncoderModel {
 public:
  VADModel() : VADModel(std::make_shared<VADModelImpl>()) {}

  void startVAD(std::shared_ptr<Input<short>> input) { model_->startVAD(std::move(input)); }
  void stopVAD() { model_->stopVAD(); }
  /// The next chunk: `vad`, with its samples `input` and the flags `active` and `hangover`; `enhanced` too, with an SE
  /// model. Each chunk is given once, in order. It is active also where speech follows within `head-margin` chunks,
  /// for which so many are held back, or lies at most `tail-margin` chunks behind. state: 1 when the stream is
  /// finished, 0 otherwise.
  E2EResult getVADResult(std::uint32_t& state) { return model_->getVADResult(state); }

  E2EResult execute(const Matrix& input) { return model_->execute(input); }

  /// From the next start on chunks are enhanced as they are classified, speech or not; unload() ends that. Throws for a
  /// model that isn't loaded, that cuts frames in another way, whose chunks overlap, or that has this model set.
  void set_se_model(const SEModel& model);

  const VADModelInt& model() const { return model_; }

 private:
  explicit VADModel(std::shared_ptr<VADModelImpl> model) : EncoderModel(model), model_(std::move(model)) {}

  std::shared_ptr<VADModelImpl> model_;
};

}  // namespace sonivo::e2e
