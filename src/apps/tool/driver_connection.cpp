#include "apps/tool/driver_connection.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <optional>

#include "apps/tool/failure.h"
#include "driver/listener.h"

namespace sonivo::tool {

namespace {

constexpr std::uint32_t kDriverPatienceMs = 2000;
constexpr const char* kHasNotAnswered =
    "has not answered for 2 s; restart it: systemctl --user restart NorvellSonivoDriver, whose log tells why it did "
    "not: journalctl --user -u NorvellSonivoDriver";

Failure no_connection(const std::string& path, Error why) {
  const std::string driver = "the driver at '" + path + "' ";
  switch (why) {
    case error::kAccessDenied:
      return Failure(driver + "belongs to somebody else; run this command as its user");
    case error::kBusy:
      return Failure(driver +
                     "takes no connection: it serves too many programs already; end one of them, or restart "
                     "it: systemctl --user restart NorvellSonivoDriver");
    case error::kDeviceNotConnected:
      return Failure(driver + kHasNotAnswered);
    default:
      return Failure("the driver is not running: nothing listens at '" + path +
                     "'; start it: systemctl --user start NorvellSonivoDriver.socket");
  }
}

}  // namespace

std::string refusal_text(Error error) {
  switch (error) {
    case error::kDiskFull:
      return "its disk is full; make room for its state folder";
    case error::kWriteFault:
      return "it cannot write to its state folder; its log tells why";
    case error::kBusy:
      return "it has too much to do; try again";
    case error::kInvalidFunction:
      return "it does not know this request; install a driver and a sonivo of the same version";
    default:
      return "error " + std::to_string(error);
  }
}

void add_socket_option(CLI::App& command, std::string& path) {
  command.add_option("--socket", path, "where the driver listens (default: $XDG_RUNTIME_DIR/sonivo/driver.sock)")
      ->type_name("PATH");
}

void add_json_option(CLI::App& command, bool& json) { command.add_flag("--json", json, "print JSON, for programs"); }

std::string driver_socket(const std::string& given) {
  if (!given.empty()) return given;
  const auto usual = driver::default_socket_path();
  if (!usual) throw Failure("XDG_RUNTIME_DIR is not set, so that the driver's socket is unknown; give --socket PATH");
  return *usual;
}

DriverConnection::DriverConnection(const std::string& given)
    : path_(driver_socket(given)), done_(events_.create(Reset::manual)), bus_(path_) {
  if (!done_) throw Failure("there are no file descriptors left; close something");
  if (const std::string fault = linux::path_fault(path_); !fault.empty()) throw Failure(fault + "; give a shorter one");
  Error why = error::kNone;
  device_ = bus_.open(path_, Sharing::shared, Completion::overlapped, why);
  if (!device_) throw no_connection(path_, why);
}

Error DriverConnection::request(std::uint32_t code, std::span<const std::byte> input, std::span<std::byte> output,
                                std::uint32_t& transferred) {
  Overlapped request{.hEvent = done_.get()};
  device_->control(code, input, output, request);
  const std::array<Event*, 1> awaited{done_.get()};
  if (!events_.wait_any(awaited, kDriverPatienceMs).index) {
    device_->cancel(request);
    throw Failure("the driver at '" + path_ + "' " + kHasNotAnswered);
  }
  const Outcome outcome = finish(request);
  transferred = outcome.transferred;
  return outcome.error;
}

bool DriverConnection::wait_for(std::uint32_t code, std::span<std::byte> output, Event& quit) {
  Overlapped request{.hEvent = done_.get()};
  device_->control(code, {}, output, request);
  const std::array<Event*, 2> awaited{done_.get(), &quit};
  if (events_.wait_any(awaited, std::nullopt).index != 0) {
    device_->cancel(request);
    return false;
  }
  const Error refused = finish(request).error;
  if (refused != error::kNone) throw Failure("the driver refuses: " + refusal_text(refused));
  return true;
}

DriverConnection::Outcome DriverConnection::finish(Overlapped& request) {
  Outcome outcome;
  outcome.error = device_->result(request, outcome.transferred, true);
  if (outcome.error == error::kDeviceNotConnected) {
    throw Failure("the driver at '" + path_ +
                  "' closed the connection: it ended, or serves another user or too many programs already");
  }
  return outcome;
}

void DriverConnection::get(const control::Setting& setting, std::span<std::byte> output) {
  constexpr std::array<std::byte, 4> kQuestion{};
  const bool has_question = setting.get_code == control::GetHeadphone;
  std::uint32_t transferred = 0;
  Error refused = request(setting.get_code, std::span(kQuestion).first(has_question ? 4 : 0), output, transferred);
  if (refused == error::kNone && transferred != output.size()) refused = error::kInvalidData;
  if (refused != error::kNone) {
    throw Failure("the driver does not tell " + std::string(setting.name) + ": " + refusal_text(refused));
  }
}

std::uint32_t DriverConnection::number(const control::Setting& setting) {
  std::array<std::uint32_t, 2> value{};
  const bool is_wide = setting.get_code == control::GetHeadphone;
  get(setting, std::as_writable_bytes(std::span(value).first(is_wide ? 2 : 1)));
  return value[0];
}

std::u16string DriverConnection::text(const control::Setting& setting) {
  control::WireText text{};
  get(setting, std::as_writable_bytes(std::span(text)));
  return {text.begin(), std::find(text.begin(), text.end(), u'\0')};
}

void DriverConnection::set(std::uint32_t code, std::span<const std::byte> input, const std::string& name) {
  std::uint32_t transferred = 0;
  const Error refused = request(code, input, {}, transferred);
  if (refused != error::kNone) throw Failure("the driver does not set " + name + ": " + refusal_text(refused));
}

void DriverConnection::set_number(std::uint32_t code, std::uint32_t value, const std::string& name) {
  set(code, std::as_bytes(std::span(&value, 1)), name);
}

void DriverConnection::set_text(std::uint32_t code, std::u16string_view value, const std::string& name) {
  control::WireText text{};
  value.copy(text.data(), text.size() - 1);
  set(code, std::as_bytes(std::span(text)), name);
}

control::Store DriverConnection::settings() {
  control::Store store;
  for (const control::Setting& setting : control::settings()) {
    if (setting.kind == control::SettingKind::text) {
      store.set_text(setting.get_code, text(setting));
    } else {
      store.set_number(setting.get_code, number(setting));
    }
  }
  return store;
}

std::string DriverConnection::report() {
  std::array<char, control::kMaxReportBytes> report{};
  std::uint32_t transferred = 0;
  const Error refused = request(control::NSV_READ_REPORT, {}, std::as_writable_bytes(std::span(report)), transferred);
  if (refused == error::kNotFound) return {};
  if (refused != error::kNone) throw Failure("the driver does not give the service's report: " + refusal_text(refused));
  return {report.data(), transferred};
}

}  // namespace sonivo::tool
