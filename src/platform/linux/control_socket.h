#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>

#include "base/descriptor.h"
#include "base/status.h"
#include "platform/control_frames.h"

namespace sonivo::linux {

/// How long a driver may take to answer. One that takes longer hangs, and counts as gone. A thread that is told to
/// leave meanwhile still does so in time: three such waits are as long as anybody waits for it.
inline constexpr std::chrono::milliseconds kAnswerLimit{2000};

/// Why nobody can listen at the path, in a sentence; empty when somebody can.
std::string path_fault(const std::string& path);

/// Whether a request of this code waits for something to happen, so that no answer says nothing of the driver.
bool may_pend(std::uint32_t code);

/// A connection over which the driver has answered a request; closed, with the reason in `why`, when there is none:
/// error::kFileNotFound (nobody listens), kAccessDenied (or somebody who is neither this user nor root), kBusy (the
/// driver takes no more clients), kDeviceNotConnected (it doesn't answer within the limit).
Descriptor connect_control(const std::string& path, Error& why, std::chrono::milliseconds limit = kAnswerLimit);

/// Whether somebody listens at the path.
bool is_listened_at(const std::string& path);

/// Sends one request. error::kBusy when the socket takes nothing more; error::kDeviceNotConnected when the driver is
/// gone.
Error send_control(int socket, const control::RequestHead& head, std::span<const std::byte> input);

/// The longest that receive_control() waits; zero: as long as it takes.
void limit_receiving(int socket, std::chrono::milliseconds limit);

enum class Received { reply, nothing, end };
/// Waits for a reply and receives it, its output into `output`. `nothing`: none came within the limit. `end`: the
/// driver is gone, or sent what is no reply for so much output.
Received receive_control(int socket, control::ReplyHead& head, std::span<std::byte> output);

}  // namespace sonivo::linux
