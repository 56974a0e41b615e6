// Which type names there are. A new node is one line here.

#include "lib/frontend/affine_transform_node.h"
#include "lib/frontend/buffering_node.h"
#include "lib/frontend/frame_window_node.h"
#include "lib/frontend/gmm_quantize_node.h"
#include "lib/frontend/merge_node.h"
#include "lib/frontend/rbm_sample_node.h"
#include "lib/frontend/reorder_node.h"
#include "lib/frontend/scalar_func_node.h"
#include "lib/frontend/softmax_node.h"
#include "lib/frontend/word_embedding_node.h"

namespace meridane {
namespace {

template <class Node>
bool node_type(const std::string& type) {
  return NodeBuilder::regist(type,
                             [type](const std::string& name, const std::shared_ptr<FlowBudget>& budget,
                                    const XmlElement& element) -> std::shared_ptr<FlowNode> {
                               auto node = std::make_shared<Node>(name, type, budget);
                               node->load_settings(element);
                               return node;
                             });
}

[[maybe_unused]] const bool node_types =
    node_type<AffineTransformNode>("AffineTransformNode") && node_type<BufferingNode>("BufferingNode") &&
    node_type<FrameWindowNode>("FrameWindowNode") && node_type<GMMQuantizeNode>("GMMQuantizeNode") &&
    node_type<MergeNode>("MergeNode") && node_type<RBMSampleNode>("RBMSampleNode") &&
    node_type<ReorderNode>("ReorderNode") && node_type<ScalarFuncNode>("ScalarFuncNode") &&
    node_type<SoftmaxNode>("SoftmaxNode") && node_type<WordEmbeddingNode>("WordEmbeddingNode");

}  // namespace

void ensure_node_table() {}

}  // namespace meridane
