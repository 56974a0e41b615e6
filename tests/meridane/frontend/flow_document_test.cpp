#include <rapidxml/rapidxml.hpp>

#include "flow_samples.h"
#include "meridane/io/script.h"

namespace meridane {
namespace {

const std::string kLoad = "meridane::Flow::load";

std::string softmax(const std::string& id) { return "<node type=\"SoftmaxNode\" id=\"" + id + "\"/>\n"; }

std::string link_of(const std::string& from, const std::string& from_port, const std::string& to,
                    const std::string& to_port) {
  return "<link from_node=\"" + from + "\" from_port=\"" + from_port + "\" to_node=\"" + to + "\" to_port=\"" +
         to_port + "\"/>\n";
}

/// As it is written: all nodes with all settings, no blanks but those of the writer.
const std::string kDocument = R"(<?xml version="1.0"?>
<flow>
	<meta name="author" value="me &amp; you"/>
	<meta name="purpose" value="context"/>
	<node type="FrameWindowNode" id="window">
		<length>3</length>
		<shift>2</shift>
		<partition>2</partition>
		<headedge type="repeat">1</headedge>
		<tailedge type="drop">4</tailedge>
	</node>
	<node type="FrameWindowNode" id="plain">
		<length>1</length>
		<shift>1</shift>
	</node>
	<node type="AffineTransformNode" id="affine">
		<matrix>
1	2	3	4	5	6
0.1	-2	1e+20	0	0	0
</matrix>
		<ibias>
1
2
3
4
5
6
</ibias>
		<obias>
1	2
</obias>
		<scale>
0.5	-1
</scale>
	</node>
	<node type="ReorderNode" id="reorder">
		<mask>
1	0
</mask>
	</node>
	<node type="ScalarFuncNode" id="function">
		<func>max</func>
		<alpha>0.25</alpha>
	</node>
	<node type="ScalarFuncNode" id="root">
		<func>sqrt</func>
	</node>
	<node type="MergeNode" id="merge">
		<num>2</num>
	</node>
	<node type="SoftmaxNode" id="softmax"/>
	<node type="BufferingNode" id="buffer">
		<frame>10</frame>
	</node>
	<node type="GMMQuantizeNode" id="quantize">
		<parameter>
			<GMM magic="MeGMMpar">
				<mean>
0
1
2
3
</mean>
				<chol>
1	0	0	0
0	1	0	0
0	0	1	0
0	0	0	1
</chol>
				<gaussians>
					<gaussian mean="0" chol="0"/>
				</gaussians>
				<mixture>
					<entry gaussian="0" logweight="0"/>
				</mixture>
			</GMM>
		</parameter>
	</node>
	<node type="RBMSampleNode" id="sample">
		<parameter>
			<RBM magic="MeRBMpar">
				<weight>
1	2
3	4
</weight>
				<vbias>
5
6
</vbias>
				<hbias>
7
8
</hbias>
			</RBM>
		</parameter>
		<use_expectation>false</use_expectation>
	</node>
	<node type="WordEmbeddingNode" id="words">
		<mapping charset="utf-8" dim="2" entrysize="1">
			<entry word="声">
				<vec>
1	2
</vec>
			</entry>
		</mapping>
	</node>
	<link from_node="_input" from_port="_input" to_node="plain" to_port="_input"/>
	<link from_node="_input" from_port="_input" to_node="window" to_port="_input"/>
	<link from_node="window" from_port="_output" to_node="affine" to_port="_input"/>
	<link from_node="affine" from_port="_output" to_node="reorder" to_port="_input"/>
	<link from_node="plain" from_port="_output" to_node="merge" to_port="_input"/>
	<link from_node="reorder" from_port="_output" to_node="merge" to_port="_input"/>
	<link from_node="merge" from_port="_output" to_node="softmax" to_port="_input"/>
	<link from_node="softmax" from_port="_output" to_node="_output" to_port="_output"/>
	<link from_node="reorder" from_port="_output" to_node="_output" to_port="flowout_affine"/>
</flow>

)";

TEST(FlowDocument, IsWrittenAsItWasRead) { EXPECT_EQ(document_of(flow_of(kDocument)), kDocument); }

TEST(FlowDocument, IsWrittenIntoAnotherToo) {
  std::istringstream text("<model><preproc>" + kDocument.substr(kDocument.find("<flow>")) + "</preproc></model>");
  const XmlFile model(text);
  const Flow flow(find_child(*find_child(*model.root(), "preproc"), "flow"));
  EXPECT_EQ(document_of(flow), kDocument);
  XmlFile file;
  XmlElement& root = append_element(file.document(), file.document(), "model");
  flow.dump(root, file.document());
  const Flow again(find_child(root, "flow"));
  EXPECT_EQ(document_of(again), kDocument);
}

TEST(FlowDocument, HasMetaEntriesAndTellsItsNodesInTheirOrder) {
  const Flow flow = flow_of(kDocument);
  EXPECT_THAT(flow.meta(),
              testing::ElementsAre(testing::Pair("author", "me & you"), testing::Pair("purpose", "context")));
  const std::string info = flow.info();
  EXPECT_THAT(info, testing::HasSubstr("window: FrameWindowNode, 3 vectors every 2, in 2 groups\n"));
  EXPECT_THAT(info, testing::HasSubstr("affine: AffineTransformNode, y = scale o matrix(2 x 6) (x + ibias) + obias\n"));
  EXPECT_THAT(info, testing::HasSubstr("reorder: ReorderNode, 2 elements\n"));
  EXPECT_THAT(info, testing::HasSubstr("function: ScalarFuncNode, max, alpha = 0.25\n"));
  EXPECT_THAT(info, testing::HasSubstr("merge: MergeNode, joins 2\n"));
  EXPECT_THAT(info, testing::HasSubstr("softmax: SoftmaxNode, softmax\n"));
  EXPECT_THAT(info, testing::HasSubstr("buffer: BufferingNode, 10 vectors at once\n"));
  EXPECT_THAT(info, testing::HasSubstr("quantize: GMMQuantizeNode, 4 values to one of 1 mixtures\n"));
  EXPECT_THAT(info, testing::HasSubstr("sample: RBMSampleNode, 2 visible units to 2 hidden ones, sampled\n"));
  EXPECT_THAT(info, testing::HasSubstr("words: WordEmbeddingNode, 1 words to 2 values\n"));
  EXPECT_LT(info.find("window:"), info.find("affine:"));
  EXPECT_LT(info.find("affine:"), info.find("reorder:"));
  EXPECT_LT(info.find("reorder:"), info.find("merge:"));
  EXPECT_LT(info.find("merge:"), info.find("softmax:"));
}

TEST(FlowDocument, ComputesSettings) {
  ScriptEnv::instance()->set("flow_test_context", 2.0);
  const std::string window =
      "<node type=\"FrameWindowNode\" id=\"w\"><length>${var n = 2 * flow_test_context + 1; n}</length>"
      "<shift>${1}</shift><headedge type=\"${'ze' + 'ro'}\">${n - 1}</headedge></node>";
  const std::string text = document_of(flow_of("<flow>" + window + "</flow>"));
  ScriptEnv::instance()->remove("flow_test_context");
  EXPECT_THAT(text, testing::HasSubstr("<length>5</length>"));
  EXPECT_THAT(text, testing::HasSubstr("<shift>1</shift>"));
  EXPECT_THAT(text, testing::HasSubstr("<headedge type=\"zero\">4</headedge>"));
}

TEST(FlowDocument, PassesOnWhatIsWrongWithAnExpression) {
  EXPECT_THROW(flow_of(one_node("BufferingNode", "<frame>${nothing_of_that_name}</frame>")), ScriptError);
  EXPECT_THROW(flow_of(one_node("ReorderNode", "<mask>${nothing_of_that_name}</mask>")), ScriptError);
  EXPECT_THROW(flow_of(one_node("AffineTransformNode", "<matrix ref=\"${nothing_of_that_name}\"/>")), ScriptError);
}

TEST(FlowDocument, ThatIsNoneTellsSo) {
  expect_load_error("", "Failed to construct Flow object", "meridane::Flow::Flow");
  expect_load_error("<NN/>", "Failed to construct Flow object", kLoad);
  expect_load_error("<flow>", "Failed to parse xml", "meridane::XmlFile::XmlFile");
  expect_error([] { Flow(static_cast<const XmlElement*>(nullptr)); }, "Parent xml node is not found",
               "meridane::Flow::Flow");
  expect_load_error("<flow><nodes/></flow>", "Unknown element \"nodes\" in flow", "meridane::expect_children");
  expect_load_error(one_node("Flow", ""), "Flow object cannot be a handler host", "meridane::Flow::add_node");
}

TEST(FlowDocument, NamesTheAttributesThatItLacks) {
  const auto expect = [](const std::string& content, const std::string& message) {
    expect_load_error<MissingTagError>("<flow>" + content + "</flow>", message, "meridane::fetch_attribute");
  };
  expect("<meta value=\"v\"/>", "\"name\" i mandatory in meta");
  expect("<meta name=\"n\"/>", "\"value\" i mandatory in meta");
  expect("<node id=\"n\"/>", "\"type\" i mandatory in node");
  expect("<node type=\"SoftmaxNode\"/>", "\"id\" i mandatory in node");
  expect("<link/>", "\"from_node\" i mandatory in link");
  expect("<link from_node=\"a\"/>", "\"from_port\" i mandatory in link");
  expect("<link from_node=\"a\" from_port=\"b\"/>", "\"to_node\" i mandatory in link");
  expect("<link from_node=\"a\" from_port=\"b\" to_node=\"c\"/>", "\"to_port\" i mandatory in link");
}

TEST(FlowDocument, NamesTypesThatThereAreNot) {
  EXPECT_THAT([] { flow_of(one_node("CubeNode", "")); },
              testing::ThrowsMessage<BuilderNotFound>(std::string("CubeNode is not registered in the builder")));
  for (const std::string type : {"", "Softmax Node", "SoftmaxNode ", "Soft-max"}) {
    expect_load_error<InvalidFormat>(one_node(type, ""), "invalid format (expected \"node type\")",
                                     "meridane::{anonymous}::factory_of");
  }
}

TEST(FlowDocument, KnowsTheTenNodes) {
  ensure_node_table();
  EXPECT_THAT(NodeBuilder::names(), testing::ElementsAre("AffineTransformNode", "BufferingNode", "FrameWindowNode",
                                                         "GMMQuantizeNode", "MergeNode", "RBMSampleNode", "ReorderNode",
                                                         "ScalarFuncNode", "SoftmaxNode", "WordEmbeddingNode"));
}

TEST(FlowDocument, RefusesIdsThatAreTakenAndSettingsThatAreUnknown) {
  const std::string where = "meridane::Flow::add_node";
  expect_load_error("<flow>" + softmax("a") + softmax("a") + "</flow>", "Id [a] is duplicated", where);
  expect_load_error("<flow>" + softmax("_input") + "</flow>", "Id [_input] is duplicated", where);
  expect_load_error("<flow>" + softmax("_output") + "</flow>", "Id [_output] is duplicated", where);
  expect_load_error("<flow>" + softmax("") + "</flow>", "attribute \"id\" is empty", where);
  expect_load_error(one_node("SoftmaxNode", "<length>1</length>"), "Unknown element \"length\" in node",
                    "meridane::expect_children");
  expect_load_error(one_node("BufferingNode", "<frame>1</frame><frame>1</frame>"), "Setting \"frame\" is given twice",
                    "meridane::expect_settings");
}

TEST(FlowDocument, RefusesLinksToNowhere) {
  const std::string nodes = softmax("a") + softmax("b");
  const auto expect = [&](const std::string& links, const std::string& message, const std::string& where) {
    expect_load_error("<flow>" + nodes + links + "</flow>", message, where);
  };
  expect(link_text("c", "a"), "Sender node is not found: c", "meridane::Flow::sender");
  expect(link_text("_output", "a"), "Sender node is not found: _output", "meridane::Flow::sender");
  expect(link_text("a", "c"), "Destination node is not found: c", "meridane::Flow::connect");
  expect(link_text("a", "_input"), "Destination node is not found: _input", "meridane::Flow::connect");
  expect(link_of("a", "second", "b", "_input"), "output buffer second is not found", "meridane::Flow::sender");
  expect(link_of("_input", "_output", "b", "_input"), "output buffer _output is not found", "meridane::Flow::sender");
  expect(link_of("a", "_output", "_output", "second"), "output buffer second is not found",
         "meridane::Flow::open_output");
  expect(link_of("a", "_output", "b", "second"), "input port second is not found", "meridane::Flow::connect");
  EXPECT_THROW(flow_of("<flow>" + nodes + link_of("a", "x", "b", "_input") + "</flow>"), InvalidOutportError);
  EXPECT_THROW(flow_of("<flow>" + nodes + link_of("a", "_output", "_output", "x") + "</flow>"), InvalidOutportError);
}

TEST(FlowDocument, RefusesSeveralSendersToOnePort) {
  const std::string nodes = softmax("a") + softmax("b") + softmax("c");
  expect_load_error("<flow>" + nodes + link_text("a", "c") + link_text("b", "c") + "</flow>",
                    "Node c takes from one node only", "meridane::FlowNode::add_sender");
  expect_load_error(
      "<flow>" + nodes + link_text("a", "_output", "_output") + link_text("b", "_output", "_output") + "</flow>",
      "Output buffer _output takes from one node only", "meridane::Flow::open_output");
}

TEST(FlowDocument, RefusesLoops) {
  const std::string merge = "<node type=\"MergeNode\" id=\"m\"><num>2</num></node>";
  expect_load_error("<flow>" + softmax("a") + link_text("a", "a") + "</flow>", "Loop exists in the graph",
                    "meridane::Flow::order_nodes");
  expect_load_error("<flow>" + softmax("a") + softmax("b") + merge + link_text("_input", "m") + link_text("m", "a") +
                        link_text("a", "b") + link_text("b", "m") + "</flow>",
                    "Loop exists in the graph", "meridane::Flow::order_nodes");
}

TEST(FlowDocument, MayHaveAChainOfAnyLength) {
  constexpr int kNodes = 50000;
  std::string text = "<flow>";
  for (int i = 0; i < kNodes; ++i) text += "<node type=\"AffineTransformNode\" id=\"" + std::to_string(i) + "\"/>";
  for (int i = kNodes - 1; i > 0; --i) text += link_text(std::to_string(i - 1), std::to_string(i));
  text += link_text("_input", "0") + link_text(std::to_string(kNodes - 1), "_output", "_output") + "</flow>";
  Flow flow = flow_of(text);
  EXPECT_EQ(run(flow, numbered(2, 1)), numbered(2, 1));
}

}  // namespace
}  // namespace meridane
