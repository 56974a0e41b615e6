#include "lib/frontend/word_embedding_node.h"

#include <algorithm>
#include <array>

#include "lib/framescore/parameter_file.h"
#include "lib/frontend/charset.h"
#include "lib/frontend/settings.h"
#include "meridane/io/number_text.h"
#include "meridane/io/script.h"

namespace meridane {
namespace {

constexpr std::array<const char*, 5> kCharsets = {"UTF-8", "utf-8", "SJIS", "sjis", "shift-jis"};
constexpr std::size_t kFirstSJIS = 2;

std::string mapping_attribute(const XmlElement& mapping, const char* name) {
  return expand_script(find_attribute(mapping, name).value_or(""));
}

}  // namespace

std::string WordEmbeddingNode::info() const {
  return formatted("%d words to %d values", static_cast<int>(entries_.size()), dim_);
}

void WordEmbeddingNode::load_settings(const XmlElement& element) {
  expect_settings(element, {"mapping"});
  const XmlElement& mapping = expect_child(element, "mapping");
  charset_ = mapping_attribute(mapping, "charset");
  if (std::find(kCharsets.begin(), kCharsets.end(), charset_) == kCharsets.end()) {
    raise("Incorrect format for attribute \"charset\".");
  }
  dim_ = whole_number(mapping_attribute(mapping, "dim"), "Incorrect format for attribute \"dim\".");
  if (dim_ < 1 || static_cast<std::size_t>(dim_) > FlowBudget::kMostWaiting) {
    raise("Incorrect format for attribute \"dim\".");
  }
  const int entrysize =
      whole_number(mapping_attribute(mapping, "entrysize"), "Incorrect format for attribute \"entrysize\".");
  if (entrysize < 0) raise("Incorrect format for attribute \"entrysize\".");
  expect_children(mapping, {"entry"});
  for (const XmlElement* entry : children(mapping, "entry")) add_entry(*entry);
  if (numbers_.size() != static_cast<std::size_t>(entrysize)) {
    raise("\"entrysize\" does not match the number of entries actually registered.");
  }
}

void WordEmbeddingNode::add_entry(const XmlElement& element) {
  expect_settings(element, {"vec"});
  Entry entry = {fetch_attribute(element, "word"), load_matrix_xml(expect_child(element, "vec"))};
  const bool is_vector = entry.vec.rows() == 1 || entry.vec.cols() == 1;
  if (!is_vector || entry.vec.size() != dim_) {
    raise<DimensionMismatchError>("The vector of \"%s\" does not have %d values", entry.word.c_str(), dim_);
  }
  const auto* const charset = std::find(kCharsets.begin(), kCharsets.end(), charset_);
  const bool is_sjis = charset >= kCharsets.begin() + kFirstSJIS;
  // A word that is there already isn't registered again: the number of entries tells.
  numbers_.emplace(is_sjis ? utf8_of_sjis(entry.word) : entry.word, entries_.size());
  entries_.push_back(std::move(entry));
}

void WordEmbeddingNode::dump(XmlElement& element, XmlDocument& document) const {
  XmlElement& mapping = append_element(element, document, "mapping");
  append_attribute(mapping, document, "charset", charset_);
  append_attribute(mapping, document, "dim", number_text(dim_));
  append_attribute(mapping, document, "entrysize", std::to_string(numbers_.size()));
  for (const auto& [word, vec] : entries_) {
    XmlElement& entry = append_element(mapping, document, "entry");
    append_attribute(entry, document, "word", word);
    append_matrix(entry, document, "vec", vec);
  }
}

void WordEmbeddingNode::feed_word(const std::string& word) {
  const auto found = numbers_.find(word);
  if (found == numbers_.end()) return send(Vector(Vector::Zero(dim_)));
  send(Vector(values_of(entries_[found->second].vec)));
}

}  // namespace meridane
