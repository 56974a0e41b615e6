#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "audio_server.h"
#include "platform/linux/events.h"
#include "platform/linux/pipewire/audio_parts.h"
#include "platform/linux/threads.h"

namespace sonivo::test {

inline constexpr char kVirtualMic[] = "norvell.relay.microphone";
inline constexpr char kVirtualSpeaker[] = "norvell.relay.speaker";
inline constexpr std::size_t kRate = 48000;

struct ProcessHalf {
  linux::ProcessThreads threads;
  linux::DescriptorEvents events;
};

/// The audio half of the machine beside a server, and what of the other half it needs.
struct AudioHalf : ProcessHalf, pipewire::AudioParts {
  explicit AudioHalf(const std::string& remote, const pipewire::FriendlyNames& names = {})
      : AudioParts(threads, names, remote) {}
};

/// What a client was told, a line each.
class NoticeLog final : public IMMNotificationClient {
 public:
  Status QueryInterface(const Guid&, void**) override { return kNoInterface; }
  std::uint32_t AddRef() override { return 1; }
  std::uint32_t Release() override { return 1; }
  Status OnDeviceStateChanged(const std::string& id, std::uint32_t state) override {
    return add("state " + id + " " + std::to_string(state));
  }
  Status OnDeviceAdded(const std::string& id) override { return add("added " + id); }
  Status OnDeviceRemoved(const std::string& id) override { return add("removed " + id); }
  Status OnDefaultDeviceChanged(DataFlow flow, Role role, const std::string& id) override {
    return add(std::string("default ") + (flow == DataFlow::capture ? "capture " : "render ") +
               std::to_string(static_cast<int>(role)) + " " + id);
  }
  Status OnPropertyValueChanged(const std::string& id, const PropertyKey&) override { return add("property " + id); }

  bool has(const std::string& line) {
    return comes_true([&] {
      std::scoped_lock lock(mutex_);
      return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
    });
  }
  void clear() {
    std::scoped_lock lock(mutex_);
    lines_.clear();
  }

 private:
  Status add(std::string line) {
    std::scoped_lock lock(mutex_);
    lines_.push_back(std::move(line));
    return kOk;
  }
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

/// A server and the audio half of the machine, once the defaults are there.
class PipeWireTest : public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string missing = AudioServer::missing_programs(); !missing.empty()) {
      GTEST_SKIP() << "not installed: " << missing;
    }
    linux::ProcessThreads().enter_audio_class();  // as the threads that serve streams
    server_ = std::make_unique<AudioServer>(devices());
    half_ = std::make_unique<AudioHalf>(server_->remote());
    ASSERT_TRUE(comes_true([&] {
      return default_id(DataFlow::capture) == "notebook.microphone" &&
             default_id(DataFlow::render) == "notebook.speakers";
    }));
  }

  virtual AudioServer::Devices devices() { return AudioServer::Devices::of_server; }

  Endpoints& endpoints() { return half_->endpoints; }
  std::vector<std::string> ids(DataFlow flow, std::uint32_t mask = kDeviceActive) {
    std::vector<std::shared_ptr<Endpoint>> list;
    EXPECT_EQ(endpoints().list(flow, mask, list), kOk);
    std::vector<std::string> all(list.size());
    for (std::size_t i = 0; i < list.size(); ++i) EXPECT_EQ(list[i]->id(all[i]), kOk);
    return all;
  }
  std::string default_id(DataFlow flow) {
    std::shared_ptr<Endpoint> endpoint;
    std::string id;
    if (!failed(endpoints().default_endpoint(flow, Role::console, endpoint))) endpoint->id(id);
    return id;
  }
  std::shared_ptr<Endpoint> endpoint(DataFlow flow, const std::string& id) {
    std::vector<std::shared_ptr<Endpoint>> list;
    endpoints().list(flow, kDeviceActive | kDeviceNotPresent, list);
    for (const auto& each : list) {
      std::string its_id;
      if (each->id(its_id) == kOk && its_id == id) return each;
    }
    return nullptr;
  }

  std::unique_ptr<AudioServer> server_;
  std::unique_ptr<AudioHalf> half_;
};

}  // namespace sonivo::test
