#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/temporary_folder.h"

namespace sonivo::test {

/// Whether something comes true within ten seconds.
inline bool comes_true(const std::function<bool()>& condition, std::chrono::seconds limit = std::chrono::seconds(10)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

/// A process that ends with the object, at the latest.
class ChildProcess {
 public:
  /// `environment` is added to the own one; what it writes goes to the file.
  ChildProcess(const std::vector<std::string>& command, const std::vector<std::string>& environment,
               const std::string& output);
  ~ChildProcess() { end(9); }
  ChildProcess(ChildProcess&& other) noexcept : id_(std::exchange(other.id_, 0)) {}
  ChildProcess& operator=(ChildProcess&& other) noexcept;

  pid_t id() const { return id_; }
  void send(int signal);
  void end(int signal);
  /// Its exit status; waits for it.
  int wait();
  /// Waits no longer for it than that.
  bool ends_within(std::chrono::milliseconds limit);
  /// Without waiting.
  bool has_ended();

 private:
  pid_t id_ = 0;
};

/// An audio server of the test's own with its session manager and bus, and a notebook's devices, none of which is real:
/// "notebook.microphone", "notebook.speakers", "usb.headset" and "usb.speakers".
class AudioServer {
 public:
  /// Whose the notebook's devices are: those of a sound card are the manager's, and come and go with it.
  enum class Devices { of_server, of_manager };

  /// The programs that aren't installed; empty: the tests can run.
  static std::string missing_programs();

  explicit AudioServer(Devices devices = Devices::of_server);

  void start_server();
  void kill_server();
  void start_manager();
  void kill_manager();
  /// To the server and its manager.
  void send(int signal);
  ChildProcess& manager() { return manager_.back(); }
  void plug_headset();
  void unplug_headset();
  void plug_speakers();
  void unplug_speakers();
  /// Another microphone, with these channels.
  void plug_microphone(const std::string& name, const std::vector<std::string>& channels);

  /// Name to connect to.
  const std::string& remote() const { return remote_; }
  /// Runs a command beside the server to its end: what it wrote. One that hangs is ended, which is a failure.
  std::string run(const std::vector<std::string>& command);
  ChildProcess start(const std::vector<std::string>& command);
  /// Plays a file into the microphone of this name, as what it hears, until it ends or the process does: its channels
  /// into these of the microphone's.
  ChildProcess speak_into(const std::string& microphone, const std::string& wav,
                          const std::vector<std::string>& channels = {"FL", "FR"});
  /// Plays a file to a sink, or records from a source (or, as it is played, from a sink) into one.
  ChildProcess play(const std::string& sink, const std::string& wav);
  ChildProcess record(const std::string& source, const std::string& wav, bool is_sink = false);
  void set_default(const char* key, const std::string& node);
  void force(const char* setting, unsigned value);
  /// Whether this node is running, in the words of the server: "suspended", "idle", "running", or "" when it isn't
  /// there.
  std::string state_of(const std::string& node);
  /// "" where the server has none.
  std::string property_of(const std::string& node, const std::string& key);
  const TemporaryFolder& folder() const { return folder_; }

 private:
  void wait_for(const std::string& socket);
  /// The text in quotation marks that follows this in what the server tells of the node.
  std::string told_of(const std::string& node, const std::string& before);

  TemporaryFolder folder_;
  std::string remote_;
  std::vector<std::string> environment_;
  int outputs_ = 0;
  std::vector<ChildProcess> bus_;
  std::vector<ChildProcess> server_;
  std::vector<ChildProcess> manager_;
};

}  // namespace sonivo::test
