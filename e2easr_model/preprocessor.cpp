#include "e2easr_model/preprocessor.h"

#include "meridane/frontend/flow.h"

namespace sonivo::e2e {

Preprocessor::Preprocessor(std::istream& document) : flow_(std::make_unique<meridane::Flow>(document)) {
  flow_->keep_only();
}
Preprocessor::Preprocessor(const meridane::XmlElement& flow) : flow_(std::make_unique<meridane::Flow>(&flow)) {
  flow_->keep_only();
}
Preprocessor::~Preprocessor() = default;

void Preprocessor::dump(std::ostream& document) const { flow_->dump(document); }

void Preprocessor::start() {
  flow_->reset();
  flow_->start();
}

meridane::Matrix Preprocessor::process(const meridane::Vector& frame) {
  flow_->feed(frame);
  return flow_->take();
}

meridane::Matrix Preprocessor::finish() {
  if (!flow_->in_session()) return {};
  flow_->end();
  return flow_->take();
}

}  // namespace sonivo::e2e
