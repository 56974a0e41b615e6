#include "meridane/stat/base.h"

#include "lib/framescore/parameter_file.h"
#include "meridane/stat/multstat.h"
#include "meridane/stat/number.h"

namespace meridane {
namespace {

constexpr const char* kArray = "MeSttArr";
constexpr const char* kMultinomial = "MeMNStat";
constexpr const char* kMultinomial2 = "MeMNSta2";
constexpr const char* kMultinomialDescription = "multinomial statistics";

}  // namespace

template <>
std::int32_t key_of<std::int32_t>(const std::string& text) {
  return number_of<std::int32_t>(text);
}
template <>
std::string key_of<std::string>(const std::string& text) {
  return text;
}

std::string key_text(std::int32_t key) { return text_of(key); }
std::string key_text(const std::string& key) { return key; }

void expect_array(std::istream& stream) { expect_magic(stream, kArray, "Statistics array"); }
void write_array(std::ostream& stream) { write_magic(stream, kArray); }

void raise_invalid_statistics(const char* description) {
  raise<InvalidFormat>("invalid format (expected \"%s\")", description);
}

bool expect_multinomial(std::istream& stream) {
  std::string magic(8, '\0');
  read_bytes(stream, magic.data(), magic.size());
  if (magic != kMultinomial && magic != kMultinomial2) raise_invalid_multinomial();
  return magic == kMultinomial2;
}

void write_multinomial(std::ostream& stream) { write_magic(stream, kMultinomial2); }
void raise_invalid_multinomial() { raise_invalid_statistics(kMultinomialDescription); }

}  // namespace meridane
