#pragma once

#include <memory>

#include "e2easr_model/se_model.h"
#include "enhance/fifo_input.h"

namespace sonivo {

/// Encodes what comes out of the FIFO, until its end, with the speaker encoder of the file, and stores the result in
/// the target-speaker model. Throws what the models throw.
void set_spkenc(e2e::SEModel& model, const std::shared_ptr<FifoInput>& fifo, const char* enc_model_file);

}  // namespace sonivo
