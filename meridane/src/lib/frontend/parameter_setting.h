#pragma once

#include "lib/framescore/parameter_file.h"
#include "lib/frontend/settings.h"
#include "meridane/io/script.h"
#include "meridane/io/streamable.h"

namespace meridane {

/// Takes the child `parameter`: the document in it, or the file that its attribute `ref` names. Its attribute `type`
/// says in which form: text/xml (default) or, of a file, application/meridane-bin; else "\"TYPE\" format does not
/// support".
template <class Parameter>
void load_parameter(const XmlElement& element, Parameter& parameter) {
  const XmlElement& setting = expect_child(element, "parameter");
  const std::string type = expand_script(find_attribute(setting, "type").value_or("text/xml"));
  const auto ref = find_attribute(setting, "ref");
  const bool is_known = is_xml(type) || (ref && type == "application/meridane-bin");
  if (!is_known) raise("\"%s\" format does not support", type.c_str());
  if (ref) {
    RefInput input = ref_input_open(expand_script(*ref));
    parameter.load(input.stream(), type);
    return;
  }
  XmlFile inner;
  if (const XmlElement* root = find_child(setting)) append_copy(inner.document(), inner.document(), *root);
  XmlStoreTraits<Parameter>::load(parameter, inner);
}

/// Appends it with the document in it.
template <class Parameter>
void append_parameter(XmlElement& element, XmlDocument& document, const Parameter& parameter) {
  XmlFile inner;
  XmlStoreTraits<Parameter>::dump(parameter, inner);
  append_copy(append_element(element, document, "parameter"), document, *inner.root());
}

}  // namespace meridane
