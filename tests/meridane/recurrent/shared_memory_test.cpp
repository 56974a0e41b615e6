// Recurrent layers with their parameters in a shared-memory segment.

#include <unistd.h>

#include <boost/interprocess/managed_shared_memory.hpp>

#include "bidirectional_reference.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

namespace ipc = boost::interprocess;

constexpr Eigen::Index N = 4, D = 3;

std::string record_of(const std::string& type) {
  const BothDirections p(31, N, D);
  if (type == "BLSTM") return bidirectional_record(type, Form::plain, p, {1});
  if (type == "LCBLSTM") return bidirectional_record(type, Form::plain, p, {3, 2, 1, 0});
  return Record("LSTM").matrix(p.forward.upward).matrix(p.forward.bias).matrix(p.forward.lateral).bytes();
}

/// A segment of this process's own, removed at the end; the type is the parameter.
class SharedRecurrentLayers : public testing::TestWithParam<std::string> {
 protected:
  SharedRecurrentLayers() { ensure_layer_tables(); }
  ~SharedRecurrentLayers() override { ipc::shared_memory_object::remove(name_.c_str()); }

  SMManager manager() { return {*segment_.get_segment_manager(), "net::layer[0]"}; }
  std::shared_ptr<NNLayer> stored(const std::string& record) {
    std::istringstream stream(record);
    return SMNNLayerBuilder::build(GetParam(), kId, manager(), nullptr, stream);
  }
  std::shared_ptr<NNLayer> found() { return SMNNLayerFinder::build(GetParam(), kId, manager()); }

  std::string name_ = "sonivo-recurrent-test-" + std::to_string(getpid());
  ipc::managed_shared_memory segment_{ipc::create_only, name_.c_str(), 1 << 18};
};

INSTANTIATE_TEST_SUITE_P(Types, SharedRecurrentLayers, testing::Values("LSTM", "BLSTM", "LCBLSTM"),
                         [](const auto& each) { return each.param; });

TEST_P(SharedRecurrentLayers, ComputeWhatThePlainOnesDo) {
  const std::string record = record_of(GetParam());
  const Matrix x = Dice(1).matrix(D, 30);
  const Matrix expected = forward(*layer_of(GetParam(), record), x);
  const auto first = stored(record), second = found();
  EXPECT_LT(distance(forward(*first, x), expected.cast<double>()), 2 * kRounding);
  EXPECT_EQ(forward(*second, x), forward(*first, x));
}

TEST_P(SharedRecurrentLayers, CarryTheirStateFromChunkToChunk) {
  if (GetParam() == "BLSTM") return;  // the chunks have a part in its result
  const auto layer = stored(record_of(GetParam()));
  const Matrix x = Dice(2).matrix(D, 20);
  const auto state = layer->create_state();
  const Matrix served = in_chunks(*layer, x, 4, state), rest = step(*layer, Matrix(0, 0), state);
  Matrix all(served.rows(), served.cols() + rest.cols());
  all << served, rest;
  EXPECT_LT(distance(all, forward(*layer, x).cast<double>()), kRounding);
}

TEST_P(SharedRecurrentLayers, DumpTheRecordThatTheyWereLoadedFrom) {
  const std::string record = record_of(GetParam());
  EXPECT_EQ(binary_of(*stored(record)), record);
  EXPECT_EQ(binary_of(*found()), record);
}

TEST_P(SharedRecurrentLayers, HaveNoDocument) {
  std::istringstream text(xml_of(*layer_of(GetParam(), record_of(GetParam()))));
  const XmlFile file(text);
  std::istringstream none;
  EXPECT_EQ(failure_of([&] { SMNNLayerBuilder::build(GetParam(), kId, manager(), file.root(), none); }),
            "NOT IMPLEMENTED");
}

TEST_P(SharedRecurrentLayers, NameAnObjectThatIsMissing) {
  const std::string first = GetParam() == "LSTM" ? "upward_weight" : "forward_upward_weight";
  const std::string begin = "SM" + GetParam() + "Layer::" + first, end = " data does not exist in shared memory.";
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { found(); }), begin + "_rows" + end);
  manager().construct<std::uint64_t>(first + "_rows", 4);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { found(); }), begin + "_cols" + end);
  manager().construct<std::uint64_t>(first + "_cols", 2);
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { found(); }), begin + end);
}

/// What a layer with that many biases says of the objects that another process has left.
class LeftBehind : public SharedRecurrentLayers {
 protected:
  std::string failure(std::uint64_t biases, std::uint64_t lateral_rows, std::uint64_t cells) {
    const bool both = GetParam() != "LSTM";
    for (const std::string prefix : {"forward_", "backward_"}) {
      const std::string own = both ? prefix : "";
      matrix(own + "upward_weight", 16, 3);
      vector(own + "upward_bias", biases);
      matrix(own + "lateral_weight", lateral_rows, cells);
      if (!both) break;
      vector(own + "lateral_bias", biases);
    }
    for (const char* name : {"chunk_size", "future_chunk_size", "store_buffer", "output_format"}) {
      manager().construct<std::int32_t>(name, 1);
    }
    return failure_of<BaseRuntimeError>([&] { found(); });
  }

 private:
  void matrix(const std::string& name, std::uint64_t rows, std::uint64_t cols) {
    manager().construct<std::uint64_t>(name + "_rows", rows);
    manager().construct<std::uint64_t>(name + "_cols", cols);
    manager().construct_floats(name, rows * cols);
  }
  void vector(const std::string& name, std::uint64_t size) {
    manager().construct<std::uint64_t>(name + "_size", size);
    manager().construct_floats(name, size);
  }
};

INSTANTIATE_TEST_SUITE_P(Types, LeftBehind, testing::Values("LSTM", "BLSTM", "LCBLSTM"),
                         [](const auto& each) { return each.param; });

TEST_P(LeftBehind, IsTakenIfItFits) { EXPECT_EQ(failure(16, 16, 4), "nothing failed"); }

TEST_P(LeftBehind, IsRefusedIfItsRowsDiffer) {
  EXPECT_EQ(failure(15, 16, 4),
            "Numbers of rows of upward_weight [16], upward_bias [15] and lateral_weight [16] do not match");
}

TEST_P(LeftBehind, IsRefusedIfItsCellsDiffer) {
  EXPECT_EQ(failure(16, 16, 3), std::string("\"<") + (GetParam() == "LSTM" ? "" : "forward_") +
                                    "lateral_weight>\" is not 4N x N matrix a layer of type \"LSTM\" ");
}

TEST_P(LeftBehind, IsRefusedIfItHasNoCells) {
  EXPECT_EQ(failure(16, 0, 0), std::string("\"<") + (GetParam() == "LSTM" ? "" : "forward_") +
                                   "lateral_weight>\" is not 4N x N matrix a layer of type \"LSTM\" ");
}

}  // namespace
}  // namespace meridane::test
