#include "nn/networks.h"

#include <cmath>
#include <cstdint>
#include <sstream>
#include <utility>
#include <vector>

#include "nn/network_shapes.h"

namespace meridane::bench {
namespace {

template <class Number>
std::string bytes_of(Number value) {
  return {reinterpret_cast<const char*>(&value), sizeof value};
}

std::string integers(const std::vector<long>& numbers) {
  std::string bytes;
  for (const long number : numbers) bytes += bytes_of(static_cast<std::int32_t>(number));
  return bytes;
}

std::string text(const std::string& characters) { return bytes_of<std::uint64_t>(characters.size()) + characters; }

/// Weights that keep the size of what `summed` of them are applied to.
std::string matrix(long rows, long cols, long summed) {
  std::string bytes = bytes_of<std::int64_t>(rows) + bytes_of<std::int64_t>(cols);
  std::uint32_t noise = 1;
  for (long i = 0; i < rows * cols; ++i) {
    noise = noise * 1664525u + 1013904223u;
    const float uniform = static_cast<float>(noise >> 8) / 8388608.0f - 1.0f;
    bytes += bytes_of(uniform * std::sqrt(3.0f / static_cast<float>(summed)));
  }
  return bytes;
}

std::string vector(long rows, float value) {
  std::string bytes = bytes_of<std::int64_t>(rows) + bytes_of<std::int64_t>(1);
  for (long i = 0; i < rows; ++i) bytes += bytes_of(value);
  return bytes;
}

std::string dense(long out, long rows) { return matrix(out, rows, rows) + vector(out, 0.01f); }

std::string layer(const std::string& id, const std::string& type, const std::string& record = {}) {
  return text(id) + text(type) + type + record;
}

class NetworkFile {
 public:
  NetworkFile(long rows, long out) : rows_(rows), out_(out) {}

  /// Gives the id back.
  std::string add(const std::string& id, const std::string& type, const std::string& record,
                  const std::vector<std::string>& sources) {
    layers_ += layer(id, type, record);
    ++layer_count_;
    for (const std::string& source : sources) link(source, id);
    return id;
  }

  std::string end(const std::string& last) {
    link(last, "_output");
    std::string file = "MerNNpar";
    for (const auto number :
         {static_cast<std::uint64_t>(rows_), static_cast<std::uint64_t>(out_), layer_count_, link_count_}) {
      file += bytes_of(number);
    }
    return file + layers_ + links_;
  }

 private:
  void link(const std::string& from, const std::string& to) {
    links_ += text(from) + text(to);
    ++link_count_;
  }

  long rows_, out_;
  std::string layers_, links_;
  std::uint64_t layer_count_ = 0, link_count_ = 0;
};

/// Of a causal layer: each channel for itself, or all of `rows`.
std::string depthwise(long channels, long taps, long dilation) {
  return integers({1, 1, (taps - 1) * dilation + 1, dilation, 1, taps}) + matrix(taps * channels, 1, taps) +
         vector(channels, 0.01f);
}

std::string windows(long window, long hop, long out, long rows) {
  return integers({0, 1, window, 1, hop, window}) + matrix(window * EnhancementShape::channels, 1, window * rows) +
         vector(out, 0.01f);
}

std::string lstm(long cells, long rows) {
  return matrix(4 * cells, rows, rows) + vector(4 * cells, 0.01f) + matrix(4 * cells, cells, cells);
}

std::string conformer_block() {
  using Shape = ConformerShape;
  constexpr long d = Shape::rows;
  const std::string norm = vector(d, 1.0f) + vector(d, 0.01f) + bytes_of(1e-5f);
  const std::string swish = bytes_of(1.0f) + bytes_of(0.0f);
  std::string attention = integers({Shape::heads});
  for (int linear = 0; linear < 4; ++linear) attention += dense(d, d);
  attention += matrix(d, d, d) + vector(d, 0.01f) + vector(d, -0.01f);
  const std::vector<std::string> sublayers = {
      layer("norm1", "LayerNorm", norm),
      layer("fc1", "FullyConnected", dense(Shape::hidden, d)),
      layer("act1", "Swish", swish),
      layer("fc2", "FullyConnected", dense(d, Shape::hidden)),
      layer("norm2", "LayerNorm", norm),
      layer("mha1", "RelMHA", attention),
      layer("norm3", "LayerNorm", norm),
      layer("conv1", "FullyConnected", dense(2 * d, d)),
      layer("act2", "GLU", swish),
      layer("conv2", "TDNN", depthwise(d, Shape::taps, 1)),
      layer("norm4", "BatchNorm",
            vector(d, 1.0f) + vector(d, 0.01f) + vector(d, 0.02f) + vector(d, 1.1f) + bytes_of(1e-5f)),
      layer("act3", "Swish", swish),
      layer("conv3", "FullyConnected", dense(d, d)),
      layer("norm5", "LayerNorm", norm),
      layer("fc3", "FullyConnected", dense(Shape::hidden, d)),
      layer("act4", "Swish", swish),
      layer("fc4", "FullyConnected", dense(d, Shape::hidden)),
      layer("norm6", "LayerNorm", norm)};
  std::string record = integers({Shape::cached, 0}) + bytes_of<std::uint64_t>(sublayers.size());
  for (const std::string& sublayer : sublayers) record += sublayer;
  return record;
}

}  // namespace

std::string enhancement_network() {
  using Shape = EnhancementShape;
  NetworkFile file(1, 1);
  const auto add_dense = [&](const std::string& id, const std::string& source, long out, long rows) {
    return file.add(id, "FullyConnected", dense(out, rows), {source});
  };
  const std::string flat = bytes_of(1.0f) + bytes_of(0.0f);
  const std::string encoder =
      file.add("encoder", "TDNN", windows(Shape::window, Shape::hop, Shape::channels, 1), {"_input"});
  std::string before = add_dense("bottleneck", encoder, Shape::narrow, Shape::channels);
  for (long i = 0; i < Shape::blocks; ++i) {
    const std::string number = std::to_string(i);
    std::string inner = add_dense("in" + number, before, Shape::channels, Shape::narrow);
    inner = file.add("prelu" + number, "PReLU", bytes_of(0.25f), {inner});
    inner = file.add("depth" + number, "TDNN", depthwise(Shape::channels, Shape::taps, Shape::dilation(i)), {inner});
    inner = file.add("swish" + number, "Swish", flat, {inner});
    inner = add_dense("out" + number, inner, Shape::narrow, Shape::channels);
    before = file.add("sum" + number, "Merge", text("add"), {before, inner});
  }
  const std::string mask = add_dense("mask", before, Shape::channels, Shape::narrow);
  const std::string gate = file.add("gate", "Sigmoid", flat, {mask});
  const std::string masked = file.add("masked", "Merge", text("product"), {encoder, gate});
  return file.end(
      file.add("decoder", "TransposeTDNN", windows(Shape::window, Shape::hop, 1, Shape::channels), {masked}));
}

std::string conformer_network(long blocks) {
  using Shape = ConformerShape;
  NetworkFile file(Shape::rows, Shape::rows);
  std::string before = file.add("positions", "RelPosEnc", integers({Shape::cached, 16}), {"_input"});
  for (long i = 0; i < blocks; ++i)
    before = file.add("block" + std::to_string(i), "Conformer", conformer_block(), {before});
  return file.end(before);
}

std::string mask_network() {
  using Shape = MaskShape;
  NetworkFile file(Shape::rows, Shape::rows);
  std::string before = file.add("lstm0", "LSTM", lstm(Shape::cells, Shape::rows), {"_input"});
  before = file.add("lstm1", "LSTM", lstm(Shape::cells, Shape::cells), {before});
  before = file.add("out", "FullyConnected", dense(Shape::rows, Shape::cells), {before});
  before = file.add("mask", "Sigmoid", bytes_of(1.0f) + bytes_of(0.0f), {before});
  return file.end(file.add("masked", "Merge", text("product"), {before, "_input"}));
}

NetworkStream::NetworkStream(const std::string& file, long rows, long frames)
    : x_(std::make_shared<Minibatch>(Matrix(Matrix::Random(rows, frames)))) {
  std::istringstream stream(file);
  network_.load(stream, "application/meridane-bin");
  scorer_ = std::dynamic_pointer_cast<NNScorer>(network_.create_scorer());
  scorer_->set_keeps_results(false);
}

void NetworkStream::run() {
  scorer_->set_input(x_);
  scorer_->execute();
}

}  // namespace meridane::bench
