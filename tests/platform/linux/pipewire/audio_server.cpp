#include "audio_server.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "base/descriptor.h"

namespace sonivo::test {
namespace {

/// A command that takes longer hangs.
constexpr std::chrono::seconds kCommandLimit{30};

constexpr char kServerConfiguration[] = R"conf(
context.properties = {
    core.daemon = true
    core.name = pipewire-0
    mem.allow-mlock = false
    default.clock.rate = 48000
    default.clock.allowed-rates = [ 44100 48000 ]
    default.clock.quantum = 1024
    default.clock.min-quantum = 32
    default.clock.max-quantum = 2048
    clock.power-of-two-quantum = false
    settings.check-quantum = false
    settings.check-rate = false
}
context.spa-libs = {
    audio.convert.* = audioconvert/libspa-audioconvert
    support.* = support/libspa-support
    api.alsa.* = alsa/libspa-alsa
}
context.modules = [
    { name = libpipewire-module-rt args = { nice.level = -11 } flags = [ ifexists nofail ] }
    { name = libpipewire-module-protocol-native }
    { name = libpipewire-module-profiler }
    { name = libpipewire-module-metadata }
    { name = libpipewire-module-spa-device-factory }
    { name = libpipewire-module-spa-node-factory }
    { name = libpipewire-module-client-node }
    { name = libpipewire-module-client-device }
    { name = libpipewire-module-access }
    { name = libpipewire-module-adapter }
    { name = libpipewire-module-link-factory }
    { name = libpipewire-module-session-manager }
]
context.objects = [
    { factory = spa-node-factory args = {
        factory.name = support.node.driver node.name = Dummy-Driver
        node.group = pipewire.dummy priority.driver = 20000 } }
)conf";

constexpr char kServerDevices[] = R"conf(
    { factory = adapter args = {
        factory.name = support.null-audio-sink node.name = notebook.microphone
        node.description = "Microphone Array (Realtek High Definition Audio)"
        media.class = Audio/Source/Virtual audio.position = [ FL FR ]
        priority.session = 2000 priority.driver = 2000 object.linger = true } }
    { factory = adapter args = {
        factory.name = support.null-audio-sink node.name = notebook.speakers
        node.description = "Speakers (Realtek High Definition Audio)"
        media.class = Audio/Sink audio.position = [ FL FR ]
        priority.session = 1000 priority.driver = 1000 object.linger = true } }
)conf";

constexpr char kManagerDevices[] = R"lua(
devices = {
  Node("adapter", {
    ["factory.name"] = "support.null-audio-sink", ["node.name"] = "notebook.microphone",
    ["node.description"] = "Microphone Array (Realtek High Definition Audio)",
    ["media.class"] = "Audio/Source/Virtual", ["audio.position"] = "FL,FR",
    ["priority.session"] = "2000", ["priority.driver"] = "2000" }),
  Node("adapter", {
    ["factory.name"] = "support.null-audio-sink", ["node.name"] = "notebook.speakers",
    ["node.description"] = "Speakers (Realtek High Definition Audio)",
    ["media.class"] = "Audio/Sink", ["audio.position"] = "FL,FR",
    ["priority.session"] = "1000", ["priority.driver"] = "1000" })
}
for _, device in ipairs(devices) do device:activate(Feature.Proxy.BOUND) end
)lua";

constexpr char kHeadset[] =
    R"conf({ factory.name = support.null-audio-sink node.name = usb.headset node.description = "Headset Microphone"
         media.class = Audio/Source/Virtual audio.position = [ FL FR ]
         priority.session = 1500 priority.driver = 1500 object.linger = true })conf";

constexpr char kDesktopSpeakers[] =
    R"conf({ factory.name = support.null-audio-sink node.name = usb.speakers node.description = "Desktop Speakers"
         media.class = Audio/Sink audio.position = [ FL FR ]
         priority.session = 500 priority.driver = 500 object.linger = true })conf";

bool is_installed(const std::string& program) {
  std::istringstream folders(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "");
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (::access((folder + "/" + program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> all;
  for (std::string& each : texts) all.push_back(each.data());
  all.push_back(nullptr);
  return all;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::vector<std::string>& environment,
                           const std::string& output) {
  std::vector<std::string> words = command;
  std::vector<std::string> variables = environment;
  for (char** each = environ; *each != nullptr; ++each) variables.emplace_back(*each);
  const auto word_pointers = pointers(words);
  const auto variable_pointers = pointers(variables);
  id_ = ::fork();
  if (id_ != 0) return;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const sched_param plain{};
  ::sched_setscheduler(0, SCHED_OTHER, &plain);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  const int file = ::open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  ::dup2(file, STDOUT_FILENO);
  ::dup2(file, STDERR_FILENO);
  ::execvpe(word_pointers[0], word_pointers.data(), variable_pointers.data());
  ::_exit(127);
}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
  end(SIGKILL);
  id_ = std::exchange(other.id_, 0);
  return *this;
}

void ChildProcess::send(int signal) {
  if (id_ > 0) ::kill(id_, signal);
}

void ChildProcess::end(int signal) {
  if (id_ <= 0) return;
  ::kill(id_, signal);
  wait();
}

int ChildProcess::wait() {
  int status = -1;
  if (id_ > 0) ::waitpid(std::exchange(id_, 0), &status, 0);
  return status;
}

bool ChildProcess::ends_within(std::chrono::milliseconds limit) {
  if (id_ <= 0) return true;
  const Descriptor process(static_cast<int>(::syscall(SYS_pidfd_open, id_, 0)));
  pollfd end{process.number(), POLLIN, 0};
  return ::poll(&end, 1, static_cast<int>(limit.count())) != 0;
}

bool ChildProcess::has_ended() {
  if (id_ <= 0) return true;
  int status = 0;
  if (::waitpid(id_, &status, WNOHANG) == 0) return false;
  id_ = 0;
  return true;
}

std::string AudioServer::missing_programs() {
  std::string missing;
  for (const char* program : {"dbus-daemon", "pipewire", "wireplumber", "pw-cli", "pw-record"}) {
    if (!is_installed(program)) missing += std::string(missing.empty() ? "" : ", ") + program;
  }
  return missing;
}

AudioServer::AudioServer(Devices devices) : remote_(folder_ / "pipewire-0") {
  const std::string bus = folder_ / "bus";
  environment_ = {"XDG_RUNTIME_DIR=" + folder_.path().string(), "XDG_CONFIG_HOME=" + (folder_ / "config"),
                  "XDG_STATE_HOME=" + (folder_ / "state"), "HOME=" + folder_.path().string(),
                  "DBUS_SESSION_BUS_ADDRESS=unix:path=" + bus};
  folder_.write("server.conf",
                std::string(kServerConfiguration) + (devices == Devices::of_server ? kServerDevices : "") + "]\n");
  if (devices == Devices::of_manager) {
    const std::filesystem::path manager(folder_ / "config/wireplumber");
    std::filesystem::create_directories(manager / "main.lua.d");
    std::filesystem::create_directories(manager / "scripts");
    std::ofstream(manager / "main.lua.d/95-devices.lua") << "load_script(\"devices.lua\")\n";
    std::ofstream(manager / "scripts/devices.lua") << kManagerDevices;
  }
  bus_.push_back(start({"dbus-daemon", "--session", "--address=unix:path=" + bus, "--nofork", "--nopidfile"}));
  wait_for(bus);
  start_server();
  start_manager();
}

void AudioServer::wait_for(const std::string& socket) {
  if (!comes_true([&] { return std::filesystem::exists(socket); })) throw std::runtime_error("no " + socket);
}

void AudioServer::start_server() {
  std::filesystem::remove(remote_);
  server_.push_back(start({"pipewire", "-c", folder_ / "server.conf"}));
  wait_for(remote_);
}

void AudioServer::kill_server() { server_.clear(); }
void AudioServer::start_manager() { manager_.push_back(start({"wireplumber"})); }
void AudioServer::kill_manager() { manager_.clear(); }
void AudioServer::send(int signal) {
  for (auto* const each : {&server_, &manager_}) {
    for (ChildProcess& process : *each) process.send(signal);
  }
}

void AudioServer::plug_headset() { run({"pw-cli", "create-node", "adapter", kHeadset}); }
void AudioServer::unplug_headset() { run({"pw-cli", "destroy", "usb.headset"}); }
void AudioServer::plug_speakers() { run({"pw-cli", "create-node", "adapter", kDesktopSpeakers}); }
void AudioServer::unplug_speakers() { run({"pw-cli", "destroy", "usb.speakers"}); }

void AudioServer::plug_microphone(const std::string& name, const std::vector<std::string>& channels) {
  std::string positions;
  for (const std::string& each : channels) positions += " " + each;
  run({"pw-cli", "create-node", "adapter",
       "{ factory.name = support.null-audio-sink node.name = " + name + " media.class = Audio/Source/Virtual" +
           " audio.position = [" + positions + " ] priority.session = 500 object.linger = true }"});
}

void AudioServer::set_default(const char* key, const std::string& node) {
  run({"pw-metadata", "0", key, "{ \"name\": \"" + node + "\" }", "Spa:String:JSON"});
}

ChildProcess AudioServer::speak_into(const std::string& microphone, const std::string& wav,
                                     const std::vector<std::string>& channels) {
  ChildProcess voice = start({"pw-play", "--target", "0", "-P", "{ node.name = voice." + microphone + " }", wav});
  const auto linked = [&](std::size_t i) {
    const std::string output = i == 0 ? ":output_FL" : ":output_FR";
    return run({"pw-link", "voice." + microphone + output, microphone + ":input_" + channels[i]}).empty();
  };
  if (!comes_true([&] { return linked(0); }) || (channels.size() > 1 && !linked(1))) {
    throw std::runtime_error("nobody speaks");
  }
  return voice;
}

ChildProcess AudioServer::play(const std::string& sink, const std::string& wav) {
  return start({"pw-play", "--target", sink, wav});
}

ChildProcess AudioServer::record(const std::string& source, const std::string& wav, bool is_sink) {
  std::vector<std::string> command{"pw-record", "--target", source, "--format", "s16", "--channels", "2"};
  if (is_sink) {  // which stays the one that is recorded, whatever the default is
    command.insert(command.end(), {"-P", "{ stream.capture.sink = true node.dont-reconnect = true }"});
  }
  command.push_back(wav);
  return start(command);
}

std::string AudioServer::state_of(const std::string& node) { return told_of(node, "state: \""); }

std::string AudioServer::property_of(const std::string& node, const std::string& key) {
  return told_of(node, "\t" + key + " = \"");
}

std::string AudioServer::told_of(const std::string& node, const std::string& before) {
  const std::string info = run({"pw-cli", "info", node});
  const std::size_t at = info.find(before);
  if (at == info.npos) return {};
  return info.substr(at + before.size(), info.find('"', at + before.size()) - at - before.size());
}

void AudioServer::force(const char* setting, unsigned value) {
  run({"pw-metadata", "-n", "settings", "0", setting, std::to_string(value)});
}

ChildProcess AudioServer::start(const std::vector<std::string>& command) {
  return {command, environment_, folder_ / ("output." + std::to_string(outputs_++))};
}

std::string AudioServer::run(const std::vector<std::string>& command) {
  const std::string output = folder_ / ("output." + std::to_string(outputs_));
  if (ChildProcess process = start(command); process.ends_within(kCommandLimit)) {
    process.wait();
  } else {
    ADD_FAILURE() << command.front() << (command.size() > 1 ? " " + command[1] : "") << " doesn't end";
  }
  std::ifstream file(output);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace sonivo::test
