// Any packet is either one whole request, which the driver answers at most once and never with more than there is room
// for, or none; likewise for replies. Inputs are packets, each after two bytes with its length.

#include <stdlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <system_error>
#include <utility>

#include "driver/control_driver.h"
#include "platform/control_frames.h"

namespace {

using namespace sonivo;

/// A disk that takes everything and keeps nothing.
class NoDisk final : public driver::Disk {
 public:
  ssize_t write(int, const void*, std::size_t count) override { return static_cast<ssize_t>(count); }
  int sync(int) override { return 0; }
  int rename(int, const char*, const char*) override { return 0; }
};

/// A folder that is gone when the program ends.
class Home {
 public:
  Home() {
    if (::mkdtemp(path_.data()) == nullptr) std::abort();
  }
  ~Home() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Home(const Home&) = delete;
  Home& operator=(const Home&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_ = (std::filesystem::temp_directory_path() / "sonivo-fuzz-XXXXXX").string();
};

driver::StateFolder& state_folder() {
  static const Home home;
  static NoDisk disk;
  static driver::StateFolder folder(home.path(), disk);
  return folder;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  driver::Settings settings(state_folder());
  driver::EffectProperties properties(state_folder());
  std::map<std::uint32_t, std::uint32_t> room;  // of the requests without a reply, by id
  driver::ControlDriver control(settings, properties, [&](driver::ClientId, const control::Reply& reply) {
    const auto asked = room.find(reply.head.id);
    if (asked == room.end() || reply.output.size() > asked->second || reply.head.transferred != reply.output.size()) {
      std::abort();
    }
    room.erase(asked);
    return true;
  });
  control.client_came(1, 1);
  auto rest = std::as_bytes(std::span(data, size));
  while (rest.size() >= 2) {
    const auto length = std::to_integer<std::size_t>(rest[0]) | std::to_integer<std::size_t>(rest[1]) << 8;
    rest = rest.subspan(2);
    const auto packet = rest.first(std::min(length, rest.size()));
    rest = rest.subspan(packet.size());
    if (const auto reply = control::read_reply(packet)) {
      if (reply->output.size() + sizeof reply->head != packet.size()) std::abort();
    }
    const auto request = control::read_request(packet);
    if (!request) continue;
    if (request->input.size() + sizeof request->head != packet.size()) std::abort();
    const bool asks = request->head.kind == control::RequestKind::control;
    const bool new_id = !room.contains(request->head.id);
    if (asks && new_id) room[request->head.id] = request->head.output_bytes;
    if (control.request(1, *request) != (!asks || new_id)) std::abort();
  }
  control.announce_exit();
  control.client_gone(1);
  return 0;
}
