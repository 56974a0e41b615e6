#include "lib/frontend/scalar_func_node.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "lib/frontend/settings.h"
#include "meridane/io/number_text.h"

namespace meridane {

const ScalarFuncNode::Function ScalarFuncNode::kFunctions[] = {
    {"abs", [](float x, float) { return std::abs(x); }},
    {"add", [](float x, float alpha) { return x + alpha; }},
    {"exp", [](float x, float) { return std::exp(x); }},
    {"log", [](float x, float) { return std::log(x); }},
    {"max", [](float x, float alpha) { return x < alpha ? alpha : x; }},
    {"min", [](float x, float alpha) { return x > alpha ? alpha : x; }},
    {"mul", [](float x, float alpha) { return alpha * x; }},
    {"pow", [](float x, float alpha) { return std::pow(x, alpha); }},
    {"relu", [](float x, float) { return x < 0 ? 0 : x; }},
    {"sigmoid", [](float x, float alpha) { return 1 / (1 + std::exp(-alpha * x)); }},
    {"sqrt", [](float x, float) { return std::sqrt(x); }},
    {"tanh", [](float x, float alpha) { return std::tanh(alpha * x); }},
};

std::string ScalarFuncNode::info() const {
  return std::string(func_->name) + ", alpha = " + number_text(alpha_.value_or(1));
}

void ScalarFuncNode::load_settings(const XmlElement& element) {
  expect_settings(element, {"func", "alpha"});
  const std::string name = setting_text(element, "func").value_or("");
  func_ = std::find_if(std::begin(kFunctions), std::end(kFunctions),
                       [&name](const Function& each) { return each.name == name; });
  if (func_ == std::end(kFunctions)) raise("unknown type string (%s)", name.c_str());
  if (const auto text = setting_text(element, "alpha")) alpha_ = number(*text, "alpha tag is not well formed");
}

void ScalarFuncNode::dump(XmlElement& element, XmlDocument& document) const {
  append_element(element, document, "func", func_->name);
  if (alpha_) append_element(element, document, "alpha", number_text(*alpha_));
}

void ScalarFuncNode::feed(const Vector& x, std::size_t /*sender*/) {
  const float alpha = alpha_.value_or(1);
  send(Vector(x.unaryExpr([this, alpha](float each) { return func_->value(each, alpha); })));
}

}  // namespace meridane
