#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/endpoints.h"
#include "platform/linux/pipewire/friendly_names.h"

namespace sonivo::pipewire {

/// An endpoint of the audio server, as an onlooker finds it.
struct SurveyedEndpoint {
  std::string id;  ///< the node's name
  std::string name;
  DataFlow flow = DataFlow::capture;
  bool muted = false;
  std::string fault;        ///< why its node can't run, in the server's words; empty: it can
  bool is_at_zero = false;  ///< its level
};

/// A stream of the service's, to or from a real device, which mixers show among those of applications.
struct SurveyedStream {
  std::string name;
  bool muted = false;
  bool is_at_zero = false;  ///< its level
};

/// What an onlooker finds at the audio server.
struct ServerSurvey {
  bool reachable = false;  ///< something takes connections
  bool answers = false;    ///< within the limit; without that nothing else is known
  bool has_session_manager = false;
  std::vector<SurveyedEndpoint> endpoints;  ///< those that are there, in the server's order
  std::vector<SurveyedStream> streams;
  std::string default_microphone;  ///< id; empty: none
  std::string default_speaker;
};

/// Looks at the server of this name or path, or the session's own, for at most the limit. Throws std::runtime_error
/// when the client library can't be set up.
ServerSurvey survey_server(const FriendlyNames& names, std::uint32_t limit_ms, const std::string& remote = {});

}  // namespace sonivo::pipewire
