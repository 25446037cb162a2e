#include "VemoCtl.h"

#include <binder/Status.h>
#include <utils/Errors.h>
#include <utils/String8.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "ResultsWaiter.h"
#include "ipc/IFlgrService.h"

namespace vemo {
namespace ctl {

using android::binder::Status;

namespace {

const char* statusName(android::status_t status) {
    switch (status) {
        case android::UNKNOWN_ERROR:
            return "UNKNOWN_ERROR";
        case android::NO_MEMORY:
            return "NO_MEMORY";
        case android::INVALID_OPERATION:
            return "INVALID_OPERATION";
        case android::BAD_VALUE:
            return "BAD_VALUE";
        case android::BAD_TYPE:
            return "BAD_TYPE";
        case android::NAME_NOT_FOUND:
            return "NAME_NOT_FOUND";
        case android::PERMISSION_DENIED:
            return "PERMISSION_DENIED";
        case android::NO_INIT:
            return "NO_INIT";
        case android::DEAD_OBJECT:
            return "DEAD_OBJECT";
        case android::FAILED_TRANSACTION:
            return "FAILED_TRANSACTION";
        case android::NOT_ENOUGH_DATA:
            return "NOT_ENOUGH_DATA";
        case android::TIMED_OUT:
            return "TIMED_OUT";
        case android::UNKNOWN_TRANSACTION:
            return "UNKNOWN_TRANSACTION";
        case android::UNEXPECTED_NULL:
            return "UNEXPECTED_NULL";
        default:
            return "status";
    }
}

std::string describeTransport(android::status_t status) {
    std::ostringstream text;
    text << statusName(status) << " (" << status << ")";
    return text.str();
}

// Prints a failed Status and returns the exit code it deserves.
int reportFailure(std::ostream& err, const char* call, const Status& status) {
    const int32_t exception = status.exceptionCode();
    if (exception == Status::EX_SERVICE_SPECIFIC) {
        err << "vemoctl: " << call << " failed: service-specific error "
            << status.serviceSpecificErrorCode() << ": " << status.exceptionMessage().string()
            << "\n";
        return VemoCtl::kExitServiceError;
    }
    if (exception == Status::EX_TRANSACTION_FAILED) {
        err << "vemoctl: " << call
            << " failed: transaction failed: " << describeTransport(status.transactionError())
            << "\n";
        return VemoCtl::kExitUnavailable;
    }
    err << "vemoctl: " << call << " failed: exception " << exception;
    if (status.exceptionMessage().size() > 0) {
        err << ": " << status.exceptionMessage().string();
    }
    err << "\n";
    return VemoCtl::kExitServiceError;
}

bool parseFloat(const std::string& text, float* value) {
    if (text.empty()) {
        return false;
    }
    errno = 0;
    char* end = nullptr;
    const float parsed = std::strtof(text.c_str(), &end);
    if (errno != 0 || end != text.c_str() + text.size() || !std::isfinite(parsed)) {
        return false;
    }
    *value = parsed;
    return true;
}

bool parseSeconds(const std::string& text, std::chrono::milliseconds* value) {
    char* end = nullptr;
    errno = 0;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || errno != 0 || end != text.c_str() + text.size() || !(seconds > 0) ||
        seconds > 86400) {
        return false;
    }
    *value = std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
    return true;
}

bool readWholeFile(const std::string& path, std::string* contents) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return false;
    }
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) {
        return false;
    }
    *contents = buffer.str();
    return true;
}

}  // namespace

VemoCtl::VemoCtl(ServiceDirectory& directory, std::ostream& out, std::ostream& err)
    : directory_(directory), out_(out), err_(err) {}

std::string VemoCtl::usage() {
    return "usage: vemoctl [options] <command> [arguments]\n"
           "\n"
           "commands:\n"
           "  fact <dataProducer> <message | @file>\n"
           "      send a FACT message (read from <file> when given as @file)\n"
           "  flgr <file> <applicationId> <metadata> <scale>\n"
           "      request aggregation of a gradient file and wait for onResults\n"
           "  ping [service]    check that a service answers (default vemo.ipc.IFlgrService)\n"
           "  list              list the published services\n"
           "\n"
           "options:\n"
           "  --client <name>       client name sent with requests (default vemoctl)\n"
           "  --each-line           fact sends each non-empty line as a request of its own\n"
           "  --service <name>      service to call (default vemo.ipc.IFlgrService)\n"
           "  --timeout <seconds>   how long flgr waits for onResults (default 30)\n"
           "  --help                this text\n"
           "\n"
           "The device is the one under VEMO_DEVICE_ROOT.\n"
           "exit codes: 0 ok, 1 service error (code and message printed), 2 usage,\n"
           "            3 service not found or transport failure, 4 timeout\n";
}

int VemoCtl::usageError(const std::string& message) {
    err_ << "vemoctl: " << message << "\n" << usage();
    return kExitUsage;
}

int VemoCtl::run(const std::vector<std::string>& args) {
    Options options;
    size_t k = 0;
    for (; k < args.size() && args[k].compare(0, 2, "--") == 0; ++k) {
        const std::string& option = args[k];
        if (option == "--help") {
            out_ << usage();
            return kExitOk;
        }
        if (option == "--each-line") {
            options.eachLine = true;
            continue;
        }
        if (option != "--client" && option != "--service" && option != "--timeout") {
            return usageError("unknown option '" + option + "'");
        }
        if (k + 1 >= args.size()) {
            return usageError("option '" + option + "' needs a value");
        }
        const std::string& value = args[++k];
        if (option == "--client") {
            options.client = value;
        } else if (option == "--service") {
            options.service = value;
        } else if (!parseSeconds(value, &options.timeout)) {
            return usageError("bad timeout '" + value + "': a number of seconds above 0");
        }
    }
    if (k >= args.size()) {
        return usageError("no command given");
    }
    const std::string& command = args[k];
    const std::vector<std::string> rest(args.begin() + static_cast<std::ptrdiff_t>(k) + 1,
                                        args.end());
    if (command == "fact") {
        return fact(options, rest);
    }
    if (command == "flgr") {
        return flgr(options, rest);
    }
    if (command == "ping") {
        return ping(options, rest);
    }
    if (command == "list") {
        if (!rest.empty()) {
            return usageError("list takes no arguments");
        }
        return list();
    }
    if (command == "help") {
        out_ << usage();
        return kExitOk;
    }
    return usageError("unknown command '" + command + "'");
}

int VemoCtl::fact(const Options& options, const std::vector<std::string>& args) {
    if (args.size() != 2) {
        return usageError("fact needs <dataProducer> and <message | @file>");
    }
    std::string message = args[1];
    if (!message.empty() && message[0] == '@') {
        const std::string path = message.substr(1);
        if (!readWholeFile(path, &message)) {
            err_ << "vemoctl: cannot read message file '" << path << "'\n";
            return kExitUsage;
        }
    }
    if (message.find('\0') != std::string::npos) {
        err_ << "vemoctl: the message contains a NUL byte, which a request cannot carry\n";
        return kExitUsage;
    }
    const android::sp<android::IBinder> binder = directory_.find(options.service);
    if (binder == nullptr) {
        err_ << "vemoctl: service '" << options.service << "' not found\n";
        return kExitUnavailable;
    }
    const android::sp<ipc::IFlgrService> service = ipc::IFlgrService::asInterface(binder);
    if (!options.eachLine) {
        const Status status =
            service->factRequest(ipc::PFactRequest(options.client, args[0], message));
        if (!status.isOk()) {
            return reportFailure(err_, "factRequest", status);
        }
        out_ << "factRequest: ok\n";
        return kExitOk;
    }
    // One request per line, in order, over one connection: a trace of events
    // without a process per event.
    std::istringstream lines(message);
    int sent = 0;
    int number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (line.empty()) {
            continue;
        }
        const Status status =
            service->factRequest(ipc::PFactRequest(options.client, args[0], line));
        if (!status.isOk()) {
            err_ << "vemoctl: line " << number << " refused after " << sent << " requests\n";
            return reportFailure(err_, "factRequest", status);
        }
        ++sent;
    }
    out_ << "factRequest: ok, " << sent << " requests\n";
    return kExitOk;
}

int VemoCtl::flgr(const Options& options, const std::vector<std::string>& args) {
    if (args.size() != 4) {
        return usageError("flgr needs <file> <applicationId> <metadata> <scale>");
    }
    float scale = 0;
    if (!parseFloat(args[3], &scale)) {
        return usageError("bad scale '" + args[3] + "': a finite number");
    }
    const android::sp<android::IBinder> binder = directory_.find(options.service);
    if (binder == nullptr) {
        err_ << "vemoctl: service '" << options.service << "' not found\n";
        return kExitUnavailable;
    }
    const android::sp<ipc::IFlgrService> service = ipc::IFlgrService::asInterface(binder);
    const android::sp<ResultsWaiter> waiter = new ResultsWaiter();
    const auto request = std::make_shared<ipc::FlgrFileRequest>(args[0], args[1], args[2], scale);
    const Status status = service->flgrRequest(ipc::PFlgrRequest(options.client, request), waiter);
    if (!status.isOk()) {
        return reportFailure(err_, "flgrRequest", status);
    }
    out_ << "flgrRequest: ok, waiting for onResults\n" << std::flush;
    VemoStatus resultStatus = kVemoStatusOk;
    if (!waiter->waitForResults(options.timeout, &resultStatus)) {
        err_ << "vemoctl: no onResults within " << options.timeout.count() / 1000.0 << " s\n";
        return kExitTimeout;
    }
    out_ << "onResults: status " << resultStatus << "\n";
    return kExitOk;
}

int VemoCtl::ping(const Options& options, const std::vector<std::string>& args) {
    if (args.size() > 1) {
        return usageError("ping takes at most one service name");
    }
    const std::string name = args.empty() ? options.service : args[0];
    const android::sp<android::IBinder> binder = directory_.find(name);
    if (binder == nullptr) {
        err_ << "vemoctl: service '" << name << "' not found\n";
        return kExitUnavailable;
    }
    const android::status_t result = binder->pingBinder();
    if (result != android::OK) {
        err_ << "vemoctl: ping of '" << name << "' failed: " << describeTransport(result) << "\n";
        return kExitUnavailable;
    }
    out_ << name << ": alive\n";
    return kExitOk;
}

int VemoCtl::list() {
    for (const std::string& name : directory_.list()) {
        out_ << name << "\n";
    }
    return kExitOk;
}

}  // namespace ctl
}  // namespace vemo
