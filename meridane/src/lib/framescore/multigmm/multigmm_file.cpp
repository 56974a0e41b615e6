// Both stored forms of mixtures.

#include <rapidxml/rapidxml.hpp>

#include "lib/framescore/parameter_file.h"
#include "meridane/error.h"
#include "meridane/framescore/multigmm.h"
#include "meridane/io/binary.h"
#include "meridane/io/logging.h"
#include "meridane/io/number_text.h"

namespace meridane {
namespace {

constexpr const char* kGMMDescription = "GMM parameter";
constexpr std::uint64_t kMatrixHeader = 16;

void log_count(const char* name, std::size_t count) {
  log(kLogInfo, [&] { return formatted("%s = %d", name, static_cast<int>(count)); });
}

/// Reads a count of things that have at least that many bytes each, and logs it.
std::int32_t read_count(std::istream& stream, const char* name, std::uint64_t least_bytes) {
  const auto count = read_number<std::int32_t>(stream);
  if (count < 0) raise<InvalidFormat>("invalid format (expected \"%s\")", kGMMDescription);
  expect_left(stream, static_cast<std::uint64_t>(count), least_bytes);
  log_count(name, static_cast<std::size_t>(count));
  return count;
}

void write_count(std::ostream& stream, std::size_t count) {
  write_number<std::int32_t>(stream, static_cast<std::int32_t>(count));
}

}  // namespace

void BinaryStreamTraits<MultiGMMParameter>::load(MultiGMMParameter& parameter, std::istream& stream) {
  MultiGMMParameter read;
  expect_magic(stream, kGMMMagic, kGMMDescription);
  const std::int32_t means = read_count(stream, "nmean", kMatrixHeader);
  for (std::int32_t i = 0; i < means; ++i) read.add_mean(load_matrix_bin(stream));
  const std::int32_t chols = read_count(stream, "nchol", kMatrixHeader);
  for (std::int32_t i = 0; i < chols; ++i) read.chols_.push_back(load_matrix_bin(stream));
  const std::int32_t gaussians = read_count(stream, "ngauss", sizeof(MultiGMMParameter::Gaussian));
  for (std::int32_t i = 0; i < gaussians; ++i) {
    const auto mean = read_number<std::int32_t>(stream);
    read.gaussians_.push_back({mean, read_number<std::int32_t>(stream)});
  }
  const std::int32_t mixtures = read_count(stream, "nstate", kMatrixHeader);
  for (std::int32_t i = 0; i < mixtures; ++i) read.add_mixture(load_matrix_bin(stream));
  read.loaded();
  parameter = std::move(read);
}

void BinaryStreamTraits<MultiGMMParameter>::dump(const MultiGMMParameter& parameter, std::ostream& stream) {
  write_magic(stream, kGMMMagic);
  write_count(stream, parameter.means_.size());
  for (const Vector& mean : parameter.means_) dump_matrix_bin(stream, mean);
  write_count(stream, parameter.chols_.size());
  for (const RowMatrix& chol : parameter.chols_) dump_matrix_bin(stream, chol);
  write_count(stream, parameter.gaussians_.size());
  for (const auto& [mean, chol] : parameter.gaussians_) {
    write_number(stream, mean);
    write_number(stream, chol);
  }
  write_count(stream, parameter.mixtures_.size());
  for (const MultiGMMParameter::Mixture& mixture : parameter.mixtures_) {
    RowMatrix matrix(static_cast<Eigen::Index>(mixture.size()), 2);
    for (Eigen::Index i = 0; i < matrix.rows(); ++i) {
      const auto [gaussian, logweight] = mixture[static_cast<std::size_t>(i)];
      matrix.row(i) << static_cast<float>(gaussian), logweight;
    }
    dump_matrix_bin(stream, matrix);
  }
}

void XmlStoreTraits<MultiGMMParameter>::load(MultiGMMParameter& parameter, const XmlFile& file) {
  MultiGMMParameter read;
  const XmlElement& root = expect_root(file, "GMM", kGMMMagic);
  for (const XmlElement* mean : children(root, "mean")) read.add_mean(load_matrix_xml(*mean));
  log_count("nmean", read.means_.size());
  for (const XmlElement* chol : children(root, "chol")) {
    read.chols_.push_back(load_matrix_xml(*chol));
  }
  log_count("nchol", read.chols_.size());
  for (const XmlElement* gaussian : children(expect_child(root, "gaussians"), "gaussian")) {
    const int mean = int_of(fetch_attribute(*gaussian, "mean"));
    read.gaussians_.push_back({mean, int_of(fetch_attribute(*gaussian, "chol"))});
  }
  log_count("ngauss", read.gaussians_.size());
  for (const XmlElement* mixture : children(root, "mixture")) {
    MultiGMMParameter::Mixture entries;
    expect_child(*mixture, "entry");
    for (const XmlElement* entry : children(*mixture, "entry")) {
      const int gaussian = int_of(fetch_attribute(*entry, "gaussian"));
      entries.push_back({gaussian, float_of(fetch_attribute(*entry, "logweight"))});
    }
    read.mixtures_.push_back(std::move(entries));
  }
  log_count("nstate", read.mixtures_.size());
  read.loaded();
  parameter = std::move(read);
}

void XmlStoreTraits<MultiGMMParameter>::dump(const MultiGMMParameter& parameter, XmlFile& file) {
  XmlDocument& document = file.document();
  XmlElement& root = append_root(file, "GMM", kGMMMagic);
  for (const Vector& mean : parameter.means_) append_matrix(root, document, "mean", mean);
  for (const RowMatrix& chol : parameter.chols_) append_matrix(root, document, "chol", chol);
  XmlElement& gaussians = append_element(root, document, "gaussians");
  for (const auto& [mean, chol] : parameter.gaussians_) {
    XmlElement& gaussian = append_element(gaussians, document, "gaussian");
    append_attribute(gaussian, document, "mean", number_text(mean));
    append_attribute(gaussian, document, "chol", number_text(chol));
  }
  for (const MultiGMMParameter::Mixture& entries : parameter.mixtures_) {
    XmlElement& mixture = append_element(root, document, "mixture");
    for (const auto& [gaussian, logweight] : entries) {
      XmlElement& entry = append_element(mixture, document, "entry");
      append_attribute(entry, document, "gaussian", number_text(gaussian));
      append_attribute(entry, document, "logweight", number_text(logweight));
    }
  }
}

}  // namespace meridane
