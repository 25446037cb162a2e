#include "FleetTool.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "FleetReport.h"
#include "HttpsFetcher.h"
#include "LoopbackPort.h"
#include "TraceGenerator.h"

namespace vemo {
namespace fleet {

namespace {

// "--name value" pairs, then the positional arguments.
struct Arguments {
    std::map<std::string, std::string> options;
    std::vector<std::string> positional;
};

bool split(const std::vector<std::string>& args, Arguments* parsed, std::string* problem) {
    for (size_t k = 1; k < args.size(); ++k) {
        if (args[k].rfind("--", 0) == 0) {
            if (k + 1 >= args.size()) {
                *problem = args[k] + " needs a value";
                return false;
            }
            parsed->options[args[k].substr(2)] = args[k + 1];
            ++k;
        } else {
            parsed->positional.push_back(args[k]);
        }
    }
    return true;
}

bool parseNumber(const std::string& text, long long low, long long high, long long* value) {
    char* end = nullptr;
    errno = 0;
    const long long parsed = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || errno != 0 || *end != '\0' || parsed < low || parsed > high) {
        return false;
    }
    *value = parsed;
    return true;
}

bool readFile(const std::string& path, std::string* contents) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    *contents = text.str();
    return static_cast<bool>(in);
}

bool writeFile(const std::string& path, const std::string& contents) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << contents;
    out.close();
    return static_cast<bool>(out);
}

}  // namespace

FleetTool::FleetTool(std::ostream& out, std::ostream& err) : out_(out), err_(err) {}

int FleetTool::usage(const std::string& problem) {
    err_ << "vemo_fleet: " << problem << "\n"
         << "usage: vemo_fleet trace --campaign FILE --usage FILE --devices N --events M\n"
         << "                        --seed S --out DIR [--device-type T] [--locale L]\n"
         << "       vemo_fleet port [PORT]\n"
         << "       vemo_fleet get --cafile FILE [--bearer TOKEN] [--out FILE] URL\n"
         << "       vemo_fleet verdict --truth FILE --results FILE --health FILE\n";
    return kExitUsage;
}

int FleetTool::run(const std::vector<std::string>& args) {
    if (args.empty()) {
        return usage("no command");
    }
    if (args[0] == "trace") {
        return trace(args);
    }
    if (args[0] == "port") {
        return port(args);
    }
    if (args[0] == "get") {
        return get(args);
    }
    if (args[0] == "verdict") {
        return verdict(args);
    }
    return usage("unknown command " + args[0]);
}

int FleetTool::trace(const std::vector<std::string>& args) {
    Arguments a;
    std::string problem;
    if (!split(args, &a, &problem)) {
        return usage(problem);
    }
    for (const char* required : {"campaign", "usage", "devices", "events", "seed", "out"}) {
        if (a.options.count(required) == 0) {
            return usage(std::string("trace needs --") + required);
        }
    }
    TraceGenerator::Options options;
    long long devices = 0;
    long long events = 0;
    long long seed = 0;
    if (!parseNumber(a.options["devices"], 1, 100000, &devices) ||
        !parseNumber(a.options["events"], 1, 1000000, &events) ||
        !parseNumber(a.options["seed"], 0, INT64_MAX, &seed)) {
        return usage("--devices, --events and --seed take whole numbers (at least 1, 1 and 0)");
    }
    options.devices = static_cast<int>(devices);
    options.eventsPerDevice = static_cast<int>(events);
    options.seed = static_cast<uint64_t>(seed);
    if (a.options.count("device-type")) {
        options.deviceType = a.options["device-type"];
    }
    if (a.options.count("locale")) {
        options.locale = a.options["locale"];
    }
    const std::string dir = a.options["out"];
    try {
        const TraceGenerator::Result result =
            TraceGenerator(a.options["campaign"], a.options["usage"]).generate(options);
        for (size_t d = 0; d < result.traces.size(); ++d) {
            std::string lines;
            for (const std::string& event : result.traces[d]) {
                lines += event + "\n";
            }
            const std::string path = dir + "/device-" + std::to_string(d + 1) + ".ecs.jsonl";
            if (!writeFile(path, lines)) {
                err_ << "vemo_fleet: cannot write " << path << "\n";
                return kExitFailed;
            }
        }
        if (!writeFile(dir + "/truth.json", result.truthJson + "\n")) {
            err_ << "vemo_fleet: cannot write " << dir << "/truth.json\n";
            return kExitFailed;
        }
    } catch (const std::exception& error) {
        err_ << "vemo_fleet: " << error.what() << "\n";
        return kExitFailed;
    }
    return kExitOk;
}

int FleetTool::port(const std::vector<std::string>& args) {
    std::string error;
    if (args.size() == 1) {
        const int free = LoopbackPort::pickFree(&error);
        if (free == 0) {
            err_ << "vemo_fleet: no free port on 127.0.0.1: " << error << "\n";
            return kExitFailed;
        }
        out_ << free << "\n";
        return kExitOk;
    }
    long long number = 0;
    if (args.size() != 2 || !parseNumber(args[1], 1, 65535, &number)) {
        return usage("port takes at most one port number (1-65535)");
    }
    if (!LoopbackPort::isFree(static_cast<int>(number), &error)) {
        err_ << "vemo_fleet: port " << number << " on 127.0.0.1: " << error << "\n";
        return kExitFailed;
    }
    return kExitOk;
}

int FleetTool::get(const std::vector<std::string>& args) {
    Arguments a;
    std::string problem;
    if (!split(args, &a, &problem)) {
        return usage(problem);
    }
    if (a.options.count("cafile") == 0 || a.positional.size() != 1) {
        return usage("get needs --cafile and one URL");
    }
    const HttpsFetcher::Response response =
        HttpsFetcher::get(a.positional[0], a.options["cafile"], a.options["bearer"]);
    if (response.status == 0) {
        err_ << "vemo_fleet: " << a.positional[0] << ": " << response.error << "\n";
        return kExitUnreachable;
    }
    if (response.status < 200 || response.status > 299) {
        err_ << "vemo_fleet: " << a.positional[0] << ": HTTP " << response.status << " "
             << response.body.substr(0, 200) << "\n";
        return kExitFailed;
    }
    if (a.options.count("out")) {
        if (!writeFile(a.options["out"], response.body)) {
            err_ << "vemo_fleet: cannot write " << a.options["out"] << "\n";
            return kExitFailed;
        }
    } else {
        out_ << response.body << "\n";
    }
    return kExitOk;
}

int FleetTool::verdict(const std::vector<std::string>& args) {
    Arguments a;
    std::string problem;
    if (!split(args, &a, &problem)) {
        return usage(problem);
    }
    std::string texts[3];
    const char* names[3] = {"truth", "results", "health"};
    for (int k = 0; k < 3; ++k) {
        if (a.options.count(names[k]) == 0) {
            return usage(std::string("verdict needs --") + names[k]);
        }
        if (!readFile(a.options[names[k]], &texts[k])) {
            err_ << "vemo_fleet: cannot read " << a.options[names[k]] << "\n";
            return kExitFailed;
        }
    }
    const FleetReport::Outcome outcome = FleetReport::build(texts[0], texts[1], texts[2]);
    out_ << outcome.text;
    return outcome.ok ? kExitOk : kExitFailed;
}

}  // namespace fleet
}  // namespace vemo
