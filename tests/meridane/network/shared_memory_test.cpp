// Networks in a shared-memory segment, between two processes.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/interprocess/managed_shared_memory.hpp>

#include "../support/network_samples.h"
#include "meridane/framescore/nnlayer/builders.h"
#include "meridane/framescore/scorer.h"
#include "meridane/framescore/sm_nn.h"

namespace meridane::test {
namespace {

namespace ipc = boost::interprocess;

/// Every layer that can stand in shared memory.
std::string shareable_network() {
  return network_bytes(
      2, 3,
      {dense_bytes("dense", {1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f}, {0.5f, -20.0f, 0.25f}),
       numbers_layer("prelu", "PReLU", {0.125f}), relu_bytes("relu"),
       layer_bytes("print", "Print", "Print" + sized_text("label")), numbers_layer("softmax", "Softmax", {2.0f})},
      {{"_input", "dense"},
       {"dense", "prelu"},
       {"prelu", "relu"},
       {"relu", "print"},
       {"print", "softmax"},
       {"softmax", "_output"}});
}

Matrix output_of(const NNParameter& network) {
  NNScorer scorer(network);
  scorer.set_input(std::make_shared<Minibatch>(Matrix{{1.0f, -2.0f}, {0.5f, 0.75f}}));
  return scorer.output();
}

class SharedMemoryNetworks : public testing::Test {
 protected:
  SharedMemoryNetworks()
      : name_("sonivo-network-" + std::to_string(::getpid())), segment_(ipc::create_only, name_.c_str(), 1 << 20) {
    log_threshold() = kLogError;
  }
  ~SharedMemoryNetworks() override { ipc::shared_memory_object::remove(name_.c_str()); }

  SMManager manager(const std::string& prefix = "net") { return {*segment_.get_segment_manager(), prefix}; }

  void store(const std::string& bytes, const std::string& prefix = "net") {
    std::istringstream stream(bytes);
    SMNNParameter(manager(prefix)).load_binary_stream(stream);
  }
  std::string attaching_failure() {
    return failure_of([&] { SMNNParameter(manager()).load_shared_memory(); });
  }
  /// What attaching says when one object of a stored network is gone. Each time under a prefix of its own.
  template <class T>
  std::string failure_without(const std::string& name) {
    const std::string prefix = "net" + std::to_string(++prefixes_);
    store(shareable_network(), prefix);
    EXPECT_TRUE(segment_.destroy<T>((prefix + "::" + name).c_str())) << name;
    return failure_of([&] { SMNNParameter(manager(prefix)).load_shared_memory(); });
  }
  template <class T>
  T* object(const char* name) {
    return segment_.find<T>(name).first;
  }

  std::string name_;
  ipc::managed_shared_memory segment_;
  int prefixes_ = 0;
};

TEST_F(SharedMemoryNetworks, ComputeWhatTheFileSays) {
  std::istringstream stream(shareable_network());
  SMNNParameter stored(manager());
  stored.load(stream, "application/meridane-bin");
  const Matrix expected = output_of(*network_of(shareable_network()));
  EXPECT_TRUE(output_of(stored).isApprox(expected, 1e-6f)) << "to a few ulp: the products take another order";
  SMNNParameter attached(manager());
  attached.load_shared_memory();
  EXPECT_EQ(attached.type(), "NN");
  EXPECT_EQ(attached.ninput(), 2u);
  EXPECT_EQ(attached.noutput(), 3u);
  EXPECT_EQ(attached.links(), stored.links());
  EXPECT_EQ(output_of(attached), output_of(stored));
  EXPECT_EQ(dump_of(attached), shareable_network()) << "nothing of the file is lost";
  EXPECT_EQ(dump_of(stored), shareable_network());
}

TEST_F(SharedMemoryNetworks, HaveAName) {
  store(shareable_network());
  for (const char* name : {"net::ninput", "net::noutput", "net::nlayers", "net::nlinks"}) {
    EXPECT_NE(object<std::uint64_t>(name), nullptr) << name;
  }
  EXPECT_EQ(*object<std::uint64_t>("net::nlayers"), 5u);
  EXPECT_EQ(*object<std::uint64_t>("net::nlinks"), 6u);
  EXPECT_EQ(*object<SMManager::Text>("net::layer[0]::id"), "dense");
  EXPECT_EQ(*object<SMManager::Text>("net::layer[0]::type"), "FullyConnected");
  EXPECT_EQ(*object<SMManager::Text>("net::layer[4]::type"), "Softmax");
  EXPECT_EQ(*object<SMManager::Text>("net::link[5]::from"), "softmax");
  EXPECT_EQ(*object<SMManager::Text>("net::link[5]::to"), "_output");
  EXPECT_EQ(*object<std::uint64_t>("net::layer[0]::weight_rows"), 3u);
  EXPECT_EQ(*object<std::uint64_t>("net::layer[0]::weight_cols"), 2u);
  EXPECT_EQ(*object<std::uint64_t>("net::layer[0]::bias_size"), 3u);
  EXPECT_EQ(segment_.find<float>("net::layer[0]::weight").second, 6u);
  EXPECT_EQ(object<float>("net::layer[0]::weight")[3], 4.0f) << "row after row";
  EXPECT_EQ(segment_.find<float>("net::layer[0]::bias").second, 3u);
  EXPECT_EQ(*object<float>("net::layer[1]::a"), 0.125f);
  EXPECT_EQ(*object<SMManager::Text>("net::layer[3]::layer_name"), "label");
  EXPECT_EQ(*object<float>("net::layer[4]::temperature"), 2.0f);
}

TEST_F(SharedMemoryNetworks, StandBesideEachOther) {
  store(shareable_network(), "one");
  store(network_bytes(1, 1, {dense_bytes("d", {7.0f}, {0.0f})}, {{"_input", "d"}, {"d", "_output"}}), "two");
  SMNNParameter one(manager("one"));
  one.load_shared_memory();
  SMNNParameter two(manager("two"));
  two.load_shared_memory();
  EXPECT_EQ(one.layers().size(), 5u);
  EXPECT_EQ(two.layers().size(), 1u);
  EXPECT_THROW(store(shareable_network(), "one"), ipc::interprocess_exception) << "a prefix is used once";
}

TEST_F(SharedMemoryNetworks, AreEmbeddingsToo) {
  store(network_bytes(
      1, 2, {layer_bytes("e", "Embedding", "Embedding" + matrix_bytes(3, 2, {1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f}))},
      {{"_input", "e"}, {"e", "_output"}}));
  SMNNParameter attached(manager());
  attached.load_shared_memory();
  NNScorer scorer(attached);
  scorer.set_input(std::make_shared<Minibatch>(Matrix{{2.0f, 0.0f}}));
  EXPECT_EQ(scorer.output(), (Matrix{{5.0f, 1.0f}, {6.0f, 2.0f}}));
}

TEST_F(SharedMemoryNetworks, HaveNoDocument) {
  const std::string document = dump_of(*network_of(shareable_network()), "text/xml");
  std::istringstream stream(document);
  SMNNParameter network(manager());
  EXPECT_EQ(failure_of([&] { network.load(stream, "text/xml"); }), "NOT IMPLEMENTED");
  std::istringstream element("<layer/>");
  const XmlFile file(element);
  for (const char* type : {"FullyConnected", "Embedding"}) {
    EXPECT_EQ(failure_of([&] { SMNNLayerBuilder::build(type, "a", manager(type), file.root(), stream); }),
              "NOT IMPLEMENTED");
  }
}

TEST_F(SharedMemoryNetworks, HoldOnlyTheLayersThatCanBeShared) {
  const std::string bytes = network_bytes(1, 1, {numbers_layer("a", "Sigmoid", {1.0f, 0.0f})}, {});
  EXPECT_EQ(failure_of<BuilderNotFound>([&] { store(bytes); }), "Sigmoid is not registered in the builder");
}

TEST_F(SharedMemoryNetworks, MustFit) {
  const std::string large = dense_bytes("d", std::vector<float>(1 << 18, 1.0f), {1.0f});  // as large as the segment
  EXPECT_THROW(store(network_bytes(1 << 18, 1, {large}, {{"_input", "d"}, {"d", "_output"}})), ipc::bad_alloc);
}

/// Names of all objects of the segment, and the memory that is left.
std::pair<std::vector<std::string>, std::size_t> contents_of(const ipc::managed_shared_memory& segment) {
  std::vector<std::string> names;
  for (auto object = segment.named_begin(); object != segment.named_end(); ++object) {
    names.emplace_back(object->name(), object->name_length());
  }
  return {names, segment.get_free_memory()};
}

TEST_F(SharedMemoryNetworks, LeaveNothingBehindWhereTheyCannotBeLoaded) {
  store(shareable_network(), "one");
  const auto before = contents_of(segment_);
  const std::string bytes = shareable_network();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    EXPECT_THROW(store(bytes.substr(0, length)), BaseRuntimeError) << length;
    ASSERT_EQ(contents_of(segment_), before) << length;
  }
  const std::string large = dense_bytes("d", std::vector<float>(1 << 18, 1.0f), {1.0f});
  EXPECT_THROW(store(network_bytes(1 << 18, 1, {relu_bytes("r"), large}, {})), ipc::bad_alloc);
  EXPECT_EQ(contents_of(segment_), before);
  EXPECT_THROW(store(bytes, "one"), ipc::interprocess_exception);
  EXPECT_EQ(contents_of(segment_), before) << "what another network has put there stays";
  store(bytes);
  EXPECT_EQ(attaching_failure(), "");
}

TEST_F(SharedMemoryNetworks, ReportTheObjectThatIsMissing) {
  const auto number = [&](const std::string& name) { return failure_without<std::uint64_t>(name); };
  const auto value = [&](const std::string& name) { return failure_without<float>(name); };
  const auto text = [&](const std::string& name) { return failure_without<SMManager::Text>(name); };
  const auto message = [](const std::string& of) { return of + " data does not exist in shared memory."; };
  for (const char* name : {"ninput", "noutput", "nlayers", "nlinks"}) {
    EXPECT_EQ(number(name), message("SMNNParameter::" + std::string(name)));
  }
  for (const char* name : {"layer[0]::id", "layer[3]::type", "link[0]::from", "link[5]::to"}) {
    EXPECT_EQ(text(name), message("SMNNParameter::" + std::string(name)));
  }
  for (const char* name : {"weight_rows", "weight_cols", "bias_size"}) {
    EXPECT_EQ(number("layer[0]::" + std::string(name)), message("SMFullyConnectedLayer::" + std::string(name)));
  }
  for (const char* name : {"weight", "bias"}) {
    EXPECT_EQ(value("layer[0]::" + std::string(name)), message("SMFullyConnectedLayer::" + std::string(name)));
  }
  EXPECT_EQ(value("layer[1]::a"), message("SMPReLULayer::a"));
  EXPECT_EQ(text("layer[3]::layer_name"), message("SMPrintLayer::layer_name"));
  EXPECT_EQ(value("layer[4]::temperature"), message("SMSoftmaxLayer::temperature"));
}

TEST_F(SharedMemoryNetworks, ThatAreNotThereMissTheirSizes) {
  EXPECT_EQ(attaching_failure(), "SMNNParameter::ninput data does not exist in shared memory.");
}

TEST_F(SharedMemoryNetworks, DoNotBelieveTheirSizes) {
  store(shareable_network());
  const std::string missing = "SMFullyConnectedLayer::weight data does not exist in shared memory.";
  for (const std::uint64_t rows :
       {std::uint64_t{0}, std::uint64_t{2}, std::uint64_t{4}, std::uint64_t{1} << 62, (std::uint64_t{1} << 63) + 3}) {
    *object<std::uint64_t>("net::layer[0]::weight_rows") = rows;
    EXPECT_EQ(attaching_failure(), missing) << rows;
  }
  *object<std::uint64_t>("net::layer[0]::weight_rows") = 2;
  *object<std::uint64_t>("net::layer[0]::weight_cols") = 3;
  EXPECT_EQ(attaching_failure(), "invalid format (expected \"FullyConnected Layer\")");
  *object<std::uint64_t>("net::nlayers") = ~std::uint64_t{0};
  *object<std::uint64_t>("net::layer[0]::weight_rows") = 3;
  *object<std::uint64_t>("net::layer[0]::weight_cols") = 2;
  EXPECT_EQ(attaching_failure(), "SMNNParameter::layer[5]::id data does not exist in shared memory.");
}

/// What another process computes from the segment alone: all of its numbers, in order; nothing where it fails.
std::vector<float> output_in_another_process(const std::string& segment_name) {
  int ends[2];
  if (::pipe(ends) != 0) return {};
  const pid_t child = ::fork();
  if (child == 0) {
    std::vector<float> numbers;
    try {
      ipc::managed_shared_memory segment(ipc::open_only, segment_name.c_str());
      SMNNParameter network(SMManager(*segment.get_segment_manager(), "net"));
      network.load_shared_memory();
      const Matrix output = output_of(network);
      numbers.assign(output.data(), output.data() + output.size());
    } catch (const std::exception&) {
      ::_exit(1);
    }
    const auto bytes = numbers.size() * sizeof(float);
    ::_exit(::write(ends[1], numbers.data(), bytes) == static_cast<ssize_t>(bytes) ? 0 : 2);
  }
  ::close(ends[1]);
  std::vector<float> numbers(100);
  const ssize_t bytes = ::read(ends[0], numbers.data(), numbers.size() * sizeof(float));
  ::close(ends[0]);
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  numbers.resize(bytes < 0 ? 0 : static_cast<std::size_t>(bytes) / sizeof(float));
  return numbers;
}

TEST_F(SharedMemoryNetworks, ServeAnotherProcess) {
  std::istringstream stream(shareable_network());
  SMNNParameter stored(manager());
  stored.load_binary_stream(stream);
  const auto numbers = [&] {
    const Matrix output = output_of(stored);
    return std::vector<float>(output.data(), output.data() + output.size());
  };
  const std::vector<float> first = numbers();
  EXPECT_EQ(output_in_another_process(name_), first);
  object<float>("net::layer[0]::weight")[5] += 0.5f;  // one copy: this process and the other see the same weight
  EXPECT_NE(numbers(), first);
  EXPECT_EQ(output_in_another_process(name_), numbers());
}

}  // namespace
}  // namespace meridane::test
