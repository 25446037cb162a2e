#pragma once
// Integer status of the daemon, the IPC layer, the connector and the core:
// 0 is success, every other value a failure code passed through unchanged.

#include <cstdint>

namespace vemo {

using VemoStatus = int32_t;

constexpr VemoStatus kVemoStatusOk = 0;
// A manager step failed (file unreadable, empty vector).
constexpr VemoStatus kVemoStatusManagerFailure = 1;
// The connector's gradient request was rejected.
constexpr VemoStatus kVemoStatusRequestRejected = 3;
// Set-up failed.
constexpr VemoStatus kVemoStatusSetupFailure = 6;

}  // namespace vemo
