#pragma once

#include <chrono>
#include <span>
#include <string>

#include "base/descriptor.h"
#include "base/status.h"
#include "platform/control_frames.h"

namespace sonivo::linux {

/// How long a driver may take to serve a new connection.
inline constexpr std::chrono::milliseconds kServeLimit{2000};

/// A connection over which the driver has answered a request; closed, with the reason in `why`, when there is none:
/// error::kFileNotFound (nobody listens), kAccessDenied (or somebody who is neither this user nor root), kBusy (the
/// driver takes no more clients), kDeviceNotConnected (it doesn't answer within the limit).
Descriptor connect_control(const std::string& path, Error& why, std::chrono::milliseconds limit = kServeLimit);

/// Whether somebody listens at the path.
bool is_listened_at(const std::string& path);

/// Sends one request. error::kBusy when the socket takes nothing more and `wait` is false; error::kDeviceNotConnected
/// when the driver is gone.
Error send_control(int socket, const control::RequestHead& head, std::span<const std::byte> input, bool wait);

/// Waits for a reply and receives it, its output into `output`. False when the driver is gone, or sent what is no reply
/// for so much output.
bool receive_control(int socket, control::ReplyHead& head, std::span<std::byte> output);

}  // namespace sonivo::linux
