// Any bytes are a model or an error that leaves no model. What is a model is saved and loads again as the same, and
// runs over a short stream, which it may refuse.

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "e2easr_model/buffer_mem.h"
#include "e2easr_model/se_model.h"
#include "e2easr_model/spkenc_model.h"
#include "e2easr_model/vad_model.h"
#include "meridane/io/logging.h"

namespace {

using namespace sonivo::e2e;

constexpr std::uint64_t kMostInputs = 4096;
constexpr int kSteps = 8;

std::shared_ptr<sonivo::Input<short>> short_stream() {
  std::vector<short> samples;
  for (int i = 0; i < 1500; ++i) samples.push_back(static_cast<short>(i * 7919 % 20011 - 10000));
  auto input = std::make_shared<BufferMem>();
  input->append(samples);
  return input;
}

void run(SEModel& model) {
  model.set<bool>("offline", false);
  model.startEnhancement(short_stream());
  std::uint32_t state = 0;
  for (int i = 0; i < kSteps && state == 0; ++i) model.getEnhancedResult(state).get<Matrix>("enhanced");
  model.stopEnhancement();
}

void run(SpkEncModel& model) {
  const Matrix embedding = model.encode(short_stream()).get<Matrix>("embed");
  if (embedding.cols() != 1) std::abort();
}

void run(VADModel& model) {
  model.startVAD(short_stream());
  std::uint32_t state = 0;
  for (int i = 0; i < kSteps && state == 0; ++i) model.getVADResult(state).get<E2EResult>("vad");
  model.stopVAD();
}

std::string saved(const EncoderModel& model) {
  std::ostringstream bytes;
  model.save(bytes);
  return std::move(bytes).str();
}

template <class Model>
void check(const std::string& bytes) {
  Model model;
  try {
    model.load(bytes.data(), bytes.size(), false);
  } catch (const std::runtime_error&) {
    if (model.is_loaded() || !model.symbols().empty() || model.preprocessor() != nullptr) std::abort();
    return;
  }
  // A file may set its own magic and version; what is saved then is for others.
  const bool sets_its_form = model.symbols().contains("magic-number-bin") || model.symbols().contains("file-version");
  if (!sets_its_form) {
    const std::string once = saved(model);
    Model again;
    again.load(once.data(), once.size(), false);
    if (saved(again) != once) std::abort();
  }
  if (model.network().ninput() > kMostInputs) return;
  try {
    initialize();
    run(model);
    model.set_spk_embedding(Matrix::Ones(2, 1));
  } catch (const std::runtime_error&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  meridane::log_threshold() = meridane::kLogError;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  check<SEModel>(bytes);
  check<SpkEncModel>(bytes);
  check<VADModel>(bytes);
  return 0;
}
