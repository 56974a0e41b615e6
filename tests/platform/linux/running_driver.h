#pragma once

#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "driver/effect_properties.h"
#include "driver/listener.h"
#include "driver/server.h"
#include "driver/settings.h"
#include "support/temporary_folder.h"

namespace sonivo::test {

/// A driver on a thread, which may go and come back.
class RunningDriver {
 public:
  explicit RunningDriver(const test::TemporaryFolder& home, driver::Disk& disk = whole_disk())
      : path_(home / "driver.sock"), folder_(home.path() / "state", disk), settings_(folder_), properties_(folder_) {
    start();
  }
  ~RunningDriver() { stop(); }

  void start() {
    listener_.emplace(path_);
    server_ = std::make_unique<driver::Server>(listener_->take(), settings_, properties_);
    thread_ = std::thread([this] { server_->run(); });
  }
  void stop() {
    if (!thread_.joinable()) return;
    server_->stop();
    thread_.join();
    server_.reset();
    listener_.reset();
  }
  const std::string& path() const { return path_; }

 private:
  static driver::Disk& whole_disk() {
    static driver::Disk disk;
    return disk;
  }

  std::string path_;
  driver::StateFolder folder_;
  driver::Settings settings_;
  driver::EffectProperties properties_;
  std::optional<driver::ListenerPath> listener_;
  std::unique_ptr<driver::Server> server_;
  std::thread thread_;
};

}  // namespace sonivo::test
