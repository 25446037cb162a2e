#pragma once
// Service-specific error codes the binder service produces itself, with the
// message text each travels with. Every other non-zero code a client sees is
// the connector's VemoStatus passed through unchanged, with the message
// kUnknownErrorMessage.

#include "daemon/VemoStatus.h"

namespace vemo {
namespace ipc {

// No connector is installed yet.
constexpr VemoStatus kServerNotReady = 121;
constexpr char kServerNotReadyMessage[] = "ServerNotReady";

// A gradient-file request whose JSON could not be read (empty params); the
// connector is not called.
constexpr VemoStatus kInvalidRequest = 122;
constexpr char kInvalidRequestMessage[] = "InvalidRequest";

constexpr char kUnknownErrorMessage[] = "UnknownError";

}  // namespace ipc
}  // namespace vemo
