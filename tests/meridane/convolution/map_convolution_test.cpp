// Convolution2D and Convolution3D.

#include <unistd.h>

#include <array>
#include <boost/interprocess/managed_shared_memory.hpp>
#include <limits>

#include "../layers/layer_record.h"
#include "meridane/error.h"

namespace meridane::test {
namespace {

using Axes = std::array<std::int32_t, 3>;

struct Window {
  Axes size = {1, 1, 1}, stride = {1, 1, 1}, pad = {0, 0, 0};
  Matrix weight = {}, bias = {};
};

/// A layer's numbers; channels and the axes of the map.
struct Numbers {
  std::string type = "Convolution2D";
  Axes input = {2, 5, 4};
  std::int32_t outputs = 3;
  std::vector<Window> windows = {};

  bool is_3d() const { return type == "Convolution3D"; }
  std::int32_t channels() const { return is_3d() ? 1 : input[0]; }
  Axes map() const { return is_3d() ? input : Axes{input[1], input[2], 1}; }
  Numbers& add(unsigned seed, Window window) {
    Dice dice(seed);
    window.weight = dice.matrix(outputs, window.size[0] * window.size[1] * window.size[2] * channels());
    window.bias = dice.matrix(outputs, 1);
    windows.push_back(window);
    return *this;
  }
  std::string record() const {
    Record record(type);
    for (const std::int32_t size : input) record.number(size);
    record.number(outputs).number(static_cast<std::int32_t>(windows.size()));
    const bool half = type.starts_with("Compressed");
    for (const Window& window : windows) {
      std::vector<Axes> lists = {window.size, window.stride};
      if (!is_3d()) lists.push_back(window.pad);
      for (const Axes& axes : lists) {
        for (std::size_t a = 0; a < (is_3d() ? 3 : 2); ++a) record.number(axes[a]);
      }
      record.matrix(window.weight, half).matrix(window.bias, half);
    }
    return record.bytes();
  }
};

Numbers two_kernels(const std::string& type) {
  Numbers numbers{.type = type};
  return numbers.add(1, {.size = {3, 2, 1}, .stride = {2, 1, 1}, .pad = {1, 2, 0}})
      .add(2, {.size = {5, 4, 1}, .stride = {7, 1, 1}});
}

Numbers volume() {
  Numbers numbers{.type = "Convolution3D", .input = {4, 5, 6}};
  return numbers.add(3, {.size = {2, 3, 1}, .stride = {1, 2, 3}}).add(4, {.size = {4, 1, 2}, .stride = {1, 1, 4}});
}

/// One frame, value by value in double precision.
std::vector<double> convolved(const Numbers& n, const Matrix& x) {
  std::vector<double> y;
  const Axes map = n.map();
  for (const Window& w : n.windows) {
    Axes p;
    const auto positions = [&](std::size_t a) { return (map[a] + 2 * w.pad[a] - w.size[a]) / w.stride[a] + 1; };
    for (p[2] = 0; p[2] < positions(2); ++p[2]) {
      for (p[1] = 0; p[1] < positions(1); ++p[1]) {
        for (p[0] = 0; p[0] < positions(0); ++p[0]) {
          for (std::int32_t o = 0; o < n.outputs; ++o) {
            double sum = static_cast<double>(w.bias(o));
            for (std::int32_t k = 0; k < w.weight.cols(); ++k) {
              const std::int32_t c = k % n.channels(), q = k / n.channels();
              const Axes in_window = {q % w.size[0], q / w.size[0] % w.size[1], q / w.size[0] / w.size[1]};
              Axes i;
              bool inside = true;
              for (std::size_t a = 0; a < 3; ++a) {
                i[a] = p[a] * w.stride[a] - w.pad[a] + in_window[a];
                inside = inside && i[a] >= 0 && i[a] < map[a];
              }
              const std::int32_t at = ((i[2] * map[1] + i[1]) * map[0] + i[0]) * n.channels() + c;
              if (inside) sum += static_cast<double>(w.weight(o, k)) * static_cast<double>(x(at));
            }
            y.push_back(sum);
          }
        }
      }
    }
  }
  return y;
}

std::vector<Numbers> all() { return {two_kernels("Convolution2D"), two_kernels("CompressedConvolution2D"), volume()}; }

Eigen::Index rows_of(const Numbers& n) { return n.input[0] * n.input[1] * n.input[2]; }

// A sum of 40 products of values below 1 may be off by 41 roundings of at most 2^-19.
TEST(MapConvolution, IsTheSumOverAWindow) {
  for (const Numbers& n : all()) {
    const Matrix x = Dice(5).matrix(rows_of(n), 3);
    const MinibatchPtr y = layer_of(n.type, n.record())->forward({minibatch(x)});
    for (Eigen::Index t = 0; t < 3; ++t) {
      const std::vector<double> expected = convolved(n, x.col(t));
      ASSERT_EQ(y->content().rows(), static_cast<Eigen::Index>(expected.size())) << n.type;
      for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(static_cast<double>(y->content()(static_cast<Eigen::Index>(i), t)), expected[i], 41 * 0x1p-19);
      }
    }
    EXPECT_EQ(y->shape().size(), 1u);
  }
}

TEST(MapConvolution, GivesTheMapOfASingleKernel) {
  Numbers flat, deep{.type = "Convolution3D", .input = {4, 5, 6}};
  flat.add(1, {.size = {3, 2, 1}, .stride = {2, 1, 1}, .pad = {1, 2, 0}});
  deep.add(3, {.size = {2, 3, 1}, .stride = {1, 2, 3}});
  EXPECT_EQ(layer_of(flat.type, flat.record())->forward({minibatch(Matrix::Zero(40, 1))})->shape(),
            (Minibatch::Shape{3, 3, 7}));
  EXPECT_EQ(layer_of(deep.type, deep.record())->forward({minibatch(Matrix::Zero(120, 1))})->shape(),
            (Minibatch::Shape{3, 3, 2, 2}));
}

TEST(MapConvolution, KeepsItsBytes) {
  for (const Numbers& n : all()) {
    const auto layer = layer_of(n.type, n.record());
    EXPECT_EQ(binary_of(*layer), n.record());
    EXPECT_EQ(binary_of(*layer_of_xml(n.type, xml_of(*layer))), n.record());
    EXPECT_EQ(layer->create_state(), nullptr);
    for (std::size_t length = 0; length < n.record().size(); ++length) {
      EXPECT_THROW(layer_of(n.type, n.record().substr(0, length)), BaseRuntimeError) << length;
    }
  }
}

TEST(MapConvolution, ChecksTheSizeOfItsInput) {
  for (const Numbers& n : all()) {
    const auto layer = layer_of(n.type, n.record());
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { forward(*layer, Matrix::Zero(39, 2)); }),
              "Input matrix size is not " + std::to_string(rows_of(n)) + " * N.");
    EXPECT_EQ(forward(*layer, Matrix(0, 0)).cols(), 0);
  }
}

TEST(MapConvolution, NamesWhatDoesNotFit) {
  const auto refusal = [](Numbers n, const auto& change) {
    change(n);
    return failure_of<BaseRuntimeError>([&] { layer_of(n.type, n.record()); });
  };
  const Numbers flat = two_kernels("Convolution2D");
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  EXPECT_EQ(refusal(flat, [](Numbers& n) { n.windows[0].weight = Matrix::Zero(3, 11); }),
            "Weight matrix size is not 3 * 12.");
  EXPECT_EQ(refusal(flat, [](Numbers& n) { n.windows[1].bias = Matrix::Zero(2, 1); }), "Bias vector size is not 3.");
  EXPECT_EQ(refusal(volume(), [](Numbers& n) { n.windows[1].weight = Matrix::Zero(4, 8); }),
            "Weight matrix size is not 3 * 8.");
  EXPECT_EQ(refusal(volume(), [](Numbers& n) { n.windows[0].bias = Matrix::Zero(4, 1); }),
            "Bias vector size is not 3.");
  EXPECT_EQ(refusal(flat, [](Numbers& n) { n.input = {2, 4, 4}; }), "This position(4,0) is out of range.");
  EXPECT_EQ(refusal(volume(), [](Numbers& n) { n.input = {4, 2, 6}; }), "This position(0,20) is out of range.");
  for (const std::int32_t size : {0, -1, kMost, std::int32_t{1} << 26}) {
    EXPECT_EQ(refusal(flat, [=](Numbers& n) { n.input[1] = size; }), "Incorrect \"input_size\" for \"Convolution2D\"");
  }
  EXPECT_EQ(refusal(flat, [](Numbers& n) { n.outputs = 0; }), "Incorrect \"output_channel\" for \"Convolution2D\"");
  EXPECT_EQ(refusal(flat, [](Numbers& n) { n.windows.clear(); }), "Incorrect \"kernel\" for \"Convolution2D\"");
  EXPECT_EQ(refusal(flat, [](Numbers& n) { n.windows[0].pad[1] = kMost; }), "Incorrect \"pad\" for \"Convolution2D\"");
  EXPECT_EQ(refusal(flat, [](Numbers& n) { n.windows[0].size[1] = kMost; }),
            "Incorrect \"size\" for \"Convolution2D\"");
  EXPECT_EQ(refusal(flat, [](Numbers& n) { n.windows[1].stride[0] = 0; }),
            "Incorrect \"kernel[1]::stride\" for \"Convolution2D\"");
}

TEST(MapConvolution, HasNoPadThatIsWiderThanItsWindow) {
  const auto outputs = [](const Axes& pad) {
    Numbers numbers{.input = {1, 5, 4}, .outputs = 1};
    numbers.add(1, {.size = {3, 2, 1}, .pad = pad});
    return layer_of(numbers.type, numbers.record())->forward({minibatch(Matrix::Ones(20, 1))})->content().rows();
  };
  EXPECT_EQ(outputs({3, 2, 0}), 9 * 7);
  for (const Axes& pad : {Axes{4, 2, 0}, Axes{3, 3, 0}}) {
    EXPECT_EQ(failure_of<BaseRuntimeError>([&] { outputs(pad); }), "Incorrect \"pad\" for \"Convolution2D\"");
  }
}

TEST(MapConvolution, SaysHowManyNumbersAnAttributeHas) {
  const auto refusal = [](const std::string& type, const std::string& input, const std::string& kernel) {
    return failure_of<BaseRuntimeError>([&] {
      layer_of_xml(type, "<layer type='" + type + "' id='a' output_channel='1' " + input + "><kernel " + kernel +
                             "><weight>1</weight><bias>1</bias></kernel></layer>");
    });
  };
  for (const int axes : {2, 3}) {
    const std::string type = "Convolution" + std::to_string(axes) + "D", number = axes == 2 ? "two" : "three";
    const std::string sizes = axes == 2 ? "='1 1' " : "='1 1 1' ", input = "input_size='1 1 1'";
    for (const char* wrong : {"", "input_size='1 1'", "input_size='1 1 1 1'", "input_size='1 x 1'"}) {
      EXPECT_EQ(refusal(type, wrong, ""),
                "The input_size attribute must have three numbers layers of type \"" + type + "\"");
    }
    EXPECT_EQ(refusal(type, input, "size='1'"),
              "The size attribute must have " + number + " numbers nodes of type \"" + type + "<kernel>\"");
    EXPECT_EQ(refusal(type, input, "size" + sizes + "stride='1'"),
              "The stride attribute must have " + number + " numbers nodes of type \"" + type + "<kernel>\"");
    EXPECT_EQ(refusal(type, input, "size" + sizes + "stride" + sizes + "pad='0'"),
              axes == 2 ? "The pad attribute must have two numbers nodes of type \"Convolution2D\"" : "nothing failed");
  }
}

TEST(Convolution2D, MayNameTheSizeOfItsKernelsItself) {
  const auto document = [](const std::string& attribute, const std::string& second) {
    const auto kernel = [](const std::string& size, const std::string& weight) {
      return "<kernel size='" + size + "' stride='1 1' pad='0 0'><weight>" + weight +
             "</weight><bias>1</bias></kernel>";
    };
    return "<layer type='Convolution2D' id='a' input_size='1 3 3' output_channel='1' " + attribute + ">" +
           kernel("2 2", "1 2 3 4") + kernel(second, second == "2 2" ? "1 2 3 4" : "1 2") + "</layer>";
  };
  const auto load = [&](const std::string& attribute, const std::string& second = "2 2") {
    return layer_of_xml("Convolution2D", document(attribute, second));
  };
  const std::string same = binary_of(*load(""));
  for (const char* stated : {"filter_size='2'", "filter_size='2 2'", "filter_size='2,2'"}) {
    EXPECT_EQ(binary_of(*load(stated)), same) << stated;
  }
  const auto refusal = [&](const std::string& attribute, const std::string& second = "2 2") {
    return failure_of<BaseRuntimeError>([&] { load(attribute, second); });
  };
  for (const char* wrong : {"filter_size=''", "filter_size='2 2 2'", "filter_size='x'", "filter_size='2 2.0'"}) {
    EXPECT_EQ(refusal(wrong), "filter_size must have one or two numbers in Convolution2D") << wrong;
  }
  const std::string incorrect = "Incorrect \"filter_size\" for \"Convolution2D\"";
  for (const char* wrong : {"filter_size='0'", "filter_size='1'", "filter_size='2 1'", "filter_size='3 2'"}) {
    EXPECT_EQ(refusal(wrong), incorrect) << wrong;
  }
  EXPECT_EQ(refusal("filter_size='2'", "2 1"), incorrect);
  EXPECT_EQ(refusal("", "2 1"), "nothing failed");
}

TEST(Convolution3D, StandsInSharedMemory) {
  namespace ipc = boost::interprocess;
  ensure_layer_tables();
  const std::string name = "sonivo-convolution-test-" + std::to_string(getpid());
  ipc::managed_shared_memory segment(ipc::create_only, name.c_str(), 1 << 18);
  ipc::shared_memory_object::remove(name.c_str());
  const SMManager manager(*segment.get_segment_manager(), "net::layer[0]");
  const Numbers n = volume();
  std::istringstream stream(n.record());
  const auto stored = SMNNLayerBuilder::build(n.type, kId, manager, nullptr, stream);
  const auto found = SMNNLayerFinder::build(n.type, kId, manager);
  const Matrix x = Dice(6).matrix(120, 3), expected = forward(*layer_of(n.type, n.record()), x);
  for (const auto& layer : {stored, found}) {
    EXPECT_TRUE(forward(*layer, x).isApprox(expected, 1e-6f));  // products in another order
    EXPECT_EQ(binary_of(*layer), n.record());
  }
  const SMManager other(*segment.get_segment_manager(), "net::layer[1]");
  EXPECT_EQ(failure_of<BaseRuntimeError>([&] { SMNNLayerFinder::build(n.type, kId, other); }),
            "SMConvolution3DLayer::input_size[0] data does not exist in shared memory.");
}

}  // namespace
}  // namespace meridane::test
