#include "layer_samples.h"

namespace meridane::test {
namespace {

LayerSample sloped(const std::string& type) {
  return {.type = type,
          .record = Record(type).real(1.25).real(-0.5).bytes(),
          .description = type + " Layer",
          .class_name = type + "Layer",
          .any_rows = true};
}

/// The types below are there in half precision too.
std::string prefix(bool half) { return half ? "Compressed" : ""; }

LayerSample dense(bool half) {
  const std::string type = prefix(half) + "FullyConnected";
  Dice dice(1);
  return {.type = type,
          .record = Record(type).matrix(dice.matrix(6, 5), half).matrix(dice.matrix(6, 1), half).bytes(),
          .description = type + " Layer",
          .class_name = type + "Layer",
          .children = {"weight", "bias"},
          .has_bias = true};
}

LayerSample one_vector(const std::string& plain, bool half) {
  const std::string type = prefix(half) + plain;
  return {.type = type,
          .record = Record(type).matrix(Dice(2).matrix(5, 1), half).bytes(),
          .description = type + " Layer",
          .class_name = type + "Layer",
          .children = {"bias"},
          .has_bias = true};
}

LayerSample embedding(bool half) {
  const std::string type = prefix(half) + "Embedding";
  return {.type = type,
          .record = Record(type).matrix(Dice(3).matrix(6, 4), half).bytes(),
          .description = type + " Layer",
          .class_name = type + "Layer",
          .children = {"weight"},
          .rows = 1};
}

LayerSample batch_norm(bool half) {
  const std::string type = prefix(half) + "BatchNorm";
  Dice dice(4);
  Record record(type);
  for (int i = 0; i < 3; ++i) record.matrix(dice.matrix(5, 1), half);
  record.matrix(dice.matrix(5, 1).cwiseAbs(), half).real(0.001);
  return {.type = type,
          .record = record.bytes(),
          .description = type + " Layer",
          .class_name = type + "Layer",
          .children = {"weight", "bias", "mean", "var"}};
}

LayerSample layer_norm(const std::string& plain, bool half) {
  const std::string type = prefix(half) + plain;
  Dice dice(5);
  const Record record = Record(type).matrix(dice.matrix(5, 1), half).matrix(dice.matrix(5, 1), half).real(0.001);
  return {.type = type,
          .record = record.bytes(),
          // One class keeps the name of the one it was made after.
          .description = (type == "GlobalLayerNorm" ? "LayerNorm" : type) + " Layer",
          .class_name = type + "Layer",
          .children = {"weight", "bias"},
          .over_frames = plain == "GlobalLayerNorm"};
}

LayerSample quantized(LayerSample sample) {
  sample.table = LayerSample::Table::quantized;
  sample.dump_tag = "QuantizedFullyConnected";
  sample.class_name = "QuantizedFullyConnectedLayer";
  return sample;
}

}  // namespace

std::string quantized_record() {
  Record record("QuantizedFullyConnected");
  for (const std::int32_t size : {6, 5, 8, 16}) record.number(size);
  record.number<std::int64_t>(6).number<std::int64_t>(1);
  for (const double scale : {100.0, 90.5, 120.25, 255.0, 1.5, 64.0}) record.real(scale);
  record.number<std::int64_t>(6);
  for (const std::int32_t zero : {-127, -100, -3, 0, 12, -255}) record.number(zero);
  record.number<std::int64_t>(6);
  const auto code = [](int line, int k) {
    return static_cast<std::uint8_t>(line < 6 && k < 5 ? (line * 57 + k * 101) % 256 : 0);
  };
  for (int line = 0; line < 6; ++line) {
    std::int32_t sum = 0;
    for (int k = 0; k < 5; ++k) sum += code(line, k);
    record.number(sum);
  }
  for (int line = 0; line < 8; ++line) {
    for (int k = 0; k < 16; ++k) record.number(code(line, k));
  }
  return record.matrix(Dice(6).matrix(6, 1)).bytes();
}

std::vector<LayerSample> layer_samples() {
  std::vector<LayerSample> samples;
  for (const bool half : {false, true}) {
    samples.push_back(dense(half));
    samples.push_back(one_vector("Prod", half));
    samples.push_back(embedding(half));
    samples.push_back(batch_norm(half));
    samples.push_back(layer_norm("LayerNorm", half));
    samples.push_back(layer_norm("GlobalLayerNorm", half));
  }
  samples.push_back(one_vector("Bias", false));
  for (const char* type : {"Sigmoid", "Tanh", "Swish", "GLU"}) samples.push_back(sloped(type));
  samples.push_back({.type = "PReLU",
                     .record = Record("PReLU").real(0.125).bytes(),
                     .description = "PReLU Layer",
                     .class_name = "PReLULayer",
                     .any_rows = true});
  samples.push_back({.type = "Softmax",
                     .record = Record("Softmax").real(0.75).bytes(),
                     .description = "Softmax Layer",
                     .class_name = "SoftmaxLayer",
                     .any_rows = true});
  samples.push_back(
      {.type = "ReLU", .record = "ReLU", .description = "ReLU Layer", .class_name = "ReLULayer", .any_rows = true});
  samples.push_back({.type = "Print",
                     .record = Record("Print").text("a \"name\" of <some> & 'kind'").bytes(),
                     .description = "Print Layer",
                     .class_name = "PrintLayer",
                     .any_rows = true});
  samples.push_back(quantized(dense(false)));
  samples.push_back(quantized({.type = "QuantizedFullyConnected",
                               .record = quantized_record(),
                               .description = "QuantizedFullyConnected Layer",
                               .children = {"weight", "bias"},
                               .has_bias = true}));
  return samples;
}

}  // namespace meridane::test
