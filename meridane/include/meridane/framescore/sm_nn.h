#pragma once

#include "meridane/framescore/nn.h"
#include "meridane/io/sm_manager.h"

namespace meridane {

/// A network whose parameters stand in a shared-memory segment, so that processes that serve the same model share one
/// copy. The segment must outlive it.
class SMNNParameter : public NNParameter {
 public:
  explicit SMNNParameter(SMManager manager) : manager_(std::move(manager)) {}

  /// Reads the binary form once and fills the segment. Where that fails, the segment holds what it held before, and
  /// this network is good for nothing but to be destroyed.
  void load_binary_stream(std::istream& stream) override;
  void load_xml_stream(std::istream& stream) override;  ///< throws
  /// Makes the network of what another process has put into the segment.
  void load_shared_memory();

 protected:
  std::shared_ptr<NNLayer> build_layer(const std::string& type, const std::string& id, const XmlElement* element,
                                       std::istream& stream) const override;

 private:
  std::uint64_t find_size(const char* name) const;
  std::string find_text(const std::string& part, const char* name) const;

  SMManager manager_;
};

}  // namespace meridane
