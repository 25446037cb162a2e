#include "CommandLine.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "CampaignCatalog.h"
#include "CloudServer.h"
#include "CloudStore.h"
#include "Ingestion.h"
#include "ReportRenderer.h"
#include "ResultsBuilder.h"
#include "SessionController.h"
#include "common/VemoLogger.h"

namespace vemo {
namespace cloud {

namespace {

const VemoLogger logger("CommandLine");

int64_t wallClockMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

bool parseInt(const std::string& text, int64_t low, int64_t high, int64_t& out) {
    if (text.empty() || text.size() > 18) {
        return false;
    }
    int64_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return false;
        }
        value = value * 10 + (c - '0');
    }
    if (value < low || value > high) {
        return false;
    }
    out = value;
    return true;
}

}  // namespace

std::string CommandLine::usage() {
    return "usage: vemo_cloud --cert PEM --key PEM [options]\n"
           "       vemo_cloud report --db PATH --campaigns DIR CAMPAIGN_ID\n"
           "\n"
           "Plays the cloud for vemod devices: events, directives, /maskedFAVs uploads,\n"
           "secure-aggregation sessions and the analyst's answers, over HTTPS.\n"
           "\n"
           "  --listen HOST:PORT        address to serve on (port 0: any free port) "
           "[127.0.0.1:8443]\n"
           "  --cert PEM --key PEM      server certificate and key (required)\n"
           "  --db PATH                 SQLite database [vemo_cloud.db]\n"
           "  --campaigns DIR           campaign documents (*.json) for bins and privacy settings\n"
           "  --devices FILE            device registry, lines \"<token> <device id>\"\n"
           "  --analyst-token TOKEN     bearer token of the analyst endpoints (none: open)\n"
           "  --min-cohort N            fewest members of a session [5]\n"
           "  --max-cohort N            most members of a session [1000]\n"
           "  --cohort-window SECONDS   how long a group waits for more members [30]\n"
           "  --session-deadline SECONDS  time for every member to upload [120]\n"
           "  --neighbours K            peers each member masks with [12]\n"
           "  --poll-seconds SECONDS    how long a directive poll waits [20]\n"
           "  --max-pollers N           directive polls held at once; each holds a thread [256]\n"
           "  --help                    this text\n";
}

bool CommandLine::parse(const std::vector<std::string>& args, CloudOptions& out,
                        std::string& error) {
    size_t i = 0;
    if (!args.empty() && args[0] == "report") {
        out.report = true;
        i = 1;
    }
    std::vector<std::string> positional;
    for (; i < args.size(); ++i) {
        const std::string& flag = args[i];
        if (flag == "--help" || flag == "-h") {
            out.help = true;
            return true;
        }
        if (flag.rfind("--", 0) != 0) {
            positional.push_back(flag);
            continue;
        }
        static const char* const kFlags[] = {"--listen",
                                             "--cert",
                                             "--key",
                                             "--db",
                                             "--campaigns",
                                             "--devices",
                                             "--analyst-token",
                                             "--min-cohort",
                                             "--max-cohort",
                                             "--cohort-window",
                                             "--session-deadline",
                                             "--neighbours",
                                             "--poll-seconds",
                                             "--max-pollers"};
        if (std::find(std::begin(kFlags), std::end(kFlags), flag) == std::end(kFlags)) {
            error = "unknown flag " + flag;
            return false;
        }
        if (i + 1 >= args.size()) {
            error = flag + " needs a value";
            return false;
        }
        const std::string& value = args[++i];
        struct IntFlag {
            const char* name;
            int64_t* target;
            int64_t low;
            int64_t high;
        };
        const IntFlag ints[] = {
            {"--min-cohort", &out.minCohort, 2, 1000000},
            {"--max-cohort", &out.maxCohort, 2, 1000000},
            {"--cohort-window", &out.cohortWindowSeconds, 0, 86400 * 30},
            {"--session-deadline", &out.sessionDeadlineSeconds, 1, 86400 * 30},
            {"--neighbours", &out.neighbours, 2, 100000},
            {"--poll-seconds", &out.pollSeconds, 0, 300},
            {"--max-pollers", &out.maxPollers, 1, 4096},
        };
        bool matched = false;
        for (const auto& f : ints) {
            if (flag == f.name) {
                if (!parseInt(value, f.low, f.high, *f.target)) {
                    error = flag + " needs a whole number from " + std::to_string(f.low) + " to " +
                            std::to_string(f.high) + ", not \"" + value + "\"";
                    return false;
                }
                matched = true;
            }
        }
        if (matched) {
            continue;
        }
        if (flag == "--listen") {
            const size_t colon = value.rfind(':');
            int64_t port = 0;
            if (colon == std::string::npos || colon == 0 ||
                !parseInt(value.substr(colon + 1), 0, 65535, port)) {
                error = "--listen needs HOST:PORT, not \"" + value + "\"";
                return false;
            }
            out.listenHost = value.substr(0, colon);
            out.listenPort = static_cast<int>(port);
        } else if (flag == "--cert") {
            out.certFile = value;
        } else if (flag == "--key") {
            out.keyFile = value;
        } else if (flag == "--db") {
            out.dbPath = value;
        } else if (flag == "--campaigns") {
            out.campaignsDir = value;
        } else if (flag == "--devices") {
            out.devicesFile = value;
        } else if (flag == "--analyst-token") {
            out.analystToken = value;
        }
    }
    if (out.report) {
        if (positional.size() != 1 || out.campaignsDir.empty()) {
            error = "report needs --campaigns DIR and one CAMPAIGN_ID";
            return false;
        }
        out.reportCampaign = positional[0];
        return true;
    }
    if (!positional.empty()) {
        error = "unexpected argument " + positional[0];
        return false;
    }
    if (out.certFile.empty() || out.keyFile.empty()) {
        error = "--cert and --key are required";
        return false;
    }
    if (out.minCohort > out.maxCohort) {
        error = "--min-cohort is above --max-cohort";
        return false;
    }
    return true;
}

bool CommandLine::readDevices(const std::string& path,
                              std::vector<std::pair<std::string, std::string>>& out,
                              std::string& error) {
    std::ifstream in(path);
    if (!in) {
        error = "cannot read " + path;
        return false;
    }
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
        std::istringstream fields(line);
        std::string token;
        std::string device;
        std::string extra;
        if (!(fields >> token) || token[0] == '#') {
            continue;
        }
        if (!(fields >> device) || (fields >> extra)) {
            error = path + ":" + std::to_string(number) + ": expected \"<token> <device id>\"";
            return false;
        }
        out.emplace_back(token, device);
    }
    return true;
}

int CommandLine::report(const CloudOptions& options) {
    // Opening would create an empty database under a mistyped name.
    if (access(options.dbPath.c_str(), R_OK) != 0) {
        std::fprintf(stderr, "vemo_cloud: no database at %s\n", options.dbPath.c_str());
        return 1;
    }
    CloudStore store(options.dbPath);
    const CampaignCatalog catalog(options.campaignsDir);
    CampaignResults results;
    std::string error;
    if (ResultsBuilder::build(store, catalog, options.reportCampaign, results, error) !=
        ResultsBuilder::Status::kOk) {
        std::fprintf(stderr, "vemo_cloud: %s\n", error.c_str());
        return 1;
    }
    std::fputs(ReportRenderer::table(results).c_str(), stdout);
    return 0;
}

int CommandLine::serve(const CloudOptions& options) {
    // Signals are taken by one thread with sigwait; every other thread,
    // started below, inherits the blocked mask.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    signal(SIGPIPE, SIG_IGN);

    CloudStore store(options.dbPath);
    if (!options.devicesFile.empty()) {
        std::vector<std::pair<std::string, std::string>> devices;
        std::string error;
        if (!readDevices(options.devicesFile, devices, error)) {
            std::fprintf(stderr, "vemo_cloud: %s\n", error.c_str());
            return 2;
        }
        store.registerDevices(devices);
    }
    const CampaignCatalog catalog(options.campaignsDir);
    ControllerConfig controllerConfig;
    controllerConfig.minCohort = static_cast<size_t>(options.minCohort);
    controllerConfig.maxCohort = static_cast<size_t>(options.maxCohort);
    controllerConfig.cohortWindowMs = options.cohortWindowSeconds * 1000;
    controllerConfig.sessionDeadlineMs = options.sessionDeadlineSeconds * 1000;
    controllerConfig.neighbours = static_cast<unsigned>(options.neighbours);
    SessionController controller(store, controllerConfig, wallClockMs);
    Ingestion ingestion(store, controller, catalog, wallClockMs);
    ServerConfig serverConfig;
    serverConfig.host = options.listenHost;
    serverConfig.port = options.listenPort;
    serverConfig.certFile = options.certFile;
    serverConfig.keyFile = options.keyFile;
    serverConfig.analystToken = options.analystToken;
    serverConfig.pollMs = options.pollSeconds * 1000;
    // Polls block their thread for up to pollMs; the rest serve everything else.
    serverConfig.maxPolls = static_cast<size_t>(options.maxPollers);
    serverConfig.threads = serverConfig.maxPolls + 32;
    CloudServer server(serverConfig, store, controller, ingestion, catalog);
    std::string error;
    if (!server.bind(error)) {
        std::fprintf(stderr, "vemo_cloud: %s\n", error.c_str());
        return 1;
    }
    if (options.analystToken.empty()) {
        logger.w("%s:no --analyst-token: results are open to anyone who can connect", "serve");
    }
    // Finishes sessions a previous run left full, and fails expired ones.
    controller.tick();
    controller.start();
    std::thread signalWaiter([&server, &controller, &stopSignals] {
        int sig = 0;
        sigwait(&stopSignals, &sig);
        // The controller first: it releases the directive polls, which the
        // server's worker threads would otherwise finish before stopping.
        controller.stop();
        server.stop();
    });
    std::fprintf(stderr, "vemo_cloud: listening on https://%s:%d\n", options.listenHost.c_str(),
                 server.port());
    server.run();
    // run() also returns when the listener fails; wake the waiter then.
    pthread_kill(signalWaiter.native_handle(), SIGTERM);
    signalWaiter.join();
    controller.stop();
    std::fprintf(stderr, "vemo_cloud: stopped\n");
    return 0;
}

int CommandLine::main(int argc, char** argv) {
    CloudOptions options;
    std::string error;
    if (!parse(std::vector<std::string>(argv + 1, argv + argc), options, error)) {
        std::fprintf(stderr, "vemo_cloud: %s\n\n%s", error.c_str(), usage().c_str());
        return 2;
    }
    if (options.help) {
        std::fputs(usage().c_str(), stdout);
        return 0;
    }
    try {
        return options.report ? report(options) : serve(options);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vemo_cloud: %s\n", e.what());
        return 1;
    }
}

}  // namespace cloud
}  // namespace vemo
