#pragma once

#include <span>
#include <string>

#include "base/descriptor.h"
#include "base/status.h"
#include "platform/control_frames.h"

namespace sonivo::linux {

/// A connection to the driver; closed, with the reason in `why`, when there is none within two seconds.
Descriptor connect_control(const std::string& path, Error& why);

/// Sends one request. error::kBusy when the socket takes nothing more and `wait` is false; error::kDeviceNotConnected
/// when the driver is gone.
Error send_control(int socket, const control::RequestHead& head, std::span<const std::byte> input, bool wait);

/// Waits for a reply and receives it, its output into `output`. False when the driver is gone, or sent what is no reply
/// for so much output.
bool receive_control(int socket, control::ReplyHead& head, std::span<std::byte> output);

}  // namespace sonivo::linux
