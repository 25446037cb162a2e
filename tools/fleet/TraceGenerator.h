#pragma once
// Draws a seeded telemetry trace per emulated device for a campaign that
// counts dialog turns by home card ("homecard_uuid") and activity
// ("sensor_output"), and computes the true count per vector element by
// binning every turn with the analytics library's own campaign code.
//
// A trace is a list of ECS events, one JSON text each. The first only
// reports the device's starting state (a first value makes no signal); every
// later one is one dialog turn: the card on screen in "ucids", the activity in
// "activity" (reported through the campaign's passthrough signal
// "ACTIVITY_<VALUE>"), and a fresh "dialog"/"turn" value whose change is the
// emit criterion "DIALOG_TURN_CHANGED".
//
// Immutable after construction; generate() is const and deterministic:
// device d's trace depends only on the generator's start value and d.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace fact {
class Campaign;
}

namespace vemo {
namespace fleet {

class TraceGenerator {
  public:
    struct Options {
        int devices = 10;
        int eventsPerDevice = 30;
        uint64_t seed = 1;
        // What the device's properties say; binned when the campaign asks.
        std::string deviceType = "DEMOSPEAKER";
        std::string locale = "en-US";
    };
    struct Result {
        // traces[d][0] primes device d's state; traces[d][1..] are its turns.
        std::vector<std::vector<std::string>> traces;
        // {"campaign_id", "application_id", "upload_seconds" (the campaign's
        //  wait between uploads), "seed", "devices",
        //  "events_per_device", "items": [{"name", "length", "reports",
        //  "counts": [...]}]}
        std::string truthJson;
    };

    // Loads the campaign through the analytics library's loader and the
    // usage model ({"weights": {card: {activity: weight}}}). Throws
    // std::runtime_error naming what does not fit: an unreadable file, a
    // binned attribute whose value a trace cannot control, a cohort filter
    // other than the device's type or locale, a card or
    // activity that is not a bin, an activity without its passthrough
    // signal, a missing emit criterion, an upload criterion other than one
    // time wait.
    TraceGenerator(const std::string& campaignPath, const std::string& usagePath);
    ~TraceGenerator();

    Result generate(const Options& options) const;

  private:
    struct Turn {
        std::string card;
        std::string activity;     // the sensor_output bin
        std::string ecsActivity;  // the "activity" value that signals it
        double cumulativeWeight;  // upper end of its share of [0, total)
    };

    void loadUsage(const std::string& usagePath);
    void checkCampaign() const;

    std::unique_ptr<fact::Campaign> mCampaign;
    std::vector<Turn> mTurns;
    double mTotalWeight = 0;
};

}  // namespace fleet
}  // namespace vemo
