#include "e2easr_model/node.h"

#include <rapidxml/rapidxml.hpp>
#include <utility>

namespace sonivo::e2e {

using meridane::Minibatch;
using meridane::NNParameter;

namespace {

// Modes of NNParameter.
constexpr int kPlainMode = 1;
constexpr int kQuantizedMode = 2;

std::shared_ptr<NNParameter> new_network(bool use_shared_memory) {
  return std::make_shared<NNParameter>(use_shared_memory ? kQuantizedMode : kPlainMode);
}

}  // namespace

MeridaneNNNode::MeridaneNNNode(bool use_shared_memory) : use_shared_memory_(use_shared_memory) {}

void MeridaneNNNode::load(std::istream& stream) {
  auto network = new_network(use_shared_memory_);
  network->load_binary_stream(stream);
  run(std::move(network));
}

void MeridaneNNNode::load(const meridane::XmlElement& element) {
  meridane::XmlFile file;
  file.document().append_node(file.document().clone_node(&element));  // its texts stay where they are
  const meridane::ScriptDocument expressions;
  auto network = new_network(use_shared_memory_);
  meridane::XmlStoreTraits<NNParameter>::load(*network, file);
  run(std::move(network));
}

void MeridaneNNNode::run(std::shared_ptr<const NNParameter> network) {
  scorer_ = std::dynamic_pointer_cast<meridane::NNScorer>(network->create_scorer());
  scorer_->set_keeps_results(false);
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
