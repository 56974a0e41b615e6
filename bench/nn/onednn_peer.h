#pragma once

#include <cstddef>
#include <cstdint>
#include <dnnl.hpp>
#include <string>
#include <unordered_map>
#include <vector>

namespace meridane::bench {

/// One of oneDNN's products with a constant weight, made once: the weight in the format it asks for.
class OneDnnProduct {
 public:
  /// w is rows x cols row by row; x and y are frames x cols and frames x rows, used in place at each call.
  OneDnnProduct(std::vector<float>& w, std::vector<float>& bias, std::vector<float>& x, std::vector<float>& y,
                long frames) {
    using dnnl::memory;
    const long rows = static_cast<long>(bias.size()), cols = static_cast<long>(w.size()) / rows;
    const memory::desc x_shape({frames, cols}, memory::data_type::f32, memory::format_tag::ab);
    const memory::desc w_any({rows, cols}, memory::data_type::f32, memory::format_tag::any);
    const memory::desc b_shape({rows}, memory::data_type::f32, memory::format_tag::a);
    const memory::desc y_shape({frames, rows}, memory::data_type::f32, memory::format_tag::ab);
    make(x_shape, w_any, &b_shape, y_shape);
    const memory plain({{rows, cols}, memory::data_type::f32, memory::format_tag::ab}, engine_, w.data());
    reorder_weight(plain);
    arguments_ = {{DNNL_ARG_SRC, memory(x_shape, engine_, x.data())},
                  {DNNL_ARG_WEIGHTS, weight_},
                  {DNNL_ARG_BIAS, memory(b_shape, engine_, bias.data())},
                  {DNNL_ARG_DST, memory(y_shape, engine_, y.data())}};
  }

  /// 8 bits: unsigned codes of the frames times signed codes of the weight. Each call quantizes the frames first, with
  /// a scale that is given: what it doesn't do is to look for the range of each frame.
  OneDnnProduct(std::vector<std::int8_t>& w, long rows, std::vector<float>& x, std::vector<std::int32_t>& y,
                long frames) {
    using dnnl::memory;
    const long cols = static_cast<long>(w.size()) / rows;
    codes_.resize(static_cast<std::size_t>(frames * cols));
    const memory::desc float_shape({frames, cols}, memory::data_type::f32, memory::format_tag::ab);
    const memory::desc x_shape({frames, cols}, memory::data_type::u8, memory::format_tag::ab);
    const memory::desc w_any({rows, cols}, memory::data_type::s8, memory::format_tag::any);
    const memory::desc y_shape({frames, rows}, memory::data_type::s32, memory::format_tag::ab);
    make(x_shape, w_any, nullptr, y_shape);
    const memory plain({{rows, cols}, memory::data_type::s8, memory::format_tag::ab}, engine_, w.data());
    reorder_weight(plain);
    const memory floats(float_shape, engine_, x.data()), codes(x_shape, engine_, codes_.data());
    dnnl::primitive_attr scale;
    scale.set_output_scales(0, {127.0f});
    quantize_ = dnnl::reorder(dnnl::reorder::primitive_desc(engine_, float_shape, engine_, x_shape, scale));
    quantize_arguments_ = {{DNNL_ARG_FROM, floats}, {DNNL_ARG_TO, codes}};
    arguments_ = {
        {DNNL_ARG_SRC, codes}, {DNNL_ARG_WEIGHTS, weight_}, {DNNL_ARG_DST, memory(y_shape, engine_, y.data())}};
  }

  void multiply() {
    if (quantize_) quantize_.execute(stream_, quantize_arguments_);
    product_.execute(stream_, arguments_);
    stream_.wait();
  }

  const char* implementation() const { return implementation_.c_str(); }

 private:
  using Arguments = std::unordered_map<int, dnnl::memory>;

  void make(const dnnl::memory::desc& x, const dnnl::memory::desc& w, const dnnl::memory::desc* bias,
            const dnnl::memory::desc& y) {
    using Product = dnnl::inner_product_forward;
    constexpr auto kKind = dnnl::prop_kind::forward_inference;
    const Product::desc description = bias ? Product::desc(kKind, x, w, *bias, y) : Product::desc(kKind, x, w, y);
    const Product::primitive_desc chosen(description, engine_);
    weight_ = dnnl::memory(chosen.weights_desc(), engine_);
    implementation_ = chosen.impl_info_str();
    product_ = Product(chosen);
  }

  void reorder_weight(dnnl::memory plain) {
    dnnl::reorder(plain, weight_).execute(stream_, plain, weight_);
    stream_.wait();
  }

  dnnl::engine engine_{dnnl::engine::kind::cpu, 0};
  dnnl::stream stream_{engine_};
  dnnl::memory weight_;
  dnnl::primitive product_;
  Arguments arguments_;
  std::string implementation_;
  std::vector<std::uint8_t> codes_;
  dnnl::primitive quantize_;
  Arguments quantize_arguments_;
};

}  // namespace meridane::bench
