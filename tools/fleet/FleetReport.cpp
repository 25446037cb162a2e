#include "FleetReport.h"

#include <rapidjson/document.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace vemo {
namespace fleet {

namespace {

using rapidjson::Value;

// Shape errors end the report: the verdict names the first.
struct ShapeError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

const Value& member(const Value& object, const char* name, const char* where) {
    if (!object.IsObject() || !object.HasMember(name)) {
        throw ShapeError(std::string(where) + " has no \"" + name + "\"");
    }
    return object[name];
}

double number(const Value& object, const char* name, const char* where) {
    const Value& value = member(object, name, where);
    if (!value.IsNumber()) {
        throw ShapeError(std::string(where) + "'s \"" + name + "\" is not a number");
    }
    return value.GetDouble();
}

std::string text(const Value& object, const char* name, const char* where) {
    const Value& value = member(object, name, where);
    if (!value.IsString()) {
        throw ShapeError(std::string(where) + "'s \"" + name + "\" is not a string");
    }
    return value.GetString();
}

const Value& array(const Value& object, const char* name, const char* where) {
    const Value& value = member(object, name, where);
    if (!value.IsArray()) {
        throw ShapeError(std::string(where) + "'s \"" + name + "\" is not an array");
    }
    return value;
}

void parse(rapidjson::Document& doc, const std::string& json, const char* what) {
    doc.Parse(json.c_str());
    if (doc.HasParseError() || !doc.IsObject()) {
        throw ShapeError(std::string(what) + " is not a JSON object");
    }
}

std::string format(const char* pattern, double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, pattern, value);
    return buffer;
}

std::string plural(long long n, const char* word) {
    return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

struct Tally {
    long long bins = 0;
    long long held = 0;
    bool halfHeld = true;
    std::vector<std::string> faults;
};

void reportItem(const Value& truthItem, const Value& item, std::ostringstream& out, Tally& tally) {
    const std::string name = text(truthItem, "name", "a truth item");
    const Value& counts = array(truthItem, "counts", "a truth item");
    const Value& bins = array(item, "bins", "a result item");
    if (bins.Size() != counts.Size()) {
        tally.faults.push_back(name + " has " + std::to_string(bins.Size()) + " bins, the truth " +
                               std::to_string(counts.Size()));
        return;
    }
    const long long reports = static_cast<long long>(number(item, "reports", "a result item"));
    const long long trueReports =
        static_cast<long long>(number(truthItem, "reports", "a truth item"));
    if (reports != trueReports) {
        tally.faults.push_back(name + " summed " + std::to_string(reports) + " of " +
                               std::to_string(trueReports) + " reports");
    }

    size_t labelWidth = 3;
    for (const Value& bin : bins.GetArray()) {
        labelWidth = std::max(labelWidth, text(bin, "label", "a bin").size());
    }
    char line[256];
    std::snprintf(line, sizeof line, "  %-*s %6s %6s %9s   %s\n", static_cast<int>(labelWidth),
                  "bin", "true", "noisy", "estimate", "95% interval");
    out << line;
    long long held = 0;
    for (rapidjson::SizeType k = 0; k < bins.Size(); ++k) {
        const Value& bin = bins[k];
        const Value& ci = array(bin, "ci95", "a bin");
        if (ci.Size() != 2 || !ci[0].IsNumber() || !ci[1].IsNumber() || !counts[k].IsNumber()) {
            throw ShapeError("a bin's \"ci95\" is not two numbers");
        }
        const double truth = counts[k].GetDouble();
        const bool holds = ci[0].GetDouble() <= truth && truth <= ci[1].GetDouble();
        held += holds ? 1 : 0;
        std::snprintf(line, sizeof line, "  %-*s %6.0f %6.0f %9.1f   [%7.1f, %7.1f]%s\n",
                      static_cast<int>(labelWidth), text(bin, "label", "a bin").c_str(), truth,
                      number(bin, "noisy_count", "a bin"), number(bin, "estimate", "a bin"),
                      ci[0].GetDouble(), ci[1].GetDouble(), holds ? "" : "  outside");
        out << line;
    }
    tally.bins += bins.Size();
    tally.held += held;
    tally.halfHeld = tally.halfHeld && 2 * held >= static_cast<long long>(bins.Size());

    const Value& privacy = member(item, "privacy", "a result item");
    out << "  privacy: effective epsilon "
        << format("%g", number(privacy, "effective_epsilon", "privacy")) << " per report (epsilon "
        << format("%g", number(privacy, "epsilon", "privacy")) << " x sqrt(cohort size "
        << format("%g", number(privacy, "cohort_size", "privacy")) << ")), "
        << format("%g", number(privacy, "reports_per_device", "privacy"))
        << " reports per device per upload window";
    if (privacy.HasMember("no_noise") && privacy["no_noise"].IsTrue()) {
        out << ", no noise";
    }
    out << "\n";
    if (privacy.HasMember("warnings") && privacy["warnings"].IsArray()) {
        for (const Value& warning : privacy["warnings"].GetArray()) {
            if (warning.IsString()) {
                out << "  warning: " << warning.GetString() << "\n";
            }
        }
    }
}

}  // namespace

FleetReport::Outcome FleetReport::build(const std::string& truthJson,
                                        const std::string& resultsJson,
                                        const std::string& healthJson) {
    std::ostringstream out;
    Tally tally;
    long long complete = 0;
    long long failed = 0;
    std::string sums = "no sum";
    std::string fleet;
    try {
        rapidjson::Document truth;
        rapidjson::Document results;
        rapidjson::Document health;
        parse(truth, truthJson, "the truth");
        parse(results, resultsJson, "the results");
        parse(health, healthJson, "the health answer");
        complete = static_cast<long long>(number(health, "sessions_complete", "the health answer"));
        failed = static_cast<long long>(number(health, "sessions_failed", "the health answer"));
        if (failed > 0 || complete == 0) {
            tally.faults.push_back(plural(failed, "session") + " failed, " +
                                   std::to_string(complete) + " complete");
        }

        const std::string applicationId = text(truth, "application_id", "the truth");
        const Value* application = nullptr;
        for (const Value& candidate : array(results, "applications", "the results").GetArray()) {
            if (text(candidate, "application_id", "an application") == applicationId) {
                application = &candidate;
            }
        }
        if (application == nullptr) {
            throw ShapeError("the cloud published nothing for " + applicationId);
        }
        const bool checksumOk = member(*application, "checksum_ok", "the application").IsTrue();
        sums = checksumOk ? "sums checked" : "checksum FAILED";
        if (!checksumOk) {
            tally.faults.push_back("the sum's checksum failed");
        }
        const long long devices =
            static_cast<long long>(number(*application, "devices", "the application"));
        const long long trueDevices = static_cast<long long>(number(truth, "devices", "the truth"));
        fleet = std::to_string(devices) + " of " + std::to_string(trueDevices) + " devices";
        if (devices != trueDevices) {
            tally.faults.push_back("the sum holds " + fleet);
        }
        const long long sessions =
            static_cast<long long>(number(*application, "sessions", "the application"));

        const Value& items = array(*application, "items", "the application");
        for (const Value& truthItem : array(truth, "items", "the truth").GetArray()) {
            const std::string name = text(truthItem, "name", "a truth item");
            const Value* item = nullptr;
            for (const Value& candidate : items.GetArray()) {
                if (text(candidate, "name", "a result item") == name) {
                    item = &candidate;
                }
            }
            if (item == nullptr) {
                throw ShapeError("the results have no item " + name);
            }
            out << name << ": "
                << plural(static_cast<long long>(number(*item, "reports", "a result item")),
                          "report")
                << " from " << plural(devices, "device") << " in " << plural(sessions, "session")
                << ", " << (checksumOk ? "checksum ok" : "checksum FAILED") << "\n";
            reportItem(truthItem, *item, out, tally);
        }
        if (!tally.halfHeld) {
            tally.faults.push_back("most intervals miss the truth");
        }
    } catch (const ShapeError& error) {
        tally.faults.push_back(error.what());
    }

    Outcome outcome;
    outcome.ok = tally.faults.empty();
    out << "verdict: " << (outcome.ok ? "ok" : "FAILED") << ": " << plural(complete, "session")
        << " complete, " << failed << " failed; " << sums;
    if (!fleet.empty()) {
        out << " over " << fleet;
    }
    out << "; " << tally.held << " of " << tally.bins << " bins' 95% intervals hold the truth";
    for (const std::string& fault : tally.faults) {
        out << "; " << fault;
    }
    out << "\n";
    outcome.text = out.str();
    return outcome;
}

}  // namespace fleet
}  // namespace vemo
