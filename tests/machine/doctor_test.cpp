#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <sstream>

#include "base/descriptor.h"
#include "own_machine_bench.h"

namespace sonivo::test {
namespace {

/// The process that listens at a socket.
pid_t listener_at(const std::string& path) {
  const Descriptor client(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const Descriptor packets(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  for (const int number : {client.number(), packets.number()}) {
    ucred peer{};
    socklen_t size = sizeof peer;
    if (::connect(number, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::getsockopt(number, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0) {
      return peer.pid;
    }
  }
  throw std::runtime_error("nobody listens at " + path);
}

/// A process that does nothing for as long as this lives.
class Halted {
 public:
  explicit Halted(pid_t process) : process_(process) { ::kill(process_, SIGSTOP); }
  ~Halted() { ::kill(process_, SIGCONT); }
  Halted(const Halted&) = delete;
  Halted& operator=(const Halted&) = delete;

 private:
  const pid_t process_;
};

class DoctorTest : public DrivenMachineTest {
 protected:
  void start_whole_machine() {
    ASSERT_EQ(sonivo({"setup"}).code, 0);
    start_service();
  }
  /// The lines of what is wrong. Real-time scheduling depends on the machine of the test, which has nothing to do with
  /// the rest.
  std::vector<std::string> troubles() {
    const auto start = std::chrono::steady_clock::now();
    std::istringstream lines(sonivo({"doctor"}).text);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    std::vector<std::string> all;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("trouble  ") && line.find("Real-time") == line.npos) all.push_back(line.substr(9));
    }
    return all;
  }
  bool has_trouble(const std::string& beginning) {
    return comes_true([&] {
      const auto all = troubles();
      return std::any_of(all.begin(), all.end(), [&](const std::string& line) { return line.starts_with(beginning); });
    });
  }
};

TEST_F(DoctorTest, AWholeMachineIsWell) {
  start_whole_machine();
  EXPECT_EQ(troubles(), std::vector<std::string>());
  const Told told = sonivo({"doctor", "--json"});
  EXPECT_TRUE(
      told.has("\"subject\": \"relay\",\n      \"text\": \"The microphone \\\"Norvell Audio Relay\\\" is there"));
  EXPECT_EQ(told.code, told.has("\"well\": true") ? 0 : 4);
}

TEST_F(DoctorTest, AFreshMachineIsToldOfItsServiceAndOfSetup) {
  EXPECT_TRUE(
      sonivo({"doctor"}).has("hint     The driver has just started, and no service has connected with it yet. "));
  EXPECT_TRUE(has_trouble("The service does not run. Start it: systemctl --user start NorvellSonivoService."));
  EXPECT_EQ(troubles().size(), 1u);
  EXPECT_TRUE(sonivo({"doctor"})
                  .has("hint     This machine has no chain: the microphone passes as it is. Give it one: "
                       "sonivo setup.\n"));
}

TEST_F(DoctorTest, AChainWithoutItsParametersIsTold) {
  ASSERT_EQ(sonivo({"settings", "set", "--machine", "generation-mic", "5", "function-mic", "8"}).code, 0);
  EXPECT_TRUE(
      has_trouble("No microphone of this machine has the parameters of the chain ai. Store them: sonivo setup."));
}

TEST_F(DoctorTest, AnAudioServerThatIsAbsentOrHangsIsTold) {
  {
    const Halted server(listener_at(server_->remote()));
    EXPECT_TRUE(has_trouble("PipeWire runs, but does not answer. Restart it: "));
  }
  server_->kill_server();
  EXPECT_TRUE(has_trouble("PipeWire is not running. Start it: "));
}

TEST_F(DoctorTest, ASessionManagerThatIsAbsentIsTold) {
  server_->kill_manager();
  EXPECT_TRUE(
      has_trouble("PipeWire has no session manager, so that nobody connects programs with devices. Start one: "));
}

TEST_F(DoctorTest, ADriverThatIsAbsentOrHangsIsTold) {
  {
    const Halted driver(listener_at(folder("sonivo/driver.sock")));
    EXPECT_TRUE(
        has_trouble("The driver at '" + folder("sonivo/driver.sock") + "' has not answered for 2 s. Restart it: "));
  }
  end_driver();
  EXPECT_TRUE(has_trouble("The driver is not running: nothing listens at '"));
}

TEST_F(DoctorTest, AMutedMicrophoneIsTold) {
  server_->run({"pw-cli", "set-param", "notebook.microphone", "Props", "{ mute: true }"});
  EXPECT_TRUE(has_trouble(std::string("The microphone '") + kNotebookMicrophone + "' is muted. Unmute it"));
}

TEST_F(DoctorTest, AMicrophoneThatIsTurnedDownToNothingIsTold) {
  server_->run({"pw-cli", "set-param", "notebook.microphone", "Props", "{ channelVolumes: [ 0.0, 0.0 ] }"});
  EXPECT_TRUE(has_trouble(std::string("The microphone '") + kNotebookMicrophone + "' is turned down to 0. Turn it up"));
}

TEST_F(DoctorTest, AMutedStreamOfTheServiceIsTold) {
  start_whole_machine();
  const auto recorder = server_->record(kVirtualMic, folder("heard.wav"));
  ASSERT_TRUE(comes_true([&] { return server_->state_of("sonivo.microphone") == "running"; }));
  EXPECT_EQ(troubles(), std::vector<std::string>());
  server_->run({"pw-cli", "set-param", "sonivo.microphone", "Props", "{ mute: true }"});
  EXPECT_TRUE(has_trouble("The service's own stream 'Sonivo microphone' is muted. Change that in a mixer"));
}

TEST_F(DoctorTest, RealTimeThatIsRefusedIsTold) {
  std::string refuse = "prlimit --rtprio=0";
  if (::geteuid() == 0) refuse += " setpriv --bounding-set -sys_nice --inh-caps -sys_nice";
  const std::string told = server_->run(
      {"sh", "-c", "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/none " + refuse + " \"$0\" doctor", SONIVO_PROGRAM});
  EXPECT_NE(told.find("trouble  Real-time scheduling is refused to this user, so that audio may stutter under load. "),
            told.npos)
      << told;
}

TEST_F(DoctorTest, FilesAndModelsThatAreMissingAreTold) {
  ASSERT_EQ(sonivo({"setup", "--chain", "ai"}).code, 0);
  std::filesystem::create_directory(folder("bin"));
  std::filesystem::copy_file(SONIVO_PROGRAM, folder("bin/sonivo"));
  const std::string told = server_->run({folder("bin/sonivo"), "doctor"});
  EXPECT_NE(told.find("trouble  The model of the chain ai is missing: '" +
                      folder("share/sonivo/models/model_se_streaming_RTF0.10_v2.bin") + "'. Install"),
            told.npos)
      << told;
  for (const char* const file : {"keycancel", "beamforming"}) {
    EXPECT_NE(told.find("trouble  A file that belongs to the program is missing: '" +
                        folder(std::string("share/sonivo/par/") + file + ".bin") + "'. Install"),
              told.npos)
        << told;
  }
}

TEST_F(DoctorTest, AMicrophoneThatWasChosenAndIsGoneIsTold) {
  ASSERT_EQ(sonivo({"settings", "set", "capture-endpoint", "usb.headset"}).code, 0);
  EXPECT_TRUE(has_trouble("The microphone that was chosen, 'usb.headset', is not there. "));
  server_->plug_headset();
  EXPECT_TRUE(comes_true([&] { return sonivo({"doctor"}).has("ok       The microphone is 'Headset Microphone'."); }));
}

TEST_F(DoctorTest, ATableOfNamesThatIsWrongIsTold) {
  std::filesystem::create_directories(folder("config/sonivo"));
  server_->folder().write("config/sonivo/microphones", "no rule\n");
  EXPECT_TRUE(has_trouble("Line 1 of the table of microphone names " + folder("config/sonivo/microphones")));
}

}  // namespace
}  // namespace sonivo::test
