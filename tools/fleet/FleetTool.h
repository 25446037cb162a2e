#pragma once
// The command line of vemo_fleet, the demo's helper: seeded traces and their
// truth, a loopback port for the cloud, HTTPS GETs against the demo's CA, and
// the verdict that sets the cloud's answer beside the truth.
//
//   vemo_fleet trace --campaign FILE --usage FILE --devices N --events M
//                    --seed S --out DIR [--device-type T] [--locale L]
//   vemo_fleet port [PORT]
//   vemo_fleet get --cafile FILE [--bearer TOKEN] [--out FILE] URL
//   vemo_fleet verdict --truth FILE --results FILE --health FILE
//
// Single-threaded; one instance per invocation.

#include <ostream>
#include <string>
#include <vector>

namespace vemo {
namespace fleet {

class FleetTool {
  public:
    static constexpr int kExitOk = 0;
    static constexpr int kExitFailed = 1;  // a check failed, an HTTP error status
    static constexpr int kExitUsage = 2;
    static constexpr int kExitUnreachable = 3;  // no HTTP answer

    FleetTool(std::ostream& out, std::ostream& err);
    int run(const std::vector<std::string>& args);

  private:
    int trace(const std::vector<std::string>& args);
    int port(const std::vector<std::string>& args);
    int get(const std::vector<std::string>& args);
    int verdict(const std::vector<std::string>& args);
    int usage(const std::string& problem);

    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace fleet
}  // namespace vemo
