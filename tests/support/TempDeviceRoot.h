#pragma once
// A fresh device root in a temporary directory for one test. While the object
// lives it is the process's device root; the directory is removed and the
// previous root restored at destruction.

#include <map>
#include <string>

namespace vemo {
namespace test {

class TempDeviceRoot {
  public:
    TempDeviceRoot();
    ~TempDeviceRoot();
    TempDeviceRoot(const TempDeviceRoot&) = delete;
    TempDeviceRoot& operator=(const TempDeviceRoot&) = delete;

    const std::string& root() const { return root_; }
    // Host path of a device path ("/data/x" -> "<root>/data/x").
    std::string path(const std::string& devicePath) const;

    // Writes a file (creating its directories) with the given contents.
    void writeFile(const std::string& devicePath, const std::string& contents) const;
    // Reads a whole file; empty when missing.
    std::string readFile(const std::string& devicePath) const;
    bool exists(const std::string& devicePath) const;

    // system/build.prop from key/value pairs.
    void writeBuildProps(const std::map<std::string, std::string>& props) const;
    // The host accessor's provisioning file.
    void provision(int registrationState, const std::string& accessToken) const;

  private:
    std::string root_;
    std::string previousRoot_;
};

// Removes a directory tree; used by TempDeviceRoot and by tests that make
// their own scratch directories.
void removeTree(const std::string& path);
// Reads a whole host file; empty when missing.
std::string readHostFile(const std::string& path);

}  // namespace test
}  // namespace vemo
