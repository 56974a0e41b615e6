#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "meridane/framescore/nn.h"

namespace meridane {

/// Runs a network over one stream: each step is an input and its output; what layers remember stays here. For one
/// thread at a time.
///
/// Memory: a result of the step before is written over if only this scorer holds it, and where results aren't kept, one
/// of this step that no layer reads any more, too. In steady state, with the same number of frames in each step,
/// nothing is allocated but what layers need for themselves and, for each result that the caller keeps, its successor.
class NNScorer : public FrameScorer {
 public:
  using States = std::map<std::string, std::shared_ptr<NNLayerState>>;

  explicit NNScorer(const NNParameter& parameter);
  NNScorer(const NNScorer&) = delete;
  NNScorer& operator=(const NNScorer&) = delete;

  using FrameScorer::set_input;
  void set_input(const std::shared_ptr<FrameSequence>& frames) override;
  void set_input(MinibatchPtr input);  ///< the same without a copy
  void set_frame_skip(unsigned int skip) override { frame_skip_ = skip; }
  /// Whether the results of all layers stay until the next step, as they do at first. Otherwise only those of the first
  /// and of the last layer do, and the others share memory that is small enough for a cache.
  void set_keeps_results(bool keeps) { keeps_results_ = keeps; }
  void reset() override;

  void set_states(const States& states) { layer_states_ = states; }
  States get_states() const;  ///< a deep copy

  float score(std::uint64_t frame, std::uint64_t dimension) override;
  std::uint64_t output_dimension() const override { return parameter_->noutput(); }
  Matrix output() override;
  const Minibatch& output_minibatch();
  /// What a layer gave in the last step, if it has been kept.
  MinibatchPtr get_layer_output(const std::string& id) const;

  void execute() override;

  /// Memory of the numbers of results and states, which is what a stream needs beside the network. That of layers for
  /// what stands between their input and output belongs to the thread and doesn't count.
  std::uint64_t bytes() const;

 protected:
  /// The input of this step, checked.
  virtual MinibatchPtr step_input() const;
  /// Called with each layer's result; expected: frames that went in.
  virtual void check_result(const NNLayer& layer, const Minibatch& result, std::uint64_t expected) const;
  /// Frames that the result of `frames` frames of input is stretched to under a frame skip; 0: it stays as it is.
  virtual std::uint64_t stretched_size(std::uint64_t frames, const Minibatch& result) const;

  const MinibatchPtr& input() const { return input_; }
  std::uint64_t frame_skip() const { return frame_skip_; }
  void expect_dimension(const Minibatch& input) const;

 private:
  /// A layer and where its inputs and its result are.
  struct Place {
    std::shared_ptr<const NNLayer> layer;
    std::vector<MinibatchPtr*> inputs;  ///< none: that of the network
    MinibatchPtr* result;
    std::vector<MinibatchPtr*> last_read{};  ///< inputs that no layer behind this one reads, nor anybody else
    Eigen::Index made = 0;                   ///< numbers of the latest result that the layer has made itself
  };

  void place_layers();
  MinibatchPtr skipped(const MinibatchPtr& input);
  void run_layer(Place& place, const MinibatchPtr& input, std::uint64_t expected);
  MinibatchPtr take_read(Eigen::Index size);
  void forget(MinibatchPtr& slot);

  const NNParameter* parameter_;
  unsigned int frame_skip_ = 1;
  bool keeps_results_ = true;
  bool executed_ = false;
  std::uint64_t fed_ = 0;  // frames, since the stream began
  MinibatchPtr input_;
  MinibatchPtr output_;
  std::map<std::string, MinibatchPtr> layer_outputs_;
  std::vector<Place> places_;              // along the forward path, in layer_outputs_
  std::vector<MinibatchPtr*> handed_on_;   // layer outputs that are those of another layer too
  std::vector<MinibatchPtr> read_;         // forgotten in this step
  std::vector<MinibatchPtr> read_before_;  // in the step before, and not yet written over
  States layer_states_;
  LayerInputs layer_inputs_;  // of the layer that runs; kept for its memory
};

/// For networks in which a layer changes the number of frames.
class NNScorerVariableLength : public NNScorer {
 public:
  using NNScorer::NNScorer;

 protected:
  void check_result(const NNLayer&, const Minibatch&, std::uint64_t) const override {}
  std::uint64_t stretched_size(std::uint64_t frames, const Minibatch& result) const override;
};

/// For networks with layers that hold frames back: a step without input, null or an empty sequence, gets them out.
class NNScorerForLCBLSTM : public NNScorerVariableLength {
 public:
  using NNScorer::set_input;
  using NNScorerVariableLength::NNScorerVariableLength;
  void set_input(const std::shared_ptr<FrameSequence>& frames) override;

 protected:
  MinibatchPtr step_input() const override;
  std::uint64_t stretched_size(std::uint64_t frames, const Minibatch& result) const override;
};

}  // namespace meridane
