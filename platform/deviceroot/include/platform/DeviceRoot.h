#pragma once
// Resolution of the device's fixed absolute paths on a host.
//
// On the device every path the daemon uses is absolute ("/data/vemo//config").
// On a host each emulated device lives under a root directory: the root is
// taken from the environment variable VEMO_DEVICE_ROOT on first use (unset or
// empty means "/", exactly as on the device). A process that hosts several
// devices, or a test that wants a fresh root, may replace it with
// setDeviceRoot(). All functions are thread-safe.

#include <string>

namespace vemo {
namespace platform {

// The current device root, without a trailing slash unless it is "/".
std::string deviceRoot();

// Replaces the device root for the whole process.
void setDeviceRoot(const std::string& root);

// A number that changes whenever setDeviceRoot() is called: a cheap check
// for callers that keep something derived from the root.
unsigned long deviceRootVersion();

// Maps an absolute device path to the host path under the root. A relative
// path is returned unchanged.
std::string devicePath(const std::string& absolutePath);

// Creates every missing directory of a host path's parent; false on failure.
bool makeParentDirectories(const std::string& hostPath);

}  // namespace platform
}  // namespace vemo
