#include "TraceGenerator.h"

#include <rapidjson/document.h>
#include <rapidjson/pointer.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <cctype>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>

#include "fact/Campaign.h"
#include "fact/CampaignSchemaProvider.h"
#include "fact/InputEvent.h"
#include "fact/VectorProducer.h"

namespace vemo {
namespace fleet {

namespace {

const char kCardAttribute[] = "homecard_uuid";
const char kActivityAttribute[] = "sensor_output";
const char kActivityPrefix[] = "ACTIVITY_";
const char kEmitCriterion[] = "DIALOG_TURN_CHANGED";
// The priming event's activity: any value that no turn reports.
const char kStartingActivity[] = "starting";

using Writer = rapidjson::Writer<rapidjson::StringBuffer>;

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("cannot read " + path);
    }
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::string upper(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

std::string lower(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

// Spreads (seed, device) over the generator's state, so that neighbouring
// seeds and devices give unrelated streams.
uint64_t splitMix(uint64_t x) {
    x += 0x9e3779b97f4a7c15ULL;
    x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
    x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
    return x ^ (x >> 31);
}

std::string ecsEvent(const std::string& card, const std::string& activity, int turn) {
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    writer.Key("ucids");
    writer.String(card);
    writer.Key("activity");
    writer.String(activity);
    writer.Key("dialog");
    writer.StartObject();
    writer.Key("turn");
    writer.String(std::to_string(turn));
    writer.EndObject();
    writer.EndObject();
    return buffer.GetString();
}

// The input event the telemetry producer makes of a turn.
std::string inputEvent(const std::string& dataProducer, const TraceGenerator::Options& options,
                       const std::string& card, const std::string& activity) {
    const std::pair<const char*, std::string> attributes[] = {
        {"device_type", options.deviceType}, {"locale", options.locale},  {kCardAttribute, card},
        {kActivityAttribute, activity},      {"time_delta_seconds", "0"},
    };
    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    writer.Key("data_producer");
    writer.String(dataProducer);
    writer.Key("attributes");
    writer.StartArray();
    for (const auto& attribute : attributes) {
        writer.StartObject();
        writer.Key("key");
        writer.String(attribute.first);
        writer.Key("value");
        writer.String(attribute.second);
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    return buffer.GetString();
}

}  // namespace

TraceGenerator::TraceGenerator(const std::string& campaignPath, const std::string& usagePath) {
    auto schemas = fact::CampaignSchemaProvider().LoadConfig(campaignPath);
    // No privacy policy: the truth is what the device counts before it
    // randomises.
    mCampaign = std::make_unique<fact::Campaign>(std::move(schemas.begin()->second), nullptr);
    loadUsage(usagePath);
    checkCampaign();
}

TraceGenerator::~TraceGenerator() = default;

void TraceGenerator::loadUsage(const std::string& usagePath) {
    rapidjson::Document usage;
    usage.Parse(readFile(usagePath).c_str());
    if (usage.HasParseError() || !usage.IsObject() || !usage.HasMember("weights") ||
        !usage["weights"].IsObject()) {
        throw std::runtime_error(usagePath +
                                 ": expected {\"weights\": {card: {activity: weight}}}");
    }
    // The "activity" value whose passthrough signal reports an activity.
    std::map<std::string, std::string> ecsActivities;
    rapidjson::Document config;
    config.Parse(mCampaign->schema().dataProducerConfig.c_str());
    const rapidjson::Value* passthrough =
        rapidjson::Pointer("/ecs_sensory_events/passthrough_config").Get(config);
    if (passthrough && passthrough->IsObject()) {
        for (const auto& entry : passthrough->GetObject()) {
            const std::string signal = entry.name.GetString();
            if (entry.value.IsString() && signal.rfind(kActivityPrefix, 0) == 0) {
                ecsActivities[entry.value.GetString()] =
                    lower(signal.substr(sizeof(kActivityPrefix) - 1));
            }
        }
    }
    for (const auto& card : usage["weights"].GetObject()) {
        if (!card.value.IsObject()) {
            throw std::runtime_error(usagePath + ": the weights of card " + card.name.GetString() +
                                     " are not an object");
        }
        for (const auto& activity : card.value.GetObject()) {
            if (!activity.value.IsNumber() || activity.value.GetDouble() < 0) {
                throw std::runtime_error(usagePath + ": weight of " + card.name.GetString() +
                                         " / " + activity.name.GetString() +
                                         " is not a number of at least 0");
            }
            Turn turn{card.name.GetString(), activity.name.GetString(), "", 0};
            const auto ecs = ecsActivities.find(turn.activity);
            turn.ecsActivity = ecs == ecsActivities.end() ? "" : ecs->second;
            if (turn.ecsActivity.empty() || turn.ecsActivity == kStartingActivity) {
                throw std::runtime_error("the campaign has no passthrough signal " +
                                         std::string(kActivityPrefix) + "<VALUE> for activity " +
                                         turn.activity);
            }
            mTotalWeight += activity.value.GetDouble();
            turn.cumulativeWeight = mTotalWeight;
            mTurns.push_back(turn);
        }
    }
    if (!(mTotalWeight > 0)) {
        throw std::runtime_error(usagePath + ": the weights add up to nothing");
    }
}

void TraceGenerator::checkCampaign() const {
    const fact::CampaignSchema& schema = mCampaign->schema();
    // Values the trace decides or that the device's properties fix; a binned
    // time offset would depend on how fast the events arrive.
    const std::set<std::string> known = {kCardAttribute, kActivityAttribute, "device_type",
                                         "locale"};
    // The truth and the verdict follow one application id per fleet.
    for (const std::string& filter : schema.cohortFilters) {
        if (filter != "device_type" && filter != "locale") {
            throw std::runtime_error("the campaign's cohort filter " + filter +
                                     " would split a fleet over several applications");
        }
    }
    for (const auto& item : schema.vectorProducerConfigs) {
        for (const auto& attribute : item.attributes) {
            if (known.count(attribute.first) == 0) {
                throw std::runtime_error("the campaign bins " + attribute.first +
                                         ", which a generated trace cannot control");
            }
        }
        for (const Turn& turn : mTurns) {
            const auto card = item.attributes.find(kCardAttribute);
            if (card != item.attributes.end() && card->second->IndexInRange(turn.card) < 0) {
                throw std::runtime_error("card " + turn.card + " is in no bin of " +
                                         item.analyticsName);
            }
            const auto activity = item.attributes.find(kActivityAttribute);
            if (activity != item.attributes.end() &&
                activity->second->IndexInRange(turn.activity) < 0) {
                throw std::runtime_error("activity " + turn.activity + " is in no bin of " +
                                         item.analyticsName);
            }
        }
    }
    // One upload per device, after its whole trace: a size criterion would
    // split a device's turns over uploads at moments a script cannot see.
    if (schema.uploadFrequencies.size() != 1 ||
        schema.uploadFrequencies[0].type != fact::UploadFrequencyConfig::TIME) {
        throw std::runtime_error("the campaign's upload criterion must be one time_seconds wait");
    }
    rapidjson::Document config;
    config.Parse(schema.dataProducerConfig.c_str());
    bool emits = false;
    const rapidjson::Value* criteria =
        rapidjson::Pointer("/ecs_sensory_events/event_emit_criteria").Get(config);
    if (criteria && criteria->IsArray()) {
        for (const auto& criterion : criteria->GetArray()) {
            emits =
                emits || (criterion.IsString() && upper(criterion.GetString()) == kEmitCriterion);
        }
    }
    if (!emits) {
        throw std::runtime_error(std::string("the campaign's producer does not emit on ") +
                                 kEmitCriterion);
    }
}

TraceGenerator::Result TraceGenerator::generate(const Options& options) const {
    const fact::CampaignSchema& schema = mCampaign->schema();
    std::vector<fact::VectorProducer> producers;
    for (const auto& item : schema.vectorProducerConfigs) {
        producers.emplace_back(item, nullptr);
    }
    std::vector<std::vector<int64_t>> counts;
    for (const auto& producer : producers) {
        counts.emplace_back(static_cast<size_t>(producer.vectorSize()), 0);
    }
    std::string applicationId;

    Result result;
    for (int device = 0; device < options.devices; ++device) {
        std::mt19937_64 random(splitMix(options.seed ^ splitMix(static_cast<uint64_t>(device))));
        std::vector<std::string> trace(1);
        for (int turnNumber = 1; turnNumber <= options.eventsPerDevice; ++turnNumber) {
            const double draw = static_cast<double>(random() >> 11) * 0x1.0p-53 * mTotalWeight;
            const auto turn = std::find_if(mTurns.begin(), mTurns.end(), [draw](const Turn& t) {
                return draw < t.cumulativeWeight;
            });
            const Turn& chosen = turn == mTurns.end() ? mTurns.back() : *turn;
            if (turnNumber == 1) {
                trace[0] = ecsEvent(chosen.card, kStartingActivity, 0);
            }
            trace.push_back(ecsEvent(chosen.card, chosen.ecsActivity, turnNumber));

            const fact::InputEvent event(
                inputEvent(schema.dataProducer, options, chosen.card, chosen.activity));
            applicationId = mCampaign->GetApplicationId(event);
            for (size_t k = 0; k < producers.size(); ++k) {
                const fact::Vector vector = producers[k].CreateVector(event);
                const std::vector<int32_t>& elements = vector.elements();
                const auto one = std::find(elements.begin(), elements.end(), 1);
                if (one != elements.end()) {
                    ++counts[k][static_cast<size_t>(one - elements.begin())];
                }
            }
        }
        result.traces.push_back(std::move(trace));
    }

    rapidjson::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    writer.Key("campaign_id");
    writer.String(schema.campaignId);
    writer.Key("application_id");
    writer.String(applicationId);
    writer.Key("upload_seconds");
    writer.Int(schema.uploadFrequencies[0].value);
    writer.Key("seed");
    writer.Uint64(options.seed);
    writer.Key("devices");
    writer.Int(options.devices);
    writer.Key("events_per_device");
    writer.Int(options.eventsPerDevice);
    writer.Key("items");
    writer.StartArray();
    for (size_t k = 0; k < producers.size(); ++k) {
        writer.StartObject();
        writer.Key("name");
        writer.String(schema.vectorProducerConfigs[k].analyticsName);
        writer.Key("length");
        writer.Int(producers[k].vectorSize());
        int64_t reports = 0;
        for (const int64_t count : counts[k]) {
            reports += count;
        }
        writer.Key("reports");
        writer.Int64(reports);
        writer.Key("counts");
        writer.StartArray();
        for (const int64_t count : counts[k]) {
            writer.Int64(count);
        }
        writer.EndArray();
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
    result.truthJson = buffer.GetString();
    return result;
}

}  // namespace fleet
}  // namespace vemo
