#include "enhance/set_spkenc.h"

#include "e2easr_model/spkenc_model.h"
#include "enhance/log.h"

namespace sonivo {

void set_spkenc(e2e::SEModel& model, const std::shared_ptr<FifoInput>& fifo, const char* enc_model_file) {
  log_text(LogLevel::info2, "set_spkenc:\n");
  e2e::SpkEncModel encoder;
  encoder.load(enc_model_file, false);
  log_text(LogLevel::info2, "set_spkenc: sample-frequency=%d, frame-length=%d\n",
           static_cast<int>(encoder.get<float>("sample-frequency")),
           static_cast<int>(encoder.get<float>("frame-length")));
  const e2e::E2EResult result = encoder.encode(fifo);
  model.set_spk_embedding(result.get<meridane::Matrix>("embed"));
  log_text(LogLevel::info2, "set_spkenc: return\n");
}

}  // namespace sonivo
