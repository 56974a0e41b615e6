#include "lib/frontend/rbm_sample_node.h"

#include <rapidxml/rapidxml.hpp>

#include "lib/frontend/parameter_setting.h"

namespace meridane {

std::string RBMSampleNode::info() const {
  return formatted("%d visible units to %d hidden ones, %s", static_cast<int>(parameter_.weight().cols()),
                   static_cast<int>(parameter_.weight().rows()),
                   use_expectation_.value_or(false) ? "expected" : "sampled");
}

void RBMSampleNode::load_settings(const XmlElement& element) {
  expect_settings(element, {"parameter", "use_expectation"});
  load_parameter(element, parameter_);
  if (const auto text = setting_text(element, "use_expectation")) {
    if (*text != "true" && *text != "false") raise("use_expectation tag is not well formed");
    use_expectation_ = *text == "true";
  }
}

void RBMSampleNode::dump(XmlElement& element, XmlDocument& document) const {
  append_parameter(element, document, parameter_);
  if (use_expectation_) append_element(element, document, "use_expectation", *use_expectation_ ? "true" : "false");
}

void RBMSampleNode::feed(const Vector& x, std::size_t /*sender*/) {
  Vector y = parameter_.hidden(x);
  if (!use_expectation_.value_or(false)) {
    for (float& each : y) {
      const double drawn = static_cast<double>(generator_()) * 0x1p-32;  // 0 to below 1
      each = drawn < each ? 1 : 0;
    }
  }
  send(std::move(y));
}

}  // namespace meridane
