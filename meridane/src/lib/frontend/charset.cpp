#include "lib/frontend/charset.h"

#include <iconv.h>

#include <memory>

#include "meridane/error.h"

namespace meridane {
namespace {

constexpr std::size_t kMostBytesOfOne = 3;  // of UTF-8 for a byte of Shift-JIS

struct CloseConverter {
  void operator()(iconv_t converter) const { iconv_close(converter); }
};

}  // namespace

std::string utf8_of_sjis(const std::string& text) {
  const iconv_t opened = iconv_open("UTF-8", "CP932");
  // NOLINTNEXTLINE(performance-no-int-to-ptr): that's how it fails
  if (opened == reinterpret_cast<iconv_t>(-1)) raise("There is no converter from Shift-JIS");
  const std::unique_ptr<std::remove_pointer_t<iconv_t>, CloseConverter> converter(opened);
  std::string from = text;
  std::string to(kMostBytesOfOne * text.size(), '\0');
  char* in = from.data();
  char* out = to.data();
  std::size_t in_left = from.size();
  std::size_t out_left = to.size();
  if (iconv(converter.get(), &in, &in_left, &out, &out_left) == static_cast<std::size_t>(-1)) {
    raise("\"%s\" is not Shift-JIS", text.c_str());
  }
  to.resize(to.size() - out_left);
  return to;
}

}  // namespace meridane
