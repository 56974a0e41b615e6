#include "e2easr_model/node.h"

#include <rapidxml/rapidxml.hpp>
#include <utility>

namespace sonivo::e2e {

using meridane::Minibatch;
using meridane::NNParameter;

namespace {

// How a network's layers are built.
constexpr int kPlainMode = 1;
constexpr int kSharedMode = 2;

}  // namespace

MeridaneNNNode::MeridaneNNNode(bool use_shared_memory) : use_shared_memory_(use_shared_memory) {}

void MeridaneNNNode::load(std::istream& stream) {
  auto network = std::make_shared<NNParameter>(use_shared_memory_ ? kSharedMode : kPlainMode);
  network->load_binary_stream(stream);
  run(std::move(network));
}

void MeridaneNNNode::load(const meridane::XmlElement& element) {
  meridane::XmlFile file;
  file.document().append_node(file.document().clone_node(&element));  // its texts stay where they are
  const meridane::ScriptDocument expressions;
  auto network = std::make_shared<NNParameter>(use_shared_memory_ ? kSharedMode : kPlainMode);
  meridane::XmlStoreTraits<NNParameter>::load(*network, file);
  run(std::move(network));
}

void MeridaneNNNode::run(std::shared_ptr<const NNParameter> network) {
  auto scorer = std::dynamic_pointer_cast<meridane::NNScorer>(network->create_scorer());
  scorer_ = std::move(scorer);
  network_ = std::move(network);
}

const meridane::Matrix& MeridaneNNNode::process(meridane::Matrix input) {
  scorer_->set_input(std::make_shared<Minibatch>(std::move(input)));
  return scorer_->output_minibatch().content();
}

void MeridaneNNNode::set_vector(const std::string& layer, const meridane::Vector& vector) {
  run(network_->with_bias(layer, vector));
}

}  // namespace sonivo::e2e
