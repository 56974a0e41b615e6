#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "e2easr_model/buffer_mem.h"
#include "e2easr_model/encoder_model.h"

namespace sonivo::e2e {

class VADModel;
class VADModelImpl;

/// Speech enhancement of a stream, chunk by chunk: the network runs once per chunk and remembers what was before.
class SEModelImpl : public EncoderModelImpl {
 public:
  SEModelImpl();
  ~SEModelImpl() override;

  /// The frames in the columns, enhanced: `enhanced`. Of samples (`feature-extractor-type` none), in 16-bit scale, one
  /// row of samples; of features as many rows as the input where the result can be cut so, otherwise one.
  E2EResult execute(const Matrix& input) override;
  void unload() override;

  void startEnhancement(std::shared_ptr<Input<short>> input);
  void stopEnhancement();
  E2EResult getEnhancedResult(std::uint32_t& state);

  /// Begins a run of all of the input, also where a VAD model is set.
  void start_ungated(std::shared_ptr<Input<short>> input);
  /// All that the started stream can give without end, as one chunk.
  Matrix enhance_available();

  void set_vad(std::shared_ptr<VADModelImpl> model);
  const VADModelImpl* vad_model() const { return vad_model_.get(); }

 private:
  /// Frames that go through the network together.
  struct Chunk {
    int index = 0;
    std::shared_ptr<meridane::FrameSequence> frames = std::make_shared<meridane::FrameSequence>();
    int chunk_size = 0;
    int overlap = 0;

    bool is_full() const {
      return frames->size() >= static_cast<std::size_t>(chunk_size) + 2 * static_cast<std::size_t>(overlap);
    }
  };

  /// How the network's channels become one, as it is at the start of a call.
  struct Mix {
    bool is_switching;
    float strength;
    float switching;
  };

  using Frames = std::span<const meridane::FrameValue>;

  /// Ends the run before, if there was one.
  void begin_run();
  void end_run();
  void check_started() const;
  E2EResult get_all(std::uint32_t& state);
  E2EResult get_chunk(std::uint32_t& state);
  /// Appends the next frame of the stream, or what the preprocessor makes of it.
  void take_frame(Chunk& chunk);
  /// Appends what the preprocessor has held back.
  void append_rest(Chunk& chunk);
  void append(Chunk& chunk, meridane::FrameSequence frames) const;
  /// The last frames of the chunk before, zeros ahead of them where it has too few.
  meridane::FrameSequence overlap_frames(const Chunk& chunk, Eigen::Index rows) const;
  /// Asks the VAD model for the next segment: speech goes into vad_buffer_; false for silence.
  bool take_speech();
  /// The next frames begin a stream of their own.
  void skip_silence();

  Matrix enhance(Frames frames);
  /// Appends to enhanced_ the one row that is made of the channels.
  void blend(const Matrix& channels, const Mix& mix);
  void reset_network();

  std::shared_ptr<FEManager> fe_manager_;
  std::shared_ptr<FEStream> stream_;   // empty outside a run
  bool has_input_ = false;             // a frame has come in this run
  std::int32_t chunk_index_ = 0;       // chunks taken in this run, by this model
  std::int32_t context_position_ = 0;  // frames since the network was reset
  std::shared_ptr<Chunk> previous_chunk_;
  std::shared_ptr<VADModelImpl> vad_model_;

  // Of a run with a VAD model.
  std::shared_ptr<VADModelImpl> running_vad_;
  std::shared_ptr<BufferMem> vad_buffer_;
  bool vad_has_ended_ = false;
  std::vector<short> silence_;  // the last segment without speech

  // For the memory they hold from chunk to chunk.
  std::vector<float> frame_;
  std::vector<float> enhanced_;
};

/// How another model holds an SE model.
using SEModelInt = std::shared_ptr<SEModelImpl>;

/// Handle on a speech enhancement model.
class SEModel : public EncoderModel {
 public:
  SEModel() : SEModel(std::make_shared<SEModelImpl>()) {}

  /// Begins a run. Without an input it can't give anything.
  void startEnhancement(std::shared_ptr<Input<short>> input) { model_->startEnhancement(std::move(input)); }
  /// The next chunk, or with `offline` all of the stream, as `enhanced`; waits for the input. state: 1 when the stream
  /// is finished, 0 otherwise.
  E2EResult getEnhancedResult(std::uint32_t& state) { return model_->getEnhancedResult(state); }
  void stopEnhancement() { model_->stopEnhancement(); }
  /// Only what the model finds to be speech is enhanced from the next start on; unload() ends that.
  /// "設定するVADモデルが 読み込まれていない" for one that isn't loaded; throws also for one that has this model set.
  void set_vad(const VADModel& model);

  E2EResult execute(const Matrix& input) { return model_->execute(input); }
  const SEModelInt& model() const { return model_; }

 private:
  explicit SEModel(std::shared_ptr<SEModelImpl> model) : EncoderModel(model), model_(std::move(model)) {}

  std::shared_ptr<SEModelImpl> model_;
};

}  // namespace sonivo::e2e
