#include "meridane/stat/multigmmstat.h"

#include <cmath>

#include "lib/framescore/parameter_file.h"

namespace meridane {
namespace {

constexpr const char* kGMMStatDescription = "GMM statistics";

/// A score may be -inf: that of an observation which no Gaussian gives any density.
void check(double score, double total) {
  if (std::isnan(score) || !std::isfinite(total)) raise_invalid_statistics(kGMMStatDescription);
}

bool is_below(std::int32_t index, std::size_t count) { return index >= 0 && static_cast<std::size_t>(index) < count; }

}  // namespace

void MultiGMMStat::accumulate(const MultiGMMParameter& parameter, const Vector& x, std::int32_t mixture,
                              double weight) {
  if (x.size() != parameter.dimension()) raise("number of dimentions of input data does not accord");
  if (!is_below(mixture, parameter.mixtures().size())) raise("Statistics is not found");
  const auto j = static_cast<std::size_t>(mixture);
  std::vector<double> posteriors;
  const double log_density = parameter.log_density(x, j, &posteriors);
  if (weight != 0) score_ += weight * log_density;  // 0 times -inf is no number
  total_ += weight;
  for (std::size_t k = 0; k < posteriors.size(); ++k) {
    gaussians_[parameter.mixtures()[j][k].gaussian].accumulate(x, weight * posteriors[k]);
    mixtures_[mixture].accumulate(static_cast<std::int32_t>(k), weight * posteriors[k]);
  }
}

void MultiGMMStat::expect_of(const MultiGMMParameter& parameter) const {
  bool fits = true;
  for (const auto& [g, stat] : gaussians_.all()) {
    fits = fits && is_below(g, parameter.gaussians().size()) &&
           (stat.dimension() == parameter.dimension() || stat.denom() == 0);
  }
  for (const auto& [j, stat] : mixtures_.all()) {
    fits = fits && is_below(j, parameter.mixtures().size());
    for (const auto& [k, count] : stat.counts()) {
      fits = fits && count >= 0 && is_below(k, parameter.mixtures()[static_cast<std::size_t>(j)].size());
    }
  }
  if (!fits) raise("statistics are of other parameters");
}

void BinaryStreamTraits<MultiGMMStat>::load(MultiGMMStat& statistics, std::istream& stream) {
  MultiGMMStat read;
  expect_magic(stream, kGMMStatMagic, kGMMStatDescription);
  read.score_ = read_number<double>(stream);
  read.total_ = read_number<double>(stream);
  check(read.score_, read.total_);
  read.gaussians_.load_storage(stream);
  read.mixtures_.load_storage(stream);
  statistics = std::move(read);
}

void BinaryStreamTraits<MultiGMMStat>::dump(const MultiGMMStat& statistics, std::ostream& stream) {
  write_magic(stream, kGMMStatMagic);
  write_number(stream, statistics.score_);
  write_number(stream, statistics.total_);
  statistics.gaussians_.dump_storage(stream);
  statistics.mixtures_.dump_storage(stream);
}

void XmlStoreTraits<MultiGMMStat>::load(MultiGMMStat& statistics, const XmlFile& file) {
  MultiGMMStat read;
  const XmlElement& root = expect_root(file, "GMMStat", kGMMStatMagic);
  read.score_ = number_of<double>(fetch_attribute(root, "score"));
  read.total_ = number_of<double>(fetch_attribute(root, "total"));
  check(read.score_, read.total_);
  read.gaussians_.load_storage(expect_child(root, "gaussians"));
  read.mixtures_.load_storage(expect_child(root, "mixtures"));
  statistics = std::move(read);
}

void XmlStoreTraits<MultiGMMStat>::dump(const MultiGMMStat& statistics, XmlFile& file) {
  XmlDocument& document = file.document();
  XmlElement& root = append_root(file, "GMMStat", kGMMStatMagic);
  append_attribute(root, document, "score", text_of(statistics.score_));
  append_attribute(root, document, "total", text_of(statistics.total_));
  statistics.gaussians_.dump_storage(append_element(root, document, "gaussians"), document);
  statistics.mixtures_.dump_storage(append_element(root, document, "mixtures"), document);
}

}  // namespace meridane
