#pragma once

#include <map>
#include <vector>

#include "attention_reference.h"

// A Conformer of the usual make in double precision, over a whole stream at once, and its record.

namespace meridane::test {

/// The frames of a stream that each call gets: chunk c is frames begin[c] to begin[c + 1] - 1.
struct Chunks {
  Chunks(Eigen::Index frames, Eigen::Index length) {
    for (Eigen::Index t = 0; t < frames; t += length) begin.push_back(t);
    begin.push_back(frames);
  }
  std::size_t of(Eigen::Index frame) const {
    return static_cast<std::size_t>(std::upper_bound(begin.begin(), begin.end(), frame) - begin.begin() - 1);
  }
  std::vector<Eigen::Index> begin;
};

/// Feed-forward layers of F rows and a causal convolution of kTaps frames, d rows each. Numbers are such as half
/// precision holds, and small enough that no part drowns the others.
struct ConformerSample {
  static constexpr Eigen::Index F = 16;
  static constexpr int kTaps = 5;

  ConformerSample(unsigned seed, Eigen::Index d, int heads) : dice(seed), attention(dice, d, heads) {
    for (const auto& [name, rows, cols] :
         std::vector<std::tuple<std::string, Eigen::Index, Eigen::Index>>{{"fc1", F, d},
                                                                          {"fc2", d, F},
                                                                          {"conv1", 2 * d, d},
                                                                          {"conv2", kTaps * d, 1},
                                                                          {"conv3", d, d},
                                                                          {"fc3", F, d},
                                                                          {"fc4", d, F},
                                                                          {"norm1", d, 1},
                                                                          {"norm2", d, 1},
                                                                          {"norm3", d, 1},
                                                                          {"norm4", d, 1},
                                                                          {"norm5", d, 1},
                                                                          {"norm6", d, 1}}) {
      weight[name] = dice.matrix(rows, cols, 0.5f);
      bias[name] = dice.matrix(name == "conv2" ? d : rows, 1, 0.5f);
    }
    mean = dice.matrix(d, 1);
    var = Matrix::Constant(d, 1, 0.75f);
  }

  Eigen::Index rows() const { return attention.rows(); }

  /// type and record of each sublayer, by id.
  using Records = std::map<std::string, std::pair<std::string, std::string>>;
  Records records(bool half = false) const {
    const std::string prefix = half ? "Compressed" : "";
    Records all;
    for (const char* name : {"fc1", "fc2", "conv1", "conv3", "fc3", "fc4"}) {
      const std::string type = prefix + "FullyConnected";
      all[name] = {type, Record(type).matrix(weight.at(name), half).matrix(bias.at(name), half).bytes()};
    }
    for (const char* name : {"norm1", "norm2", "norm3", "norm5", "norm6"}) {
      const std::string type = prefix + "LayerNorm";
      all[name] = {type, Record(type).matrix(weight.at(name), half).matrix(bias.at(name), half).real(kEps).bytes()};
    }
    all["norm4"] = {prefix + "BatchNorm", Record(prefix + "BatchNorm")
                                              .matrix(weight.at("norm4"), half)
                                              .matrix(bias.at("norm4"), half)
                                              .matrix(mean, half)
                                              .matrix(var, half)
                                              .real(kEps)
                                              .bytes()};
    for (const char* name : {"act1", "act3", "act4"}) all[name] = {"Swish", Record("Swish").real(1).real(0).bytes()};
    all["act2"] = {"GLU", Record("GLU").real(1).real(0).bytes()};
    Record taps(prefix + "TDNN");
    for (const int value : {1, 1, kTaps, 1, 1, kTaps}) taps.number<std::int32_t>(value);
    all["conv2"] = {prefix + "TDNN", taps.matrix(weight.at("conv2"), half).matrix(bias.at("conv2"), half).bytes()};
    all["mha1"] = {prefix + "RelMHA", attention.record(prefix + "RelMHA")};
    return all;
  }

  static std::vector<std::string> names() {
    return {"norm1", "fc1",   "act1", "fc2",   "norm2", "mha1", "norm3", "conv1", "act2",
            "conv2", "norm4", "act3", "conv3", "norm5", "fc3",  "act4",  "fc4",   "norm6"};
  }

  static std::string record_of(const std::string& type, int cache_frame, int last_layer, const Records& records,
                               const std::vector<std::string>& order = names()) {
    Record record(type);
    record.number<std::int32_t>(cache_frame).number<std::int32_t>(last_layer).number<std::uint64_t>(order.size());
    std::string bytes = record.bytes();
    for (const std::string& name : order) {
      const auto& [sublayer, fields] = records.at(name);
      bytes += Record().text(name).text(sublayer).bytes() + fields;
    }
    return bytes;
  }

  std::string record(int cache_frame, int last_layer = 0) const {
    return record_of("Conformer", cache_frame, last_layer, records());
  }

  std::shared_ptr<NNLayer> load(int cache_frame, int last_layer = 0) const {
    return layer_of("Conformer", record(cache_frame, last_layer));
  }

  /// What comes out of a stream: attention over all its frames, restricted to those that a frame's call sees.
  Exact output(Exact x, const Chunks& chunks, Eigen::Index cache_frame) const {
    x += 0.5 * linear("fc2", swish(linear("fc1", normalised("norm1", x))));
    const auto sees = [&](Eigen::Index i, Eigen::Index j) {
      const std::size_t chunk = chunks.of(i);
      return j >= chunks.begin[chunk] - cache_frame && j < chunks.begin[chunk + 1];
    };
    const Exact n = normalised("norm2", x);
    x += attention.attention(n, n, n, ahead, sees);
    const Exact both = linear("conv1", normalised("norm3", x));
    const Exact gated = both.topRows(rows()).cwiseProduct(logistic(both.bottomRows(rows())));
    x += linear("conv3", swish(batch_normalised(convolved(gated))));
    x += 0.5 * linear("fc4", swish(linear("fc3", normalised("norm5", x))));
    return normalised("norm6", x);
  }

  static constexpr double kEps = 1e-5;

  Dice dice;
  AttentionSample attention;
  std::map<std::string, Matrix> weight, bias;
  Matrix mean, var;

 private:
  static Exact logistic(const Exact& x) { return (1 / (1 + (-x.array()).exp())).matrix(); }
  static Exact swish(const Exact& x) { return x.cwiseProduct(logistic(x)); }
  Exact linear(const std::string& name, const Exact& x) const {
    return AttentionSample::affine(weight.at(name), bias.at(name), x);
  }
  Exact normalised(const std::string& name, const Exact& x) const {
    Exact y = x.rowwise() - x.colwise().mean();
    for (Eigen::Index t = 0; t < y.cols(); ++t) {
      y.col(t) /= std::sqrt(y.col(t).squaredNorm() / static_cast<double>(y.rows()) + kEps);
    }
    return scaled(name, y);
  }
  Exact batch_normalised(const Exact& x) const {
    Exact y = x.colwise() - Eigen::VectorXd(mean.cast<double>());
    for (Eigen::Index i = 0; i < y.rows(); ++i) y.row(i) /= std::sqrt(static_cast<double>(var(i)) + kEps);
    return scaled("norm4", y);
  }
  Exact scaled(const std::string& name, const Exact& x) const {
    const Exact scale = weight.at(name).cast<double>();
    return (x.array().colwise() * scale.col(0).array()).matrix().colwise() +
           Eigen::VectorXd(bias.at(name).cast<double>());
  }
  Exact convolved(const Exact& x) const {
    Exact y(x.rows(), x.cols());
    for (Eigen::Index t = 0; t < x.cols(); ++t) {
      y.col(t) = bias.at("conv2").cast<double>();
      for (Eigen::Index k = 0; k < kTaps; ++k) {
        const Eigen::Index from = t + k - (kTaps - 1);
        if (from < 0) continue;
        const Exact tap = weight.at("conv2").middleRows(k * rows(), rows()).cast<double>();
        y.col(t) += tap.cwiseProduct(x.col(from));
      }
    }
    return y;
  }
};

inline std::shared_ptr<NNLayer> positions_for(int cache_frame) {
  return layer_of("RelPosEnc", Record("RelPosEnc").number<std::int32_t>(cache_frame).number<std::int32_t>(0).bytes());
}

/// What layers in a row give for a stream in chunks.
class Stream {
 public:
  explicit Stream(std::vector<std::shared_ptr<NNLayer>> layers) : layers_(std::move(layers)) {
    for (const auto& layer : layers_) states_.push_back(layer->create_state());
  }
  Stream clone() const {
    Stream copy(layers_);
    for (std::size_t i = 0; i < states_.size(); ++i) copy.states_[i] = states_[i]->clone();
    return copy;
  }

  Matrix step(const Matrix& x) {
    MinibatchPtr y = minibatch(x);
    for (std::size_t i = 0; i < layers_.size(); ++i) y = layers_[i]->forward({y}, states_[i]);
    return y->content();
  }
  Matrix run(const Matrix& x, const Chunks& chunks) {
    Matrix all(x.rows(), x.cols());
    for (std::size_t c = 0; c + 1 < chunks.begin.size(); ++c) {
      const Eigen::Index begin = chunks.begin[c], frames = chunks.begin[c + 1] - begin;
      all.middleCols(begin, frames) = step(x.middleCols(begin, frames));
    }
    return all;
  }

 private:
  std::vector<std::shared_ptr<NNLayer>> layers_;
  std::vector<std::shared_ptr<NNLayerState>> states_;
};

}  // namespace meridane::test
