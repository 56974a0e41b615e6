#pragma once

#include <memory>

#include "e2easr_model/encoder_model.h"

namespace sonivo::e2e {

/// Speaker encoder: turns a recording of any length into one vector that tells its speaker.
class SpkEncModelImpl : public EncoderModelImpl {
 public:
  SpkEncModelImpl();
  ~SpkEncModelImpl() override;

  E2EResult encode(std::shared_ptr<Input<short>> input);

 private:
  std::shared_ptr<FEManager> fe_manager_;
};

/// Handle on a speaker encoder.
class SpkEncModel : public EncoderModel {
 public:
  SpkEncModel() : SpkEncModel(std::make_shared<SpkEncModelImpl>()) {}

  /// Reads the input to its end. `embed`: the network's result, averaged over time; a column.
  E2EResult encode(std::shared_ptr<Input<short>> input) { return model_->encode(std::move(input)); }

 private:
  explicit SpkEncModel(std::shared_ptr<SpkEncModelImpl> model) : EncoderModel(model), model_(std::move(model)) {}

  std::shared_ptr<SpkEncModelImpl> model_;
};

}  // namespace sonivo::e2e
