#include "enhance/whole_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string_view>

namespace sonivo {
namespace {

class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) {}
  ~Descriptor() {
    const int reason = errno;  // of whoever gives up
    if (number_ >= 0) ::close(number_);
    errno = reason;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return number_; }
  explicit operator bool() const { return number_ >= 0; }

 private:
  int number_;
};

bool write_to_disk(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written == 0) errno = ENOSPC;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return ::fsync(descriptor) == 0;
}

bool name_file(int descriptor, const std::string& name) {
  const std::string source = "/proc/self/fd/" + std::to_string(descriptor);
  return ::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

/// False, with the errno of what failed before.
bool give_up(const std::string& part) {
  const int reason = errno;
  ::unlink(part.c_str());
  errno = reason;
  return false;
}

/// A file of that name, or what is left of one, stands in the way of a link.
bool take_name(const std::string& part, const std::string& name) {
  return std::rename(part.c_str(), name.c_str()) == 0 || give_up(part);
}

}  // namespace

bool write_whole_file(const std::string& name, const std::function<void(std::ostream&)>& write) {
  std::ostringstream content;
  write(content);
  if (!content) {
    errno = ENOMEM;
    return false;
  }
  const std::string folder = std::filesystem::path(name).parent_path().string();
  const std::string part = name + ".part";
  ::unlink(part.c_str());

  const Descriptor nameless(::open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666));
  if (nameless) {
    if (!write_to_disk(nameless.get(), content.view())) return false;
    if (name_file(nameless.get(), name)) return true;
    if (name_file(nameless.get(), part)) return take_name(part, name);
  }
  // The file system knows no files without a name, or there is no /proc to name them by.
  const Descriptor named(::open(part.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666));
  if (!named) return false;
  return write_to_disk(named.get(), content.view()) ? take_name(part, name) : give_up(part);
}

}  // namespace sonivo
