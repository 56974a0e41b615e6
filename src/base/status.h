#pragma once

#include <cstdint>

namespace sonivo {

/// Result of an operation of the host, the relay and the seams: negative is a failure, 0 and above a success.
using Status = std::int32_t;

constexpr Status status_bits(std::uint32_t bits) { return static_cast<Status>(bits); }
constexpr bool failed(Status status) { return status < 0; }

inline constexpr Status kOk = 0;
inline constexpr Status kFail = status_bits(0x80004005);
inline constexpr Status kNoInterface = status_bits(0x80004002);
inline constexpr Status kInvalidArgument = status_bits(0x80070057);

/// Error numbers of single operations: 0 is success, all others are positive.
using Error = std::uint32_t;

namespace error {
inline constexpr Error kNone = 0;
inline constexpr Error kInvalidFunction = 1;
inline constexpr Error kFileNotFound = 2;
inline constexpr Error kAccessDenied = 5;
inline constexpr Error kInvalidHandle = 6;
inline constexpr Error kInvalidData = 13;
inline constexpr Error kWriteFault = 29;
inline constexpr Error kSharingViolation = 32;
inline constexpr Error kInvalidParameter = 87;
inline constexpr Error kDiskFull = 112;
inline constexpr Error kInsufficientBuffer = 122;
inline constexpr Error kBadArguments = 160;
inline constexpr Error kBusy = 170;
inline constexpr Error kMoreData = 234;
inline constexpr Error kOperationAborted = 995;
inline constexpr Error kIoPending = 997;
inline constexpr Error kDeviceNotConnected = 1167;
inline constexpr Error kNotFound = 1168;
inline constexpr Error kInvalidState = 5023;
}  // namespace error

/// An error number in the form of a failed Status; 0 stays success.
constexpr Status status_from_error(Error error) {
  return error == error::kNone ? kOk : status_bits(0x80070000u | (error & 0xFFFFu));
}

}  // namespace sonivo
