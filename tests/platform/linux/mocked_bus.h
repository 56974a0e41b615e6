#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/bus.h"
#include "support/temporary_folder.h"

namespace sonivo::test {

/// What other threads do to a test, and the wait for it.
class Happening {
 public:
  void change(const std::function<void()>& how) {
    const std::scoped_lock lock(mutex_);
    how();
    changed_.notify_all();
  }
  /// False when it takes suspiciously long.
  bool wait_until(const std::function<bool()>& what) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20), what);
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
};

/// A program that runs until the test is over.
class HelperProgram {
 public:
  HelperProgram(std::vector<std::string> words, const std::vector<std::string>& environment) {
    std::vector<std::string> variables = environment;
    for (char** each = environ; *each != nullptr; ++each) variables.emplace_back(*each);
    std::vector<char*> arguments, settings;
    for (std::string& word : words) arguments.push_back(word.data());
    for (std::string& variable : variables) settings.push_back(variable.data());
    arguments.push_back(nullptr);
    settings.push_back(nullptr);
    posix_spawn_file_actions_t silent;  // they tell of each call
    ::posix_spawn_file_actions_init(&silent);
    ::posix_spawn_file_actions_addopen(&silent, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    ::posix_spawn_file_actions_adddup2(&silent, STDOUT_FILENO, STDERR_FILENO);
    const int failure = ::posix_spawnp(&id_, arguments[0], &silent, nullptr, arguments.data(), settings.data());
    ::posix_spawn_file_actions_destroy(&silent);
    if (failure != 0) throw std::runtime_error(words[0] + " can't be started");
  }
  ~HelperProgram() {
    ::kill(id_, SIGTERM);
    ::waitpid(id_, nullptr, 0);
  }
  HelperProgram(const HelperProgram&) = delete;
  HelperProgram& operator=(const HelperProgram&) = delete;

 private:
  pid_t id_ = 0;
};

/// A bus of the test's own, with whom the test puts on it.
class MockedBus {
 public:
  MockedBus() { start(); }

  const std::string& address() const { return address_; }

  void start() {
    daemon_ = std::make_unique<HelperProgram>(
        std::vector<std::string>{"dbus-daemon", "--session", "--nofork", "--nopidfile", "--address=" + address_},
        std::vector<std::string>{"XDG_DATA_HOME=" + folder_.path().string()});
    wait_for("the bus", [this] {
      bus_ = linux::open_bus(linux::BusKind::system, address_);
      return bus_ && owned("org.freedesktop.DBus");
    });
  }
  void stop() {
    bus_.reset();
    daemon_.reset();
  }

  /// A python-dbusmock with these arguments, once it has its name.
  std::unique_ptr<HelperProgram> mock(const std::vector<std::string>& arguments, const std::string& name) {
    std::vector<std::string> words{SONIVO_PYTHON, "-m", "dbusmock", "--session"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    auto program = std::make_unique<HelperProgram>(
        words, std::vector<std::string>{"DBUS_SESSION_BUS_ADDRESS=" + address_, "DBUS_SYSTEM_BUS_ADDRESS=" + address_});
    wait_for(name, [&] { return owned(name); });
    return program;
  }

  /// Who calls the name starts the command.
  void let_start(const std::string& name, const std::string& command) {
    const auto services = folder_.path() / "dbus-1/services";
    std::filesystem::create_directories(services);
    std::ofstream(services / (name + ".service")) << "[D-BUS Service]\nName=" << name << "\nExec=" << command << "\n";
    call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ReloadConfig", "");
  }

  bool owned(const std::string& name) {
    linux::BusError ignored;
    sd_bus_message* reply = nullptr;
    int has = 0;
    const int status =
        sd_bus_call_method(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                           "NameHasOwner", ignored.get(), &reply, "s", name.c_str());
    const linux::BusMessage kept(reply);
    return status >= 0 && sd_bus_message_read(reply, "b", &has) >= 0 && has != 0;
  }

  /// Its answer; a failure ends the test.
  template <class... Arguments>
  linux::BusMessage call(const char* name, const std::string& path, const char* interface, const char* method,
                         const char* types, Arguments... arguments) {
    linux::BusError error;
    sd_bus_message* reply = nullptr;
    if (sd_bus_call_method(bus_.get(), name, path.c_str(), interface, method, error.get(), &reply, types,
                           arguments...) < 0) {
      throw std::runtime_error(std::string(method) + ": " + error.get()->message);
    }
    return linux::BusMessage(reply);
  }

 private:
  static void wait_for(const std::string& what, const std::function<bool()>& there) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!there()) {
      if (std::chrono::steady_clock::now() > end) throw std::runtime_error(what + " doesn't come");
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  TemporaryFolder folder_;
  const std::string address_ = "unix:path=" + folder_ / "bus";
  std::unique_ptr<HelperProgram> daemon_;
  linux::Bus bus_;
};

/// A mocked logind on a mocked bus. Session 7 of the process's user is there and active.
class MockedLogind {
 public:
  explicit MockedLogind(MockedBus& bus) : bus_(bus) { start(); }

  void start() {
    program_ = bus_.mock({"--template", "logind"}, kName);
    // The template's own fails on the number that it is given.
    add_method("GetUser", "u", "ret = '/org/freedesktop/login1/user/%u' % args[0]");
    add_session("7", true);
  }
  void stop() { program_.reset(); }

  void add_session(const char* id, bool active) {
    bus_.call(kName, kManagerPath, kMock, "AddSession", "ssusb", id, "seat0", ::getuid(), "user", active ? 1 : 0);
  }
  /// Answers with the session's path.
  void add_session_method(const char* method, const char* type, const std::string& session) {
    add_method(method, type, "ret = '" + path_of(session) + "'");
  }
  void show_to_user(const std::string& session) {
    bus_.call(kName, "/org/freedesktop/login1/user/" + std::to_string(::getuid()), "org.freedesktop.DBus.Properties",
              "Set", "ssv", "org.freedesktop.login1.User", "Display", "(so)", session.c_str(),
              path_of(session).c_str());
  }
  void set(const char* property, bool value, const std::string& session = "7") {
    bus_.call(kName, path_of(session), kMock, "UpdateProperties", "sa{sv}", "org.freedesktop.login1.Session", 1,
              property, "b", value ? 1 : 0);
  }
  /// "Lock" or "Unlock".
  void ask_session(const char* what) { bus_.call(kName, path_of("7"), "org.freedesktop.login1.Session", what, ""); }
  void signal_sleep(bool begins) {
    bus_.call(kName, kManagerPath, kMock, "EmitSignal", "sssav", kManager, "PrepareForSleep", "b", 1, "b",
              begins ? 1 : 0);
  }
  void signal_new_session(const std::string& session) {
    bus_.call(kName, kManagerPath, kMock, "EmitSignal", "sssav", kManager, "SessionNew", "so", 2, "s", session.c_str(),
              "o", path_of(session).c_str());
  }
  /// Kinds of the locks that are held, such as "sleep delay".
  std::vector<std::string> inhibitors() {
    const auto reply = bus_.call(kName, kManagerPath, kManager, "ListInhibitors", "");
    std::vector<std::string> kinds;
    sd_bus_message_enter_container(reply.get(), 'a', "(ssssuu)");
    const char *what = nullptr, *who = nullptr, *why = nullptr, *mode = nullptr;
    while (sd_bus_message_read(reply.get(), "(ssssuu)", &what, &who, &why, &mode, nullptr, nullptr) > 0) {
      kinds.push_back(std::string(what) + " " + mode);
    }
    return kinds;
  }
  /// Whether a lock is held, waiting until it is so.
  bool becomes_inhibited(bool wanted) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (inhibitors().empty() == wanted) {
      if (std::chrono::steady_clock::now() > end) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
  }

 private:
  static constexpr const char* kName = "org.freedesktop.login1";
  static constexpr const char* kManagerPath = "/org/freedesktop/login1";
  static constexpr const char* kManager = "org.freedesktop.login1.Manager";
  static constexpr const char* kMock = "org.freedesktop.DBus.Mock";

  static std::string path_of(const std::string& session) { return "/org/freedesktop/login1/session/" + session; }

  void add_method(const char* method, const char* type, const std::string& code) {
    bus_.call(kName, kManagerPath, kMock, "AddMethod", "sssss", kManager, method, type, "o", code.c_str());
  }

  MockedBus& bus_;
  std::unique_ptr<HelperProgram> program_;
};

}  // namespace sonivo::test
