#include "apps/tool/network_listing.h"

#include <iomanip>
#include <ostream>

#include "apps/tool/printable.h"

namespace sonivo::tool {

void list_network(const meridane::NNParameter& network, std::ostream& output) {
  meridane::LayerSize total;
  output << "input           " << network.ninput() << '\n' << "output          " << network.noutput() << '\n';
  output << "layers          " << network.layers().size() << "  (id, type, parameters, multiply-adds per frame)\n";
  for (const auto& layer : network.layers()) {
    const meridane::LayerSize size = layer->size();
    total.parameters += size.parameters;
    total.multiply_adds += size.multiply_adds;
    output << "  " << std::left << std::setw(20) << printable(layer->id()) << ' ' << std::setw(24)
           << printable(layer->type()) << ' ' << std::right << std::setw(10) << size.parameters << ' ' << std::setw(10)
           << size.multiply_adds << '\n';
  }
  output << "links           " << network.links().size() << '\n';
  for (const auto& [from, to] : network.links()) output << "  " << printable(from) << " -> " << printable(to) << '\n';
  output << "evaluated       ";
  for (const auto& layer : network.forward_path()) output << ' ' << printable(layer->id());
  output << '\n'
         << "parameters      " << total.parameters << '\n'
         << "multiply-adds   " << total.multiply_adds << " per frame\n";
}

}  // namespace sonivo::tool
