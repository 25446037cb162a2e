#pragma once
// vemoctl's command logic: parses the arguments, talks to the daemon's
// IFlgrService found through a ServiceDirectory, and prints results to `out`
// and diagnostics to `err`. main only wires a BinderServiceDirectory and the
// standard streams to it.
//
//   vemoctl [options] fact <dataProducer> <message | @file>
//       (with --each-line: one request per non-empty line, in order)
//   vemoctl [options] flgr <file> <applicationId> <metadata> <scale>
//   vemoctl [options] ping [service]
//   vemoctl [options] list
//
// Exit codes: 0 success; 1 the service answered with an error (its code and
// message are printed); 2 usage error or unreadable @file; 3 service not
// found or transport failure; 4 no onResults within the timeout.
//
// One instance runs one command at a time.

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

#include "ServiceDirectory.h"

namespace vemo {
namespace ctl {

class VemoCtl {
  public:
    static constexpr int kExitOk = 0;
    static constexpr int kExitServiceError = 1;
    static constexpr int kExitUsage = 2;
    static constexpr int kExitUnavailable = 3;
    static constexpr int kExitTimeout = 4;

    VemoCtl(ServiceDirectory& directory, std::ostream& out, std::ostream& err);

    // args excludes the program name.
    int run(const std::vector<std::string>& args);

    static std::string usage();

  private:
    struct Options {
        std::string client = "vemoctl";
        std::string service = "vemo.ipc.IFlgrService";
        std::chrono::milliseconds timeout{30000};
        bool eachLine = false;
    };

    int fact(const Options& options, const std::vector<std::string>& args);
    int flgr(const Options& options, const std::vector<std::string>& args);
    int ping(const Options& options, const std::vector<std::string>& args);
    int list();
    int usageError(const std::string& message);

    ServiceDirectory& directory_;
    std::ostream& out_;
    std::ostream& err_;
};

}  // namespace ctl
}  // namespace vemo
