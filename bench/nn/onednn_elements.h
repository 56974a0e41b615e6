#pragma once

#include <dnnl.hpp>
#include <unordered_map>
#include <vector>

namespace meridane::bench {

/// One of oneDNN's passes over a row of values, made once; x and y are used in place at each call.
class OneDnnElements {
 public:
  OneDnnElements(dnnl::algorithm algorithm, float alpha, std::vector<float>& x, std::vector<float>& y) {
    using Pass = dnnl::eltwise_forward;
    set(Pass(Pass::primitive_desc(Pass::desc(kKind, algorithm, shape(x), alpha), engine_)), x, y);
  }

  static OneDnnElements softmax(std::vector<float>& x, std::vector<float>& y) {
    using Pass = dnnl::softmax_forward;
    OneDnnElements peer;
    peer.set(Pass(Pass::primitive_desc(Pass::desc(kKind, shape(x), 1), peer.engine_)), x, y);
    return peer;
  }

  static OneDnnElements layer_norm(std::vector<float>& x, std::vector<float>& weight, std::vector<float>& bias,
                                   std::vector<float>& y) {
    using Pass = dnnl::layer_normalization_forward;
    using Flags = dnnl::normalization_flags;
    OneDnnElements peer;
    const auto flags = Flags::use_scale | Flags::use_shift;
    peer.set(Pass(Pass::primitive_desc(Pass::desc(kKind, shape(x), 1e-5f, flags), peer.engine_)), x, y);
    const dnnl::memory::desc row({static_cast<long>(x.size())}, dnnl::memory::data_type::f32,
                                 dnnl::memory::format_tag::a);
    peer.arguments_[DNNL_ARG_SCALE] = dnnl::memory(row, peer.engine_, weight.data());
    peer.arguments_[DNNL_ARG_SHIFT] = dnnl::memory(row, peer.engine_, bias.data());
    return peer;
  }

  void run() {
    pass_.execute(stream_, arguments_);
    stream_.wait();
  }

 private:
  static constexpr auto kKind = dnnl::prop_kind::forward_inference;

  OneDnnElements() = default;

  static dnnl::memory::desc shape(const std::vector<float>& x) {
    return {{1, static_cast<long>(x.size())}, dnnl::memory::data_type::f32, dnnl::memory::format_tag::ab};
  }

  void set(dnnl::primitive pass, std::vector<float>& x, std::vector<float>& y) {
    pass_ = std::move(pass);
    arguments_ = {{DNNL_ARG_SRC, dnnl::memory(shape(x), engine_, x.data())},
                  {DNNL_ARG_DST, dnnl::memory(shape(y), engine_, y.data())}};
  }

  dnnl::engine engine_{dnnl::engine::kind::cpu, 0};
  dnnl::stream stream_{engine_};
  dnnl::primitive pass_;
  std::unordered_map<int, dnnl::memory> arguments_;
};

}  // namespace meridane::bench
