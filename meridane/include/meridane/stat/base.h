#pragma once

#include <cstdint>
#include <functional>
#include <istream>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include "meridane/error.h"
#include "meridane/io/binary.h"
#include "meridane/io/xml.h"

namespace meridane {

/// Sums over weighted observations of type T that are enough to estimate the parameters of a distribution.
template <class T>
class BaseStat {
 public:
  virtual ~BaseStat() = default;
  virtual void accumulate(const T& x, double weight) = 0;
  /// Replaces what is there by a record, or by an element and its children.
  virtual void load_storage(std::istream& stream) = 0;
  virtual void load_storage(const XmlElement& element) = 0;
  virtual void dump_storage(std::ostream& stream) const = 0;
  virtual void dump_storage(XmlElement& element, XmlDocument& document) const = 0;
};

// Keys of statistics: in records an integer as it is, a text with its length; in documents an attribute.

template <class Key>
Key read_key(std::istream& stream) {
  return read_number<Key>(stream);
}
template <>
inline std::string read_key<std::string>(std::istream& stream) {
  return read_string(stream);
}

template <class Key>
void write_key(std::ostream& stream, Key key) {
  write_number(stream, key);
}
inline void write_key(std::ostream& stream, const std::string& key) { write_string(stream, key); }

template <class Key>
Key key_of(const std::string& text);
template <>
std::int32_t key_of<std::int32_t>(const std::string& text);
template <>
std::string key_of<std::string>(const std::string& text);

std::string key_text(std::int32_t key);
std::string key_text(const std::string& key);

/// Reads the magic of an array of statistics.
void expect_array(std::istream& stream);
void write_array(std::ostream& stream);
/// For a file that can't be what the description says.
[[noreturn]] void raise_invalid_statistics(const char* description);

/// Statistics by key. Record: `MeSttArr`, 8-byte count, for each its key and its record; in the order of the keys.
/// Element: a child `stat` with the attribute `key` for each.
template <class Key, class Stat, class Alloc = std::allocator<std::pair<const Key, Stat>>>
class StatSet {
 public:
  using Map = std::map<Key, Stat, std::less<Key>, Alloc>;

  /// Throws "Statistics is not found" for an unknown key.
  const Stat& get(const Key& key) const {
    const auto found = stats_.find(key);
    if (found == stats_.end()) raise("Statistics is not found");
    return found->second;
  }
  /// Those of a key, made if there are none.
  Stat& operator[](const Key& key) { return stats_[key]; }
  bool has(const Key& key) const { return stats_.find(key) != stats_.end(); }
  const Map& all() const { return stats_; }

  void load_storage(std::istream& stream) {
    expect_array(stream);
    const auto count = read_number<std::uint64_t>(stream);
    expect_left(stream, count, sizeof count);
    Map stats;
    for (std::uint64_t i = 0; i < count; ++i) add(stats, read_key<Key>(stream)).load_storage(stream);
    stats_ = std::move(stats);
  }
  void dump_storage(std::ostream& stream) const {
    write_array(stream);
    write_number<std::uint64_t>(stream, stats_.size());
    for (const auto& [key, stat] : stats_) {
      write_key(stream, key);
      stat.dump_storage(stream);
    }
  }
  void load_storage(const XmlElement& element) {
    Map stats;
    for (const XmlElement* child = find_child(element, "stat"); child != nullptr; child = next_of_name(*child)) {
      add(stats, key_of<Key>(fetch_attribute(*child, "key"))).load_storage(*child);
    }
    stats_ = std::move(stats);
  }
  void dump_storage(XmlElement& element, XmlDocument& document) const {
    for (const auto& [key, stat] : stats_) {
      XmlElement& child = append_element(element, document, "stat");
      append_attribute(child, document, "key", key_text(key));
      stat.dump_storage(child, document);
    }
  }

 private:
  static Stat& add(Map& stats, const Key& key) {
    const auto [place, is_new] = stats.try_emplace(key);
    if (!is_new) raise_invalid_statistics("Statistics array");
    return place->second;
  }

  Map stats_;
};

}  // namespace meridane
