#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/linux/pipewire/server_survey.h"

namespace sonivo::tool {

/// How long the audio server may take to answer.
inline constexpr std::uint32_t kServerPatienceMs = 2000;

/// A microphone that is there now.
struct Microphone {
  std::string id;    ///< name of its node
  std::string name;  ///< as the program's rules see it
  bool is_default = false;
};

/// Whether the beamformer may use its first two channels, as its name tells.
bool is_microphone_array(const Microphone& microphone);

/// Those of a survey, in its order, without the program's own.
std::vector<Microphone> microphones_of(const pipewire::ServerSurvey& survey);

/// Those of the session's audio server. Throws Failure when there is no server, or none that answers.
std::vector<Microphone> present_microphones();

/// The notebook's own: the first array that its name tells of, else the first of those known by their names. Throws
/// Failure when there is none.
const Microphone& built_in_microphone(std::span<const Microphone> microphones);

/// The one with this id or name; else the only one that has the text in its id or name, in any case of ASCII letters.
/// Throws Failure when that is none, or several.
const Microphone& microphone_called(const std::string& text, std::span<const Microphone> microphones);

}  // namespace sonivo::tool
