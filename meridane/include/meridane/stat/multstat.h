#pragma once

#include <cmath>
#include <limits>
#include <type_traits>
#include <unordered_map>

#include "meridane/stat/base.h"
#include "meridane/stat/number.h"

namespace meridane {

struct MultinomialConfig {
  std::uint64_t nclass = 0;  ///< most different keys; 0: any number
};

/// Reads the magic of either form; answers whether it is the second.
bool expect_multinomial(std::istream& stream);
void write_multinomial(std::ostream& stream);
[[noreturn]] void raise_invalid_multinomial();

/// How often each key was observed. Counts are double or integers of 32 or 64 bits; an integer takes the whole part of
/// a weight. Record: `MeMNSta2`, 8-byte nclass, 8-byte number of keys, for each, in their order, the key and its count.
/// The first form, `MeMNStat`, has no nclass; it is read too. Element: attributes nclass and total, a child `count`
/// with the attribute `key` for each. Hash: of keys.
template <class Key, class Config = MultinomialConfig, class Hash = std::hash<Key>, class Count = double>
class MultinomialStat : public BaseStat<Key> {
 public:
  explicit MultinomialStat(const Config& config = {}) : config_(config) {}

  const Config& config() const { return config_; }
  Count total() const { return total_; }
  Count count(const Key& key) const {
    const auto found = counts_.find(key);
    return found == counts_.end() ? Count{} : found->second;
  }
  std::size_t size() const { return counts_.size(); }  ///< different keys
  /// In their order.
  std::map<Key, Count> counts() const { return {counts_.begin(), counts_.end()}; }

  /// Throws "Number of classes exceeds nclass" for one key too many, "Count is out of range" where an integer would
  /// overflow.
  void accumulate(const Key& key, double weight) override {
    if (!counts_.contains(key) && is_full()) raise("Number of classes exceeds nclass");
    if (!is_count(weight)) raise("Count is out of range");
    const auto more = static_cast<Count>(weight);
    Count total = total_, count = this->count(key);
    if (!grow(total, more) || !grow(count, more)) raise("Count is out of range");
    counts_[key] = count;
    total_ = total;
  }

  void load_storage(std::istream& stream) override {
    Config config = config_;
    if (expect_multinomial(stream)) config.nclass = read_number<std::uint64_t>(stream);
    MultinomialStat read(config);
    const auto size = read_number<std::uint64_t>(stream);
    expect_left(stream, size, sizeof(Count));
    for (std::uint64_t i = 0; i < size; ++i) {
      const Key key = read_key<Key>(stream);
      read.add(key, read_number<Count>(stream));
    }
    *this = std::move(read);
  }
  void dump_storage(std::ostream& stream) const override {
    write_multinomial(stream);
    write_number(stream, config_.nclass);
    write_number<std::uint64_t>(stream, counts_.size());
    for (const auto& [key, count] : counts()) {
      write_key(stream, key);
      write_number(stream, count);
    }
  }
  void load_storage(const XmlElement& element) override {
    Config config = config_;
    config.nclass = number_of<std::uint64_t>(fetch_attribute(element, "nclass"));
    MultinomialStat read(config);
    for (const XmlElement* child = find_child(element, "count"); child != nullptr; child = next_of_name(*child)) {
      read.add(key_of<Key>(fetch_attribute(*child, "key")), number_of<Count>(element_text(*child)));
    }
    *this = std::move(read);
  }
  void dump_storage(XmlElement& element, XmlDocument& document) const override {
    append_attribute(element, document, "nclass", text_of(config_.nclass));
    append_attribute(element, document, "total", text_of(total_));
    for (const auto& [key, count] : counts()) {
      append_attribute(append_element(element, document, "count", text_of(count)), document, "key", key_text(key));
    }
  }

 private:
  bool is_full() const { return config_.nclass > 0 && counts_.size() >= config_.nclass; }

  /// The least and the most of an integer Count, the latter excluded, are powers of two: exact in double precision.
  static bool is_count(double weight) {
    if constexpr (std::is_integral_v<Count>) {
      return weight > static_cast<double>(std::numeric_limits<Count>::min()) - 1 &&
             weight < std::ldexp(1., std::numeric_limits<Count>::digits);
    }
    return true;
  }
  /// False if an integer would overflow.
  static bool grow(Count& sum, Count more) {
    if constexpr (std::is_integral_v<Count>) return !__builtin_add_overflow(sum, more, &sum);
    sum += more;
    return true;
  }

  /// What a file says of a key.
  void add(const Key& key, Count count) {
    if (is_full() || !std::isfinite(static_cast<double>(count))) raise_invalid_multinomial();
    if (!counts_.try_emplace(key, count).second || !grow(total_, count)) raise_invalid_multinomial();
  }

  Config config_;
  std::unordered_map<Key, Count, Hash> counts_;
  Count total_{};
};

}  // namespace meridane
