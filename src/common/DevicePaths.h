#pragma once
// The device's fixed file paths, named in one place. hostPath() maps them
// under the host's device root (identity on the device).

#include <string>

namespace vemo {
namespace paths {

// The persisted campaign path written by the fact manager.
constexpr const char kCampaignConfig[] = "/data/vemo//config";
// The gradient file sent for gradient requests.
constexpr const char kGradientFile[] = "/data/vemo/engb1.flgr";
// The wake-word gradient file, stale after a restart.
constexpr const char kWakewordGradientFile[] =
    "/data/securedStorageLocation/nimbel.speech.sim/ww_gradients.flgr";

std::string hostPath(const std::string& devicePath);

}  // namespace paths
}  // namespace vemo
