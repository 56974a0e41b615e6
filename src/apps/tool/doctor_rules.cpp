#include "apps/tool/doctor_rules.h"

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "relay/endpoint_names.h"

namespace sonivo::tool {

namespace {

using Kind = Finding::Kind;
using pipewire::SurveyedEndpoint;

constexpr const char* kUnmute = "Unmute it in the sound settings of the desktop.";
constexpr const char* kTurnUp = "Turn it up in the sound settings of the desktop.";
constexpr const char* kRestartService = "Restart it: systemctl --user restart NorvellSonivoService.";
constexpr const char* kInstallAgain = "Install the program again.";

/// How a direction is called.
struct Direction {
  DataFlow flow;
  const char* device;
  const char* setting;
};
constexpr Direction kMicrophone{DataFlow::capture, "microphone", "capture-endpoint"};
constexpr Direction kSpeaker{DataFlow::render, "speaker", "render-endpoint"};

std::string ended(std::string text) {
  if (!text.empty() && text.back() != '.') text += '.';
  return text;
}

std::string sentence(std::string text) {
  if (!text.empty() && text.front() >= 'a' && text.front() <= 'z') text.front() = static_cast<char>(text.front() - 32);
  return ended(std::move(text));
}

std::string quoted(const std::string& name) { return "'" + name + "'"; }

/// At the end of a sentence: the only one, or NODE and what it may be.
std::string one_of(const std::vector<std::string>& nodes) {
  std::string text = nodes.size() == 1 ? nodes.front() : "NODE, which is one of " + nodes.front();
  for (std::size_t i = 1; i < nodes.size(); ++i) text += ", " + nodes[i];
  return ended(text);
}

bool is_own(const SurveyedEndpoint& endpoint) { return contains(endpoint.name, kVirtualEndpointName); }

class Examination {
 public:
  explicit Examination(const MachineFacts& facts) : facts_(facts) {}

  std::vector<Finding> run() {
    look_at_session();
    look_at_server();
    look_at_holders();
    look_at_driver();
    look_at_service();
    look_at_chain();
    look_at_files();
    look_at_scheduling();
    return std::move(findings_);
  }

 private:
  void add(Kind kind, const char* subject, std::string text, std::string advice = {}) {
    findings_.push_back({kind, subject, std::move(text), std::move(advice)});
  }

  void look_at_session() {
    if (!facts_.session.logind) return;  // a machine without it has one session
    if (facts_.session.id.empty()) {
      add(Kind::trouble, "session", "Nobody is signed in as this user, so that no audio passes.",
          facts_.is_root ? "Run this as the user of the desktop, without sudo."
                         : "Sign in at the machine's own screen.");
    } else if (!facts_.session.active) {
      add(Kind::trouble, "session",
          "Another session has the machine's screen, so that audio that is interrupted here does not come back.",
          "Switch to this one: loginctl activate " + facts_.session.id + '.');
    } else {
      add(Kind::good, "session", "This session is the active one.");
    }
  }

  void look_at_server() {
    const pipewire::ServerSurvey& audio = facts_.audio;
    if (!audio.reachable) {
      return add(Kind::trouble, "pipewire", "PipeWire is not running.",
                 "Start it: systemctl --user start pipewire wireplumber.");
    }
    if (!audio.answers) {
      return add(Kind::trouble, "pipewire", "PipeWire runs, but does not answer.",
                 "Restart it: systemctl --user restart pipewire wireplumber.");
    }
    add(Kind::good, "pipewire", "PipeWire answers.");
    if (audio.has_session_manager) {
      add(Kind::good, "session-manager", "A session manager runs.");
    } else {
      add(Kind::trouble, "session-manager",
          "PipeWire has no session manager, so that nobody connects programs with devices.",
          "Start one: systemctl --user start wireplumber.");
    }
    for (const std::string& fault : facts_.table_faults) {
      add(Kind::trouble, "names", fault, "Mend it; the service goes without it.");
    }
    for (const Direction& each : {kMicrophone, kSpeaker}) {
      look_at_device(each);
      look_for_own_mute(each);
    }
    look_at_streams();
  }

  const SurveyedEndpoint* find(DataFlow flow, const std::string& id) const {
    const auto& all = facts_.audio.endpoints;
    const auto found = std::find_if(all.begin(), all.end(),
                                    [&](const SurveyedEndpoint& each) { return each.flow == flow && each.id == id; });
    return found != all.end() ? &*found : nullptr;
  }

  /// Null where the service doesn't tell, or what it tells of isn't there.
  const SurveyedEndpoint* find_behind(DataFlow flow) const {
    if (!facts_.service) return nullptr;
    const StreamReport& stream = flow == DataFlow::capture ? facts_.service->capture : facts_.service->render;
    return find(flow, stream.endpoint);
  }

  std::vector<std::string> real_nodes(DataFlow flow) const {
    std::vector<std::string> all;
    for (const SurveyedEndpoint& each : facts_.audio.endpoints) {
      if (each.flow == flow && !is_own(each)) all.push_back(each.id);
    }
    return all;
  }

  void look_at_device(const Direction& direction) {
    const bool is_microphone = direction.flow == DataFlow::capture;
    const std::string& chosen = is_microphone ? facts_.capture_endpoint : facts_.render_endpoint;
    const std::string& usual = is_microphone ? facts_.audio.default_microphone : facts_.audio.default_speaker;
    const std::string device = direction.device;
    const SurveyedEndpoint* const used = find(direction.flow, chosen.empty() ? usual : chosen);
    const std::string choose = std::string("sonivo settings set ") + direction.setting;
    if (used == nullptr && !chosen.empty()) {
      return add(Kind::trouble, direction.device,
                 "The " + device + " that was chosen, " + quoted(chosen) + ", is not there.",
                 "Plug it in, or follow the default again: " + choose + " default.");
    }
    const auto real = real_nodes(direction.flow);
    if (used == nullptr || (is_own(*used) && real.empty())) {
      if (!facts_.audio.has_session_manager) return;  // which chooses the default
      return add(Kind::trouble, direction.device, "There is no " + device + ".",
                 "Plug one in, or turn on the profile of the sound card that has one: wpctl status shows the cards.");
    }
    if (is_own(*used) && chosen.empty()) {
      add(Kind::hint, direction.device,
          "The default " + device + " is " + quoted(used->name) +
              " itself, so that the default before it is used, or else the best that is there.",
          "Make the real one the default, or choose its node: " + choose + ' ' + one_of(real));
      const SurveyedEndpoint* const behind = find_behind(direction.flow);
      if (behind != nullptr) look_at_used(direction, *behind);
      return;
    }
    if (is_own(*used)) {
      return add(Kind::trouble, direction.device,
                 "The " + device + " behind " + quoted(used->name) + " would be that one itself.",
                 "Follow the default again: " + choose + " default.");
    }
    look_at_used(direction, *used);
  }

  void look_at_used(const Direction& direction, const SurveyedEndpoint& used) {
    const std::string device = direction.device;
    if (!used.fault.empty()) {
      return add(Kind::trouble, direction.device,
                 "The " + device + " " + quoted(used.name) + " can't be opened: " + ended(used.fault),
                 "End other programs that use it past PipeWire, or unplug it and plug it in again.");
    }
    add(Kind::good, direction.device, "The " + device + " is " + quoted(used.name) + ".");
    add_mute(direction, used);
  }

  void look_for_own_mute(const Direction& direction) {
    for (const SurveyedEndpoint& each : facts_.audio.endpoints) {
      if (each.flow == direction.flow && is_own(each)) add_mute(direction, each);
    }
  }

  /// Where there is one.
  void add_mute(const Direction& direction, const SurveyedEndpoint& endpoint) {
    const std::string its = "The " + std::string(direction.device) + " " + quoted(endpoint.name);
    if (endpoint.muted) add(Kind::trouble, "mute", its + " is muted.", kUnmute);
    if (endpoint.is_at_zero) add(Kind::trouble, "mute", its + " is turned down to 0.", kTurnUp);
  }

  void look_at_streams() {
    for (const pipewire::SurveyedStream& each : facts_.audio.streams) {
      if (!each.muted && !each.is_at_zero) continue;
      add(Kind::trouble, "mute",
          "The service's own stream " + quoted(each.name) + (each.muted ? " is muted." : " is turned down to 0."),
          "Change that in a mixer that lists applications, such as pavucontrol, or restart the service: systemctl "
          "--user "
          "restart NorvellSonivoService.");
    }
  }

  void look_at_holders() {
    for (const DeviceHolder& each : facts_.holders) {
      add(Kind::trouble, "busy",
          each.program + " (process " + std::to_string(each.process) + ") holds the sound device " + each.device +
              " past PipeWire, so that nobody else can use it.",
          "End it, or have it use PipeWire.");
    }
  }

  void look_at_driver() {
    if (facts_.driver_fault.empty()) return add(Kind::good, "driver", "The driver answers.");
    const std::size_t end = facts_.driver_fault.find("; ");
    if (end == facts_.driver_fault.npos) return add(Kind::trouble, "driver", sentence(facts_.driver_fault));
    add(Kind::trouble, "driver", sentence(facts_.driver_fault.substr(0, end)),
        sentence(facts_.driver_fault.substr(end + 2)));
  }

  void look_at_service() {
    if (!facts_.driver_fault.empty()) return;
    if (!facts_.has_report && facts_.has_new_driver) {
      return add(Kind::hint, "service", "The driver has just started, and no service has connected with it yet.",
                 "Look again in a few seconds.");
    }
    if (!facts_.has_report) {
      return add(Kind::trouble, "service", "The service does not run.",
                 "Start it: systemctl --user start NorvellSonivoService.");
    }
    if (!facts_.service) {
      return add(Kind::trouble, "service",
                 "What the service tells of itself can't be understood: " + ended(facts_.report_fault),
                 "Install the programs of one version, and restart them.");
    }
    if (facts_.silent_s != 0) {
      return add(Kind::trouble, "service",
                 "The service has not answered for " + std::to_string(facts_.silent_s) + " s.", kRestartService);
    }
    if (facts_.service->is_paused()) {
      add(Kind::good, "service", "The service waits: the session is locked, or the machine has just woken.");
    } else if (!facts_.service->driver_ready) {
      add(Kind::trouble, "service", "The service has no connection with the driver.", kRestartService);
    } else if (!facts_.service->trouble.empty()) {
      add(Kind::trouble, "service", "The service tells of trouble: " + ended(facts_.service->trouble),
          "See to what else is said here; journalctl --user -u NorvellSonivoService tells more.");
    } else {
      add(Kind::good, "service", "The service runs.");
    }
    look_for_own_devices();
  }

  void look_for_own_devices() {
    if (!facts_.audio.answers) return;
    for (const Direction& each : {kMicrophone, kSpeaker}) {
      const auto& all = facts_.audio.endpoints;
      const bool is_there = std::any_of(all.begin(), all.end(), [&](const SurveyedEndpoint& endpoint) {
        return endpoint.flow == each.flow && is_own(endpoint);
      });
      const std::string name = std::string("The ") + each.device + " \"" + kVirtualEndpointName + "\"";
      if (is_there) {
        add(Kind::good, "relay", name + " is there for programs to pick.");
      } else {
        add(Kind::trouble, "relay", name + " is not there, though the service runs.",
            "Restart the service: systemctl --user restart NorvellSonivoService.");
      }
    }
  }

  void look_at_chain() {
    if (!facts_.driver_fault.empty()) return;
    const std::string name = to_string(facts_.chain);
    if (facts_.chain == Chain::none) {
      return add(Kind::hint, "chain", "This machine has no chain: the microphone passes as it is.",
                 "Give it one: sonivo setup.");
    }
    if (facts_.has_chain_parameters) {
      add(Kind::good, "chain", "The parameters of the chain " + name + " are kept with a microphone of this machine.");
    } else if (!real_nodes(DataFlow::capture).empty()) {  // without one, that is what is wrong
      add(Kind::trouble, "chain", "No microphone of this machine has the parameters of the chain " + name + ".",
          "Store them: sonivo setup.");
    }
    if (facts_.chain == Chain::ai && !facts_.model.empty()) {
      add(Kind::trouble, "model", "The model of the chain ai is missing: " + quoted(facts_.model) + ".",
          std::string(kInstallAgain) + " Models of other sizes: sonivo settings set model.");
    }
  }

  void look_at_files() {
    for (const std::string& file : facts_.missing_files) {
      add(Kind::trouble, "files", "A file that belongs to the program is missing: " + quoted(file) + ".",
          kInstallAgain);
    }
  }

  void look_at_scheduling() {
    const std::string& refusal = facts_.real_time_refusal;
    const std::string allow = "llow the user a real-time priority of 10 in /etc/security/limits.conf.";
    if (facts_.real_time) {
      add(Kind::good, "realtime", "Audio may run in real time.");
    } else if (refusal.empty()) {
      add(Kind::trouble, "realtime",
          "Real-time scheduling is refused to this user, so that audio may stutter under load.",
          "Install rtkit, or a" + allow);
    } else if (contains(refusal, "busy")) {  // the limit of requests in a time, about which it says no more
      add(Kind::hint, "realtime", "Who grants real-time scheduling has been asked too often to answer now.",
          "Look again in half a minute.");
    } else {
      add(Kind::trouble, "realtime",
          "Real-time scheduling is refused to this user, so that audio may stutter under load: " + ended(refusal),
          "A" + allow);
    }
  }

  const MachineFacts& facts_;
  std::vector<Finding> findings_;
};

}  // namespace

std::vector<Finding> findings(const MachineFacts& facts) { return Examination(facts).run(); }

bool is_well(const std::vector<Finding>& findings) {
  return std::none_of(findings.begin(), findings.end(), [](const Finding& each) { return each.kind == Kind::trouble; });
}

}  // namespace sonivo::tool
