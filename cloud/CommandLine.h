#pragma once
// vemo_cloud's command line: parses the flags, then either serves (store,
// controller, ingestion and HTTPS server wired together until SIGINT or
// SIGTERM) or prints one campaign's results as a table ("report").
//
// Single-threaded: main() is called once, from the process's main thread.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vemo {
namespace cloud {

struct CloudOptions {
    bool help = false;
    bool report = false;
    std::string reportCampaign;
    std::string listenHost = "127.0.0.1";
    int listenPort = 8443;
    std::string certFile;
    std::string keyFile;
    std::string dbPath = "vemo_cloud.db";
    std::string campaignsDir;
    std::string devicesFile;
    std::string analystToken;
    int64_t minCohort = 5;
    int64_t maxCohort = 1000;
    int64_t cohortWindowSeconds = 30;
    int64_t sessionDeadlineSeconds = 120;
    int64_t neighbours = 12;
    int64_t pollSeconds = 20;
    int64_t maxPollers = 256;
};

class CommandLine {
  public:
    // args excludes the program name. False with a reason on a bad flag.
    static bool parse(const std::vector<std::string>& args, CloudOptions& out, std::string& error);
    static std::string usage();

    // Lines "<token> <device id>"; blank lines and lines starting with '#'
    // are skipped. False with the line's number on a malformed line.
    static bool readDevices(const std::string& path,
                            std::vector<std::pair<std::string, std::string>>& out,
                            std::string& error);

    // The process: 0 on a clean stop or a printed report, 1 on a runtime
    // failure, 2 on a usage error.
    static int main(int argc, char** argv);

  private:
    static int serve(const CloudOptions& options);
    static int report(const CloudOptions& options);
};

}  // namespace cloud
}  // namespace vemo
