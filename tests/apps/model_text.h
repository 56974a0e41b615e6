#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "apps/tool/settings_option.h"

// Speech enhancement models in their text form.

namespace sonivo::tool::test {

/// A layer that makes `rows` of one sample: row r is gains[r] times the sample.
inline std::string gains_layer(const std::vector<double>& gains) {
  std::ostringstream text;
  text << R"(<layer type="FullyConnected" id="gains"><weight>)";
  for (const double gain : gains) text << gain << '\n';
  text << "</weight><bias>";
  for (std::size_t i = 0; i < gains.size(); ++i) text << "0\n";
  text << "</bias></layer>";
  return text.str();
}

struct ModelText {
  std::vector<double> gains;
  std::string first = "";  ///< a layer before the gains, if there is one
  NamedValues options = {};
  std::string flow = "";  ///< nodes and links of a preprocessor, if there is one
};

inline std::string model_text(const ModelText& model) {
  std::string text = R"(senx<SE version="20231004">)";
  if (!model.flow.empty()) text += "<preproc><flow>" + model.flow + "</flow></preproc>";
  text += R"(<encoder><NN magic="MerNNpar" ninput="1" noutput="1"><layers>)";
  text += model.first + gains_layer(model.gains) + "</layers><links>";
  if (!model.first.empty()) text += R"(<link from_id="_input" to_id="first"/>)";
  text += R"(<link from_id=")";
  text += model.first.empty() ? "_input" : "first";
  text += R"(" to_id="gains"/><link from_id="gains" to_id="_output"/></links></NN></encoder>)";
  text += R"(<option name="frame-length" value="10"/>)";
  for (const auto& [name, value] : model.options) {
    text += R"(<option name=")" + name + R"(" value=")" + value + R"("/>)";
  }
  return text + "</SE>";
}

}  // namespace sonivo::tool::test
