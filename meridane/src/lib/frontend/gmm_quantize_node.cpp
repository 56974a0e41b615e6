#include "lib/frontend/gmm_quantize_node.h"

#include <rapidxml/rapidxml.hpp>

#include "lib/frontend/parameter_setting.h"

namespace meridane {

std::string GMMQuantizeNode::info() const {
  return formatted("%d values to one of %d mixtures", static_cast<int>(parameter_.dimension()),
                   static_cast<int>(parameter_.mixtures().size()));
}

void GMMQuantizeNode::load_settings(const XmlElement& element) {
  expect_settings(element, {"parameter"});
  load_parameter(element, parameter_);
  if (parameter_.mixtures().empty()) raise("There is no mixture to quantize to");
}

void GMMQuantizeNode::dump(XmlElement& element, XmlDocument& document) const {
  append_parameter(element, document, parameter_);
}

void GMMQuantizeNode::feed(const Vector& x, std::size_t /*sender*/) {
  expect_size(x, parameter_.dimension());
  std::size_t densest = 0;
  double most = 0;
  for (std::size_t j = 0; j < parameter_.mixtures().size(); ++j) {
    const double density = parameter_.log_density(x, j);
    if (j > 0 && !(density > most)) continue;
    densest = j;
    most = density;
  }
  send(Vector(Vector::Constant(1, static_cast<float>(densest))));
}

}  // namespace meridane
