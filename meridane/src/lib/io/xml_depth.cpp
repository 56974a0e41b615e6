#include "lib/io/xml_depth.h"

#include <algorithm>

namespace meridane {
namespace {

// The grammar is the parser's, with all that it lets pass: a `<` may be part of a name, a quote part of an attribute's
// name. Where the parser gives up, nothing is found either.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text.substr(0, text.find('\0'))) {}

  std::size_t deepest() {
    for (at_ = text_.find('<'); at_ < text_.size(); at_ = text_.find('<', at_)) {
      if (!step()) break;
    }
    return deepest_;
  }

 private:
  static constexpr std::string_view kBlanks = " \n\r\t";

  /// Goes behind what begins here with a `<`; false where the parser would give up.
  bool step() {
    const std::string_view rest = text_.substr(at_);
    if (rest.starts_with("</")) return closing_tag();
    if (rest.starts_with("<?")) return go_behind("?>", 2);
    if (rest.starts_with("<!--")) return go_behind("-->", 4);
    if (rest.starts_with("<![CDATA[")) return go_behind("]]>", 9);
    if (rest.starts_with("<!DOCTYPE") && rest.size() > 9 && kBlanks.find(rest[9]) != kBlanks.npos) return doctype();
    if (rest.starts_with("<!")) return go_behind(">", 2);
    return opening_tag();
  }

  bool go_behind(std::string_view mark, std::size_t skip) {
    const std::size_t found = text_.find(mark, at_ + skip);
    if (found == text_.npos) return false;
    at_ = found + mark.size();
    return true;
  }

  bool doctype() {
    std::size_t brackets = 0;
    for (; at_ < text_.size(); ++at_) {
      const char c = text_[at_];
      if (c == '[') ++brackets;
      if (c == ']' && brackets > 0) --brackets;
      if (c == '>' && brackets == 0) return true;
    }
    return false;
  }

  bool closing_tag() {
    if (depth_ == 0) return false;
    --depth_;
    return go_behind(">", 2);
  }

  bool opening_tag() {
    ++at_;
    skip_until(" \n\r\t/>?");
    skip_blanks();
    while (at_ < text_.size() && std::string_view(" \n\r\t/<>=?!").find(text_[at_]) == std::string_view::npos) {
      if (!attribute()) return false;
      skip_blanks();
    }
    const std::string_view rest = text_.substr(std::min(at_, text_.size()));
    const bool is_closed = rest.starts_with("/>");
    if (!is_closed && !rest.starts_with(">")) return false;
    deepest_ = std::max(deepest_, depth_ + 1);
    if (!is_closed) ++depth_;
    return true;
  }

  bool attribute() {
    skip_until(" \n\r\t/<>=?!");
    skip_blanks();
    if (at_ >= text_.size() || text_[at_] != '=') return false;
    ++at_;
    skip_blanks();
    if (at_ >= text_.size() || (text_[at_] != '"' && text_[at_] != '\'')) return false;
    return go_behind(text_.substr(at_, 1), 1);
  }

  void skip_until(std::string_view ends) { at_ = std::min(text_.find_first_of(ends, at_), text_.size()); }
  void skip_blanks() { at_ = std::min(text_.find_first_not_of(kBlanks, at_), text_.size()); }

  std::string_view text_;
  std::size_t at_ = 0;
  std::size_t depth_ = 0;
  std::size_t deepest_ = 0;
};

}  // namespace

std::size_t xml_depth(std::string_view text) { return Scanner(text).deepest(); }

}  // namespace meridane
